#pragma once

// How much a loop's length changes when its slices play at different
// ratios: the sum over the n slices of (1 / n) / ratio of the slice. Slices
// whose ratio is not above 0 add nothing (they cannot play).
struct ResamplingSliceSumProvider
{
    static double compute (const double* sliceRatios, int numSlices) noexcept
    {
        if (sliceRatios == nullptr || numSlices <= 0)
            return 1.0;
        double sum = 0.0;
        for (int i = 0; i < numSlices; ++i)
            if (sliceRatios[i] > 0.0)
                sum += (1.0 / numSlices) / sliceRatios[i];
        return sum;
    }
};
