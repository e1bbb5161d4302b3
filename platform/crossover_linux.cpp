#include "platform/crossover.h"

#include <QDir>

using namespace Qt::StringLiterals;

CrossOverLocation CrossOverLocation::system(const QString &home)
{
    const QString configured = qEnvironmentVariable("CX_ROOT");
    const QString root = configured.isEmpty() ? u"/opt/cxoffice"_s : QDir::cleanPath(configured);
    return {root + u"/bin/wine"_s, root + u"/bin/wineserver"_s, home + u"/.cxoffice"_s};
}
