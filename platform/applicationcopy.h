#pragma once

#include <QString>

#include <functional>

// The running application as a whole, as a rollback copy sees it: what counts as one, how it is
// copied and how a copy's signature is checked. A set of functions rather than a class, so that a
// test replaces one of them in a line.
struct ApplicationCopy {
    // Whether `path` is an application that can be copied and verified at all: an ".app" bundle
    // on macOS, an installed tree (bin/korvane-launcher below it) elsewhere.
    std::function<bool(const QString &path)> isApplication;
    // Copies the whole application at `from` to `to`, which must not exist yet, keeping symbolic
    // links as links and every permission. False, with the reason in `error`, when it fails.
    std::function<bool(const QString &from, const QString &to, QString *error)> copy;
    // Whether the copy's signature verifies: codesign on macOS. Empty on Linux, where the tree's
    // signed manifest is checked by the update layer, which fills it in; empty counts as refused.
    std::function<bool(const QString &copy)> verify;

    // The platform's answers.
    static ApplicationCopy system();
    // Where the running application is: the bundle enclosing the program on macOS, the folder
    // above the program's bin/ elsewhere. Whether that is an application is isApplication's call.
    static QString runningApplication();
    // Copies a folder tree with the standard library: links stay links, permissions are kept.
    static bool copyTree(const QString &from, const QString &to, QString *error);
};
