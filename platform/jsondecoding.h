#pragma once

#include <QByteArray>
#include <QJsonObject>

namespace JsonDecoding {
// The body as a JSON object; DecodingError when it is not JSON or not an object. Callers check
// the size first: this parses whatever it is given.
QJsonObject object(const QByteArray &body);
} // namespace JsonDecoding
