#pragma once

#include "games/gamekind.h"
#include "games/gameversion.h"
#include "platform/serviceconfiguration.h"

#include <QByteArray>
#include <QFuture>
#include <QMetaType>
#include <QObject>
#include <QString>

#include <optional>

// The game versions the multiplayer client currently supports, as the service publishes them.
struct SupportedVersions {
    QString ets2;
    QString ats;

    static constexpr qint64 maximumBodySize = 99'999;
    // Throws UrlError (dataLengthExceedsMaximum, cannotParseResponse) or DecodingError. One
    // malformed pattern discards the answer for both games.
    static SupportedVersions parse(const QByteArray &body);
    QString version(GameKind game) const { return game == GameKind::ats ? ats : ets2; }
    bool operator==(const SupportedVersions &) const = default;
};

struct CompatibilityResult {
    enum class State { compatible, mismatch, unknown };

    State state = State::unknown;
    // The installed version's dotted text, when it could be read.
    std::optional<QString> installed;
    // The supported pattern exactly as the service sent it, when it sent a usable one.
    std::optional<QString> supported;

    static CompatibilityResult evaluate(const std::optional<GameVersion> &installed,
                                        const std::optional<QString> &supported);
    static QString stateName(State state);
    bool operator==(const CompatibilityResult &) const = default;
};

class HttpSession;

// Compares the installed game with what the service supports. One request per check, no
// caching, no retry; never fails: whatever goes wrong ends as an unknown verdict.
class CompatibilityService : public QObject {
    Q_OBJECT
public:
    static constexpr HttpTimeouts standardTimeouts{std::chrono::seconds(8), std::chrono::seconds(10)};

    explicit CompatibilityService(const ServiceConfiguration &service, QObject *parent = nullptr);
    ~CompatibilityService() override;

    // The executable is read on a worker thread while the request is in flight. The future
    // finishes on this object's thread; it is cancelled if the service goes away first.
    QFuture<CompatibilityResult> check(GameKind game, const QString &executablePath);

private:
    QUrl m_versionURL;
    HttpSession *m_session;
};

Q_DECLARE_METATYPE(CompatibilityResult)
