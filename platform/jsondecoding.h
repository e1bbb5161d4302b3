#pragma once

#include <QByteArray>
#include <QJsonObject>
#include <QJsonValue>

#include <optional>

namespace JsonDecoding {
// The body as a JSON object; DecodingError when it is not JSON or not an object. Callers check
// the size first: this parses whatever it is given.
QJsonObject object(const QByteArray &body);
// A whole JSON number that fits in 64 bits, read exactly (the parser keeps integers beyond a
// double's 53 bits as integers); nothing for a fraction, an out-of-range value or a non-number.
std::optional<qint64> integer(const QJsonValue &value);
} // namespace JsonDecoding
