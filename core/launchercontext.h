#pragma once

#include "core/launchtimings.h"
#include "platform/crossover.h"
#include "platform/paths.h"
#include "platform/serviceconfiguration.h"

#include <functional>
#include <memory>

class Clock;
class Desktop;
class FilePanels;
class Microphone;
class SystemFacts;
class TerminalProcess;
class UserDefaults;

// Everything the launcher model reaches outside itself, handed in at construction so that a
// test builds the whole model over a temporary home.
struct LauncherContext {
    UserDefaults &defaults;
    const Clock &clock;
    // What the model and its reports say about the machine: the microphone permission, the
    // application's information dictionary, the system's and CrossOver's versions. The front
    // ends pass the platform's; tests pass fakes, so no model reads process-wide state.
    const Microphone &microphone;
    const SystemFacts &system;
    Paths paths;
    CrossOverLocation crossOver;
    ServiceConfiguration service;
    // The open panels of the choose operations; without them those operations do nothing.
    FilePanels *panels = nullptr;
    // Hiding, showing, pasteboard and file browser; absent in korvanectl.
    Desktop *desktop = nullptr;
    // Where the play sessions are kept, when not in `defaults`. korvanectl keeps them apart: its
    // model must not close, as interrupted, a session that the running launcher has open.
    UserDefaults *activityDefaults = nullptr;
    // The intervals of a launch; tests shorten them.
    LaunchTimings timings{};
    // Makes the terminal each launch attempt runs its script in; the platform's when empty.
    std::function<std::unique_ptr<TerminalProcess>()> terminals{};
};
