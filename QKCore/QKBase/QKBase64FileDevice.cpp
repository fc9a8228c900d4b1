#include "QKBase64FileDevice.h"

#include <array>
#include <cstring>
#include <system_error>
#include <utility>

#include <pthread.h>
#include <sched.h>

namespace {

// Whole 3-byte groups, so that consecutive blocks' texts join without padding.
constexpr qint64 BlockSize = 3 * 256 * 1024;
constexpr qint64 BlockTextSize = BlockSize / 3 * 4;

constexpr char Alphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

// The two characters of every 12 bits, so that a 3-byte group takes two lookups.
constexpr std::array<std::array<char, 2>, 4096> makeCharacterPairs()
{
    std::array<std::array<char, 2>, 4096> pairs{};
    for (int bits = 0; bits < 4096; ++bits)
        pairs[bits] = {Alphabet[bits >> 6], Alphabet[bits & 63]};
    return pairs;
}

// RFC 4648 Base64 with padding, into @p out, which holds (size + 2) / 3 * 4 characters.
// QByteArray::toBase64 would allocate a new text for every block.
void encodeBase64(const char *input, qsizetype size, char *out)
{
    static constexpr auto pairs = makeCharacterPairs();
    const auto *in = reinterpret_cast<const uchar *>(input);
    qsizetype i = 0;
    for (; i + 3 <= size; i += 3, out += 4) {
        const uint group = uint(in[i]) << 16 | uint(in[i + 1]) << 8 | in[i + 2];
        std::memcpy(out, pairs[group >> 12].data(), 2);
        std::memcpy(out + 2, pairs[group & 0xfff].data(), 2);
    }
    if (const qsizetype rest = size - i) {
        const uint group = uint(in[i]) << 16 | (rest == 2 ? uint(in[i + 1]) << 8 : 0u);
        out[0] = Alphabet[group >> 18];
        out[1] = Alphabet[(group >> 12) & 63];
        out[2] = rest == 2 ? Alphabet[(group >> 6) & 63] : '=';
        out[3] = '=';
    }
}

// A thread inherits the CPUs of the thread that starts it, and readers of the text may keep
// themselves to one CPU (an upload's network threads do, to hand off cheaply). The encoder
// is there to run beside the reader, so it may go to any CPU; the kernel leaves out those
// the process may not use.
void mayRunOnAnyCPU()
{
    cpu_set_t cpus;
    CPU_ZERO(&cpus);
    for (int cpu = 0; cpu < CPU_SETSIZE; ++cpu)
        CPU_SET(cpu, &cpus);
    pthread_setaffinity_np(pthread_self(), sizeof cpus, &cpus);
}

} // namespace

QKBase64FileDevice::QKBase64FileDevice(const QString &path, QObject *parent)
    : QIODevice(parent), m_file(path)
{}

QKBase64FileDevice::~QKBase64FileDevice()
{
    {
        const std::lock_guard lock(m_mutex);
        m_quitting = true;
    }
    m_changed.notify_all();
    if (m_worker.joinable())
        m_worker.join();
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

void QKBase64FileDevice::loadBlock(qint64 index)
{
    if (m_encoding)
        collectEncoded();
    if (m_current.index != index)
        encodeBlock(index, m_current);
    if ((index + 1) * BlockTextSize < m_textSize)
        startEncoding(index + 1);
}

void QKBase64FileDevice::encodeBlock(qint64 index, Block &block)
{
    block.index = index;
    qint64 bytesRead = -1;
    if (m_file.isOpen() || reopenFile()) {
        m_fileBytes.resize(BlockSize);
        if (m_file.seek(index * BlockSize))
            bytesRead = m_file.read(m_fileBytes.data(), BlockSize);
        // Everything has been read. Letting go of the file now lets an archive that was
        // removed after posting vanish before the server answers, instead of leaving its
        // unwritten pages for the disk to take while the server stores the upload. Freeing
        // its pages takes a while, which the worker spends rather than the sending thread.
        if ((index + 1) * BlockSize >= m_fileSize)
            m_file.close();
    }
    // An unreadable block has no text, which fails the read that wanted it.
    block.text.resize(bytesRead > 0 ? (bytesRead + 2) / 3 * 4 : 0);
    if (bytesRead > 0)
        encodeBase64(m_fileBytes.constData(), bytesRead, block.text.data());
}

bool QKBase64FileDevice::reopenFile()
{
    // Forms are never sent twice, so only a reader that seeks back gets here; the file must
    // still be the one that was opened.
    if (m_file.open(QIODevice::ReadOnly) && m_file.size() == m_fileSize)
        return true;
    m_file.close();
    return false;
}

void QKBase64FileDevice::startEncoding(qint64 index)
{
    // One worker for the whole upload: a thread per block would cost more than encoding it.
    if (!m_worker.joinable()) {
        try {
            m_worker = std::thread([this] { encodeRequestedBlocks(); });
        } catch (const std::system_error &) {
            return; // No thread to spare: the next block is encoded when it is needed.
        }
    }
    {
        const std::lock_guard lock(m_mutex);
        m_requested = index;
        m_nextReady = false;
    }
    m_encoding = true;
    m_changed.notify_all();
}

void QKBase64FileDevice::collectEncoded()
{
    std::unique_lock lock(m_mutex);
    m_changed.wait(lock, [this] { return m_nextReady; });
    m_encoding = false;
    std::swap(m_current, m_next);
}

void QKBase64FileDevice::encodeRequestedBlocks()
{
    mayRunOnAnyCPU();
    std::unique_lock lock(m_mutex);
    for (;;) {
        m_changed.wait(lock, [this] { return m_quitting || m_requested >= 0; });
        if (m_quitting)
            return;
        const qint64 index = std::exchange(m_requested, -1);
        lock.unlock();
        encodeBlock(index, m_next);
        lock.lock();
        m_nextReady = true;
        m_changed.notify_all();
    }
}
