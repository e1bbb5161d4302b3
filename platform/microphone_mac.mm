#include "platform/microphone.h"

#include <QCoreApplication>
#include <QMetaObject>

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

    void requestAccess(std::function<void(bool)> answer) const override
    {
        // The completion handler runs on one of AVFoundation's queues; the launcher's state is
        // the main thread's, so the answer hops there before anyone sees it.
        auto *shared = new std::function<void(bool)>(std::move(answer));
        [AVCaptureDevice requestAccessForMediaType:AVMediaTypeAudio
                                 completionHandler:^(BOOL granted) {
                                     QMetaObject::invokeMethod(
                                         QCoreApplication::instance(),
                                         [shared, granted] {
                                             (*shared)(granted == YES);
                                             delete shared;
                                         },
                                         Qt::QueuedConnection);
                                 }];
    }
};
} // namespace

const Microphone &Microphone::system()
{
    static const CaptureDeviceMicrophone microphone;
    return microphone;
}
