#pragma once

// Cross-correlation of two signals through the FFT. Made by createCcf
// (VectorDispatch.h) for inputs of up to a maximum length; owned by the engine
// that made it and used from its thread only. correlate never allocates.
namespace meridex
{
class CqvrfCcf_If
{
public:
    // Writes lengthA + lengthB - 1 values, negative lags first:
    //   result[lengthB - 1 + lag] = sum over n of a[n + lag] * b[n],
    // for lag from -(lengthB - 1) to lengthA - 1; so if b is a moved earlier by
    // d samples (b[n] = a[n + d]) the peak is at index lengthB - 1 + d. With
    // normalising on, every value is divided by
    // min (lengthA, lengthB) * sqrt (Ea * Eb), Ea and Eb the mean squares of the
    // inputs, so that a signal against itself gives 1 at lag 0 (silent inputs
    // are left unnormalised). Returns kBadArgument for a null pointer or a
    // length outside 1 .. getMaxLength(), else kNoError.
    [[nodiscard]] virtual int correlate (float* result, const float* a, const float* b, int lengthA,
                                         int lengthB) noexcept = 0;

    virtual void setNormalise (bool shouldNormalise) noexcept = 0;
    virtual bool isNormalising() const noexcept = 0;
    virtual int getMaxLength() const noexcept = 0;

    virtual ~CqvrfCcf_If() = default;
};
} // namespace meridex
