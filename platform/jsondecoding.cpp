#include "platform/jsondecoding.h"

#include "platform/urlerror.h"

#include <QJsonDocument>

using namespace Qt::StringLiterals;

QJsonObject JsonDecoding::object(const QByteArray &body)
{
    QJsonParseError parseError;
    const QJsonDocument document = QJsonDocument::fromJson(body, &parseError);
    if (parseError.error != QJsonParseError::NoError)
        throw DecodingError(parseError.errorString());
    if (!document.isObject())
        throw DecodingError(u"the document is not a JSON object"_s);
    return document.object();
}
