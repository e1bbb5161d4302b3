// The user-defaults document: the values the store reads from a file survive the store's own
// write (of one more value) and a fresh read unchanged; a damaged document is kept aside byte for byte before it
// is replaced; a file one byte over the cap counts as damaged.
#include "fuzzcheck.h"

#include "platform/userdefaults.h"

#include <QFile>
#include <QJsonDocument>
#include <QVariantMap>

namespace {
QVariantMap everything(const UserDefaults &defaults)
{
    QVariantMap values;
    for (const QString &key : defaults.keys())
        values.insert(key, defaults.object(key));
    return values;
}

// QVariant's == compares a real 1.0 with the integer 1 as equal; the store promises the type too.
bool same(const QVariant &a, const QVariant &b)
{
    if (a.typeId() != b.typeId())
        return false;
    switch (a.typeId()) {
    case QMetaType::QVariantList: {
        const QVariantList left = a.toList(), right = b.toList();
        if (left.size() != right.size())
            return false;
        for (qsizetype i = 0; i < left.size(); ++i)
            if (!same(left.at(i), right.at(i)))
                return false;
        return true;
    }
    case QMetaType::QVariantMap: {
        const QVariantMap left = a.toMap(), right = b.toMap();
        if (left.keys() != right.keys())
            return false;
        for (auto it = left.cbegin(); it != left.cend(); ++it)
            if (!same(it.value(), right.value(it.key())))
                return false;
        return true;
    }
    default:
        return a == b;
    }
}

bool same(const QVariantMap &a, const QVariantMap &b)
{
    return same(QVariant(a), QVariant(b));
}

const QString &documentPath()
{
    static const QString path = FuzzSupport::scratch() + QStringLiteral("/defaults.json");
    return path;
}
} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    QByteArray document = R"({"kept":true})";
    document.append(QByteArray(JsonUserDefaults::maximumFileSize - document.size(), ' '));
    FuzzSupport::writeFile(documentPath(), document);
    FUZZ_CHECK(JsonUserDefaults(documentPath()).boolValue(QStringLiteral("kept")));
    document.append(' ');
    FuzzSupport::writeFile(documentPath(), document);
    FUZZ_CHECK(JsonUserDefaults(documentPath()).keys().isEmpty());
    QFile::remove(documentPath());
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QString &path = documentPath();
    const QString damagedCopy = path + QStringLiteral(".damaged");
    QFile::remove(damagedCopy);
    const QByteArray bytes = FuzzSupport::bytes(data, size);
    FuzzSupport::writeFile(path, bytes);

    QVariantMap original;
    {
        JsonUserDefaults defaults(path);
        original = everything(defaults);
        // Every value read back is of a type the store can hold.
        for (const QVariant &value : std::as_const(original))
            FUZZ_CHECK(same(UserDefaults::normalized(value), value));
        defaults.setString(QStringLiteral("fuzz.marker"), QStringLiteral("written"));
        FUZZ_CHECK(defaults.lastError().isEmpty());
    }
    const bool damaged = !QJsonDocument::fromJson(bytes).isObject();
    FUZZ_CHECK(QFile::exists(damagedCopy) == damaged);
    if (damaged)
        FUZZ_CHECK(FuzzSupport::readFile(damagedCopy) == bytes);

    JsonUserDefaults reread(path);
    QVariantMap expected = original;
    expected.insert(QStringLiteral("fuzz.marker"), QStringLiteral("written"));
    FUZZ_CHECK(same(everything(reread), expected));
    return 0;
}
