#pragma once

#include <cfloat>

// Row layout of the phase vocoder's scratch buffers and the constants its
// stages share. Included only by the vocoder's own sources, which split the
// one class by stage.
namespace meridex::vocoderRows
{
inline constexpr double kPi = 3.14159265358979323846;
inline constexpr double kTwoPi = 6.28318530717959647692;

// Stands in the window sum where nothing has been laid down yet, so that the
// division of the first hops never divides by zero.
inline constexpr float kSmallestSum = FLT_MIN;

enum WorkRow : int
{
    kWorkTime = 0, // channel 0's windowed frame in zero-phase order
    kWorkRamp,     // the same with the ramp, then its spectrum
    kWorkSynthesis,
    kWorkRotation, // packed per-bin factor applied to every channel
    kWorkInverse,
    kWorkRows
};

enum BinRow : int
{
    kPhase = 0,
    kPreviousPhase,
    kIncrement,      // phase advance per analysis hop (instantaneous frequency)
    kSynthesisPhase, // psi
    kExpected,       // omega, the advance of the bin's centre frequency
    kRampProduct,    // Re (X conj Xramp): where in the frame a bin's energy lies
    kTheta,          // rotation of each peak, at the peak's bin
    kCos,
    kSin,
    kPeakAngle, // theta of the i-th peak, gathered for one vector sin/cos
    kPeakSin,
    kPeakCos,
    kBinRows
};

enum IntRow : int
{
    kInstantBin = 0, // f(k)
    kPeakOf,
    kPeakList,
    kNearestPeak, // nearest peak of a bin index
    kCandidates,  // bins that may be peaks, ascending
    kIntRows
};

enum ClassRow : int
{
    kClass = 0,
    kClassPrevious,
    kIsPeak,
    kWasPeak,
    kClassRows
};

enum SumRow : int
{
    kSumDifference = 0,
    kSumReference,
    kSumEnergy,
    kSumRamp,
    kPeakCentroid, // C of each peak (per peak, not summed), for the band masks
    kSumRows
};

enum MaskRow : int
{
    kMaskAux = 0, // M1: 1 where the bin comes from aux
    kMaskVocoder, // M2: 1 where it comes from the vocoder
    kMaskRows
};
} // namespace meridex::vocoderRows
