#pragma once

#include "core/launchermodel.h"
#include "platform/clock_fake.h"
#include "platform/desktop_fake.h"
#include "platform/filepanels_fake.h"
#include "platform/microphone_fake.h"
#include "platform/systeminfo_fake.h"
#include "support/testhome.h"

#include <QDir>

#include <memory>

using namespace Qt::StringLiterals;

// A launcher over a temporary home: CrossOver's root and the bottles directory live inside it,
// the panels, the desktop, the microphone and the machine's facts are fakes. Nothing of the
// process (its environment, the platform's singletons) goes into the model.
struct LauncherRig {
    TestHome home;
    FakeClock clock;
    FakeFilePanels panels;
    FakeDesktop desktop;
    FakeMicrophone microphone;
    FakeSystemFacts system;
    QString cxRoot = home.root() + u"/cxoffice"_s;
    QString bottles = home.paths.home + u"/.cxoffice"_s;
    QString resources = home.root() + u"/resources"_s;
    // What a launch test changes: the model's clock (the session dates and the watchdog's
    // times), its intervals, the service it asks and the terminal it runs the client in.
    const Clock *modelClock = &clock;
    LaunchTimings timings;
    ServiceConfiguration serviceConfiguration = service();
    std::function<std::unique_ptr<TerminalProcess>()> terminals;
    std::unique_ptr<LauncherModel> model;

    LauncherRig()
    {
        home.installLocalization();
        QDir().mkpath(bottles);
    }

    LauncherModel &start()
    {
        model.reset();
        Paths paths = home.paths;
        paths.resources = resources;
        model = std::make_unique<LauncherModel>(LauncherContext{*home.defaults, *modelClock, microphone, system, paths,
                                                                crossOver(), serviceConfiguration, &panels, &desktop,
                                                                nullptr, timings, terminals});
        return *model;
    }

    // The sandbox's CrossOver, laid out as CrossOver for Linux installs itself.
    CrossOverLocation crossOver() const
    {
        return {cxRoot + u"/bin/wine"_s, cxRoot + u"/bin/wineserver"_s, bottles};
    }

    // Nothing listens there: these tests make no requests.
    static ServiceConfiguration service()
    {
        ServiceConfiguration configuration;
        configuration.apiBaseURL = QUrl(u"https://127.0.0.1:9"_s);
        return configuration;
    }

    QStringList bottleNames() const
    {
        QStringList names;
        for (const Bottle &bottle : model->bottles())
            names.append(bottle.name());
        return names;
    }
};

