#include "KorvaneMacLauncher/desktopservices.h"

#include <QProcess>

using namespace Qt::StringLiterals;

// The Finder, with the file selected.
bool QtDesktop::revealFile(const QString &path)
{
    return QProcess::startDetached(u"/usr/bin/open"_s, {u"-R"_s, path});
}
