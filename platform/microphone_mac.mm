#include "platform/microphone.h"

#import <AVFoundation/AVFoundation.h>

namespace {
class CaptureDeviceMicrophone final : public Microphone {
public:
    MicrophoneAuthorization authorizationStatus() const override
    {
        switch ([AVCaptureDevice authorizationStatusForMediaType:AVMediaTypeAudio]) {
        case AVAuthorizationStatusRestricted:
            return MicrophoneAuthorization::restricted;
        case AVAuthorizationStatusDenied:
            return MicrophoneAuthorization::denied;
        case AVAuthorizationStatusAuthorized:
            return MicrophoneAuthorization::authorized;
        case AVAuthorizationStatusNotDetermined:
        default:
            return MicrophoneAuthorization::notDetermined;
        }
    }
};
} // namespace

const Microphone &Microphone::system()
{
    static const CaptureDeviceMicrophone microphone;
    return microphone;
}
