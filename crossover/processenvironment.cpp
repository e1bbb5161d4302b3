#include "crossover/processenvironment.h"

#include "crossover/compatibilityprofile.h"
#include "crossover/launchscript.h"

using namespace Qt::StringLiterals;

namespace ProcessEnvironment {

namespace {
// An empty value is as good as none: Wine and CoreFoundation would only trip over it.
QString ownOr(const QProcessEnvironment &own, const QString &name, const QString &fallback)
{
    const QString value = own.value(name);
    return value.isEmpty() ? fallback : value;
}
} // namespace

QMap<QString, QString> build(const Inputs &inputs, const QProcessEnvironment &own)
{
    QMap<QString, QString> environment;
    environment.insert(u"HOME"_s, inputs.home);
    environment.insert(u"USER"_s, inputs.loginName);
    environment.insert(u"LOGNAME"_s, inputs.loginName);
    environment.insert(u"TMPDIR"_s, ownOr(own, u"TMPDIR"_s, inputs.systemTemporaryDirectory));
    environment.insert(u"SHELL"_s, u"/bin/zsh"_s);
    environment.insert(u"COMMAND_MODE"_s, u"unix2003"_s);
    environment.insert(u"LANG"_s, u"C.UTF-8"_s);
    environment.insert(u"LC_ALL"_s, u"C.UTF-8"_s);
    environment.insert(u"LC_CTYPE"_s, u"C.UTF-8"_s);
    environment.insert(u"TERM"_s, u"dumb"_s);
    environment.insert(u"MallocNanoZone"_s, u"0"_s);
    environment.insert(u"XPC_FLAGS"_s, u"0x0"_s);
    environment.insert(u"XPC_SERVICE_NAME"_s, u"0"_s);
    environment.insert(u"__CF_USER_TEXT_ENCODING"_s, ownOr(own, u"__CF_USER_TEXT_ENCODING"_s, u"0x1F5:0x1D:0x2B"_s));
    environment.insert(u"PATH"_s, LaunchScript::searchPath);
    environment.insert(u"WINE"_s, inputs.winePath);
    environment.insert(u"WINESERVER"_s, inputs.wineServerPath);
    environment.insert(u"CX_BOTTLE"_s, inputs.bottle);
    environment.insert(u"WINEPREFIX"_s, inputs.bottle);
    environment.insert(u"WINEARCH"_s, u"win64"_s);
    environment.insert(u"PYTHONUNBUFFERED"_s, u"1"_s);
    environment.insert(u"PWD"_s, inputs.cliDirectory.value_or(inputs.home));
    environment.insert(u"XDG_DATA_HOME"_s, inputs.applicationDataDirectory);
    environment.insert(CompatibilityProfile::environment());
    environment.insert(u"WINEDLLOVERRIDES"_s, LaunchScript::dllOverrides);
    return environment;
}

QMap<QString, QString> forProbe(QMap<QString, QString> environment)
{
    for (auto entry = CompatibilityProfile::environment().cbegin(); entry != CompatibilityProfile::environment().cend();
         ++entry)
        environment.remove(entry.key());
    return environment;
}

} // namespace ProcessEnvironment
