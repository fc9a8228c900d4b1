#pragma once

#include <QByteArray>
#include <QFile>
#include <QIODevice>

/**
 * The Base64 text of a file as a read-only, random-access device: what a multipart body
 * sends for a QKBase64EncodedFile value. Each read encodes just the part of the file it
 * covers, straight into the reader's buffer, so the text is never held whole and a large
 * read costs one file read and one pass of the encoder. A read past the end of a file that
 * shrank after opening fails, so a short body is never sent as a whole one. The file is
 * closed once its last bytes have been read, and opened again by its path only if the
 * device is read once more after a seek back.
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
    bool readFile(qint64 offset, qint64 size);
    void closeFileAside();
    bool reopenFile();

    QFile m_file;
    qint64 m_fileSize = 0;
    qint64 m_textSize = 0;
    QByteArray m_fileBytes; // the bytes of the current read; its storage is kept
};
