#pragma once

#include "platform/desktop.h"
#include "platform/filepanels.h"

#include <QPointer>
#include <QWidget>

class WindowServices;

// The desktop as Qt reaches it: the clipboard, the file browser, and hiding through the
// window services.
class QtDesktop final : public Desktop {
public:
    explicit QtDesktop(WindowServices &services) : m_services(services) {}
    void hideApplication() override;
    void unhideApplication() override;
    void copyToPasteboard(const QString &text) override;
    void openInFileBrowser(const QString &directory) override;
    void revealInFileBrowser(const QString &path) override;

    // The platform's way of showing a file selected; false when it could not.
    static bool revealFile(const QString &path);

private:
    WindowServices &m_services;
};

// Qt's file dialogs (the native panels on macOS), in front of the main window.
class QtFilePanels final : public FilePanels {
public:
    void setParentWindow(QWidget *window) { m_window = window; }
    std::optional<QString> chooseDirectory(const QString &title, const QString &message) override;
    std::optional<QString> chooseFileToOpen(const QString &title, const QString &extension) override;
    std::optional<QString> chooseSaveLocation(const QString &title, const QString &proposedName,
                                              const QString &extension) override;

private:
    QPointer<QWidget> m_window;
};

class QtConfirmationDialog final : public ConfirmationDialog {
public:
    void setParentWindow(QWidget *window) { m_window = window; }
    bool confirm(const QString &title, const QString &message, const QString &cancelButton,
                 const QString &confirmButton) override;

private:
    QPointer<QWidget> m_window;
};
