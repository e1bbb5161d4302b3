#include "sessions/diagnosticsmodel.h"

#include "platform/bundleinfo.h"
#include "platform/desktop.h"
#include "platform/filepanels.h"
#include "platform/paths.h"
#include "sessions/diagnosticarchive.h"
#include "sessions/diagnosticprivacy.h"

#include <QDir>
#include <QDirIterator>
#include <QFileInfo>
#include <QFuture>
#include <QFutureWatcher>
#include <QtConcurrent>

using namespace Qt::StringLiterals;

namespace {
// Hands a background result to `done` on the context's thread, always through its event loop:
// QFuture::then(context, ...) calls a continuation directly when the work finished before it was
// attached, and a preparation could then end inside prepare() itself. The watcher is the
// context's child, so nothing is delivered to a model that is gone.
template <typename T, typename Done>
void deliver(QObject *context, QFuture<T> future, Done done)
{
    auto *watcher = new QFutureWatcher<T>(context);
    QObject::connect(watcher, &QFutureWatcherBase::finished, context, [watcher, done = std::move(done)] {
        done(watcher->result());
        watcher->deleteLater();
    });
    watcher->setFuture(std::move(future));
}

QString bundleText(const QVariantMap &bundleInfo, const QString &key)
{
    const QVariant value = bundleInfo.value(key);
    return value.typeId() == QMetaType::QString ? value.toString() : u"?"_s;
}
} // namespace

DiagnosticsModel::DiagnosticsModel(FilePanels &panels, Desktop *desktop, QString temporaryDirectory,
                                   QObject *parent)
    : QObject(parent)
    , m_panels(panels)
    , m_desktop(desktop)
    , m_temporaryDirectory(temporaryDirectory.isEmpty() ? Paths::system().temporary : std::move(temporaryDirectory))
{
}

QString DiagnosticsModel::summary(const DiagnosticsInput &input)
{
    QStringList checklist;
    for (const DiagnosticsInput::Check &check : input.checks)
        checklist.append(check.title + u": "_s + (check.ok ? u"OK"_s : u"MISSING"_s));
    return u"Korvane Mac Launcher diagnostics\nVersion: "_s + bundleText(input.bundleInfo, BundleInfo::shortVersionKey)
        + u" ("_s + bundleText(input.bundleInfo, BundleInfo::buildVersionKey)
        + u")\nmacOS: "_s + input.operatingSystem
        + u"\nCrossOver: "_s + input.crossOverVersion.value_or(u"unavailable"_s)
        + u"\nGame: "_s + input.game.rawValue()
        + u"\nProfile: D3DMetal + MSync / DX11\nMicrophone: "_s + QString::number(input.microphoneStatus)
        + u'\n' + checklist.join(u'\n')
        + u"\n\nOnly bounded launcher/game/client logs are included. No chat logs, saves, credentials, "
          "screenshots or raw configuration. Review before sharing; automatic redaction cannot guarantee "
          "removal of every personal detail.\n"_s;
}

std::optional<QString> DiagnosticsModel::newestClientLog(const QString &directory)
{
    std::optional<QString> newest;
    QDateTime newestDate;
    // An unreadable directory lists nothing.
    const QFileInfoList entries = QDir(directory).entryInfoList(
        {u"client_*.txt"_s}, QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot, QDir::Name);
    for (const QFileInfo &entry : entries) {
        // The wildcard may ignore case; the rule is a name that begins with "client_" and whose
        // extension is exactly "txt".
        if (!entry.fileName().startsWith(u"client_"_s) || entry.suffix() != u"txt"_s)
            continue;
        // A date that cannot be read (invalid) counts as the earliest possible one.
        const QDateTime modified = entry.lastModified();
        if (!newest || (modified.isValid() && (!newestDate.isValid() || modified > newestDate))) {
            newest = entry.absoluteFilePath();
            newestDate = modified;
        }
    }
    return newest;
}

QString DiagnosticsModel::compose(const DiagnosticsInput &input)
{
    const QString &home = input.home;
    const QString launcher = DiagnosticPrivacy::lastCharacters(input.logText, launcherLogCharacters);
    const std::optional<QString> clientLog = newestClientLog(input.multiplayerLogDirectory);
    const QString client = clientLog ? DiagnosticPrivacy::tail(*clientLog) : DiagnosticPrivacy::unavailable;
    return QStringList{
        summary(input),
        u"\n--- Launcher ---\n"_s + DiagnosticPrivacy::redact(launcher, home),
        u"\n--- Game ---\n"_s + DiagnosticPrivacy::redact(DiagnosticPrivacy::tail(input.gameLogPath), home),
        u"\n--- Multiplayer client ---\n"_s + DiagnosticPrivacy::redact(client, home),
    }.join(u'\n');
}

void DiagnosticsModel::prepare(const DiagnosticsInput &input)
{
    const quint64 preparation = ++m_preparation;
    m_preparing = true;
    setBusy(true);
    setResult(std::nullopt);
    deliver(this, QtConcurrent::run([input] { return compose(input); }), [this, preparation](const QString &text) {
        // A newer preparation started meanwhile: its preview is the one to show.
        if (preparation != m_preparation)
            return;
        if (m_preview != text) {
            m_preview = text;
            Q_EMIT previewChanged();
        }
        m_preparing = false;
        setBusy(m_saving);
    });
}

void DiagnosticsModel::exportArchive()
{
    if (m_busy || m_preview.isEmpty())
        return;
    const auto destination = m_panels.chooseSaveLocation(L("diagnostics.save"), exportFileName, u"zip"_s);
    if (!destination)
        return;
    const QString report = m_preview;
    const QString temporary = m_temporaryDirectory;
    m_saving = true;
    setBusy(true);
    const auto saving = QtConcurrent::run([report, destination = *destination, temporary] {
        try {
            DiagnosticArchive::save(report, destination, temporary);
            return true;
        } catch (const DiagnosticArchive::Error &) {
            return false;
        }
    });
    deliver(this, saving, [this, destination = *destination](bool saved) {
        m_saving = false;
        setBusy(m_preparing);
        setResult(LocalizedMessage(saved ? "diagnostics.saved" : "diagnostics.failed"));
        if (saved && m_desktop)
            m_desktop->revealInFileBrowser(destination);
    });
}

void DiagnosticsModel::setBusy(bool busy)
{
    if (m_busy == busy)
        return;
    m_busy = busy;
    Q_EMIT busyChanged(busy);
}

void DiagnosticsModel::setResult(std::optional<LocalizedMessage> result)
{
    if (m_result == result)
        return;
    m_result = std::move(result);
    Q_EMIT resultChanged();
}
