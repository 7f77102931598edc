#include "dsp/floor/FftWindows.h"

#include <cmath>

namespace meridex
{
void fillWindow (float* window, int length, int type) noexcept
{
    if (window == nullptr || length < 1)
        return;

    // Computed in double: a float phase loses the symmetry of long windows.
    const double twoPi = 6.283185307179586476925;
    for (int i = 0; i < length; ++i)
    {
        const double x = static_cast<double> (i) / length;
        double w = 1.0;
        switch (type)
        {
            case kWindowSine: w = std::sin (0.5 * twoPi * x); break;
            case kWindowHann: w = 0.5 * (1.0 - std::cos (twoPi * x)); break;
            case kWindowHamming: w = 0.54 - 0.46 * std::cos (twoPi * x); break;
            case kWindowBlackman: w = 0.42 - 0.5 * std::cos (twoPi * x) + 0.08 * std::cos (2.0 * twoPi * x); break;
            case kWindowTriangle: w = 1.0 - std::fabs (2.0 * x - 1.0); break;
            case kWindowTriangleSquared:
                w = (1.0 - std::fabs (2.0 * x - 1.0)) * (1.0 - std::fabs (2.0 * x - 1.0));
                break;
            case kWindowZeros: w = 0.0; break;
            default: w = 1.0; break;
        }
        // Blackman's terms cancel to a rounding residue at the edge.
        window[i] = std::fabs (w) < 1.0e-12 ? 0.0f : static_cast<float> (w);
    }
}
} // namespace meridex
