#pragma once

#include "dsp/floor/CScopedPtr.h"
#include "dsp/floor/CqvrfCcf_If.h"
#include "dsp/floor/CqvrfFFT_If.h"
#include "dsp/floor/VectorDispatch.h"

// The correlator of every tier: the work goes through the vector operations
// and the FFT of the table it was made with. The FFT has the next power of two
// at or above twice the maximum length (at least 64), so the circular product
// of the transforms never wraps a lag onto another.
namespace meridex
{
class CqvrfCcf final : public CqvrfCcf_If
{
public:
    static constexpr int kMaxLength = 32768;

    explicit CqvrfCcf (const VectorDispatch& tierTable) noexcept : ops (tierTable) {}
    ~CqvrfCcf() override;

    CqvrfCcf (const CqvrfCcf&) = delete;
    CqvrfCcf& operator= (const CqvrfCcf&) = delete;

    // Returns kNoError, kBadArgument (maxLength outside 1 .. kMaxLength) or
    // kMemoryError.
    [[nodiscard]] int init (int maxLength, bool shouldNormalise) noexcept;

    [[nodiscard]] int correlate (float* result, const float* a, const float* b, int lengthA,
                                 int lengthB) noexcept override;
    void setNormalise (bool shouldNormalise) noexcept override { normalise = shouldNormalise; }
    bool isNormalising() const noexcept override { return normalise; }
    int getMaxLength() const noexcept override { return maxInputLength; }

private:
    void release() noexcept;

    const VectorDispatch& ops;
    CScopedPtr<CqvrfFFT_If> fft;
    float* bufferA = nullptr;
    float* bufferB = nullptr;
    int size = 0;
    int maxInputLength = 0;
    bool normalise = false;
};
} // namespace meridex
