#include "platform/userdefaults.h"

#include "platform/atomicfile.h"
#include "platform/boundedread.h"
#include "platform/privatedirectory.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <sys/stat.h>

using namespace Qt::StringLiterals;

bool UserDefaults::boolValue(const QString &key) const
{
    const QVariant value = object(key);
    switch (value.typeId()) {
    case QMetaType::Bool:
        return value.toBool();
    case QMetaType::LongLong:
        return value.toLongLong() != 0;
    case QMetaType::Double:
        return value.toDouble() != 0.0;
    case QMetaType::QString: {
        const QString text = value.toString().trimmed();
        return text.compare("yes"_L1, Qt::CaseInsensitive) == 0
            || text.compare("true"_L1, Qt::CaseInsensitive) == 0 || text == "1"_L1;
    }
    default:
        return false;
    }
}

qint64 UserDefaults::integer(const QString &key) const
{
    const QVariant value = object(key);
    switch (value.typeId()) {
    case QMetaType::Bool:
        return value.toBool() ? 1 : 0;
    case QMetaType::LongLong:
        return value.toLongLong();
    case QMetaType::Double:
        return qint64(value.toDouble());
    case QMetaType::QString: {
        bool ok = false;
        const qint64 number = value.toString().trimmed().toLongLong(&ok);
        return ok ? number : 0;
    }
    default:
        return 0;
    }
}

std::optional<QString> UserDefaults::string(const QString &key) const
{
    const QVariant value = object(key);
    switch (value.typeId()) {
    case QMetaType::QString:
        return value.toString();
    case QMetaType::LongLong:
        return QString::number(value.toLongLong());
    case QMetaType::Double:
        return QString::number(value.toDouble());
    default:
        return std::nullopt;
    }
}

QByteArray UserDefaults::data(const QString &key) const
{
    const QVariant value = object(key);
    return value.typeId() == QMetaType::QByteArray ? value.toByteArray() : QByteArray();
}

QVariantList UserDefaults::array(const QString &key) const
{
    const QVariant value = object(key);
    return value.typeId() == QMetaType::QVariantList ? value.toList() : QVariantList();
}

std::optional<QStringList> UserDefaults::stringArray(const QString &key) const
{
    const QVariant value = object(key);
    if (value.typeId() != QMetaType::QVariantList)
        return std::nullopt;
    QStringList result;
    for (const QVariant &item : value.toList()) {
        if (item.typeId() != QMetaType::QString)
            return std::nullopt;
        result.append(item.toString());
    }
    return result;
}

QVariant UserDefaults::normalized(const QVariant &value)
{
    switch (value.typeId()) {
    case QMetaType::Bool:
    case QMetaType::Double:
    case QMetaType::QString:
    case QMetaType::QByteArray:
        return value;
    case QMetaType::Int:
    case QMetaType::UInt:
    case QMetaType::LongLong:
    case QMetaType::Short:
    case QMetaType::UShort:
        return QVariant(value.toLongLong());
    case QMetaType::ULongLong:
        if (value.toULongLong() > quint64(std::numeric_limits<qint64>::max()))
            return {};
        return QVariant(value.toLongLong());
    case QMetaType::Float:
        return QVariant(value.toDouble());
    case QMetaType::QStringList: {
        QVariantList list;
        for (const QString &item : value.toStringList())
            list.append(QVariant(item));
        return list;
    }
    case QMetaType::QVariantList: {
        QVariantList list;
        for (const QVariant &item : value.toList()) {
            const QVariant converted = normalized(item);
            if (!converted.isValid())
                return {};
            list.append(converted);
        }
        return list;
    }
    case QMetaType::QVariantMap: {
        QVariantMap map;
        const QVariantMap source = value.toMap();
        for (auto it = source.cbegin(); it != source.cend(); ++it) {
            const QVariant converted = normalized(it.value());
            if (!converted.isValid())
                return {};
            map.insert(it.key(), converted);
        }
        return map;
    }
    default:
        return {};
    }
}

// JSON knows bools, numbers, strings and arrays. Binary data, reals and dictionaries are
// wrapped in a tagged object so that nothing changes type on the way through the file
// (a real 2.0 would otherwise come back as an integer).
namespace {
const QString typeTag = u"$type"_s;
const QString valueTag = u"value"_s;

QJsonValue encode(const QVariant &value)
{
    switch (value.typeId()) {
    case QMetaType::Bool:
        return value.toBool();
    case QMetaType::LongLong:
        return value.toLongLong();
    case QMetaType::Double:
        return QJsonObject{{typeTag, u"real"_s}, {valueTag, value.toDouble()}};
    case QMetaType::QString:
        return value.toString();
    case QMetaType::QByteArray:
        return QJsonObject{{typeTag, u"data"_s},
                           {valueTag, QString::fromLatin1(value.toByteArray().toBase64())}};
    case QMetaType::QVariantList: {
        QJsonArray array;
        for (const QVariant &item : value.toList())
            array.append(encode(item));
        return array;
    }
    case QMetaType::QVariantMap: {
        QJsonObject members;
        const QVariantMap map = value.toMap();
        for (auto it = map.cbegin(); it != map.cend(); ++it)
            members.insert(it.key(), encode(it.value()));
        return QJsonObject{{typeTag, u"dict"_s}, {valueTag, members}};
    }
    default:
        return QJsonValue(QJsonValue::Undefined);
    }
}

QVariant decode(const QJsonValue &value)
{
    switch (value.type()) {
    case QJsonValue::Bool:
        return value.toBool();
    case QJsonValue::Double: {
        const QVariant number = value.toVariant();
        return number.typeId() == QMetaType::Double ? number : QVariant(number.toLongLong());
    }
    case QJsonValue::String:
        return value.toString();
    case QJsonValue::Array: {
        QVariantList list;
        for (const QJsonValue &item : value.toArray()) {
            const QVariant decoded = decode(item);
            if (decoded.isValid())
                list.append(decoded);
        }
        return list;
    }
    case QJsonValue::Object: {
        const QJsonObject object = value.toObject();
        const QString type = object.value(typeTag).toString();
        const QJsonValue inner = object.value(valueTag);
        if (type == "real"_L1 && inner.isDouble())
            return inner.toDouble();
        if (type == "data"_L1 && inner.isString()) {
            auto result = QByteArray::fromBase64Encoding(inner.toString().toLatin1(),
                                                         QByteArray::AbortOnBase64DecodingErrors);
            return result ? QVariant(*result) : QVariant();
        }
        if (type == "dict"_L1 && inner.isObject()) {
            QVariantMap map;
            const QJsonObject members = inner.toObject();
            for (auto it = members.begin(); it != members.end(); ++it) {
                const QVariant decoded = decode(it.value());
                if (decoded.isValid())
                    map.insert(it.key(), decoded);
            }
            return map;
        }
        return {};
    }
    default:
        return {};
    }
}
} // namespace

