#include "QKBase64FileDevice.h"

#include <cstring>
#include <system_error>

namespace {

// Whole 3-byte groups, so that consecutive blocks' texts join without padding.
constexpr qint64 BlockSize = 3 * 256 * 1024;
constexpr qint64 BlockTextSize = BlockSize / 3 * 4;

} // namespace

QKBase64FileDevice::QKBase64FileDevice(const QString &path, QObject *parent)
    : QIODevice(parent), m_file(path)
{}

QKBase64FileDevice::~QKBase64FileDevice()
{
    if (m_next.valid())
        m_next.wait();
}

bool QKBase64FileDevice::open(OpenMode mode)
{
    if ((mode & WriteOnly) || !m_file.open(QIODevice::ReadOnly))
        return false;
    m_fileSize = m_file.size();
    m_textSize = (m_fileSize + 2) / 3 * 4;
    return QIODevice::open(mode | Unbuffered);
}

qint64 QKBase64FileDevice::readData(char *data, qint64 maxSize)
{
    const qint64 position = pos();
    const qint64 wanted = qMin(maxSize, m_textSize - position);
    if (wanted <= 0)
        return 0;
    const qint64 index = position / BlockTextSize;
    if (m_current.index != index)
        loadBlock(index);
    const qint64 offset = position - index * BlockTextSize;
    const qint64 available = qMin(wanted, qint64(m_current.text.size()) - offset);
    if (available <= 0)
        return -1;
    std::memcpy(data, m_current.text.constData() + offset, size_t(available));
    return available;
}

qint64 QKBase64FileDevice::writeData(const char *, qint64)
{
    return -1;
}

QKBase64FileDevice::Block QKBase64FileDevice::encodeBlock(qint64 index)
{
    Block block{index, {}};
    if (!m_file.isOpen() && !reopenFile())
        return block;
    if (m_file.seek(index * BlockSize))
        block.text = m_file.read(BlockSize).toBase64();
    return block;
}

bool QKBase64FileDevice::reopenFile()
{
    // Only a resend reads the file again; it must still be the file that was opened.
    if (m_file.open(QIODevice::ReadOnly) && m_file.size() == m_fileSize)
        return true;
    m_file.close();
    return false;
}

void QKBase64FileDevice::loadBlock(qint64 index)
{
    // The worker and this thread never use the file at the same time: a block is only
    // encoded here once the worker's block has been collected.
    if (m_next.valid())
        m_current = m_next.get();
    if (m_current.index != index)
        m_current = encodeBlock(index);
    if ((index + 1) * BlockTextSize >= m_textSize) {
        // Everything has been read. Letting go of the file now lets an archive that was
        // removed after posting vanish before the server answers, instead of leaving its
        // unwritten pages for the disk to take while the server stores the upload.
        m_file.close();
        return;
    }
    try {
        m_next = std::async(std::launch::async, [this, index] { return encodeBlock(index + 1); });
    } catch (const std::system_error &) {
        // No thread to spare: the next block is encoded when it is needed.
    }
}
