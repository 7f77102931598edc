#pragma once

// The dispatch table of the numeric floor: one set of function pointers for
// every vector operation, the FFT and correlator factories, chosen once per
// process by the processor's features. Every tier computes the same results up
// to rounding; tiers differ in speed only.
//
// Tiers: 0 portable code; on x86 3 = SSE2, 4 = SSE3, 5 = SSE4.2. Tiers 1 and 2
// are not used by this build.
//
// Thread safety: selectTier may be called from any thread at any time. The
// tables themselves are immutable; the active one is published through an
// atomic pointer, so readers never see a half-filled table. Everything else in
// the floor belongs to the one engine that created it.
//
// Arrays are float, n elements, first argument also the result unless said
// otherwise. No operation allocates except allocate and the factories, and no
// operation requires aligned pointers (aligned ones are faster).
//
// Spectra use the packed layout of the real FFT: element 0 holds the real DC
// bin, element 1 the real Nyquist bin, then re, im pairs of bins 1 .. n/2 - 1,
// where n is the FFT size.
namespace meridex
{
class CqvrfFFT_If;
class CqvrfCcf_If;

enum Tier : int
{
    kTierGeneric = 0,
    kTierSse2 = 3,
    kTierSse3 = 4,
    kTierSse4 = 5,
    kTierNoMaximum = 6, // what selectTier (-1) stands for
};

struct VectorDispatch
{
    bool filled = false;
    int tier = kTierGeneric;

    // Zero-filled aligned array of n floats, or null; free nulls the pointer.
    float* (*allocate) (int n) = nullptr;
    void (*free) (float** pointer) = nullptr;

    void (*zero) (float* a, int n) = nullptr;
    void (*add) (float* a, const float* b, int n) = nullptr;
    void (*addScalar) (float* a, float value, int n) = nullptr;
    void (*subtract) (float* a, const float* b, int n) = nullptr;
    void (*multiply) (float* a, const float* b, int n) = nullptr;
    void (*multiplyScalar) (float* a, float value, int n) = nullptr;
    void (*divide) (float* a, const float* b, int n) = nullptr;
    void (*maxElementwise) (float* a, const float* b, int n) = nullptr;
    // a = max (a, limit): raises everything below limit to it.
    void (*clampBelow) (float* a, float limit, int n) = nullptr;

    void (*absolute) (float* a, int n) = nullptr;
    void (*exp) (float* a, int n) = nullptr;
    void (*log) (float* a, int n) = nullptr;
    void (*squareRoot) (float* a, int n) = nullptr;

    // First index holding the largest (smallest) value; n < 1 gives 0 and 0.
    void (*findMax) (const float* a, float* value, int* index, int n) = nullptr;
    void (*findMin) (const float* a, float* value, int* index, int n) = nullptr;
    float (*sum) (const float* a, int n) = nullptr;
    float (*sumSquares) (const float* a, int n) = nullptr;

    // Packed spectra of n floats (n the FFT size).
    // a = a * b, bin by bin; DC and Nyquist are real.
    void (*complexMultiply) (float* a, const float* b, int n) = nullptr;
    void (*conjugate) (float* a, int n) = nullptr;
    // out[0 .. n/2] = magnitude of bins 0 .. n/2. DC and Nyquist give half of
    // |value|, so that a constant and a sinusoid of equal amplitude read the
    // same: the scale is one for all bins.
    void (*magnitude) (float* out, const float* spectrum, int n) = nullptr;
    // out[0 .. n/2] = phase of bins 0 .. n/2 in (-pi, pi]; DC and Nyquist are
    // 0 when positive, else pi.
    void (*phase) (float* out, const float* spectrum, int n) = nullptr;
    // a = (a + pi) - floor ((a + pi) / 2pi) * 2pi - pi, into [-pi, pi).
    void (*wrapPhase) (float* a, int n) = nullptr;
    // sines[i] = sin (phases[i]), cosines[i] = cos (phases[i]).
    void (*sinCos) (float* sines, float* cosines, const float* phases, int n) = nullptr;

    // window is a WindowType; frameSize * zeroPadFactor must be a power of two
    // from 64 to 65536. Return kNoError, kBadArgument or kMemoryError; on
    // failure *fft is null.
    int (*createFFT) (CqvrfFFT_If** fft, int frameSize, int zeroPadFactor, int window) = nullptr;
    void (*destroyFFT) (CqvrfFFT_If** fft) = nullptr;
    // A correlator for inputs of up to maxLength samples (1 .. 32768).
    int (*createCcf) (CqvrfCcf_If** ccf, int maxLength, bool normalise) = nullptr;
    void (*destroyCcf) (CqvrfCcf_If** ccf) = nullptr;
};

struct CpuFeatures
{
    bool sse = false;
    bool sse2 = false;
    bool sse3 = false;
    bool sse42 = false;
};

// CPUID leaf 1 on x86; all false elsewhere.
CpuFeatures readCpuFeatures() noexcept;

// The tier a processor with these features runs under a maximum (-1: none).
int tierForFeatures (const CpuFeatures& features, int maximum) noexcept;

// Fills the process-wide table when it is not filled yet or when maximum is
// below the tier in use; returns the tier in use. Every factory of the library
// calls selectTier (-1) first.
int selectTier (int maximum) noexcept;

// The tier in use (the table is filled first if needed).
int getTier() noexcept;

// The process-wide table, filled if needed.
const VectorDispatch& dispatch() noexcept;

// Whether this processor can run the given tier.
bool isTierAvailable (int tier) noexcept;

// Copies the table of one tier into table, for tests and benchmarks that
// compare tiers. Returns false (table untouched) if the tier does not exist
// here or the processor cannot run it.
bool fillDispatchTable (VectorDispatch& table, int tier) noexcept;

// The factories through the process-wide table.
[[nodiscard]] int createFFT (CqvrfFFT_If** fft, int frameSize, int zeroPadFactor, int window) noexcept;
void destroyFFT (CqvrfFFT_If** fft) noexcept;
[[nodiscard]] int createCcf (CqvrfCcf_If** ccf, int maxLength, bool normalise) noexcept;
void destroyCcf (CqvrfCcf_If** ccf) noexcept;
} // namespace meridex
