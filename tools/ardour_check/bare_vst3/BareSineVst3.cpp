// A VST3 instrument written against the bare VST3 interfaces, with no JUCE
// and no SDK helper classes: one stereo output bus, one MIDI event input, a
// sine per held note, no parameters and no state. It is a control for host
// checks: a host fault that shows with it cannot be in JUCE's VST3 wrapper.
//
// One object is the component, the audio processor and the edit controller
// (hosts ask the component for IEditController first). Bus activation is
// accepted at any time and only recorded: process() writes to whatever
// channels the host hands it.

#include <atomic>
#include <cmath>
#include <cstring>

// This file defines the IDs of every interface it includes (funknown.cpp
// only supplies FUID and the reference-count helpers).
#define INIT_CLASS_IID
#include "pluginterfaces/base/funknown.h"
#include "pluginterfaces/base/ibstream.h"
#include "pluginterfaces/base/ipluginbase.h"
#include "pluginterfaces/vst/ivstaudioprocessor.h"
#include "pluginterfaces/vst/ivstcomponent.h"
#include "pluginterfaces/vst/ivsteditcontroller.h"
#include "pluginterfaces/vst/ivstevents.h"

using namespace Steinberg;
using namespace Steinberg::Vst;

namespace
{
// Both IDs are fixed: a host's scan cache and sessions key on them.
const TUID bareSineCid = INLINE_UID (0x4b766864, 0x42617265, 0x53696e65, 0x43686b31);

void copyName (String128 destination, const char* source)
{
    int i = 0;
    for (; source[i] != 0 && i < 127; ++i)
        destination[i] = (char16) source[i];
    destination[i] = 0;
}

class BareSine final : public IComponent,
                       public IAudioProcessor,
                       public IEditController
{
public:
    // FUnknown
    tresult PLUGIN_API queryInterface (const TUID iid, void** obj) override
    {
        if (FUnknownPrivate::iidEqual (iid, FUnknown::iid) || FUnknownPrivate::iidEqual (iid, IPluginBase::iid)
            || FUnknownPrivate::iidEqual (iid, IComponent::iid))
            *obj = static_cast<IComponent*> (this);
        else if (FUnknownPrivate::iidEqual (iid, IAudioProcessor::iid))
            *obj = static_cast<IAudioProcessor*> (this);
        else if (FUnknownPrivate::iidEqual (iid, IEditController::iid))
            *obj = static_cast<IEditController*> (this);
        else
        {
            *obj = nullptr;
            return kNoInterface;
        }
        addRef();
        return kResultOk;
    }
    uint32 PLUGIN_API addRef() override { return ++refCount; }
    uint32 PLUGIN_API release() override
    {
        const uint32 left = --refCount;
        if (left == 0)
            delete this;
        return left;
    }

    // IPluginBase (shared by the component and the controller)
    tresult PLUGIN_API initialize (FUnknown*) override { return kResultOk; }
    tresult PLUGIN_API terminate() override { return kResultOk; }

    // IComponent
    tresult PLUGIN_API getControllerClassId (TUID) override { return kResultFalse; }
    tresult PLUGIN_API setIoMode (IoMode) override { return kNotImplemented; }
    int32 PLUGIN_API getBusCount (MediaType type, BusDirection dir) override
    {
        if (type == kAudio && dir == kOutput)
            return 1;
        if (type == kEvent && dir == kInput)
            return 1;
        return 0;
    }
    tresult PLUGIN_API getBusInfo (MediaType type, BusDirection dir, int32 index, BusInfo& bus) override
    {
        if (index != 0 || getBusCount (type, dir) == 0)
            return kInvalidArgument;
        bus.mediaType = type;
        bus.direction = dir;
        bus.channelCount = type == kAudio ? 2 : 16;
        copyName (bus.name, type == kAudio ? "Output" : "MIDI In");
        bus.busType = kMain;
        bus.flags = BusInfo::kDefaultActive;
        return kResultOk;
    }
    tresult PLUGIN_API getRoutingInfo (RoutingInfo&, RoutingInfo&) override { return kNotImplemented; }
    tresult PLUGIN_API activateBus (MediaType type, BusDirection dir, int32 index, TBool state) override
    {
        if (index != 0 || getBusCount (type, dir) == 0)
            return kInvalidArgument;
        (type == kAudio ? outputActive : midiActive) = state != 0;
        return kResultOk;
    }
    tresult PLUGIN_API setActive (TBool state) override
    {
        if (state != 0)
        {
            phase = 0.0;
            note = -1;
        }
        return kResultOk;
    }
    tresult PLUGIN_API setState (IBStream*) override { return kResultOk; }
    tresult PLUGIN_API getState (IBStream*) override { return kResultOk; }

    // IAudioProcessor
    tresult PLUGIN_API setBusArrangements (SpeakerArrangement*, int32 numIns, SpeakerArrangement* outputs,
                                           int32 numOuts) override
    {
        return numIns == 0 && numOuts == 1 && outputs[0] == SpeakerArr::kStereo ? kResultTrue : kResultFalse;
    }
    tresult PLUGIN_API getBusArrangement (BusDirection dir, int32 index, SpeakerArrangement& arrangement) override
    {
        if (dir != kOutput || index != 0)
            return kInvalidArgument;
        arrangement = SpeakerArr::kStereo;
        return kResultOk;
    }
    tresult PLUGIN_API canProcessSampleSize (int32 size) override
    {
        return size == kSample32 ? kResultTrue : kResultFalse;
    }
    uint32 PLUGIN_API getLatencySamples() override { return 0; }
    tresult PLUGIN_API setupProcessing (ProcessSetup& setup) override
    {
        rateHz = setup.sampleRate;
        return kResultOk;
    }
    tresult PLUGIN_API setProcessing (TBool) override { return kResultOk; }
    uint32 PLUGIN_API getTailSamples() override { return kNoTail; }

    tresult PLUGIN_API process (ProcessData& data) override
    {
        if (data.numOutputs < 1 || data.outputs == nullptr)
            return kResultOk;
        auto& out = data.outputs[0];
        for (int32 c = 0; c < out.numChannels; ++c)
            std::memset (out.channelBuffers32[c], 0, sizeof (float) * (size_t) data.numSamples);

        int32 start = 0;
        const int32 numEvents = data.inputEvents != nullptr ? data.inputEvents->getEventCount() : 0;
        for (int32 e = 0; e < numEvents; ++e)
        {
            Event event {};
            if (data.inputEvents->getEvent (e, event) != kResultOk)
                continue;
            const int32 at = event.sampleOffset < start ? start : event.sampleOffset;
            render (out, start, at < data.numSamples ? at : data.numSamples);
            start = at;
            if (event.type == Event::kNoteOnEvent && event.noteOn.velocity > 0.0f)
                note = event.noteOn.pitch;
            else if ((event.type == Event::kNoteOffEvent && event.noteOff.pitch == note)
                     || (event.type == Event::kNoteOnEvent && event.noteOn.pitch == note))
                note = -1;
        }
        render (out, start, data.numSamples);
        out.silenceFlags = note < 0 && numEvents == 0 ? (1ull << out.numChannels) - 1 : 0;
        return kResultOk;
    }

    // IEditController: no parameters, no editor.
    tresult PLUGIN_API setComponentState (IBStream*) override { return kResultOk; }
    int32 PLUGIN_API getParameterCount() override { return 0; }
    tresult PLUGIN_API getParameterInfo (int32, ParameterInfo&) override { return kInvalidArgument; }
    tresult PLUGIN_API getParamStringByValue (ParamID, ParamValue, String128) override { return kInvalidArgument; }
    tresult PLUGIN_API getParamValueByString (ParamID, TChar*, ParamValue&) override { return kInvalidArgument; }
    ParamValue PLUGIN_API normalizedParamToPlain (ParamID, ParamValue value) override { return value; }
    ParamValue PLUGIN_API plainParamToNormalized (ParamID, ParamValue value) override { return value; }
    ParamValue PLUGIN_API getParamNormalized (ParamID) override { return 0.0; }
    tresult PLUGIN_API setParamNormalized (ParamID, ParamValue) override { return kInvalidArgument; }
    tresult PLUGIN_API setComponentHandler (IComponentHandler*) override { return kResultOk; }
    IPlugView* PLUGIN_API createView (FIDString) override { return nullptr; }

private:
    ~BareSine() = default;

    void render (AudioBusBuffers& out, int32 from, int32 to)
    {
        if (note < 0 || from >= to)
            return;
        const double twoPi = 6.283185307179586;
        const double step = twoPi * 440.0 * std::pow (2.0, (note - 69) / 12.0) / rateHz;
        for (int32 i = from; i < to; ++i)
        {
            const auto value = (float) (0.25 * std::sin (phase));
            for (int32 c = 0; c < out.numChannels; ++c)
                out.channelBuffers32[c][i] = value;
            phase = std::fmod (phase + step, twoPi);
        }
    }

    std::atomic<uint32> refCount { 1 };
    double rateHz = 48000.0;
    double phase = 0.0;
    int note = -1;
    bool outputActive = true;
    bool midiActive = true;
};

class BareSineFactory final : public IPluginFactory2
{
public:
    tresult PLUGIN_API queryInterface (const TUID iid, void** obj) override
    {
        if (FUnknownPrivate::iidEqual (iid, FUnknown::iid) || FUnknownPrivate::iidEqual (iid, IPluginFactory::iid)
            || FUnknownPrivate::iidEqual (iid, IPluginFactory2::iid))
        {
            *obj = this;
            return kResultOk;
        }
        *obj = nullptr;
        return kNoInterface;
    }
    // One static factory for the life of the module.
    uint32 PLUGIN_API addRef() override { return 1; }
    uint32 PLUGIN_API release() override { return 1; }

