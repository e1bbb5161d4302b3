#pragma once

#include <QByteArray>
#include <QDateTime>
#include <QJsonObject>
#include <QJsonValue>
#include <QString>
#include <QUuid>

#include <initializer_list>
#include <optional>
#include <utility>

// The stored form shared by play sessions and failure reports. Records written by the macOS
// launcher and read by this one (and the other way round) must agree byte for byte on these:
// dates are seconds since 2001-01-01 00:00:00 UTC, identifiers are upper-case UUID text, and
// object keys keep the order in which they are written (QJsonObject would sort them).
namespace RecordCoding {

// Seconds, with fraction, since the reference date; nothing for an invalid date.
std::optional<double> referenceSeconds(const QDateTime &date);
// The UTC date of a reference-seconds number; nothing for a value that is not finite or
// beyond the years a QDateTime can hold.
std::optional<QDateTime> dateFromReferenceSeconds(double seconds);

// "E621E1F8-C36C-495A-93FC-0C247A3E6E5F"
QString uuidText(const QUuid &id);
// The 8-4-4-4-12 hexadecimal form in either case; nothing for any other text.
std::optional<QUuid> uuidFromText(const QString &text);

// The object a JSON document holds; nothing for a damaged document or one holding anything else.
std::optional<QJsonObject> parseObject(const QByteArray &json);

// A compact JSON object whose keys appear in the given order. Absent members (an undefined
// QJsonValue) are left out.
QByteArray orderedObject(std::initializer_list<std::pair<QString, QJsonValue>> members);
// A JSON array of already encoded elements.
QByteArray array(const QList<QByteArray> &encodedElements);

} // namespace RecordCoding
