#include "platform/microphone.h"

namespace {
class DesktopLinuxMicrophone final : public Microphone {
public:
    MicrophoneAuthorization authorizationStatus() const override { return MicrophoneAuthorization::authorized; }
};
} // namespace

const Microphone &Microphone::system()
{
    static const DesktopLinuxMicrophone microphone;
    return microphone;
}
