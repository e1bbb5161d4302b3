#include "core/settingstransferflow.h"

#include "core/launchermodel.h"
#include "platform/atomicfile.h"
#include "platform/boundedread.h"
#include "platform/filepanels.h"
#include "platform/privatedirectory.h"
#include "platform/recordcoding.h"
#include "platform/userdefaults.h"
#include "preferences/languagesettings.h"
#include "servers/serverlistmodel.h"

#include <QDir>
#include <QFile>
#include <QUuid>

using namespace Qt::StringLiterals;

namespace {
constexpr QFileDevice::Permissions ownerReadWrite = QFileDevice::ReadOwner | QFileDevice::WriteOwner;

bool writePrivately(const QString &path, const QByteArray &data, QString *error)
{
    return AtomicFile::write(path, data, ownerReadWrite, error);
}
} // namespace

SettingsTransferFlow::SettingsTransferFlow(LauncherModel &model, ServerListModel &servers, LanguageSettings &language,
                                           FilePanels &panels, ConfirmationDialog &confirmation)
    : m_model(model)
    , m_servers(servers)
    , m_language(language)
    , m_panels(panels)
    , m_confirmation(confirmation)
{
}

bool SettingsTransferFlow::isAvailable() const
{
    return m_model.canTransferSettings();
}

LocalizedMessage SettingsTransferFlow::failed(const QString &why)
{
    m_lastError = why;
    return LocalizedMessage("transfer.failed");
}

SettingsTransfer SettingsTransferFlow::snapshot()
{
    return m_model.settingsSnapshot(m_servers.favorites(), m_language.language());
}

std::optional<LocalizedMessage> SettingsTransferFlow::exportSettings()
{
    m_lastError.clear();
    if (!isAvailable())
        return std::nullopt;
    const SettingsTransfer document = snapshot();
    try {
        document.validate();
    } catch (const SettingsTransferError &error) {
        return failed(QString::fromUtf8(error.what()));
    }
    const QByteArray data = document.encoded(true);
    const auto destination = m_panels.chooseSaveLocation(L("transfer.export"), SettingsTransfer::defaultFileName, u"json"_s);
    if (!destination)
        return std::nullopt;
    QString error;
    if (!writePrivately(*destination, data, &error))
        return failed(error);
    return LocalizedMessage("transfer.saved");
}

std::optional<LocalizedMessage> SettingsTransferFlow::importSettings()
{
    m_lastError.clear();
    if (!isAvailable())
        return std::nullopt;
    const auto source = m_panels.chooseFileToOpen(L("transfer.import"), u"json"_s);
    if (!source)
        return std::nullopt;
    QFile file(*source);
    if (!file.open(QIODevice::ReadOnly))
        return failed(file.errorString());
    // One byte past the cap is enough to know the file is too large, without reading all of it.
    const QByteArray data = BoundedRead::upTo(file, SettingsTransfer::maximumSize + 1);
    if (file.error() != QFileDevice::NoError)
        return failed(file.errorString());
    try {
        m_candidate = SettingsTransfer::decode(data);
    } catch (const SettingsTransferError &error) {
        dismissCandidate();
        return failed(error.detail().isEmpty() ? QString::fromUtf8(error.what()) : error.detail());
    }
    m_missing = m_candidate->missingPaths();

    QString message = L("transfer.confirm.help");
    if (!m_missing.isEmpty())
        message += u"\n\n"_s + L("transfer.missing") + u'\n' + m_missing.join(u'\n');
    if (!m_confirmation.confirm(L("transfer.confirm"), message, L("common.cancel"), L("transfer.apply"))) {
        dismissCandidate();
        return std::nullopt;
    }
    return applyCandidate();
}

bool SettingsTransferFlow::writeBackup()
{
    const QString folder = m_model.applicationDataDirectory() + u'/' + backupFolderName;
    if (!PrivateDirectory::create(folder)
        || !QFile::setPermissions(folder, QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner)) {
        m_lastError = u"cannot create %1"_s.arg(folder);
        return false;
    }
    const QString path = folder + u'/' + RecordCoding::uuidText(QUuid::createUuid()) + u".json"_s;
    QString error;
    if (!writePrivately(path, snapshot().encoded(false), &error)) {
        m_lastError = error;
        return false;
    }
    m_lastBackupPath = path;
    return true;
}

std::optional<LocalizedMessage> SettingsTransferFlow::applyCandidate()
{
    if (!isAvailable() || !m_candidate)
        return std::nullopt;
    // Nothing is applied without a way back.
    if (!writeBackup())
        return LocalizedMessage("transfer.failed");
    // The model, the language and the favourites share the store: one save takes all of the
    // document, so an interrupted import leaves the old settings or the new ones, never a mix.
    const UserDefaults::Batch oneSave(m_model.defaults());
    try {
        m_model.importSettings(*m_candidate);
    } catch (const SettingsTransferError &error) {
        return failed(QString::fromUtf8(error.what()));
    }
    if (const auto language = AppLanguage::fromRawValue(m_candidate->language))
        m_language.setLanguage(*language);
    m_servers.replaceFavorites(m_candidate->favorites);
    const bool hadMissing = !m_missing.isEmpty();
    dismissCandidate();
    return LocalizedMessage(hadMissing ? "transfer.applied.missing" : "transfer.applied");
}

void SettingsTransferFlow::dismissCandidate()
{
    m_candidate.reset();
    m_missing.clear();
}
