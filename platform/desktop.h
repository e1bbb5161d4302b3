#pragma once

#include <QString>

// The application-level services of the desktop: hiding and showing the launcher as a whole,
// the pasteboard and the file browser. They need the GUI, so the windowed application provides
// them; korvanectl has none.
class Desktop {
public:
    virtual ~Desktop() = default;
    virtual void hideApplication() = 0;
    virtual void unhideApplication() = 0;
    virtual void copyToPasteboard(const QString &text) = 0;
    virtual void openInFileBrowser(const QString &directory) = 0;
    // Shows a file selected in a file browser window.
    virtual void revealInFileBrowser(const QString &path) = 0;
};
