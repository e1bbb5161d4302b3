#include "cli/modelsession.h"

#include "platform/microphone.h"
#include "platform/systeminfo.h"

ModelSession::ModelSession(CliContext &context)
{
    model = std::make_unique<LauncherModel>(LauncherContext{*context.defaults, clock, Microphone::system(),
                                                            SystemFacts::system(), context.paths,
                                                            CrossOverLocation::system(context.paths.home),
                                                            ServiceConfiguration::standard(), &panels, nullptr,
                                                            &sessions});
}
