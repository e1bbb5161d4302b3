#include "cli/modelsession.h"

ModelSession::ModelSession(CliContext &context)
{
    model = std::make_unique<LauncherModel>(LauncherContext{*context.defaults, clock, context.paths,
                                                            CrossOverLocation::system(context.paths.home),
                                                            ServiceConfiguration::standard(), &panels, nullptr,
                                                            &sessions});
}
