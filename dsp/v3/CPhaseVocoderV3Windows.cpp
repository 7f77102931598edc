#include "dsp/v3/CPhaseVocoderV3.h"
#include "dsp/v3/CPhaseVocoderV3Rows.h"

#include <cmath>
#include <cstring>

// Hops and the window tables they select: analysis, synthesis, their product
// and the aux window, and the attack gain that follows from the synthesis window.
namespace meridex
{
using namespace vocoderRows;

void CPhaseVocoderV3::setHops (int newFrameSize, int newAnalysisHop, int newSynthesisHop, float newRatio) noexcept
{
    if (frameSize == 0 || newFrameSize != frameSize || newAnalysisHop < 1 || newAnalysisHop > frameSize / 2
        || newSynthesisHop < 1 || newSynthesisHop > frameSize / 2)
        return;

    const bool untouchedNeutral = bypass;
    analysisHop = newAnalysisHop;
    synthesisHop = newSynthesisHop;
    ratio = newRatio;
    if (ratio != 1.0f)
        bypass = false;

    float* omega = binRows[kExpected];
    const double advance = kTwoPi * analysisHop / frameSize;
    for (int k = 0; k < bins; ++k)
        omega[k] = static_cast<float> (advance * k);

    // The analysis window is narrower (a higher power) for small ratios, where
    // hops overlap more; it changes only when the ratio crosses 1.5.
    const bool wantCubed = ratio >= 1.5f;
    const bool analysisChanged = wantCubed != analysisCubed;
    if (analysisChanged)
        buildAnalysisWindow (wantCubed);

    // Synthesis: the analysis window from 0.75 up. Below 0.75 the asymmetric
    // window is chosen only on a fresh start (nothing set since reset, or the
    // untouched neutral ratio); a running stream that moves down into strong
    // compression keeps the window it has.
    if (ratio >= 0.75f)
    {
        if (synthesisAsymmetric || analysisChanged)
            buildSymmetricSynthesis();
    }
    else if (! hopsSetSinceReset || untouchedNeutral)
    {
        buildAsymmetricSynthesis();
    }
    buildProduct();

    // An attack passes the synthesis hop once: its frame gets back the part of
    // the synthesis window's half that lies beyond the first synthesis hop.
    // (Taken over the analysis x synthesis product, which falls off twice as
    // fast, the gain stayed near 1 and attacks came out up to 1 dB softer.)
    const float* synthesis = windows[kSynthesis];
    double halfSum = 0.0;
    double hopSum = 0.0;
    for (int i = 0; i < half; ++i)
    {
        halfSum += synthesis[half + i];
        if (i < synthesisHop)
            hopSum += synthesis[half + i];
    }
    attackGain = hopSum > 0.0 ? static_cast<float> (halfSum / hopSum) : 1.0f;
    hopsSetSinceReset = true;
    frameHop = synthesisHop;

    // Only the half after the centre: the coming frame's half before it
    // overlaps the last frame's falling half, built for the old hop.
    if (synthesisHop != auxFallingHop)
        buildAuxFalling (synthesisHop);
}

void CPhaseVocoderV3::setFrameHop (int hop) noexcept
{
    if (frameSize == 0 || hop < 1 || hop > half)
        return;
    frameHop = hop;
}

// h(i) = 0.53836 - 0.46164 cos (2 pi i / (N - 1)), raised to the 3rd or 4th power.
void CPhaseVocoderV3::buildAnalysisWindow (bool cubed) noexcept
{
    float* analysis = windows[kAnalysis];
    float* scaled = windows[kAnalysisScaled];
    float* ramp = windows[kAnalysisRampScaled];
    const double inverseSize = 1.0 / frameSize;
    for (int i = 0; i < frameSize; ++i)
    {
        const double h = 0.53836 - 0.46164 * std::cos (kTwoPi * i / (frameSize - 1));
        const double w = cubed ? h * h * h : h * h * h * h;
        analysis[i] = static_cast<float> (w);
        scaled[i] = static_cast<float> (w * inverseSize);
        ramp[i] = static_cast<float> (w * inverseSize * (-1.0 + 2.0 * i / (frameSize - 1)));
    }
    analysisCubed = cubed;
}

void CPhaseVocoderV3::buildSymmetricSynthesis() noexcept
{
    std::memcpy (windows[kSynthesis], windows[kAnalysis], sizeof (float) * static_cast<size_t> (frameSize));
    synthesisAsymmetric = false;
}

// Rises late (g^10) and falls slowly (g^3): when compressing, what lies before
// the frame's centre is kept short, which keeps pre-echo down.
void CPhaseVocoderV3::buildAsymmetricSynthesis() noexcept
{
    float* synthesis = windows[kSynthesis];
    for (int i = 0; i < frameSize; ++i)
    {
        const double g = 0.5 - 0.5 * std::cos (kTwoPi * i / (frameSize - 1));
        double w = i < half ? std::pow (g, 10.0) : g * g * g;
        if (w < 1.0e-20)
            w = 0.0;
        synthesis[i] = static_cast<float> (w);
    }
    synthesisAsymmetric = true;
}

void CPhaseVocoderV3::buildProduct() noexcept
{
    std::memcpy (windows[kProduct], windows[kAnalysis], sizeof (float) * static_cast<size_t> (frameSize));
    ops->multiply (windows[kProduct], windows[kSynthesis], frameSize);
}

// w (N/2 + h - 1 - i) = sin (pi i / (2h - 1)) for i = 0 .. h - 1, 0 further
// out: with the mirrored rising half a sine over 2h samples, whose square
// overlap-adds to one (within about 1/h) at a hop of h. A hop never exceeds
// N/2 (setHops refuses more), so the half always fits.
void CPhaseVocoderV3::buildAuxFalling (int hop) noexcept
{
    float* window = windows[kAux];
    float* scaled = windows[kAuxScaled];
    ops->zero (window + half, half);
    ops->zero (scaled + half, half);
    const double inverseSize = 1.0 / frameSize;
    for (int i = 0; i < hop; ++i)
    {
        const double w = std::sin (kPi * i / (2 * hop - 1));
        window[half + hop - 1 - i] = static_cast<float> (w);
        scaled[half + hop - 1 - i] = static_cast<float> (w * inverseSize);
    }
    auxFallingHop = hop;
}

// w (i) = w (N - 1 - i): the rising half takes the falling half's hop.
void CPhaseVocoderV3::buildAuxRising() noexcept
{
    float* window = windows[kAux];
    float* scaled = windows[kAuxScaled];
    for (int i = 0; i < half; ++i)
    {
        window[i] = window[frameSize - 1 - i];
        scaled[i] = scaled[frameSize - 1 - i];
    }
    auxRisingHop = auxFallingHop;
}
} // namespace meridex
