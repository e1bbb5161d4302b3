#include "KorvaneMacLauncher/desktopservices.h"

#include "KorvaneMacLauncher/windowservices.h"

#include <QClipboard>
#include <QDesktopServices>
#include <QDir>
#include <QFileDialog>
#include <QFileInfo>
#include <QGuiApplication>
#include <QMessageBox>
#include <QPushButton>
#include <QUrl>

using namespace Qt::StringLiterals;

void QtDesktop::hideApplication()
{
    m_services.hideApplication();
}

void QtDesktop::unhideApplication()
{
    m_services.unhideApplication();
}

void QtDesktop::copyToPasteboard(const QString &text)
{
    QGuiApplication::clipboard()->setText(text);
}

void QtDesktop::openInFileBrowser(const QString &directory)
{
    QDesktopServices::openUrl(QUrl::fromLocalFile(directory));
}

void QtDesktop::revealInFileBrowser(const QString &path)
{
    // Without a file manager that can select a file, the folder that holds it will do.
    if (!revealFile(path))
        openInFileBrowser(QFileInfo(path).absolutePath());
}

std::optional<QString> QtFilePanels::chooseDirectory(const QString &title, const QString &message)
{
    QFileDialog dialog(m_window, title);
    dialog.setFileMode(QFileDialog::Directory);
    dialog.setOption(QFileDialog::ShowDirsOnly);
    dialog.setLabelText(QFileDialog::Accept, title);
    dialog.setToolTip(message);
    dialog.setDirectory(QDir::homePath());
    if (dialog.exec() != QDialog::Accepted || dialog.selectedFiles().isEmpty())
        return std::nullopt;
    return dialog.selectedFiles().constFirst();
}

std::optional<QString> QtFilePanels::chooseFileToOpen(const QString &title, const QString &extension)
{
    const QString path = QFileDialog::getOpenFileName(m_window, title, QDir::homePath(), u"*."_s + extension);
    return path.isEmpty() ? std::nullopt : std::optional<QString>(path);
}

std::optional<QString> QtFilePanels::chooseSaveLocation(const QString &title, const QString &proposedName,
                                                        const QString &extension)
{
    const QString path = QFileDialog::getSaveFileName(m_window, title, QDir::homePath() + u'/' + proposedName,
                                                      u"*."_s + extension);
    return path.isEmpty() ? std::nullopt : std::optional<QString>(path);
}

bool QtConfirmationDialog::confirm(const QString &title, const QString &message, const QString &cancelButton,
                                   const QString &confirmButton)
{
    QMessageBox box(QMessageBox::Question, title, message, QMessageBox::NoButton, m_window);
    box.setInformativeText(QString());
    QPushButton *confirmed = box.addButton(confirmButton, QMessageBox::AcceptRole);
    QPushButton *cancelled = box.addButton(cancelButton, QMessageBox::RejectRole);
    box.setDefaultButton(cancelled);
    box.setEscapeButton(cancelled);
    box.exec();
    return box.clickedButton() == confirmed;
}
