#include "QKAudioStreamDescription.h"

#include <QtEndian>

QKAudioStreamDescription QKAudioStreamDescription::defaultDescription()
{
    QKAudioStreamDescription description;
    description.sampleRate = 44100;
    description.formatID = LinearPCM;
    description.formatFlags = IsFloat | IsPacked | IsNonInterleaved;
    // Non-interleaved: packet and frame sizes count one channel's buffer.
    description.bytesPerPacket = 4;
    description.framesPerPacket = 1;
    description.bytesPerFrame = 4;
    description.channelsPerFrame = 2;
    description.bitsPerChannel = 32;
    return description;
}

QKAudioStreamDescription QKAudioStreamDescription::withChannelCount(quint32 channels) const
{
    QKAudioStreamDescription description = *this;
    description.channelsPerFrame = channels;
    return description;
}

QByteArray QKAudioStreamDescription::toByteArray() const
{
    QByteArray data(Size, Qt::Uninitialized);
    auto *bytes = reinterpret_cast<uchar *>(data.data());
    qToLittleEndian<double>(sampleRate, bytes);
    const quint32 fields[] = {formatID,      formatFlags,      bytesPerPacket, framesPerPacket,
                              bytesPerFrame, channelsPerFrame, bitsPerChannel, reserved};
    for (int i = 0; i < 8; ++i)
        qToLittleEndian<quint32>(fields[i], bytes + 8 + 4 * i);
    return data;
}

QKAudioStreamDescription QKAudioStreamDescription::fromByteArray(const QByteArray &data, bool *ok)
{
    if (ok)
        *ok = data.size() == Size;
    QKAudioStreamDescription description;
    if (data.size() != Size)
        return description;
    const auto *bytes = reinterpret_cast<const uchar *>(data.constData());
    description.sampleRate = qFromLittleEndian<double>(bytes);
    quint32 *fields[] = {&description.formatID,       &description.formatFlags,
                         &description.bytesPerPacket, &description.framesPerPacket,
                         &description.bytesPerFrame,  &description.channelsPerFrame,
                         &description.bitsPerChannel, &description.reserved};
    for (int i = 0; i < 8; ++i)
        *fields[i] = qFromLittleEndian<quint32>(bytes + 8 + 4 * i);
    return description;
}