    tresult PLUGIN_API getFactoryInfo (PFactoryInfo* info) override
    {
        *info = PFactoryInfo ("Korvenhaldt", "", "", PFactoryInfo::kUnicode);
        return kResultOk;
    }
    int32 PLUGIN_API countClasses() override { return 1; }
    tresult PLUGIN_API getClassInfo (int32 index, PClassInfo* info) override
    {
        if (index != 0)
            return kInvalidArgument;
        *info = PClassInfo (bareSineCid, PClassInfo::kManyInstances, kVstAudioEffectClass, "Bare Sine Check");
        return kResultOk;
    }
    tresult PLUGIN_API getClassInfo2 (int32 index, PClassInfo2* info) override
    {
        if (index != 0)
            return kInvalidArgument;
        *info = PClassInfo2 (bareSineCid, PClassInfo::kManyInstances, kVstAudioEffectClass, "Bare Sine Check", 0,
                             "Instrument|Synth", "Korvenhaldt", "1.0.0", kVstVersionString);
        return kResultOk;
    }
    tresult PLUGIN_API createInstance (FIDString cid, FIDString iid, void** obj) override
    {
        *obj = nullptr;
        if (! FUnknownPrivate::iidEqual (cid, bareSineCid))
            return kInvalidArgument;
        auto* instance = new BareSine();
        const tresult result = instance->queryInterface (iid, obj);
        instance->release();
        return result;
    }
};
} // namespace

extern "C"
{
    SMTG_EXPORT_SYMBOL bool ModuleEntry (void*)
    {
        return true;
    }
    SMTG_EXPORT_SYMBOL bool ModuleExit()
    {
        return true;
    }
    SMTG_EXPORT_SYMBOL IPluginFactory* PLUGIN_API GetPluginFactory()
    {
        static BareSineFactory factory;
        return &factory;
    }
}
