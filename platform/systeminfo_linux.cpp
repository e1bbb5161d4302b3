#include "platform/systeminfo.h"

#include <QFile>
#include <QRegularExpression>
#include <QSysInfo>

using namespace Qt::StringLiterals;

QString SystemInfo::operatingSystemVersion()
{
    // PRETTY_NAME of os-release, which is what a Linux user recognises ("Debian GNU/Linux 12
    // (bookworm)"); the kernel is added because Wine problems often depend on it.
    return QSysInfo::prettyProductName() + u" (kernel "_s + QSysInfo::kernelVersion() + u')';
}

std::optional<QString> SystemInfo::crossOverVersion()
{
    QString root = qEnvironmentVariable("CX_ROOT");
    if (root.isEmpty())
        root = u"/opt/cxoffice"_s;
    // CrossOver for Linux records its version in the Python module its own tools import.
    QFile file(root + u"/lib/python/distversion.py"_s);
    if (file.size() > 64 * 1024 || !file.open(QIODevice::ReadOnly))
        return std::nullopt;
    static const QRegularExpression version(
        uR"re(^(?:PUBLIC_VERSION|CX_VERSION)\s*=\s*["']([^"'\r\n]+)["'])re"_s,
        QRegularExpression::MultilineOption);
    const QRegularExpressionMatch match = version.match(QString::fromUtf8(file.readAll()));
    if (!match.hasMatch())
        return std::nullopt;
    return match.captured(1).trimmed();
}
