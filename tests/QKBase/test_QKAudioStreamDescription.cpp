#include "QKAudioStreamDescription.h"
#include "QKTestPrinters.h"

#include <gtest/gtest.h>

TEST(QKAudioStreamDescription, defaultIsStereoNonInterleavedFloatAt44100)
{
    const QKAudioStreamDescription format = QKAudioStreamDescription::defaultDescription();
    EXPECT_EQ(format.sampleRate, 44100.0);
    EXPECT_EQ(format.formatID, quint32('l') << 24 | quint32('p') << 16 | quint32('c') << 8 | 'm');
    EXPECT_EQ(format.formatFlags, 41u);
    EXPECT_EQ(format.bytesPerPacket, 4u);
    EXPECT_EQ(format.framesPerPacket, 1u);
    EXPECT_EQ(format.bytesPerFrame, 4u);
    EXPECT_EQ(format.channelsPerFrame, 2u);
    EXPECT_EQ(format.bitsPerChannel, 32u);
    EXPECT_EQ(format.reserved, 0u);
}

TEST(QKAudioStreamDescription, storedFormIsFortyLittleEndianBytes)
{
    const QByteArray stored = QKAudioStreamDescription::defaultDescription().toByteArray();
    EXPECT_EQ(stored.toHex(), QByteArray("000000008088e540" // 44100.0
                                         "6d63706c29000000040000000100000004000000"
                                         "020000002000000000000000"));
}

TEST(QKAudioStreamDescription, channelCountChangesOnlyTheChannels)
{
    const QKAudioStreamDescription stereo = QKAudioStreamDescription::defaultDescription();
    const QKAudioStreamDescription mono = stereo.withChannelCount(1);
    EXPECT_EQ(mono.channelsPerFrame, 1u);
    EXPECT_FALSE(mono == stereo);
    EXPECT_EQ(mono.withChannelCount(2), stereo);

    const QByteArray a = stereo.toByteArray();
    const QByteArray b = stereo.withChannelCount(3).toByteArray();
    for (int i = 0; i < QKAudioStreamDescription::Size; ++i)
        EXPECT_EQ(a[i] == b[i], i != 28) << "byte " << i;
}

TEST(QKAudioStreamDescription, storedFormReadsBack)
{
    QKAudioStreamDescription odd;
    odd.sampleRate = 96000.5;
    odd.formatID = 0x61756678;
    odd.formatFlags =
        QKAudioStreamDescription::IsSignedInteger | QKAudioStreamDescription::IsBigEndian;
    odd.bytesPerPacket = 6;
    odd.framesPerPacket = 1;
    odd.bytesPerFrame = 6;
    odd.channelsPerFrame = 2;
    odd.bitsPerChannel = 24;
    odd.reserved = 0xdeadbeef;
    bool ok = false;
    EXPECT_EQ(QKAudioStreamDescription::fromByteArray(odd.toByteArray(), &ok), odd);
    EXPECT_TRUE(ok);

    for (const QByteArray &wrong :
         {QByteArray(), odd.toByteArray().left(39), odd.toByteArray() + '\0'}) {
        EXPECT_EQ(QKAudioStreamDescription::fromByteArray(wrong, &ok), QKAudioStreamDescription());
        EXPECT_FALSE(ok);
    }
}
