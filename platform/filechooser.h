#pragma once

#include <QString>

#include <optional>

// The save panel and the file manager, as far as the models need them. The views implement
// it over the platform's dialog (NSSavePanel / QFileDialog) and file viewer; models only ask,
// so their export flows run in tests without a dialog.
class FileChooser {
public:
    virtual ~FileChooser() = default;

    // Asks the user where to save a file of the type `extension` ("zip"), proposing
    // `proposedName`. The chosen absolute path, or nothing when the user cancelled.
    virtual std::optional<QString> chooseSaveLocation(const QString &proposedName, const QString &extension) = 0;
    // Shows the file selected in a file manager window.
    virtual void reveal(const QString &path) = 0;
};
