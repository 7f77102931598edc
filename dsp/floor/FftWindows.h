#pragma once

// The windows an FFT can apply to its frame before the transform, chosen by
// number at creation. All are periodic: w(i) for i = 0 .. length - 1 with
// x = i / length, so that w(i) = w(length - i) and the raised-cosine windows
// overlap-add to a constant at a hop of length / 2.
namespace meridex
{
enum WindowType : int
{
    kWindowNone = 0,            // 1.0: the FFT skips the multiplication
    kWindowSine = 1,            // sin (pi x)
    kWindowHann = 2,            // 0.5 (1 - cos 2 pi x)
    kWindowHamming = 3,         // 0.54 - 0.46 cos 2 pi x
    kWindowBlackman = 4,        // 0.42 - 0.5 cos 2 pi x + 0.08 cos 4 pi x
    kWindowTriangle = 5,        // 1 - |2x - 1|, peak 1 at the centre
    kWindowTriangleSquared = 6, // the triangle squared
    kWindowZeros = 7,           // 0.0: the frame is discarded
};

constexpr int kWindowTypeCount = 8;

constexpr bool isValidWindowType (int type) noexcept
{
    return type >= kWindowNone && type <= kWindowZeros;
}

// Writes length values of the window; an unknown type writes ones.
void fillWindow (float* window, int length, int type) noexcept;
} // namespace meridex
