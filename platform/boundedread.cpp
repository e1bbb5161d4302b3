#include "platform/boundedread.h"

#include <algorithm>

QByteArray BoundedRead::upTo(QIODevice &device, qint64 limit)
{
    QByteArray bytes;
    if (!device.isSequential())
        bytes.reserve(std::clamp<qint64>(device.size() - device.pos(), 0, limit));
    char chunk[64 * 1024];
    while (bytes.size() < limit) {
        const qint64 got = device.read(chunk, std::min<qint64>(sizeof chunk, limit - bytes.size()));
        if (got <= 0)
            break;
        bytes.append(chunk, got);
    }
    return bytes;
}
