#pragma once

#include <cstdint>

/**
 * The binary interface of a Linux VST 2 plug-in, as far as the catalogue uses it. These are
 * the facts every plug-in built for the format relies on (the effect's memory layout, the
 * opcode numbers, the calling convention); they are declared here so that no SDK is needed.
 */
namespace QKVST2 {

struct AEffect;

/** The host's side of the conversation; a plug-in calls it, also from its entry point. */
using HostCallback = intptr_t (*)(AEffect *effect, int32_t opcode, int32_t index, intptr_t value,
                                  void *ptr, float opt);
/** The plug-in's side: every query goes through the effect's dispatcher. */
using Dispatcher = intptr_t (*)(AEffect *effect, int32_t opcode, int32_t index, intptr_t value,
                                void *ptr, float opt);
/** "VSTPluginMain", or "main" in older plug-ins: makes one effect. */
using EntryPoint = AEffect *(*)(HostCallback host);

/** 'VstP', the first field of every effect. */
constexpr int32_t Magic = 0x56737450;

/** The effect as a plug-in hands it out. Processing entry points are kept opaque: the
 *  catalogue never processes audio, it only needs them to keep the layout. */
struct AEffect
{
    int32_t magic;
    Dispatcher dispatcher;
    void *process;
    void *setParameter;
    void *getParameter;
    int32_t numPrograms;
    int32_t numParams;
    int32_t numInputs;
    int32_t numOutputs;
    int32_t flags;
    intptr_t reserved1;
    intptr_t reserved2;
    int32_t initialDelay;
    int32_t realQualities;
    int32_t offQualities;
    float ioRatio;
    void *object;
    void *user;
    int32_t uniqueID;
    int32_t version;
    void *processReplacing;
    void *processDoubleReplacing;
    char future[56];
};

/** Dispatcher opcodes the catalogue sends. */
enum EffectOpcode : int32_t {
    effOpen = 0,
    effClose = 1,
    effGetPlugCategory = 35,
    effGetEffectName = 45,
    effGetVendorString = 47,
    effGetProductString = 48,
};

/** The one host opcode the catalogue answers. */
constexpr int32_t audioMasterVersion = 1;
/** What a 2.4 host answers to audioMasterVersion. */
constexpr intptr_t HostVersion = 2400;

/** AEffect::flags bit of an instrument. */
constexpr int32_t effFlagsIsSynth = 1 << 8;
/** effGetPlugCategory's answer for an instrument. */
constexpr intptr_t kPlugCategSynth = 2;

/** The string limits are 32 (effect name) and 64 (vendor, product) bytes, which plug-ins
 *  are known to overrun; the host's buffers leave plenty of room. */
constexpr int StringBufferSize = 256;

} // namespace QKVST2
