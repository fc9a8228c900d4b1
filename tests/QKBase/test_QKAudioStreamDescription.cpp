#include "QKAudioStreamDescription.h"
#include "QKTestSupport.h"

TEST(QKAudioStreamDescription, defaultIsStereoFloatAt44100InFortyLittleEndianBytes)
{
    const QKAudioStreamDescription stereo = QKAudioStreamDescription::defaultDescription();
    // 44100.0, 'lpcm', float | packed | non-interleaved, 4 bytes per packet, 1 frame per
    // packet, 4 bytes per frame, 2 channels of 32 bits, nothing reserved.
    EXPECT_EQ(stereo.toByteArray().toHex(), QByteArray("000000008088e540"
                                                       "6d63706c29000000040000000100000004000000"
                                                       "020000002000000000000000"));
    // The channel count changes the channels only.
    const QByteArray mono = stereo.withChannelCount(1).toByteArray();
    for (int i = 0; i < QKAudioStreamDescription::Size; ++i)
        EXPECT_EQ(mono[i] == stereo.toByteArray()[i], i != 28) << "byte " << i;
    EXPECT_EQ(stereo.withChannelCount(1).withChannelCount(2), stereo);
}

TEST(QKAudioStreamDescription, storedFormReadsBackAndOtherSizesAreRefused)
{
    QKAudioStreamDescription odd = QKAudioStreamDescription::defaultDescription();
    odd.sampleRate = 96000.5;
    odd.formatFlags =
        QKAudioStreamDescription::IsSignedInteger | QKAudioStreamDescription::IsBigEndian;
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
