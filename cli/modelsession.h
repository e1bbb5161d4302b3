#pragma once

#include "cli/context.h"
#include "core/launchermodel.h"
#include "platform/clock.h"
#include "platform/filepanels.h"

#include <memory>

// The panels of the window, answered by the command line: every panel returns the path the
// user already named.
class CommandLinePanels final : public FilePanels {
public:
    std::optional<QString> path;

    std::optional<QString> chooseDirectory(const QString &, const QString &) override { return path; }
    std::optional<QString> chooseFileToOpen(const QString &, const QString &) override { return path; }
    std::optional<QString> chooseSaveLocation(const QString &, const QString &, const QString &) override
    {
        return path;
    }
};

// A store that lives as long as the command: the model's play sessions go here, so that
// korvanectl never touches the sessions of a launcher that runs at the same time.
class ScratchDefaults final : public UserDefaults {
public:
    QVariant object(const QString &key) const override { return m_values.value(key); }
    void setObject(const QString &key, const QVariant &value) override { m_values.insert(key, normalized(value)); }
    void remove(const QString &key) override { m_values.remove(key); }
    QStringList keys() const override { return m_values.keys(); }

private:
    QVariantMap m_values;
};

// The launcher model over the user's store and this machine's CrossOver, as the window builds it.
struct ModelSession {
    SystemClock clock;
    CommandLinePanels panels;
    ScratchDefaults sessions;
    std::unique_ptr<LauncherModel> model;

    explicit ModelSession(CliContext &context);
};


// True when a bottle is selected; otherwise says so on stderr, for commands that act on one.
bool requireBottle(CliContext &context, const LauncherModel &model);
