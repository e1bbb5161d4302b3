#include "core/diagnosticsinput.h"

#include "core/launchermodel.h"
#include "platform/microphone.h"
#include "platform/systeminfo.h"

DiagnosticsInput diagnosticsInput(const LauncherModel &model)
{
    DiagnosticsInput input;
    const SystemFacts &system = model.systemFacts();
    input.bundleInfo = system.bundleInfo();
    input.operatingSystem = system.operatingSystemVersion();
    input.crossOverVersion = system.crossOverVersion();
    input.home = model.paths().home;
    input.game = model.game();
    input.microphoneStatus = int(model.microphone().authorizationStatus());
    for (const EnvironmentCheck &check : model.checks())
        input.checks.append({check.title, check.ok});
    input.gameLogPath = model.gameLogPath();
    input.multiplayerLogDirectory = model.multiplayerLogDirectory();
    // The console is already bounded by the model; the composition keeps only its tail.
    input.logText = model.logText();
    return input;
}
