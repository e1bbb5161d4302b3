#include "cli/modelsession.h"

#include "core/demosandbox.h"
#include "platform/microphone.h"
#include "platform/systeminfo.h"

ModelSession::ModelSession(CliContext &context)
{
    model = std::make_unique<LauncherModel>(LauncherContext{*context.defaults, clock, Microphone::system(),
                                                            SystemFacts::system(), context.paths,
                                                            CrossOverLocation::system(context.paths.home),
                                                            ServiceConfiguration::standard(), &panels, nullptr,
                                                            &sessions,
                                                            DemoSandbox::activeRoot() ? DemoSandbox::timings()
                                                                                      : LaunchTimings{}});
}

bool requireBottle(CliContext &context, const LauncherModel &model)
{
    if (!model.selectedBottlePath().isEmpty())
        return true;
    context.err << "korvanectl: no bottle is selected (korvanectl select --bottle PATH)\n";
    return false;
}
