#pragma once

#include <QByteArray>
#include <QFile>
#include <QIODevice>

#include <condition_variable>
#include <mutex>
#include <thread>

/**
 * The Base64 text of a file as a read-only, random-access device: what a multipart body
 * sends for a QKBase64EncodedFile value. The network code reads a few kilobytes at a time,
 * so the text is encoded a block at a time, and the next block is encoded on a worker
 * thread while the current one is read out. A read past the end of a file that shrank
 * after opening fails, so a short body is never sent as a whole one. The file is closed
 * once its last block has been taken from it for encoding, and opened again by its path
 * only if the device is read once more after a seek back.
 */
class QKBase64FileDevice : public QIODevice
{
public:
    explicit QKBase64FileDevice(const QString &path, QObject *parent = nullptr);
    ~QKBase64FileDevice() override;

    /** Opens the file; only ReadOnly makes sense. */
    bool open(OpenMode mode) override;
    bool isSequential() const override { return false; }
    qint64 size() const override { return m_textSize; }

protected:
    qint64 readData(char *data, qint64 maxSize) override;
    qint64 writeData(const char *data, qint64 maxSize) override;

private:
    struct Block
    {
        qint64 index = -1;
        QByteArray text; // its storage is kept from block to block
    };

    void loadBlock(qint64 index);
    void encodeBlock(qint64 index, Block &block);
    bool reopenFile();
    void startEncoding(qint64 index);
    void collectEncoded();
    void encodeRequestedBlocks();

    QFile m_file;
    qint64 m_fileSize = 0;
    qint64 m_textSize = 0;
    // One block of the file. The worker and the reading thread never encode at the same
    // time, so they share it, and the file, without a lock.
    QByteArray m_fileBytes;
    Block m_current;
    Block m_next; // the worker's while a block is requested and not yet collected

    std::mutex m_mutex;
    std::condition_variable m_changed;
    qint64 m_requested = -1; // guarded by m_mutex, as are the two flags
    bool m_nextReady = false;
    bool m_quitting = false;
    bool m_encoding = false; // only the reading thread uses it
    std::thread m_worker;
};
