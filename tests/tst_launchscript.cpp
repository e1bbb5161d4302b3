#include "crossover/launchscript.h"
#include "crossover/processenvironment.h"

#include <QFileInfo>
#include <QProcess>
#include <QtTest>

using namespace Qt::StringLiterals;
using LaunchScript::IdleServer;
Q_DECLARE_METATYPE(LaunchScript::IdleServer)

namespace {
const QString head = QString::fromUtf8("#!/bin/zsh\n"
    "stty rows 30 columns 120 2>/dev/null || true\n"
    "bottle='/B/Bob'\\''s bottle'\n"
    "wine_server='/cx/wineserver'\n"
    "status_file='/data/launch-1.status'\n"
    "trap 'exit_code=$?; printf \"%s\\n\" \"$exit_code\" > \"$status_file\"' EXIT\n"
    "\n");
const QString tail = QString::fromUtf8("cd '/res/CLI' || exit 1\n"
    "\n"
    "env \\\n"
    "  B='two words' \\\n"
    "  Z='$HOME`id`\"' \\\n"
    "  '/res/CLI/korvane-cli' \\\n"
    "    '-x' \\\n"
    "    'it'\\''s' \\\n"
    "    'start'\n"
    "exit $?");
const QString stop = QString::fromUtf8("env CX_BOTTLE=\"$bottle\" WINEPREFIX=\"$bottle\" \"$wine_server\" -k 2>/dev/null || exit 1\n"
    "sleep 8\n");
const QString tolerantStop
    = QString::fromUtf8("env CX_BOTTLE=\"$bottle\" WINEPREFIX=\"$bottle\" \"$wine_server\" -k 2>/dev/null || ! env CX_BOTTLE=\"$bottle\" WINEPREFIX=\"$bottle\" \"$wine_server\" -k0 2>/dev/null || exit 1\n"
    "sleep 8\n");
const QString removal = u"/bin/rm -f -- '/data/Profiles/m.restart-required' || exit 1\n"_s;
const QString reuse = u"# Reuse Steam in this bottle. No shutdown and no cold-start delay.\n"_s;

QString renderSample(BottleLaunchMode mode, std::optional<QString> marker, IdleServer idle,
                     const QStringList &arguments = {u"-x"_s, u"it's"_s, u"start"_s})
{
    return LaunchScript::render(mode, u"/B/Bob's bottle"_s, u"/cx/wineserver"_s, u"/res/CLI"_s, u"/res/CLI/korvane-cli"_s,
                                arguments, {{u"Z"_s, u"$HOME`id`\""_s}, {u"B"_s, u"two words"_s}},
                                u"/data/launch-1.status"_s, marker, idle);
}

QString zsh()
{
    return QFileInfo(u"/bin/zsh"_s).isExecutable() ? u"/bin/zsh"_s : QString();
}

ProcessEnvironment::Inputs sampleInputs()
{
    return {u"/home/kim"_s, u"kim"_s, u"/var/tmp/system"_s, u"/cx/bin/wine"_s, u"/cx/bin/wineserver"_s,
            u"/home/kim/.cxoffice/Steam"_s, u"/res/CLI"_s, u"/home/kim/.local/share/Korvane Mac Launcher"_s};
}
} // namespace