JsonUserDefaults::JsonUserDefaults(QString path)
    : m_path(std::move(path))
{
    reloadIfChanged();
}

JsonUserDefaults::FileStamp JsonUserDefaults::currentStamp() const
{
    struct stat info {};
    if (::stat(QFile::encodeName(m_path).constData(), &info) != 0)
        return {};
#if defined(__APPLE__)
    const qint64 modified = qint64(info.st_mtimespec.tv_sec) * 1000000000 + info.st_mtimespec.tv_nsec;
#else
    const qint64 modified = qint64(info.st_mtim.tv_sec) * 1000000000 + info.st_mtim.tv_nsec;
#endif
    return {qint64(info.st_size), modified, quint64(info.st_ino)};
}

void JsonUserDefaults::reloadIfChanged() const
{
    // Unsaved writes are newer than anything on disk.
    if (m_unsaved)
        return;
    const FileStamp stamp = currentStamp();
    if (stamp == m_stamp)
        return;
    m_stamp = stamp;
    m_values.clear();
    m_damaged = false;
    if (stamp.size < 0)
        return;
    QFile file(m_path);
    if (stamp.size > maximumFileSize || !file.open(QIODevice::ReadOnly)) {
        m_damaged = true;
        return;
    }
    const QJsonDocument document = QJsonDocument::fromJson(BoundedRead::upTo(file, maximumFileSize));
    if (!document.isObject()) {
        m_damaged = true;
        return;
    }
    const QJsonObject root = document.object();
    for (auto it = root.begin(); it != root.end(); ++it) {
        const QVariant decoded = decode(it.value());
        if (decoded.isValid())
            m_values.insert(it.key(), decoded);
    }
}

QVariant JsonUserDefaults::object(const QString &key) const
{
    reloadIfChanged();
    return m_values.value(key);
}

QStringList JsonUserDefaults::keys() const
{
    reloadIfChanged();
    return m_values.keys();
}

void JsonUserDefaults::setObject(const QString &key, const QVariant &value)
{
    const QVariant stored = normalized(value);
    if (!stored.isValid()) {
        qWarning("UserDefaults: refusing a value of type %s for key %s", value.typeName(),
                 qUtf8Printable(key));
        return;
    }
    reloadIfChanged();
    // Compared in stored form, so a bool never equals the number 1: models persist whole
    // records after every change, and only what really changed costs a rewrite of the file.
    if (const auto existing = m_values.constFind(key);
        existing != m_values.cend() && encode(*existing) == encode(stored))
        return;
    m_values.insert(key, stored);
    write();
}

void JsonUserDefaults::remove(const QString &key)
{
    reloadIfChanged();
    if (m_values.remove(key) > 0)
        write();
}

void JsonUserDefaults::beginBatch()
{
    ++m_batchDepth;
}

void JsonUserDefaults::endBatch()
{
    if (m_batchDepth > 0 && --m_batchDepth == 0 && m_unsaved)
        write();
}

void JsonUserDefaults::write()
{
    if (m_batchDepth > 0) {
        m_unsaved = true;
        return;
    }
    m_unsaved = false;
    QJsonObject root;
    for (auto it = m_values.cbegin(); it != m_values.cend(); ++it)
        root.insert(it.key(), encode(it.value()));

    // A document that could not be parsed is kept aside before it is replaced, so a
    // hand-edited file with a typo is not lost without trace.
    if (m_damaged) {
        QFile::remove(m_path + u".damaged"_s);
        QFile::copy(m_path, m_path + u".damaged"_s);
        m_damaged = false;
    }

    PrivateDirectory::create(QFileInfo(m_path).absolutePath());
    if (!AtomicFile::write(m_path, QJsonDocument(root).toJson(QJsonDocument::Compact),
                           QFileDevice::ReadOwner | QFileDevice::WriteOwner, &m_lastError))
        return;
    m_lastError.clear();
    m_stamp = currentStamp();
}

QString JsonUserDefaults::standardLocation()
{
    // The XDG base directory rules ignore a relative XDG_CONFIG_HOME.
    const QString xdgConfig = qEnvironmentVariable("XDG_CONFIG_HOME");
    const QString base = xdgConfig.startsWith(u'/') ? QDir::cleanPath(xdgConfig) : QDir::homePath() + u"/.config"_s;
    return base + u"/korvane-launcher/defaults.json"_s;
}
