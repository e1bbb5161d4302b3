#include "platform/crossover.h"

using namespace Qt::StringLiterals;

// CrossOver for macOS installs in one place only; its hosted-application launchers are the
// ones that set up the bottle environment correctly.
CrossOverLocation CrossOverLocation::system(const QString &home)
{
    return {u"/Applications/CrossOver.app/Contents/SharedSupport/CrossOver/CrossOver-Hosted Application/wine"_s,
            u"/Applications/CrossOver.app/Contents/SharedSupport/CrossOver/CrossOver-Hosted Application/wineserver"_s,
            home + u"/Library/Application Support/CrossOver/Bottles"_s};
}
