#pragma once

#include "platform/microphone.h"

#include <QList>

// A microphone whose permission the test sets, and whose question the test answers.
class FakeMicrophone final : public Microphone {
public:
    MicrophoneAuthorization status = MicrophoneAuthorization::notDetermined;
    mutable QList<std::function<void(bool)>> questions;

    MicrophoneAuthorization authorizationStatus() const override { return status; }
    void requestAccess(std::function<void(bool)> answer) const override { questions.append(std::move(answer)); }

    // The user answers the oldest open question; the status follows as the system's would.
    void answer(bool granted)
    {
        if (questions.isEmpty())
            return;
        status = granted ? MicrophoneAuthorization::authorized : MicrophoneAuthorization::denied;
        questions.takeFirst()(granted);
    }
};
