#pragma once

#include "core/launchermodel.h"
#include "platform/clock_fake.h"
#include "platform/desktop_fake.h"
#include "platform/filepanels_fake.h"
#include "support/testhome.h"

#include <QDir>

#include <memory>

using namespace Qt::StringLiterals;

// A launcher over a temporary home: CrossOver's root and the bottles directory live inside it,
// the panels and the desktop are fakes.
struct LauncherRig {
    TestHome home;
    FakeClock clock;
    FakeFilePanels panels;
    FakeDesktop desktop;
    QString cxRoot = home.root() + u"/cxoffice"_s;
    QString bottles = home.paths.home + u"/.cxoffice"_s;
    QString resources = home.root() + u"/resources"_s;
    std::unique_ptr<LauncherModel> model;

    LauncherRig()
    {
        home.installLocalization();
        qputenv("CX_ROOT", cxRoot.toUtf8());
        QDir().mkpath(bottles);
    }

    LauncherModel &start()
    {
        model.reset();
        Paths paths = home.paths;
        paths.resources = resources;
        model = std::make_unique<LauncherModel>(LauncherContext{*home.defaults, clock, paths,
                                                                CrossOverLocation::system(home.paths.home),
                                                                service(), &panels, &desktop});
        return *model;
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