class TestLaunchScript : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void quote_data()
    {
        QTest::addColumn<QString>("value");
        QTest::addColumn<QString>("quoted");
        QTest::newRow("plain") << u"/Users/x"_s << u"'/Users/x'"_s;
        QTest::newRow("empty") << QString() << u"''"_s;
        QTest::newRow("single quote") << u"/Users/x/Bottles/Bob's"_s << u"'/Users/x/Bottles/Bob'\\''s'"_s;
        QTest::newRow("shell syntax stays verbatim") << u"$a `b` \"c\" \\d\n;e"_s << u"'$a `b` \"c\" \\d\n;e'"_s;
    }

    void quote()
    {
        QFETCH(QString, value);
        QFETCH(QString, quoted);
        QCOMPARE(LaunchScript::quote(value), quoted);
    }

    void render_data()
    {
        QTest::addColumn<BottleLaunchMode>("mode");
        QTest::addColumn<bool>("withMarker");
        QTest::addColumn<IdleServer>("idle");
        QTest::addColumn<QString>("expected");
        QTest::newRow("reuse Steam leaves the marker alone")
            << BottleLaunchMode(BottleLaunchMode::reuseSteam) << true << IdleServer::failsScript << head + reuse + tail;
        QTest::newRow("reuse Steam without marker")
            << BottleLaunchMode(BottleLaunchMode::reuseSteam) << false << IdleServer::tolerated << head + reuse + tail;
        QTest::newRow("cold start")
            << BottleLaunchMode(BottleLaunchMode::coldStart) << true << IdleServer::failsScript
            << head + stop + removal + tail;
        QTest::newRow("profile change")
            << BottleLaunchMode(BottleLaunchMode::profileChange) << true << IdleServer::failsScript
            << head + stop + removal + tail;
        QTest::newRow("recovery without marker keeps an empty line")
            << BottleLaunchMode(BottleLaunchMode::recovery) << false << IdleServer::failsScript
            << head + stop + u'\n' + tail;
        QTest::newRow("cold start tolerating an idle server")
            << BottleLaunchMode(BottleLaunchMode::coldStart) << true << IdleServer::tolerated
            << head + tolerantStop + removal + tail;
    }

    void render()
    {
        QFETCH(BottleLaunchMode, mode);
        QFETCH(bool, withMarker);
        QFETCH(IdleServer, idle);
        QFETCH(QString, expected);
        const std::optional<QString> marker
            = withMarker ? std::optional(u"/data/Profiles/m.restart-required"_s) : std::nullopt;
        QCOMPARE(renderSample(mode, marker, idle), expected);
    }

    void commandWithoutArguments()
    {
        const QString script = renderSample(BottleLaunchMode::reuseSteam, std::nullopt, IdleServer::failsScript, {});
        QVERIFY(script.endsWith(u"  Z='$HOME`id`\"' \\\n  '/res/CLI/korvane-cli'\nexit $?"_s));
    }

    void environmentOrder()
    {
        const auto environment = LaunchScript::environment(u"/b"_s, u"/w"_s, u"/ws"_s, u"/data"_s);
        QCOMPARE(environment.keys(),
                 (QStringList{u"CX_BOTTLE"_s, u"CX_GRAPHICS_BACKEND"_s, u"PATH"_s, u"PYTHONUNBUFFERED"_s, u"WINE"_s,
                              u"WINEARCH"_s, u"WINEDLLOVERRIDES"_s, u"WINEMSYNC"_s, u"WINEPREFIX"_s, u"WINESERVER"_s,
                              u"XDG_DATA_HOME"_s}));
        QCOMPARE(environment.value(u"WINEPREFIX"_s), u"/b"_s);
        QCOMPARE(environment.value(u"CX_GRAPHICS_BACKEND"_s), u"d3dmetal"_s);
        QCOMPARE(environment.value(u"WINEMSYNC"_s), u"1"_s);
        QCOMPARE(environment.value(u"WINESERVER"_s), u"/ws"_s);
        QCOMPARE(environment.value(u"XDG_DATA_HOME"_s), u"/data"_s);
    }

    void clientArguments()
    {
        QCOMPARE(LaunchScript::arguments(u"/b"_s, u"/g"_s, u"/m"_s, {u"--wine-desktop"_s, u"1280x720"_s}, GameKind::ats),
                 (QStringList{u"-w"_s, u"-x"_s, u"/b"_s, u"-g"_s, u"/g"_s, u"-m"_s, u"/m"_s, u"-r"_s, u"dx11"_s, u"-vv"_s,
                              u"--without-wine-discord-ipc-bridge"_s, u"--wine-desktop"_s, u"1280x720"_s, u"start"_s,
                              u"atskvn"_s}));
        QCOMPARE(LaunchScript::arguments({}, {}, {}, {}, GameKind::ets2).last(), u"ets2kvn"_s);
    }

    // Nothing of the launcher's own environment reaches Wine but TMPDIR and the text encoding.
    void processEnvironment_data()
    {
        QTest::addColumn<bool>("ownValues");
        QTest::addColumn<QString>("temporary");
        QTest::addColumn<QString>("encoding");
        QTest::newRow("own values taken") << true << u"/own/tmp/"_s << u"0x1F6:0x0:0x0"_s;
        QTest::newRow("unset: the system's") << false << u"/var/tmp/system"_s << u"0x1F5:0x1D:0x2B"_s;
    }

    void processEnvironment()
    {
        QFETCH(bool, ownValues);
        QFETCH(QString, temporary);
        QFETCH(QString, encoding);
        QProcessEnvironment own;
        for (const QString &name : {u"HOME"_s, u"USER"_s, u"WINEPREFIX"_s, u"WINEDEBUG"_s, u"DYLD_INSERT_LIBRARIES"_s,
                                    u"LANG"_s, u"PATH"_s, u"CX_BOTTLE"_s, u"PWD"_s, u"WINEMSYNC"_s, u"LD_PRELOAD"_s})
            own.insert(name, u"/hostile"_s);
        // Set but empty counts as unset.
        own.insert(u"TMPDIR"_s, ownValues ? temporary : QString());
        if (ownValues)
            own.insert(u"__CF_USER_TEXT_ENCODING"_s, encoding);

        const QMap<QString, QString> expected{
            {u"HOME"_s, u"/home/kim"_s}, {u"USER"_s, u"kim"_s}, {u"LOGNAME"_s, u"kim"_s}, {u"TMPDIR"_s, temporary},
            {u"SHELL"_s, u"/bin/zsh"_s}, {u"COMMAND_MODE"_s, u"unix2003"_s}, {u"LANG"_s, u"C.UTF-8"_s},
            {u"LC_ALL"_s, u"C.UTF-8"_s}, {u"LC_CTYPE"_s, u"C.UTF-8"_s}, {u"TERM"_s, u"dumb"_s},
            {u"MallocNanoZone"_s, u"0"_s}, {u"XPC_FLAGS"_s, u"0x0"_s}, {u"XPC_SERVICE_NAME"_s, u"0"_s},
            {u"__CF_USER_TEXT_ENCODING"_s, encoding},
            {u"PATH"_s, u"/opt/homebrew/bin:/usr/local/bin:/usr/bin:/bin:/usr/sbin:/sbin"_s},
            {u"WINE"_s, u"/cx/bin/wine"_s}, {u"WINESERVER"_s, u"/cx/bin/wineserver"_s},
            {u"CX_BOTTLE"_s, u"/home/kim/.cxoffice/Steam"_s}, {u"WINEPREFIX"_s, u"/home/kim/.cxoffice/Steam"_s},
            {u"WINEARCH"_s, u"win64"_s}, {u"PYTHONUNBUFFERED"_s, u"1"_s}, {u"PWD"_s, u"/res/CLI"_s},
            {u"XDG_DATA_HOME"_s, u"/home/kim/.local/share/Korvane Mac Launcher"_s},
            {u"CX_GRAPHICS_BACKEND"_s, u"d3dmetal"_s}, {u"WINEMSYNC"_s, u"1"_s},
            {u"WINEDLLOVERRIDES"_s, u"gameoverlayrenderer64.dll=d;winecoreaudio.drv=d"_s},
        };
        QCOMPARE(ProcessEnvironment::build(sampleInputs(), own), expected);
    }

    void workingDirectoryWithoutClient()
    {
        ProcessEnvironment::Inputs inputs = sampleInputs();
        inputs.cliDirectory.reset();
        QCOMPARE(ProcessEnvironment::build(inputs, {}).value(u"PWD"_s), u"/home/kim"_s);
    }

    // zsh reads every rendered script and gives a quoted hostile value back byte for byte.
    void zshAcceptsTheScripts()
    {
        if (zsh().isEmpty())
            QSKIP("zsh is not installed");
        for (const BottleLaunchMode mode : BottleLaunchMode::allCases())
            for (const IdleServer idle : {IdleServer::failsScript, IdleServer::tolerated}) {
                QProcess check;
                check.start(zsh(), {u"-n"_s, u"-c"_s, renderSample(mode, u"/m"_s, idle)});
                QVERIFY(check.waitForFinished(30000));
                QVERIFY2(check.exitCode() == 0, check.readAllStandardError().constData());
            }

        const QString hostile = u"/x/Bob's $HOME `id` \"q\" \\n\nnew line\t\u00e9 '"_s;
        QProcess echo;
        echo.start(zsh(), {u"-f"_s, u"-c"_s, u"printf %s "_s + LaunchScript::quote(hostile)});
        QVERIFY(echo.waitForFinished(30000));
        QCOMPARE(QString::fromUtf8(echo.readAllStandardOutput()), hostile);
    }
};

QTEST_GUILESS_MAIN(TestLaunchScript)
#include "tst_launchscript.moc"
