#pragma once

#include "platform/desktop.h"

#include <QStringList>

class FakeDesktop final : public Desktop {
public:
    int hides = 0;
    int unhides = 0;
    QStringList pasteboard;
    QStringList openedFolders;
    QStringList revealed;

    void hideApplication() override { ++hides; }
    void unhideApplication() override { ++unhides; }
    void copyToPasteboard(const QString &text) override { pasteboard.append(text); }
    void openInFileBrowser(const QString &directory) override { openedFolders.append(directory); }
    void revealInFileBrowser(const QString &path) override { revealed.append(path); }
};
