#pragma once

#include <chrono>

// The intervals of a launch. The product runs with the defaults; tests build the model with
// shorter ones instead of sitting through them.
struct LaunchTimings {
    // How often the status file of the attempt is looked for.
    std::chrono::milliseconds statusPoll{2000};
    // How often the freeze watchdog reads the logs.
    std::chrono::milliseconds watchdogPoll{3000};
    // How long the game log must stand still at the hang line to count as a freeze.
    std::chrono::milliseconds freezeAge{30000};
    // How long one attempt is watched for a load or a freeze at all.
    std::chrono::milliseconds watchWindow{240000};
    // How long a stopped bottle rests before Steam starts again (inside the launch script).
    int bottleRestartSeconds = 8;
    // How long the process probe may take.
    double probeTimeoutSeconds = 10;
    // How long a client asked to end gets before its whole process group is killed.
    std::chrono::milliseconds terminateGrace{5000};
};
