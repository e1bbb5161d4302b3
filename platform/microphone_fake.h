#pragma once

#include "platform/microphone.h"

class FakeMicrophone final : public Microphone {
public:
    MicrophoneAuthorization status = MicrophoneAuthorization::notDetermined;
    MicrophoneAuthorization authorizationStatus() const override { return status; }
};
