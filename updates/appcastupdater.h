#pragma once

#include "platform/httpsession.h"
#include "platform/updaterengine.h"
#include "updates/appcast.h"

#include <QByteArray>
#include <QPointer>
#include <QString>
#include <QTimer>
#include <QUrl>

#include <chrono>

#include <optional>

class UserDefaults;

// The updater of the Linux build: it reads the same appcast Sparkle reads on macOS, picks the
// newest release this run may install, and installs it over the launcher's own tree from a
// signed archive. Every decision (may it check now, which channels, may it restart) is the
// delegate's, exactly as with Sparkle. A check that finds an update stops there, with the
// update known; installing it is a separate step the user asks for.
class AppcastUpdater final : public UpdaterEngine {
    Q_OBJECT

public:
    struct Settings {
        QUrl feedURL;
        QByteArray publicKey;
        // The installed tree that an update replaces.
        QString installRoot;
        // The running build's version (CFBundleVersion), which feed versions are compared with.
        QString runningVersion;
        HttpSessionOptions http;
        // Between automatic checks.
        std::chrono::milliseconds automaticInterval{std::chrono::hours(24)};
    };

    // Sparkle's own key for the same setting.
    static inline const QString automaticKey = QStringLiteral("SUEnableAutomaticChecks");

    AppcastUpdater(UpdaterDelegate &delegate, Settings settings, UserDefaults *defaults, QObject *parent = nullptr);
    ~AppcastUpdater() override;

    void start() override;
    void checkForUpdates() override;
    bool canCheckForUpdates() const override { return m_started && !m_session; }
    bool sessionInProgress() const override { return m_session; }
    bool automaticallyChecksForUpdates() const override { return m_automatic; }
    void setAutomaticallyChecksForUpdates(bool on) override;
    void resetUpdateCycleAfterShortDelay() override;

    // The release the last check found, until it is installed or the cycle is reset.
    std::optional<AppcastItem> foundUpdate() const { return m_found; }
    bool hasFoundUpdate() const override { return m_found.has_value(); }
    // Downloads, verifies and installs the found release; reports through the delegate and
    // `installFinished`.
    void installFoundUpdate() override;

Q_SIGNALS:
    // A check ended: `refusal` set when the delegate refused it, `error` when it failed.
    void checkFinished(const std::optional<QString> &refusal, const std::optional<QString> &error);

private:
    void setSession(bool on);
    void fail(const QString &description, bool installing);

    UpdaterDelegate &m_delegate;
    Settings m_settings;
    UserDefaults *m_defaults;
    HttpSession *m_http;
    QTimer m_schedule;
    bool m_started = false;
    bool m_session = false;
    bool m_automatic = false;
    std::optional<AppcastItem> m_found;
};
