#pragma once

#include <QByteArray>
#include <QIODevice>

namespace BoundedRead {

// Up to `limit` bytes from the device's current position. QIODevice::read(maxSize) sets aside
// maxSize bytes before it reads anything, so a cap of hundreds of megabytes would cost that much
// memory for a file of a few bytes; this takes only what the device holds.
QByteArray upTo(QIODevice &device, qint64 limit);

} // namespace BoundedRead
