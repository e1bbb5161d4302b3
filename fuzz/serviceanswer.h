#pragma once

// The service's answers as their decoders read them, for the targets of those decoders.

#include "platform/jsondecoding.h"
#include "platform/urlerror.h"

#include <QByteArray>

#include <optional>

// What `parse` makes of `body`, or nothing when it refuses the document; a refusal by the size
// cap leaves its code in `refusal`.
template <typename Parse>
auto decodedAnswer(Parse parse, const QByteArray &body, UrlError::Code *refusal = nullptr)
    -> std::optional<decltype(parse(body))>
{
    try {
        return parse(body);
    } catch (const UrlError &error) {
        if (refusal)
            *refusal = error.code();
    } catch (const DecodingError &) {
    }
    return std::nullopt;
}
