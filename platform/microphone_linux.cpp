#include "platform/microphone.h"

#include <QCoreApplication>
#include <QMetaObject>

namespace {
class DesktopLinuxMicrophone final : public Microphone {
public:
    MicrophoneAuthorization authorizationStatus() const override { return MicrophoneAuthorization::authorized; }
    void requestAccess(std::function<void(bool)> answer) const override
    {
        QMetaObject::invokeMethod(QCoreApplication::instance(), [answer = std::move(answer)] { answer(true); },
                                  Qt::QueuedConnection);
    }
};
} // namespace

const Microphone &Microphone::system()
{
    static const DesktopLinuxMicrophone microphone;
    return microphone;
}
