#pragma once

#include <QByteArray>
#include <QList>
#include <QString>

#include <memory>
#include <optional>

/**
 * The LV2 plug-ins of this machine, seen the way the Audio Unit catalogue sees components.
 *
 * Each plug-in has a 20-byte description: five 32-bit words in host byte order, the first
 * being its type code, the other four the first 16 bytes of the SHA-1 digest of its URI,
 * copied as they are (so the bytes of a stored description read like the digest's hex).
 * The type code is 'aumu' for an lv2:InstrumentPlugin, 'augn' for any other plug-in without
 * audio inputs, 'aumf' for one with a MIDI event input and 'aufx' for the rest.
 *
 * The plug-ins come from one lilv world per process, loaded from the folders of LV2_PATH
 * (lilv's default path when it is unset) on first use, and loaded again only when that path
 * or one of its folders' modification dates changes, i.e. when a bundle was added or
 * removed. A process that only lists the plug-ins, while the folders are as an earlier one
 * found them, gets the list from QKLV2DescriptionCache without loading a world. Main thread
 * only: lilv worlds are not thread-safe.
 */
class QKLV2Host
{
public:
    /** The audio ports a plug-in has, as the stream-format probe counts them. */
    struct AudioPorts
    {
        int inputs = 0;
        int outputs = 0;
    };

    static constexpr quint32 EffectType = 0x61756678;      // 'aufx'
    static constexpr quint32 MusicEffectType = 0x61756D66; // 'aumf'
    static constexpr quint32 InstrumentType = 0x61756D75;  // 'aumu'
    static constexpr quint32 GeneratorType = 0x6175676E;   // 'augn'

    /** The host of this process. */
    static QKLV2Host &shared();

    ~QKLV2Host();
    QKLV2Host(const QKLV2Host &) = delete;
    QKLV2Host &operator=(const QKLV2Host &) = delete;

    /** The description of the plug-in with @p uri and type code @p type. */
    static QByteArray componentDescription(quint32 type, const QByteArray &uri);

    /** The descriptions of every installed plug-in: all 'aufx' first, then 'aumf', 'aumu'
     *  and 'augn', each type in lilv's (URI) order. */
    QList<QByteArray> componentDescriptions();

    /** "<maker>: <name>" of the plug-in with @p description, the maker being its author's
     *  name or else its project's name; the bare name when it has neither. Nothing when no
     *  installed plug-in has that description. */
    std::optional<QString> nameString(const QByteArray &description);

    /** Instantiates the plug-in with @p description at @p sampleRate, connects its ports,
     *  activates and deactivates it and frees it again. Its audio ports when all of that
     *  worked; nothing (logged under @p logDomain) when the plug-in is missing, needs a
     *  feature this host does not offer, or does not instantiate. */
    std::optional<AudioPorts> open(const QByteArray &description, double sampleRate,
                                   const QString &logDomain);

private:
    QKLV2Host();

    struct Private;
    std::unique_ptr<Private> d;
};
