#include "preferences/settingstransfer.h"

#include "platform/jsondecoding.h"
#include "preferences/l10n.h"

#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSet>


using namespace Qt::StringLiterals;

namespace {

[[noreturn]] void malformed(const QString &detail)
{
    throw SettingsTransferError(SettingsTransferError::dataCorrupted, detail);
}

QJsonValue required(const QJsonObject &object, const QString &key)
{
    const QJsonValue value = object.value(key);
    if (value.isUndefined())
        malformed(u"missing member \"%1\""_s.arg(key));
    return value;
}

QString requiredString(const QJsonObject &object, const QString &key)
{
    const QJsonValue value = required(object, key);
    if (!value.isString())
        malformed(u"\"%1\" is not a string"_s.arg(key));
    return value.toString();
}

qint64 integerValue(const QJsonValue &value, const QString &what)
{
    if (const auto integer = JsonDecoding::integer(value))
        return *integer;
    malformed(u"%1 is not an integer"_s.arg(what));
}

} // namespace

const char *SettingsTransferError::what() const noexcept
{
    switch (m_code) {
    case fileReadTooLarge:
        return "the settings file is too large";
    case fileReadCorruptFile:
        return "the settings file breaks a rule of the document";
    case dataCorrupted:
        return "the settings file is not a settings document";
    case userCancelled:
        return "settings cannot be changed now";
    }
    return "settings transfer failed";
}

SettingsTransfer SettingsTransfer::decode(const QByteArray &data)
{
    if (data.size() > maximumSize)
        throw SettingsTransferError(SettingsTransferError::fileReadTooLarge);
    QJsonParseError error{};
    const QJsonDocument json = QJsonDocument::fromJson(data, &error);
    if (error.error != QJsonParseError::NoError)
        malformed(error.errorString());
    if (!json.isObject())
        malformed(u"the document is not a JSON object"_s);
    const QJsonObject root = json.object();

    SettingsTransfer document;
    document.schema = integerValue(required(root, u"schema"_s), u"\"schema\""_s);
    document.language = requiredString(root, u"language"_s);
    document.game = requiredString(root, u"game"_s);

    const QJsonValue profiles = required(root, u"profiles"_s);
    if (!profiles.isObject())
        malformed(u"\"profiles\" is not an object"_s);
    const QJsonObject profileObject = profiles.toObject();
    for (auto it = profileObject.begin(); it != profileObject.end(); ++it) {
        const auto profile = it.value().isObject() ? GameProfile::fromJson(it.value().toObject()) : std::nullopt;
        if (!profile)
            malformed(u"the profile \"%1\" lacks a member or has one of the wrong type"_s.arg(it.key()));
        document.profiles.insert(it.key(), *profile);
    }

    const QJsonValue favorites = required(root, u"favorites"_s);
    if (!favorites.isArray())
        malformed(u"\"favorites\" is not an array"_s);
    const QJsonArray favoriteArray = favorites.toArray();
    for (const QJsonValue &favorite : favoriteArray)
        document.favorites.append(integerValue(favorite, u"a favourite"_s));

    document.validate();
    return document;
}

void SettingsTransfer::validate() const
{
    const auto check = [](bool holds) {
        if (!holds)
            throw SettingsTransferError(SettingsTransferError::fileReadCorruptFile);
    };
    check(schema == 1);
    check(language == "en"_L1 || language == "de"_L1 || language == "hu"_L1);
    check(GameKind::fromRawValue(game).has_value());
    check(profiles.size() == qsizetype(GameKind::allCases().size()));
    for (const GameKind game : GameKind::allCases())
        check(profiles.contains(game.rawValue()));
    for (const GameProfile &profile : profiles)
        check(profile.valid());
    check(favorites.size() <= maximumFavorites);
    QSet<qint64> seen;
    for (const qint64 favorite : favorites) {
        check(favorite >= 1 && !seen.contains(favorite));
        seen.insert(favorite);
    }
}

QStringList SettingsTransfer::missingPaths() const
{
    QStringList missing;
    for (const GameKind game : GameKind::allCases()) {
        const GameProfile profile = profiles.value(game.rawValue());
        if (!profile.bottle.isEmpty() && !QFileInfo::exists(profile.bottle + u"/cxbottle.conf"_s))
            missing.append(game.rawValue() + u": "_s + L("CrossOver-palack"));
        if (!profile.directory.isEmpty()
            && !QFileInfo::exists(profile.directory + u"/bin/win_x64/"_s + game.executable()))
            missing.append(game.rawValue() + u": "_s + L("Játék mappája"));
    }
    return missing;
}

QByteArray SettingsTransfer::encoded(bool pretty) const
{
    QJsonObject profileObject;
    for (auto it = profiles.cbegin(); it != profiles.cend(); ++it)
        profileObject.insert(it.key(), it.value().toJson());
    QJsonArray favoriteArray;
    for (const qint64 favorite : favorites)
        favoriteArray.append(favorite);
    // QJsonObject keeps its members sorted by key, which is the order the document promises.
    const QJsonObject root{{u"schema"_s, schema},
                           {u"language"_s, language},
                           {u"game"_s, game},
                           {u"profiles"_s, profileObject},
                           {u"favorites"_s, favoriteArray}};
    return QJsonDocument(root).toJson(pretty ? QJsonDocument::Indented : QJsonDocument::Compact);
}
