#pragma once

#include "QKBaseGlobal.h"

#include <QByteArray>

/**
 * The format of an audio stream as plug-ins are asked to accept it: the 40-byte stream
 * description (a double sample rate, then eight unsigned 32-bit fields).
 */
struct QKBASE_EXPORT QKAudioStreamDescription
{
    /** Bits of formatFlags. */
    enum FormatFlag : quint32 {
        IsFloat = 0x1,
        IsBigEndian = 0x2,
        IsSignedInteger = 0x4,
        IsPacked = 0x8,
        IsAlignedHigh = 0x10,
        IsNonInterleaved = 0x20,
    };
    /** formatID of linear PCM, 'lpcm'. */
    static constexpr quint32 LinearPCM = 0x6c70636d;
    /** Size of the stored form. */
    static constexpr int Size = 40;

    double sampleRate = 0;
    quint32 formatID = 0;
    quint32 formatFlags = 0;
    quint32 bytesPerPacket = 0;
    quint32 framesPerPacket = 0;
    quint32 bytesPerFrame = 0;
    quint32 channelsPerFrame = 0;
    quint32 bitsPerChannel = 0;
    quint32 reserved = 0;

    /** The format plug-ins are tried with: 44100 Hz stereo linear PCM of 32-bit floats, one
     *  buffer per channel. */
    static QKAudioStreamDescription defaultDescription();

    /** This description with @p channels channels; every other field is kept. */
    QKAudioStreamDescription withChannelCount(quint32 channels) const;

    /** The 40-byte stored form, little-endian. */
    QByteArray toByteArray() const;
    /** The description stored in @p data; a zeroed description and @p ok false unless
     *  @p data holds exactly 40 bytes. */
    static QKAudioStreamDescription fromByteArray(const QByteArray &data, bool *ok = nullptr);

    friend bool operator==(const QKAudioStreamDescription &,
                           const QKAudioStreamDescription &) = default;
};
