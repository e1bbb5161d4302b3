#include "platform/atomicfile.h"

#include <QSaveFile>

bool AtomicFile::write(const QString &path, const QByteArray &bytes, QFileDevice::Permissions permissions,
                       QString *error)
{
    QSaveFile file(path);
    if (file.open(QIODevice::WriteOnly) && file.setPermissions(permissions) && file.write(bytes) == bytes.size()
        && file.commit())
        return true;
    if (error)
        *error = file.errorString();
    file.cancelWriting();
    return false;
}
