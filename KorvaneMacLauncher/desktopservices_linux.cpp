#include "KorvaneMacLauncher/desktopservices.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QUrl>

using namespace Qt::StringLiterals;

// The freedesktop.org file-manager interface, which the common Linux file managers serve.
bool QtDesktop::revealFile(const QString &path)
{
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected())
        return false;
    QDBusMessage call = QDBusMessage::createMethodCall(u"org.freedesktop.FileManager1"_s,
                                                       u"/org/freedesktop/FileManager1"_s,
                                                       u"org.freedesktop.FileManager1"_s, u"ShowItems"_s);
    call << QStringList{QUrl::fromLocalFile(path).toString()} << QString();
    const QDBusMessage reply = bus.call(call, QDBus::Block, 3000);
    return reply.type() == QDBusMessage::ReplyMessage;
}
