#pragma once

#include <QString>

// Where the launcher finds the user's files and its own resources. A plain value so that a
// test builds one over a temporary home in a line; `system()` fills it for the running user.
struct Paths {
    QString home;
    QString loginName;
    // The user's Application Support directory (macOS) or XDG data directory (Linux).
    QString applicationSupport;
    // TMPDIR or the system's temporary directory.
    QString temporary;
    // The bundle's resource directory; empty when the launcher has none.
    QString resources;

    // The running user's paths. KORVANE_RESOURCES_DIR, when set and not empty, replaces the
    // resource directory (tests and support point the launcher at another client that way).
    static Paths system();
    // The same, under another home directory (test homes); resources and the temporary
    // directory are those of the system.
    static Paths underHome(const QString &home);

private:
    // The platform's own answer, before the environment overrides.
    static Paths platformDefaults();
    // <prefix>/share/korvane-launcher for a program in <prefix>/bin, when that folder exists:
    // an installation, an unpacked tree and the build tree alike. Empty otherwise.
    static QString resourcesBesideProgram();
};
