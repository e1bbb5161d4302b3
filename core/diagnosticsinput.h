#pragma once

#include "sessions/diagnosticsmodel.h"

class LauncherModel;

// What the diagnostics screen shows of the launcher now: the machine as the model's front end
// describes it (bundle information, operating system, CrossOver, the microphone permission) and
// the model's game, checklist, log locations, console text and home.
DiagnosticsInput diagnosticsInput(const LauncherModel &model);
