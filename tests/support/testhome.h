#pragma once

#include "platform/paths.h"
#include "platform/userdefaults.h"
#include "preferences/l10n.h"

#include <QDir>
#include <QTemporaryDir>
#include <QtTest>

#include <memory>

// A throw-away home directory with its own user-defaults store, so that no test ever reads
// or writes the real user's files.
class TestHome {
public:
    TestHome()
        : m_dir(QDir::tempPath() + QStringLiteral("/kvn-test-XXXXXX"))
    {
        paths = Paths::underHome(m_dir.path() + QStringLiteral("/home"));
        paths.applicationSupport = paths.home + QStringLiteral("/Library/Application Support");
        paths.temporary = m_dir.path() + QStringLiteral("/tmp");
        paths.resources = QStringLiteral(KVN_SOURCE_DIR "/resources");
        QDir().mkpath(paths.home);
        QDir().mkpath(paths.temporary);
        defaults = std::make_unique<JsonUserDefaults>(defaultsPath());
    }

    QString root() const { return m_dir.path(); }
    QString defaultsPath() const { return m_dir.path() + QStringLiteral("/defaults.json"); }
    // A second store over the same file, as a later run of the launcher would open it.
    std::unique_ptr<JsonUserDefaults> reopenDefaults() const
    {
        return std::make_unique<JsonUserDefaults>(defaultsPath());
    }
    // Makes L() and LocalizedMessage read this home's store and the source tree's tables.
    void installLocalization() const
    {
        L10n::install(defaults.get(),
                      std::make_shared<const StringTables>(StringTables::load(paths.resources)));
    }

    ~TestHome() { L10n::install(nullptr, nullptr); }

private:
    QTemporaryDir m_dir;

public:
    Paths paths;
    std::unique_ptr<JsonUserDefaults> defaults;
};
