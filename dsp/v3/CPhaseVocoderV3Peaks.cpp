#include "dsp/v3/CPhaseVocoderV3.h"
#include "dsp/v3/CPhaseVocoderV3Rows.h"

#include <cstdlib>
#include <cstring>

namespace meridex
{
using namespace vocoderRows;

// Stage 2: peaks where the instantaneous frequencies of neighbouring bins
// converge, thinned, and for every bin the peak it belongs to.
void CPhaseVocoderV3::stagePeaks() noexcept
{
    int* instant = intRows[kInstantBin];
    int* peakOf = intRows[kPeakOf];
    int* nearest = intRows[kNearestPeak];
    std::uint8_t* isPeak = classRows[kIsPeak];
    const std::uint8_t* wasPeak = classRows[kWasPeak];
    const float* magnitude = magnitudes[0];
    const float* increment = binRows[kIncrement];

    std::memset (isPeak, 0, static_cast<size_t> (bins));
    if (peakMode)
    {
        for (int k = 0; k < bins; ++k)
        {
            peaks[k] = k;
            peakOf[k] = k;
            isPeak[k] = 1;
        }
        peakCount = bins;
        return;
    }

    const int lowBand = frameSize / 256 > 1 ? frameSize / 256 : 1;
    const int thinLimit = frameSize / 8;
    // f(k) by truncation: where x + 0.5 >= 0 it is the floor, and below
    // that both give f < 1, which falls back to k.
    const float toBins = static_cast<float> (frameSize / (kTwoPi * analysisHop));
    for (int k = 0; k < bins; ++k)
    {
        const int f = static_cast<int> (increment[k] * toBins + 0.5f);
        const int own = f < 1 ? k : f;
        instant[k] = own > half - 1 ? half - 1 : own;
    }

    // Below K the partials lie too close for crossings to mean much, and
    // every bin keeps its own phase advance, except the two next to a local
    // maximum of magnitude, which keep their phase relation to it. Left to
    // advance on their own, the bins of a partial that moves in under a
    // legato note change keep the phases of the old note, disagree, and
    // cancel for as long as the note lasts; locking wider than the centre of
    // each lobe would pull on neighbouring partials, which overlap here.
    int count = 0;
    const int lowEnd = lowBand < half ? lowBand : half;
    const auto isLowMaximum = [magnitude, lowEnd] (int k) {
        return k >= 1 && k < lowEnd && magnitude[k] >= magnitude[k - 1] && magnitude[k] > magnitude[k + 1];
    };
    for (int k = 0; k < lowEnd; ++k)
    {
        int owner = k;
        if (! isLowMaximum (k))
        {
            const bool below = isLowMaximum (k - 1), above = isLowMaximum (k + 1);
            if (below && above)
                owner = magnitude[k - 1] >= magnitude[k + 1] ? k - 1 : k + 1;
            else if (below)
                owner = k - 1;
            else if (above)
                owner = k + 1;
        }
        peakOf[k] = owner;
        if (owner == k)
            peaks[count++] = k;
    }
    const int lowCount = count;

    // The candidates first, in one pass without branches: on a dense
    // spectrum each bin's outcome is data no branch predictor can learn.
    // A candidate is where f(k) - k passes through zero from above (a bin
    // whose instantaneous frequency is its own centre counts too: every bin
    // of a click does, and each must then keep its own phase advance), or a
    // peak that was attacking or changing in the last frame. Above the
    // thinning range a crossing must also be a local maximum.
    int* candidates = intRows[kCandidates];
    int candidateCount = 0;
    int previousOffset = lowBand < half ? instant[lowBand - 1] - (lowBand - 1) : 0;
    for (int k = lowBand; k < half; ++k)
    {
        const int offset = instant[k] - k;
        const bool crossing = (offset == 0) | ((previousOffset > 0) & (offset < 0));
        const QvrTransientState_t before = classOfPeakPrevious[k];
        const bool keepClass = (wasPeak[k] != 0)
                               & ((before == kTransientAttack) | (before == kTransientSteadyChanging));
        const bool localMaximum = (magnitude[k] >= magnitude[k - 1]) & (magnitude[k] >= magnitude[k + 1]);
        const bool candidate = keepClass | (crossing & ((k < thinLimit) | localMaximum));
        candidates[candidateCount] = k;
        candidateCount += candidate ? 1 : 0;
        previousOffset = offset;
    }

    for (int c = 0; c < candidateCount; ++c)
    {
        const int k = candidates[c];
        if (k >= thinLimit)
        {
            peaks[count++] = k;
            continue;
        }

        // Of two neighbouring candidates the weaker goes when every bin
        // between them points closer to the stronger one.
        bool keepNew = true;
        while (count > lowCount)
        {
            const int a = peaks[count - 1];
            const bool aStronger = magnitude[a] >= magnitude[k];
            const int strong = aStronger ? a : k;
            const int weak = aStronger ? k : a;
            // With no bin between them there is nothing to decide by.
            bool allCloser = k - a > 1;
            for (int j = a + 1; j < k && allCloser; ++j)
                allCloser = std::abs (instant[j] - strong) < std::abs (instant[j] - weak);
            if (! allCloser)
                break;
            if (weak == a)
                --count;
            else
            {
                keepNew = false;
                break;
            }
        }
        if (keepNew)
            peaks[count++] = k;
    }
    if (peaks[count - 1] != half)
        peaks[count++] = half;
    peakCount = count;

    // Nearest peak of every bin index from the first peak up (f(k) never
    // points below it); a tie goes to the lower peak. One pass without
    // branches: peaks lie a few bins apart, and loops of one or two turns
    // per peak cost more in mispredictions than in work. The list gets a
    // sentinel beyond the last bin, which never wins.
    for (int i = 0; i < count; ++i)
        isPeak[peaks[i]] = 1;
    peaks[count] = bins + half;
    for (int b = peaks[0], i = -1; b < bins; ++b)
    {
        i += isPeak[b];
        const int p = peaks[i], next = peaks[i + 1];
        nearest[b] = 2 * b <= p + next ? p : next;
    }
    for (int k = lowEnd; k < bins; ++k)
    {
        // k itself when it is a peak, else the peak nearest f(k).
        const int nearestPeak = nearest[instant[k]];
        const int keep = -static_cast<int> (isPeak[k]);
        peakOf[k] = (k & keep) | (nearestPeak & ~keep);
    }
}
} // namespace meridex
