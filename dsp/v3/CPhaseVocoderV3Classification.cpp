#include "dsp/v3/CPhaseVocoderV3.h"
#include "dsp/v3/CPhaseVocoderV3Rows.h"

#include <cmath>
#include <cstring>

// Stage 3, first visit of a frame: the attack class of every peak, and the
// external attack marker that can overrule it.
namespace meridex
{
using namespace vocoderRows;

void CPhaseVocoderV3::setTransientPosition (float samples) noexcept
{
    transientPosition = samples;
    const float hop = static_cast<float> (analysisHop);
    const float wrapped = std::fmod (samples + 0.5f * hop, hop);
    const float folded = (wrapped < 0.0f ? wrapped + hop : wrapped) - 0.5f * hop;
    transientWrapped = folded > 0.0f ? folded : 0.0f;
}

bool CPhaseVocoderV3::transientInReach() const noexcept
{
    return ! (transientPosition > static_cast<float> (half)
              || transientPosition < transientWrapped - static_cast<float> (analysisHop));
}

// Stage 3, first visit of a frame on channel 0: the class of every peak from
// how much its region changed against a few frames back (D), where in the
// frame its energy lies (C), and the frame as a whole (Call).
void CPhaseVocoderV3::stageClassify() noexcept
{
    const int lowBand = frameSize / 256 > 1 ? frameSize / 256 : 1;
    const float hopNorm = static_cast<float> (analysisHop) / static_cast<float> (frameSize / 8);
    const float a = peakMode ? -0.5f : -0.2f;
    const float b = peakMode ? 0.5f : 0.1f;
    int back = (frameSize / analysisHop) / 4 + 1;
    if (back > kHistoryRows - 1)
        back = kHistoryRows - 1;

    const float* magnitude = magnitudes[0];
    const float* reference = history[back];
    const float* rampProduct = binRows[kRampProduct];
    const int* peakOf = intRows[kPeakOf];
    double* sumDifference = peakSums[kSumDifference];
    double* sumReference = peakSums[kSumReference];
    double* sumEnergy = peakSums[kSumEnergy];
    double* sumRamp = peakSums[kSumRamp];
    double* centroid = peakSums[kPeakCentroid];

    for (int i = 0; i < peakCount; ++i)
    {
        const int p = peaks[i];
        sumDifference[p] = sumReference[p] = sumEnergy[p] = sumRamp[p] = 0.0;
    }
    double lowDifference = 0.0, lowReference = 0.0, lowEnergy = 0.0, lowRamp = 0.0;
    double totalRamp = 0.0, totalEnergy = 0.0;

    // The bins of one peak mostly lie side by side: their sums run in
    // registers and go to the peak when the owner changes, instead of every
    // bin loading and storing its peak's sums (a dependency through memory).
    constexpr int kLowOwner = -1;
    int runOwner = kLowOwner;
    double runDifference = 0.0, runReference = 0.0, runEnergy = 0.0, runRamp = 0.0;
    const auto closeRun = [&] {
        if (runOwner == kLowOwner)
        {
            lowDifference += runDifference;
            lowReference += runReference;
            lowEnergy += runEnergy;
            lowRamp += runRamp;
        }
        else
        {
            sumDifference[runOwner] += runDifference;
            sumReference[runOwner] += runReference;
            sumEnergy[runOwner] += runEnergy;
            sumRamp[runOwner] += runRamp;
        }
        runDifference = runReference = runEnergy = runRamp = 0.0;
    };
    for (int k = 0; k < bins; ++k)
    {
        const double m = magnitude[k];
        const double r = reference[k];
        const double square = (m - r) * (m - r);
        const double difference = square > kDifferenceFloor ? square : 0.0;
        const double energy = m * m;
        totalRamp += rampProduct[k];
        totalEnergy += energy;
        const int owner = (k < lowBand || peakOf[k] < lowBand) ? kLowOwner : peakOf[k];
        if (owner != runOwner)
        {
            closeRun();
            runOwner = owner;
        }
        runDifference += difference;
        runReference += r * r;
        runEnergy += energy;
        runRamp += rampProduct[k];
    }
    closeRun();

    const double frameCentroid = -totalRamp / (1.0e-24 + totalEnergy);
    const bool ratioChanged = ratio != previousFrameRatio;
    const double lowD = lowDifference / (1.0e-24 + lowReference);
    const double lowE = 1.0e-24 + lowEnergy;
    const double lowC = -lowRamp / lowE;

    double weightTotal = 0.0, weight1 = 0.0, weight2 = 0.0, weight3 = 0.0;
    bool attackFound = false;
    for (int i = 0; i < peakCount; ++i)
    {
        const int p = peaks[i];
        const bool low = p < lowBand;
        const double d = low ? lowD : sumDifference[p] / (1.0e-24 + sumReference[p]);
        const double e = low ? lowE : 1.0e-24 + sumEnergy[p];
        const double c = low ? lowC : -sumRamp[p] / e;
        centroid[p] = c;
        const QvrTransientState_t previous = classOfPeakPrevious[p];

        QvrTransientState_t state;
        if (d <= 0.75)
            state = kTransientSteady;
        else if (c <= hopNorm * a)
            state = kTransientBeforeAttack;
        else if (frameCentroid <= (hopNorm > 1.0f ? hopNorm : 1.0f) * a * 0.75f)
            state = kTransientBeforeAttack;
        else if (c < hopNorm * b || previous == kTransientBeforeAttack)
        {
            if ((d > 5.0 && previous != kTransientAttack) || previous == kTransientBeforeAttack)
            {
                state = kTransientAttack;
                attackFound = true;
            }
            else
                state = kTransientSteady;
        }
        else if (! ratioChanged || previous != kTransientAttack)
            state = ratio < 0.5f ? kTransientSteadyChanging : kTransientSteady;
        else
            state = kTransientBeforeAttack;

        classOfPeak[p] = state;
        const double weight = p * e;
        weightTotal += weight;
        if (state == kTransientBeforeAttack)
            weight1 += weight;
        else if (state == kTransientAttack)
            weight2 += weight;
        else if (state == kTransientSteadyChanging)
            weight3 += weight;
    }

    attackOffset = attackFound ? findAttackOffset() : 0;

    auto recolour = [this] (QvrTransientState_t from, QvrTransientState_t to) {
        for (int i = 0; i < peakCount; ++i)
            if (classOfPeak[peaks[i]] == from)
                classOfPeak[peaks[i]] = to;
    };

    if (! transientInReach())
    {
        const double total = weightTotal > 0.0 ? weightTotal : 1.0;
        if (weight2 / total > 0.4)
            recolour (kTransientBeforeAttack, kTransientAttack);
        else if (weight1 / total > 0.4 && a * hopNorm > frameCentroid)
            recolour (kTransientAttack, kTransientBeforeAttack);
        else if (weight3 / total > 0.4)
            recolour (kTransientSteady, kTransientSteadyChanging);
    }
    else if (transientPosition >= 0.0f)
    {
        if (transientWrapped < transientPosition)
            recolour (kTransientAttack, kTransientBeforeAttack);
        else
        {
            attackOffset = static_cast<int> (transientWrapped);
            recolour (kTransientBeforeAttack, kTransientAttack);
        }
    }

    // Every bin takes its peak's class (a peak is its own peak).
    for (int k = 0; k < bins; ++k)
        classOfPeak[k] = classOfPeak[peakOf[k]];
}

// Offset of the attack from the frame's centre: the largest sample of the
// windowed frame, if it lies within one analysis hop of the centre.
int CPhaseVocoderV3::findAttackOffset() noexcept
{
    // Stage 4 writes its own row afresh: until then it is free to hold |x|.
    float* magnitudesOfTime = work[kWorkInverse];
    std::memcpy (magnitudesOfTime, work[kWorkTime], sizeof (float) * static_cast<size_t> (frameSize));
    ops->absolute (magnitudesOfTime, frameSize);
    float largest = 0.0f;
    int where = 0;
    ops->findMax (magnitudesOfTime, &largest, &where, frameSize);
    if (where > analysisHop)
        where = where > frameSize - analysisHop ? where - frameSize : 0;
    return where;
}
} // namespace meridex
