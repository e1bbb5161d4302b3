#pragma once

#include <QString>

#include <optional>

// The modal open and save panels. The library asks; the windowed application answers with the
// platform's panels (Qt's file dialogs, which use the native ones on macOS), korvanectl with
// the paths given on its command line, and tests with a fake. Every method returns nothing
// when the user cancels.
class FilePanels {
public:
    virtual ~FilePanels() = default;

    // One existing directory, no files.
    virtual std::optional<QString> chooseDirectory(const QString &title, const QString &message) = 0;
    // One existing file of the type `extension` ("json") to read.
    virtual std::optional<QString> chooseFileToOpen(const QString &title, const QString &extension) = 0;
    // Where to write a file of the type `extension` ("json", "zip"), proposing a file name.
    virtual std::optional<QString> chooseSaveLocation(const QString &title, const QString &proposedName,
                                                      const QString &extension) = 0;
};

// A question with a cancel and a confirm button; true when the user confirms.
class ConfirmationDialog {
public:
    virtual ~ConfirmationDialog() = default;
    virtual bool confirm(const QString &title, const QString &message, const QString &cancelButton,
                         const QString &confirmButton) = 0;
};
