#pragma once

#include <functional>

// The operating system's permission for the launcher to record audio; the Korvane client's CB
// radio needs the microphone. The values are the platform's own, as they appear in reports.
enum class MicrophoneAuthorization : int { notDetermined = 0, restricted = 1, denied = 2, authorized = 3 };

class Microphone {
public:
    virtual ~Microphone() = default;
    virtual MicrophoneAuthorization authorizationStatus() const = 0;
    // Asks the user (the system's own dialog) for access. `answer` runs later, on the main
    // thread, never from inside this call, so the caller's state is settled when it arrives.
    virtual void requestAccess(std::function<void(bool granted)> answer) const = 0;

    // This machine's answer: the capture-device authorisation on macOS; elsewhere there is no
    // per-application permission, so access counts as granted.
    static const Microphone &system();
};
