#include "dsp/v3/CPhaseVocoderV3.h"
#include "dsp/v3/CPhaseVocoderV3Rows.h"

#include <cstring>

// The aux path: its input frame and transform, the two complementary band
// masks that choose per bin between aux and the vocoder, and its overlap-add.
namespace meridex
{
using namespace vocoderRows;

namespace
{
// A peak whose energy centroid C lies at or above this has its energy early
// in the frame (it is ending there): its bins stay with the vocoder.
constexpr double kAuxCentroidLimit = 0.3;
// When fewer than this share of the bins that may come from aux would stay
// with the vocoder, the band counts as steady as a whole and all go to aux.
constexpr double kAuxAllShare = 0.25;
} // namespace

bool CPhaseVocoderV3::isBinFromAux (int bin) const noexcept
{
    if (frameSize == 0 || bin < 0 || bin >= bins)
        return false;
    const int index = bin == 0 ? 0 : (bin == half ? 1 : 2 * bin);
    return masks[kMaskAux][index] != 0.0f;
}

// Every bin from the vocoder; aux gives its DC and Nyquist elements, the
// packed spectrum's first pair, which an upper band hardly holds. The Nyquist
// bin stays empty when the upper bin excludes it.
void CPhaseVocoderV3::resetMasks() noexcept
{
    float* toAux = masks[kMaskAux];
    float* toVocoder = masks[kMaskVocoder];
    ops->zero (toAux, frameSize);
    toAux[0] = 1.0f;
    toAux[1] = upperBin > half ? 1.0f : 0.0f;
    for (int i = 0; i < frameSize; ++i)
        toVocoder[i] = 1.0f;
}

// Stage 1 (stage 3 of a repeat): this frame's hop of aux at the frame's
// centre, under the aux window (with the transform's 1/N folded in, exact as
// N is a power of two), transformed.
void CPhaseVocoderV3::stageAuxInput (const float* const* aux, int channel) noexcept
{
    float* frame = auxFrames[channel];
    const int hop = frameHop;
    if (aux[channel] != nullptr)
        std::memcpy (frame + half, aux[channel], sizeof (float) * static_cast<size_t> (hop));
    else
        ops->zero (frame + half, hop);

    float* spectrum = auxSpectra[channel];
    std::memcpy (spectrum, frame, sizeof (float) * static_cast<size_t> (frameSize));
    ops->multiply (spectrum, windows[kAuxScaled], frameSize);
    fft->forward (spectrum, spectrum);
}

// Stage 3 on channel 0, after the classification: from the lower bin up (and
// below the upper bin, which aux must respect as much as the vocoder), a bin
// comes from aux when its peak is steady, the bin was not an attack in the
// last frame, and the peak's energy does not lie early in the frame.
void CPhaseVocoderV3::routeSteadyBins() noexcept
{
    const int first = lowerBin;
    const int end = upperBin < bins ? upperBin : bins;
    if (first >= end)
        return;

    float* toAux = masks[kMaskAux];
    float* toVocoder = masks[kMaskVocoder];
    const int* peakOf = intRows[kPeakOf];
    const double* centroid = peakSums[kPeakCentroid];
    auto route = [&] (int k) {
        if (k == 0 || k == half)
        {
            const int index = k == 0 ? 0 : 1;
            toAux[index] = 1.0f;
            toVocoder[index] = 0.0f;
            return;
        }
        toAux[2 * k] = toAux[2 * k + 1] = 1.0f;
        toVocoder[2 * k] = toVocoder[2 * k + 1] = 0.0f;
    };

    int count = 0;
    for (int k = first; k < end; ++k)
    {
        const int p = peakOf[k];
        const QvrTransientState_t peakClass = classOfPeak[p];
        // Every bin carries its peak's class here, so the bin is steady
        // (class 0) exactly when its peak is 0 or 3 and it is not 3 itself.
        const bool steady = (peakClass == kTransientSteady || peakClass == kTransientSteadyChanging)
                            && classOfPeak[k] != kTransientSteadyChanging;
        if (steady && classOfPeakPrevious[k] != kTransientAttack && centroid[p] < kAuxCentroidLimit)
        {
            route (k);
            ++count;
        }
    }
    const int candidates = end - first;
    if (static_cast<double> (candidates - count) / candidates < kAuxAllShare)
        for (int k = first; k < end; ++k)
            route (k);
}

// After stage 3, every channel: each spectrum keeps its own bins.
void CPhaseVocoderV3::applyMasks (int channel) noexcept
{
    ops->multiply (auxSpectra[channel], masks[kMaskAux], frameSize);
    // In pass-through the masks are never set: M2 is all ones.
    if (! bypass)
        ops->multiply (work[kWorkSynthesis], masks[kMaskVocoder], frameSize);
}

// Stage 4: the masked aux frame back in time, under the aux window again, into
// the aux accumulator (where the window is 0 nothing changes).
void CPhaseVocoderV3::addAuxFrame (int channel) noexcept
{
    float* time = work[kWorkInverse];
    fft->inverse (time, auxSpectra[channel]);
    float* accumulator = auxAccumulators[channel];
    const float* window = windows[kAux];
    const int end = half + auxFallingHop;
    for (int j = half - auxRisingHop; j < end; ++j)
        accumulator[j] += time[j] * window[j];
}
} // namespace meridex
