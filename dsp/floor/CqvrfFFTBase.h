#pragma once

#include "dsp/floor/CqvrfFFT_If.h"
#include "dsp/floor/FloorKernels.h"

// What every tier's FFT shares: the checks of init, the plan (passes,
// twiddles, work areas) built once for the size, the window, and forward and
// inverse as copy-window-transform. Only the kernels that walk the plan come
// from the tier, given at construction. See CqvrfFFT_If for the contract.
namespace meridex
{
class CqvrfFFTBase : public CqvrfFFT_If
{
public:
    static constexpr int kMinSize = 64;
    static constexpr int kMaxSize = 65536;

    ~CqvrfFFTBase() override;

    void forward (float* out, const float* in) noexcept override;
    void inverse (float* out, const float* in) noexcept override;
    [[nodiscard]] int init (int frameSize, int zeroPadFactor, int window) noexcept override;
    void free() noexcept override;

protected:
    explicit CqvrfFFTBase (const floor_detail::FftKernels& tierKernels) noexcept : kernels (tierKernels) {}

private:
    int buildPlan() noexcept;

    const floor_detail::FftKernels& kernels;
    floor_detail::FftPlan plan;
    float* twiddles = nullptr;
    float* postTable = nullptr;
    float* bufferA = nullptr;
    float* bufferB = nullptr;
};
} // namespace meridex
