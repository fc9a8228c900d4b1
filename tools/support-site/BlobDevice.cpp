#include "BlobDevice.h"

BlobDevice::BlobDevice(qint64 size, QObject *parent) : QIODevice(parent), m_size(size) {}

qint64 BlobDevice::readData(char *data, qint64 maxSize)
{
    const qint64 start = pos();
    const qint64 count = qMin(maxSize, m_size - start);
    if (count <= 0)
        return 0;
    int value = int(start % 251);
    for (qint64 i = 0; i < count; ++i) {
        data[i] = char(value);
        if (++value == 251)
            value = 0;
    }
    return count;
}

qint64 BlobDevice::writeData(const char *, qint64)
{
    return -1;
}
