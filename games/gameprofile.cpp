#include "games/gameprofile.h"

#include "platform/userdefaults.h"

#include <QJsonDocument>

using namespace Qt::StringLiterals;

namespace {
const QString bottleKey = u"bottle"_s;
const QString directoryKey = u"directory"_s;
const QString skipIntroKey = u"skipIntro"_s;
const QString desktopSizeKey = u"desktopSize"_s;
const QString hideKey = u"hide"_s;
const QString restoreKey = u"restore"_s;
constexpr qsizetype maximumPathBytes = 4096;
} // namespace

const QStringList &GameProfile::sizes()
{
    static const QStringList values{u"1280x720"_s, u"1600x900"_s, u"1920x1080"_s, u"2560x1440"_s};
    return values;
}

bool GameProfile::isAcceptablePath(const QString &path)
{
    if (path.isEmpty())
        return true;
    if (!path.startsWith(u'/') || path.toUtf8().size() > maximumPathBytes)
        return false;
    // Walk code points, not UTF-16 units, so format characters outside the BMP are seen too.
    for (char32_t codePoint : path.toUcs4()) {
        const auto category = QChar::category(codePoint);
        if (category == QChar::Other_Control || category == QChar::Other_Format)
            return false;
    }
    return true;
}

bool GameProfile::valid() const
{
    return sizes().contains(desktopSize) && isAcceptablePath(bottle) && isAcceptablePath(directory);
}

QStringList GameProfile::arguments() const
{
    return {u"--wine-desktop"_s, desktopSize,
            u"--game-options="_s + (skipIntro ? u"-nointro -64bit"_s : u"-64bit"_s)};
}

QJsonObject GameProfile::toJson() const
{
    return {{bottleKey, bottle},      {directoryKey, directory}, {skipIntroKey, skipIntro},
            {desktopSizeKey, desktopSize}, {hideKey, hide},     {restoreKey, restore}};
}

std::optional<GameProfile> GameProfile::fromJson(const QJsonObject &object)
{
    const QJsonValue bottle = object.value(bottleKey), directory = object.value(directoryKey),
                     skipIntro = object.value(skipIntroKey), size = object.value(desktopSizeKey),
                     hide = object.value(hideKey), restore = object.value(restoreKey);
    if (!bottle.isString() || !directory.isString() || !skipIntro.isBool() || !size.isString()
        || !hide.isBool() || !restore.isBool())
        return std::nullopt;
    return GameProfile{bottle.toString(), directory.toString(), skipIntro.toBool(),
                       size.toString(),   hide.toBool(),        restore.toBool()};
}

GameProfiles::GameProfiles(UserDefaults &defaults)
    : m_defaults(defaults)
{
    const QByteArray stored = defaults.data(defaultsKey);
    if (stored.isEmpty())
        return;
    const QJsonDocument document = QJsonDocument::fromJson(stored);
    if (!document.isObject())
        return;
    // One undecodable profile makes the whole document unreadable; the stored entry stays as
    // it is until the next save replaces it.
    QHash<QString, GameProfile> decoded;
    const QJsonObject root = document.object();
    for (auto it = root.begin(); it != root.end(); ++it) {
        if (!it.value().isObject())
            return;
        const auto profile = GameProfile::fromJson(it.value().toObject());
        if (!profile)
            return;
        decoded.insert(it.key(), *profile);
    }
    for (auto it = decoded.cbegin(); it != decoded.cend(); ++it)
        if (GameKind::fromRawValue(it.key()) && it.value().valid())
            m_values.insert(it.key(), it.value());
}

void GameProfiles::save(const GameProfile &profile, GameKind game)
{
    if (!profile.valid())
        return;
    m_values.insert(game.rawValue(), profile);
    QJsonObject root;
    for (auto it = m_values.cbegin(); it != m_values.cend(); ++it)
        root.insert(it.key(), it.value().toJson());
    m_defaults.setData(defaultsKey, QJsonDocument(root).toJson(QJsonDocument::Compact));
}

std::optional<GameProfile> GameProfiles::profile(GameKind game) const
{
    const auto it = m_values.constFind(game.rawValue());
    if (it == m_values.cend())
        return std::nullopt;
    return *it;
}

std::optional<RenderingBackend> RenderingBackend::fromRawValue(QStringView rawValue)
{
    if (rawValue == u"dx11")
        return RenderingBackend(dx11);
    if (rawValue == u"gl")
        return RenderingBackend(gl);
    return std::nullopt;
}

QString RenderingBackend::rawValue() const
{
    return m_value == gl ? u"gl"_s : u"dx11"_s;
}

QString RenderingBackend::title() const
{
    return u"DirectX 11 (Korvane)"_s;
}
