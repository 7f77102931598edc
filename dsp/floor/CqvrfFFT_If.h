#pragma once

#include "dsp/MeridexErrors.h"

// A real FFT of a power-of-two size from 64 to 65536, with an optional window
// and zero padding. Made by createFFT (VectorDispatch.h) for the tier in use;
// owned by the engine that made it (usually through CScopedPtr) and used from
// its thread only. init allocates; forward and inverse never allocate, lock or
// fail.
//
// The spectrum is packed into as many floats as the FFT size n: element 0
// holds the real DC bin, element 1 the real Nyquist bin, then re, im of bins
// 1 .. n/2 - 1, with X[k] = sum x[j] exp (-2 pi i j k / n). Nothing is scaled:
// forward then inverse gives the frame times n.
namespace meridex
{
class CqvrfFFT_If
{
public:
    // Copies the frame of getFrameSize() samples, clears the zero padding,
    // applies the window if one was chosen and transforms into out (getFftSize()
    // floats, packed). out may be in, if it holds getFftSize() floats.
    virtual void forward (float* out, const float* in) noexcept = 0;

    // Packed spectrum in, getFftSize() samples out (no window). out may be in.
    virtual void inverse (float* out, const float* in) noexcept = 0;

    // (Re)builds for frameSize * zeroPadFactor points with a WindowType.
    // Returns kNoError, kBadArgument (size not a power of two from 64 to 65536,
    // factor below 1, unknown window) or kMemoryError; on failure the FFT is
    // empty and forward and inverse do nothing.
    [[nodiscard]] virtual int init (int frameSize, int zeroPadFactor, int window) noexcept = 0;

    // Releases the buffers; the FFT is empty until the next init.
    virtual void free() noexcept = 0;

    virtual ~CqvrfFFT_If() = default;

    int getFrameSize() const noexcept { return frameSize; }
    int getFftSize() const noexcept { return fftSize; }
    bool isWindowed() const noexcept { return windowed; }
    int getErrorCode() const noexcept { return errorCode; }
    // The window applied by forward, getFrameSize() values; null when none.
    const float* getWindow() const noexcept { return window; }

protected:
    CqvrfFFT_If() = default;
    CqvrfFFT_If (const CqvrfFFT_If&) = delete;
    CqvrfFFT_If& operator= (const CqvrfFFT_If&) = delete;

    int frameSize = 0;
    int fftSize = 0;
    float* window = nullptr;
    float* work = nullptr; // fftSize floats: the padded, windowed frame
    bool windowed = false;
    int errorCode = kNoError;
};
} // namespace meridex
