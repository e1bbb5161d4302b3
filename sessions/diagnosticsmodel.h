#pragma once

#include "games/gamekind.h"
#include "preferences/l10n.h"

#include <QList>
#include <QObject>
#include <QString>
#include <QVariantMap>

#include <optional>

class Desktop;
class FilePanels;

// Everything the diagnostics text is made of, copied out of the launcher model and the
// platform on the main thread so that the composition can run elsewhere. The launcher model
// fills it (core/diagnosticsinput.h).
struct DiagnosticsInput {
    struct Check {
        QString title;
        bool ok = false;
    };

    // The application's information dictionary (version and build).
    QVariantMap bundleInfo;
    // The operating system's human-readable version.
    QString operatingSystem;
    // Nothing when CrossOver or its version is missing.
    std::optional<QString> crossOverVersion;
    GameKind game;
    // The platform's capture-device authorisation: 0 not determined, 1 restricted, 2 denied,
    // 3 authorised.
    int microphoneStatus = 0;
    // The readiness checklist, in its order.
    QList<Check> checks;
    QString gameLogPath;
    QString multiplayerLogDirectory;
    // The launcher's console text; only its last 131,072 characters are used.
    QString logText;
    // Redacted away from the logs.
    QString home;
};

// The model behind the diagnostics screen: a preview of the summary and the redacted log tails,
// and saving that preview as "Korvane-Diagnostics.zip". Main thread only; the file work runs
// on copies in the thread pool. Lives as long as its screen.
class DiagnosticsModel : public QObject {
    Q_OBJECT
    Q_PROPERTY(QString preview READ preview NOTIFY previewChanged)
    Q_PROPERTY(bool busy READ busy NOTIFY busyChanged)
    Q_PROPERTY(std::optional<LocalizedMessage> result READ result NOTIFY resultChanged)

public:
    // `temporaryDirectory` is where the archive is built (the platform's by default). Without a
    // desktop the saved archive is not shown in a file browser.
    DiagnosticsModel(FilePanels &panels, Desktop *desktop, QString temporaryDirectory = {},
                     QObject *parent = nullptr);

    QString preview() const { return m_preview; }
    bool busy() const { return m_busy; }
    std::optional<LocalizedMessage> result() const { return m_result; }

    // Starts composing the preview; `busy` until it is there.
    void prepare(const DiagnosticsInput &input);
    // Asks for a destination and saves the preview there. Does nothing while busy or before
    // a preview exists. (`export` itself is a C++ keyword.)
    void exportArchive();

    // The summary block at the top of the preview; not redacted.
    static QString summary(const DiagnosticsInput &input);
    // The whole preview text: the summary and the three redacted log sections. Reads files;
    // runs off the main thread.
    static QString compose(const DiagnosticsInput &input);
    // The client log to show: the newest "client_*.txt" of the directory, or nothing.
    static std::optional<QString> newestClientLog(const QString &directory);

    static constexpr qsizetype launcherLogCharacters = 131072;
    static inline const QString exportFileName = QStringLiteral("Korvane-Diagnostics.zip");

Q_SIGNALS:
    void previewChanged();
    void busyChanged(bool busy);
    void resultChanged();

private:
    void setBusy(bool busy);
    void setResult(std::optional<LocalizedMessage> result);

    FilePanels &m_panels;
    Desktop *m_desktop;
    QString m_temporaryDirectory;
    QString m_preview;
    bool m_busy = false;
    std::optional<LocalizedMessage> m_result;
    // Only the newest preparation may publish its preview.
    quint64 m_preparation = 0;
    bool m_preparing = false;
    bool m_saving = false;
};

