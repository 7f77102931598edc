#include "dsp/floor/VectorDispatch.h"

#include "dsp/MeridexErrors.h"
#include "dsp/floor/AlignedMemory.h"
#include "dsp/floor/CqvrfCcf.h"
#include "dsp/floor/CqvrfFFTTiers.h"
#include "dsp/floor/FloorKernels.h"

#include <atomic>
#include <new>

#if MERIDEX_HAS_X86_TIERS
#if defined(_MSC_VER)
#include <intrin.h>
#else
#include <cpuid.h>
#endif
#endif

namespace meridex
{
namespace
{
float* allocateFloats (int n)
{
    return allocateArray<float> (n);
}

void freeFloats (float** pointer)
{
    freeArray (pointer);
}

template <typename Fft>
int createFftOf (CqvrfFFT_If** out, int frameSize, int zeroPadFactor, int window)
{
    if (out == nullptr)
        return kBadArgument;
    *out = nullptr;
    Fft* fft = new (std::nothrow) Fft();
    if (fft == nullptr)
        return kMemoryError;
    const int code = fft->init (frameSize, zeroPadFactor, window);
    if (code != kNoError)
    {
        delete fft;
        return code;
    }
    *out = fft;
    return kNoError;
}

void destroyAnyFft (CqvrfFFT_If** fft)
{
    if (fft == nullptr)
        return;
    delete *fft;
    *fft = nullptr;
}

void destroyAnyCcf (CqvrfCcf_If** ccf)
{
    if (ccf == nullptr)
        return;
    delete *ccf;
    *ccf = nullptr;
}

const VectorDispatch* tableOfTier (int tier) noexcept;

// A correlator works through the table of the tier it was made for.
template <int tier>
int createCcfOf (CqvrfCcf_If** out, int maxLength, bool normalise)
{
    if (out == nullptr)
        return kBadArgument;
    *out = nullptr;
    CqvrfCcf* ccf = new (std::nothrow) CqvrfCcf (*tableOfTier (tier));
    if (ccf == nullptr)
        return kMemoryError;
    const int code = ccf->init (maxLength, normalise);
    if (code != kNoError)
    {
        delete ccf;
        return code;
    }
    *out = ccf;
    return kNoError;
}

template <int tier, typename Fft>
VectorDispatch makeTable (void (*fillOps) (VectorDispatch&) noexcept)
{
    VectorDispatch table;
    table.tier = tier;
    table.allocate = allocateFloats;
    table.free = freeFloats;
    fillOps (table);
    table.createFFT = createFftOf<Fft>;
    table.destroyFFT = destroyAnyFft;
    table.createCcf = createCcfOf<tier>;
    table.destroyCcf = destroyAnyCcf;
    table.filled = true;
    return table;
}

// All tables are built together on first use and never change; the choice
// between them is the one mutable thing.
struct TierTables
{
    VectorDispatch generic = makeTable<kTierGeneric, CqvrfFFTGen> (floor_detail::fillVectorOpsGeneric);
#if MERIDEX_HAS_X86_TIERS
    VectorDispatch sse2 = makeTable<kTierSse2, CqvrfFFTSSE2> (floor_detail::fillVectorOpsSse2);
    VectorDispatch sse3 = makeTable<kTierSse3, CqvrfFFTSSE3> (floor_detail::fillVectorOpsSse3);
    VectorDispatch sse4 = makeTable<kTierSse4, CqvrfFFTSSE4> (floor_detail::fillVectorOpsSse4);
#endif
};

const TierTables& tierTables() noexcept
{
    static const TierTables tables;
    return tables;
}

const VectorDispatch* tableOfTier (int tier) noexcept
{
    const TierTables& tables = tierTables();
    switch (tier)
    {
#if MERIDEX_HAS_X86_TIERS
        case kTierSse2: return &tables.sse2;
        case kTierSse3: return &tables.sse3;
        case kTierSse4: return &tables.sse4;
#endif
        case kTierGeneric: return &tables.generic;
        default: return nullptr;
    }
}

const CpuFeatures& processorFeatures() noexcept
{
    static const CpuFeatures features = readCpuFeatures();
    return features;
}

std::atomic<const VectorDispatch*> activeTable { nullptr };
} // namespace

CpuFeatures readCpuFeatures() noexcept
{
    CpuFeatures features;
#if MERIDEX_HAS_X86_TIERS
    unsigned int ecx = 0, edx = 0;
#if defined(_MSC_VER)
    int registers[4] = {};
    __cpuid (registers, 0);
    if (registers[0] < 1)
        return features;
    __cpuid (registers, 1);
    ecx = static_cast<unsigned int> (registers[2]);
    edx = static_cast<unsigned int> (registers[3]);
#else
    unsigned int eax = 0, ebx = 0;
    if (__get_cpuid (1, &eax, &ebx, &ecx, &edx) == 0)
        return features;
#endif
    features.sse = (edx & (1u << 25)) != 0;
    features.sse2 = (edx & (1u << 26)) != 0;
    features.sse3 = (ecx & 1u) != 0;
    features.sse42 = (ecx & (1u << 20)) != 0;
#endif
    return features;
}

// SSE alone buys nothing: the lowest vector tier needs SSE2.
int tierForFeatures (const CpuFeatures& features, int maximum) noexcept
{
    if (maximum < 0)
        maximum = kTierNoMaximum;
    if (features.sse42 && maximum > 4)
        return kTierSse4;
    if (features.sse3 && maximum > 3)
        return kTierSse3;
    if (features.sse2 && maximum > 2)
        return kTierSse2;
    return kTierGeneric;
}

bool isTierAvailable (int tier) noexcept
{
    if (tier == kTierGeneric)
        return true;
#if MERIDEX_HAS_X86_TIERS
    const CpuFeatures& features = processorFeatures();
    switch (tier)
    {
        case kTierSse2: return features.sse2;
        case kTierSse3: return features.sse3;
        case kTierSse4: return features.sse42;
        default: return false;
    }
#else
    return false;
#endif
}

// Lowering only: a caller that asked for a maximum keeps it against later
// calls with a higher one. Racing callers agree through the compare-exchange,
// and the lowest maximum asked for wins.
int selectTier (int maximum) noexcept
{
    if (maximum < 0)
        maximum = kTierNoMaximum;
    const VectorDispatch* current = activeTable.load (std::memory_order_acquire);
    while (current == nullptr || maximum < current->tier)
    {
        const VectorDispatch* wanted = tableOfTier (tierForFeatures (processorFeatures(), maximum));
        if (activeTable.compare_exchange_weak (current, wanted, std::memory_order_acq_rel, std::memory_order_acquire))
        {
            current = wanted;
            break;
        }
    }
    return current->tier;
}

const VectorDispatch& dispatch() noexcept
{
    const VectorDispatch* current = activeTable.load (std::memory_order_acquire);
    if (current == nullptr)
    {
        selectTier (-1);
        current = activeTable.load (std::memory_order_acquire);
    }
    return *current;
}

int getTier() noexcept
{
    return dispatch().tier;
}

bool fillDispatchTable (VectorDispatch& table, int tier) noexcept
{
    if (! isTierAvailable (tier))
        return false;
    const VectorDispatch* source = tableOfTier (tier);
    if (source == nullptr)
        return false;
    table = *source;
    return true;
}

int createFFT (CqvrfFFT_If** fft, int frameSize, int zeroPadFactor, int window) noexcept
{
    selectTier (-1);
    return dispatch().createFFT (fft, frameSize, zeroPadFactor, window);
}

void destroyFFT (CqvrfFFT_If** fft) noexcept
{
    destroyAnyFft (fft);
}

int createCcf (CqvrfCcf_If** ccf, int maxLength, bool normalise) noexcept
{
    selectTier (-1);
    return dispatch().createCcf (ccf, maxLength, normalise);
}

void destroyCcf (CqvrfCcf_If** ccf) noexcept
{
    destroyAnyCcf (ccf);
}
} // namespace meridex
