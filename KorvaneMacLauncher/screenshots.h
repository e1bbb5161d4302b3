#pragma once

#include <QString>

class KorvaneMacLauncherApp;

// The pictures of the documentation: every page, sheet and dialog of the window in each
// language, taken in the demo and written as PNG files.
namespace Screenshots {
// Returns the process's exit status: 0 when every picture was written.
int take(KorvaneMacLauncherApp &app, const QString &directory);
}
