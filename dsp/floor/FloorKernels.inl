// The kernels of one tier: the real FFT and the vector operations, written
// once against a four-lane vector V and compiled once per tier. Each tier's
// translation unit includes this file inside an anonymous namespace of its
// own, after its standard headers, having defined:
//
//   MERIDEX_TIER_SIMD   1: V is an SSE register; 0: V is a plain struct of
//                       four floats (the portable tier)
//   MERIDEX_TIER_LEVEL  the tier number (selects SSE3 and SSE4.1 instructions)
//   MERIDEX_TIER_FN     the attribute that enables the tier's instruction set
//                       on a function; empty for the portable and SSE2 tiers
//
// Everything here has internal linkage, and every function that may use the
// tier's instructions carries MERIDEX_TIER_FN, so no code compiled for a higher
// tier can leak into a lower one through a shared inline definition. For the
// same reason the kernels call no templates or inline functions of the
// standard library, only C math functions and intrinsics.
//
// The lanes are summed and multiplied in the same order on every tier, so the
// tiers agree bit for bit wherever the instruction sets round alike.

// The small helpers must inline into the passes: called, they pass a dozen
// vectors through memory, which costs the portable tier a factor of ten.
#if defined(_MSC_VER) && ! defined(__clang__)
#define MERIDEX_KERNEL MERIDEX_TIER_FN __forceinline
#else
#define MERIDEX_KERNEL MERIDEX_TIER_FN inline __attribute__ ((always_inline))
#endif

// The kernels are kept one per line, as a table: clang-format would give each
// of these one-line wrappers four lines.
// clang-format off

// ---------------------------------------------------------------------------
// The four-lane vector.

#if MERIDEX_TIER_SIMD

using V = __m128;

MERIDEX_KERNEL V vload (const float* p) { return _mm_load_ps (p); }
MERIDEX_KERNEL V vloadu (const float* p) { return _mm_loadu_ps (p); }
MERIDEX_KERNEL void vstore (float* p, V v) { _mm_store_ps (p, v); }
MERIDEX_KERNEL void vstoreu (float* p, V v) { _mm_storeu_ps (p, v); }
MERIDEX_KERNEL V vset1 (float x) { return _mm_set1_ps (x); }
MERIDEX_KERNEL float vfirst (V v) { return _mm_cvtss_f32 (v); }
MERIDEX_KERNEL V vadd (V a, V b) { return _mm_add_ps (a, b); }
MERIDEX_KERNEL V vsub (V a, V b) { return _mm_sub_ps (a, b); }
MERIDEX_KERNEL V vmul (V a, V b) { return _mm_mul_ps (a, b); }
MERIDEX_KERNEL V vdiv (V a, V b) { return _mm_div_ps (a, b); }
MERIDEX_KERNEL V vmax (V a, V b) { return _mm_max_ps (a, b); }
MERIDEX_KERNEL V vmin (V a, V b) { return _mm_min_ps (a, b); }
MERIDEX_KERNEL V vsqrt (V a) { return _mm_sqrt_ps (a); }
MERIDEX_KERNEL V vabs (V a) { return _mm_and_ps (a, _mm_castsi128_ps (_mm_set1_epi32 (0x7fffffff))); }

// [x3 x2 x1 x0]
MERIDEX_KERNEL V vreverse (V a) { return _mm_shuffle_ps (a, a, _MM_SHUFFLE (0, 1, 2, 3)); }

// Rows a, b, c, d become columns.
MERIDEX_KERNEL void vtranspose (V& a, V& b, V& c, V& d)
{
    const V t0 = _mm_unpacklo_ps (a, b), t1 = _mm_unpacklo_ps (c, d);
    const V t2 = _mm_unpackhi_ps (a, b), t3 = _mm_unpackhi_ps (c, d);
    a = _mm_movelh_ps (t0, t1);
    b = _mm_movehl_ps (t1, t0);
    c = _mm_movelh_ps (t2, t3);
    d = _mm_movehl_ps (t3, t2);
}

// [x0 .. x3], [x4 .. x7] -> even [x0 x2 x4 x6], odd [x1 x3 x5 x7].
MERIDEX_KERNEL void vdeinterleave (V lo, V hi, V& even, V& odd)
{
    even = _mm_shuffle_ps (lo, hi, _MM_SHUFFLE (2, 0, 2, 0));
    odd = _mm_shuffle_ps (lo, hi, _MM_SHUFFLE (3, 1, 3, 1));
}

// re, im -> lo [r0 i0 r1 i1], hi [r2 i2 r3 i3].
MERIDEX_KERNEL void vinterleave (V re, V im, V& lo, V& hi)
{
    lo = _mm_unpacklo_ps (re, im);
    hi = _mm_unpackhi_ps (re, im);
}

// (x0 + x2) + (x1 + x3).
MERIDEX_KERNEL float vhsum (V a)
{
    const V pairs = _mm_add_ps (a, _mm_movehl_ps (a, a));
    return _mm_cvtss_f32 (_mm_add_ss (pairs, _mm_shuffle_ps (pairs, pairs, _MM_SHUFFLE (1, 1, 1, 1))));
}

MERIDEX_KERNEL float vhmax (V a)
{
    const V pairs = _mm_max_ps (a, _mm_movehl_ps (a, a));
    return _mm_cvtss_f32 (_mm_max_ss (pairs, _mm_shuffle_ps (pairs, pairs, _MM_SHUFFLE (1, 1, 1, 1))));
}

MERIDEX_KERNEL float vhmin (V a)
{
    const V pairs = _mm_min_ps (a, _mm_movehl_ps (a, a));
    return _mm_cvtss_f32 (_mm_min_ss (pairs, _mm_shuffle_ps (pairs, pairs, _MM_SHUFFLE (1, 1, 1, 1))));
}

// Floor. Below SSE4.1 it is written out by truncation: trunc, minus one where
// that went up. Values of 2^23 and more are whole already and pass unchanged,
// which also keeps them out of the 32-bit conversion.
MERIDEX_KERNEL V vfloor (V q)
{
#if MERIDEX_TIER_LEVEL >= 5
    return _mm_floor_ps (q);
#else
    const V truncated = _mm_cvtepi32_ps (_mm_cvttps_epi32 (q));
    const V floored = _mm_sub_ps (truncated, _mm_and_ps (_mm_cmpgt_ps (truncated, q), _mm_set1_ps (1.0f)));
    const V small = _mm_cmplt_ps (vabs (q), _mm_set1_ps (8388608.0f));
    return _mm_or_ps (_mm_and_ps (small, floored), _mm_andnot_ps (small, q));
#endif
}

// Lane-wise a < b ? x : y.
MERIDEX_KERNEL V vselectLess (V a, V b, V x, V y)
{
    const V less = _mm_cmplt_ps (a, b);
    return _mm_or_ps (_mm_and_ps (less, x), _mm_andnot_ps (less, y));
}

// The magnitude of a with the sign bit of s.
MERIDEX_KERNEL V vcopySign (V a, V s)
{
    const V signBit = _mm_castsi128_ps (_mm_set1_epi32 (static_cast<int> (0x80000000u)));
    return _mm_or_ps (_mm_andnot_ps (signBit, a), _mm_and_ps (signBit, s));
}

// Two interleaved complex numbers times two: [ar ai ar' ai'] * [br bi br' bi'].
MERIDEX_KERNEL V vcomplexMultiply (V a, V b)
{
    const V swapped = _mm_shuffle_ps (a, a, _MM_SHUFFLE (2, 3, 0, 1));
#if MERIDEX_TIER_LEVEL >= 4
    const V realParts = _mm_moveldup_ps (b);
    const V imagParts = _mm_movehdup_ps (b);
    return _mm_addsub_ps (_mm_mul_ps (a, realParts), _mm_mul_ps (swapped, imagParts));
#else
    const V realParts = _mm_shuffle_ps (b, b, _MM_SHUFFLE (2, 2, 0, 0));
    const V imagParts = _mm_shuffle_ps (b, b, _MM_SHUFFLE (3, 3, 1, 1));
    const V signs = _mm_castsi128_ps (_mm_set_epi32 (0, static_cast<int> (0x80000000u), 0, static_cast<int> (0x80000000u)));
    return _mm_add_ps (_mm_mul_ps (a, realParts), _mm_xor_ps (_mm_mul_ps (swapped, imagParts), signs));
#endif
}

// Negates the odd lanes: the imaginary parts of two interleaved numbers.
MERIDEX_KERNEL V vconjugate (V a)
{
    return _mm_xor_ps (a, _mm_castsi128_ps (_mm_set_epi32 (static_cast<int> (0x80000000u), 0, static_cast<int> (0x80000000u), 0)));
}

#else // portable lanes

struct V
{
    float x[4];
};

MERIDEX_KERNEL V vload (const float* p) { return { { p[0], p[1], p[2], p[3] } }; }
MERIDEX_KERNEL V vloadu (const float* p) { return vload (p); }
MERIDEX_KERNEL void vstore (float* p, V v)
{
    for (int i = 0; i < 4; ++i)
        p[i] = v.x[i];
}
MERIDEX_KERNEL void vstoreu (float* p, V v) { vstore (p, v); }
MERIDEX_KERNEL V vset1 (float x) { return { { x, x, x, x } }; }
MERIDEX_KERNEL float vfirst (V v) { return v.x[0]; }

#define MERIDEX_LANEWISE(name, expression)                 \
    MERIDEX_KERNEL V name (V a, V b)                       \
    {                                                      \
        V r;                                               \
        for (int i = 0; i < 4; ++i)                        \
        {                                                  \
            const float x = a.x[i], y = b.x[i];            \
            r.x[i] = (expression);                         \
        }                                                  \
        return r;                                          \
    }
MERIDEX_LANEWISE (vadd, x + y)
MERIDEX_LANEWISE (vsub, x - y)
MERIDEX_LANEWISE (vmul, x * y)
MERIDEX_LANEWISE (vdiv, x / y)
// As maxps and minps: the second operand wins unless the first is strictly
// greater (smaller).
MERIDEX_LANEWISE (vmax, x > y ? x : y)
MERIDEX_LANEWISE (vmin, x < y ? x : y)
#undef MERIDEX_LANEWISE

MERIDEX_KERNEL V vsqrt (V a) { return { { sqrtf (a.x[0]), sqrtf (a.x[1]), sqrtf (a.x[2]), sqrtf (a.x[3]) } }; }
MERIDEX_KERNEL V vabs (V a) { return { { fabsf (a.x[0]), fabsf (a.x[1]), fabsf (a.x[2]), fabsf (a.x[3]) } }; }
MERIDEX_KERNEL V vreverse (V a) { return { { a.x[3], a.x[2], a.x[1], a.x[0] } }; }

MERIDEX_KERNEL void vtranspose (V& a, V& b, V& c, V& d)
{
    const V r0 = a, r1 = b, r2 = c, r3 = d;
    a = { { r0.x[0], r1.x[0], r2.x[0], r3.x[0] } };
    b = { { r0.x[1], r1.x[1], r2.x[1], r3.x[1] } };
    c = { { r0.x[2], r1.x[2], r2.x[2], r3.x[2] } };
    d = { { r0.x[3], r1.x[3], r2.x[3], r3.x[3] } };
}

MERIDEX_KERNEL void vdeinterleave (V lo, V hi, V& even, V& odd)
{
    even = { { lo.x[0], lo.x[2], hi.x[0], hi.x[2] } };
    odd = { { lo.x[1], lo.x[3], hi.x[1], hi.x[3] } };
}

MERIDEX_KERNEL void vinterleave (V re, V im, V& lo, V& hi)
{
    lo = { { re.x[0], im.x[0], re.x[1], im.x[1] } };
    hi = { { re.x[2], im.x[2], re.x[3], im.x[3] } };
}

MERIDEX_KERNEL float vhsum (V a) { return (a.x[0] + a.x[2]) + (a.x[1] + a.x[3]); }

MERIDEX_KERNEL float vhmax (V a)
{
    const float p0 = a.x[0] > a.x[2] ? a.x[0] : a.x[2];
    const float p1 = a.x[1] > a.x[3] ? a.x[1] : a.x[3];
    return p0 > p1 ? p0 : p1;
}

MERIDEX_KERNEL float vhmin (V a)
{
    const float p0 = a.x[0] < a.x[2] ? a.x[0] : a.x[2];
    const float p1 = a.x[1] < a.x[3] ? a.x[1] : a.x[3];
    return p0 < p1 ? p0 : p1;
}

MERIDEX_KERNEL V vfloor (V q)
{
    V r;
    for (int i = 0; i < 4; ++i)
    {
        float f = q.x[i];
        if (fabsf (f) < 8388608.0f)
        {
            const float truncated = static_cast<float> (static_cast<int> (f));
            f = truncated > f ? truncated - 1.0f : truncated;
        }
        r.x[i] = f;
    }
    return r;
}

MERIDEX_KERNEL V vselectLess (V a, V b, V x, V y)
{
    V r;
    for (int i = 0; i < 4; ++i)
        r.x[i] = a.x[i] < b.x[i] ? x.x[i] : y.x[i];
    return r;
}

MERIDEX_KERNEL V vcopySign (V a, V s)
{
    return { { copysignf (a.x[0], s.x[0]), copysignf (a.x[1], s.x[1]), copysignf (a.x[2], s.x[2]), copysignf (a.x[3], s.x[3]) } };
}

MERIDEX_KERNEL V vcomplexMultiply (V a, V b)
{
    V r;
    for (int i = 0; i < 4; i += 2)
    {
        r.x[i] = a.x[i] * b.x[i] - a.x[i + 1] * b.x[i + 1];
        r.x[i + 1] = a.x[i + 1] * b.x[i] + a.x[i] * b.x[i + 1];
    }
    return r;
}

MERIDEX_KERNEL V vconjugate (V a) { return { { a.x[0], -a.x[1], a.x[2], -a.x[3] } }; }

#endif

// ---------------------------------------------------------------------------
// The complex transform of size M = N/2 on split arrays (real parts, then
// imaginary parts), radix 4 with one closing radix-2 pass when log2 M is odd.
// Each pass reads one buffer and writes the other in the Stockham order, so the
// result lands in natural order without a bit-reversal pass.

// (ar + i ai) * (br + i bi), four numbers at a time.
MERIDEX_KERNEL void cmul (V ar, V ai, V br, V bi, V& rr, V& ri)
{
    rr = vsub (vmul (ar, br), vmul (ai, bi));
    ri = vadd (vmul (ar, bi), vmul (ai, br));
}

// The radix-4 butterfly: y_j = sum over l of x_l * (-i)^(l j).
MERIDEX_KERNEL void butterfly4 (V ar, V ai, V br, V bi, V cr, V ci, V dr, V di,
                                V& y0r, V& y0i, V& y1r, V& y1i, V& y2r, V& y2i, V& y3r, V& y3i)
{
    const V t0r = vadd (ar, cr), t0i = vadd (ai, ci);
    const V t1r = vsub (ar, cr), t1i = vsub (ai, ci);
    const V t2r = vadd (br, dr), t2i = vadd (bi, di);
    const V t3r = vsub (bi, di), t3i = vsub (dr, br); // -i (b - d)
    y0r = vadd (t0r, t2r);
    y0i = vadd (t0i, t2i);
    y2r = vsub (t0r, t2r);
    y2i = vsub (t0i, t2i);
    y1r = vadd (t1r, t3r);
    y1i = vadd (t1i, t3i);
    y3r = vsub (t1r, t3r);
    y3i = vsub (t1i, t3i);
}

// Butterfly, then outputs 1 .. 3 times their twiddles from one 24-float unit.
MERIDEX_KERNEL void butterfly4Twiddled (V ar, V ai, V br, V bi, V cr, V ci, V dr, V di, const float* tw,
                                        V& y0r, V& y0i, V& y1r, V& y1i, V& y2r, V& y2i, V& y3r, V& y3i)
{
    V u1r, u1i, u2r, u2i, u3r, u3i;
    butterfly4 (ar, ai, br, bi, cr, ci, dr, di, y0r, y0i, u1r, u1i, u2r, u2i, u3r, u3i);
    cmul (u1r, u1i, vload (tw), vload (tw + 4), y1r, y1i);
    cmul (u2r, u2i, vload (tw + 8), vload (tw + 12), y2r, y2i);
    cmul (u3r, u3i, vload (tw + 16), vload (tw + 20), y3r, y3i);
}

// The first pass (stride 1), vectorised over four consecutive p. Its outputs
// for p .. p + 3 are the 4 x 4 block y[4p .. 4p + 15], written by a transpose.
MERIDEX_KERNEL void storeFirstPass (float* yr, float* yi, int p, V o0r, V o0i, V o1r, V o1i, V o2r, V o2i, V o3r, V o3i)
{
    vtranspose (o0r, o1r, o2r, o3r);
    vtranspose (o0i, o1i, o2i, o3i);
    float* r = yr + 4 * p;
    float* i = yi + 4 * p;
    vstore (r, o0r);
    vstore (r + 4, o1r);
    vstore (r + 8, o2r);
    vstore (r + 12, o3r);
    vstore (i, o0i);
    vstore (i + 4, o1i);
    vstore (i + 8, o2i);
    vstore (i + 12, o3i);
}

// First pass of the forward transform, reading the real input as M complex
// numbers z[k] = x[2k] + i x[2k + 1], in any alignment.
MERIDEX_TIER_FN void firstPassInterleaved (const float* in, float* yr, float* yi, int length, const float* tw)
{
    const int m = length / 4;
    for (int p = 0; p < m; p += 4, tw += 24)
    {
        V ar, ai, br, bi, cr, ci, dr, di;
        vdeinterleave (vloadu (in + 2 * p), vloadu (in + 2 * p + 4), ar, ai);
        vdeinterleave (vloadu (in + 2 * (p + m)), vloadu (in + 2 * (p + m) + 4), br, bi);
        vdeinterleave (vloadu (in + 2 * (p + 2 * m)), vloadu (in + 2 * (p + 2 * m) + 4), cr, ci);
        vdeinterleave (vloadu (in + 2 * (p + 3 * m)), vloadu (in + 2 * (p + 3 * m) + 4), dr, di);
        V o0r, o0i, o1r, o1i, o2r, o2i, o3r, o3i;
        butterfly4Twiddled (ar, ai, br, bi, cr, ci, dr, di, tw, o0r, o0i, o1r, o1i, o2r, o2i, o3r, o3i);
        storeFirstPass (yr, yi, p, o0r, o0i, o1r, o1i, o2r, o2i, o3r, o3i);
    }
}

// First pass reading split arrays (the inverse transform).
MERIDEX_TIER_FN void firstPassSplit (const float* xr, const float* xi, float* yr, float* yi, int length, const float* tw)
{
    const int m = length / 4;
    for (int p = 0; p < m; p += 4, tw += 24)
    {
        V o0r, o0i, o1r, o1i, o2r, o2i, o3r, o3i;
        butterfly4Twiddled (vload (xr + p), vload (xi + p), vload (xr + p + m), vload (xi + p + m),
                            vload (xr + p + 2 * m), vload (xi + p + 2 * m), vload (xr + p + 3 * m), vload (xi + p + 3 * m),
                            tw, o0r, o0i, o1r, o1i, o2r, o2i, o3r, o3i);
        storeFirstPass (yr, yi, p, o0r, o0i, o1r, o1i, o2r, o2i, o3r, o3i);
    }
}

// A later radix-4 pass (stride of 4 or more), vectorised over q.
MERIDEX_TIER_FN void radix4Pass (const float* xr, const float* xi, float* yr, float* yi, int length, int stride, const float* tw)
{
    const int m = length / 4;
    const int s = stride;
    for (int p = 0; p < m; ++p, tw += 24)
    {
        const float* ar = xr + s * p;
        const float* ai = xi + s * p;
        const int b = s * m, c = 2 * s * m, d = 3 * s * m;
        float* o0r = yr + 4 * s * p;
        float* o0i = yi + 4 * s * p;
        for (int q = 0; q < s; q += 4)
        {
            V y0r, y0i, y1r, y1i, y2r, y2i, y3r, y3i;
            butterfly4Twiddled (vload (ar + q), vload (ai + q), vload (ar + b + q), vload (ai + b + q),
                                vload (ar + c + q), vload (ai + c + q), vload (ar + d + q), vload (ai + d + q),
                                tw, y0r, y0i, y1r, y1i, y2r, y2i, y3r, y3i);
            vstore (o0r + q, y0r);
            vstore (o0i + q, y0i);
            vstore (o0r + s + q, y1r);
            vstore (o0i + s + q, y1i);
            vstore (o0r + 2 * s + q, y2r);
            vstore (o0i + 2 * s + q, y2i);
            vstore (o0r + 3 * s + q, y3r);
            vstore (o0i + 3 * s + q, y3i);
        }
    }
}

// The radix-4 pass of length 4: a single p, all twiddles 1.
MERIDEX_TIER_FN void radix4LastPass (const float* xr, const float* xi, float* yr, float* yi, int stride)
{
    const int s = stride;
    for (int q = 0; q < s; q += 4)
    {
        V y0r, y0i, y1r, y1i, y2r, y2i, y3r, y3i;
        butterfly4 (vload (xr + q), vload (xi + q), vload (xr + s + q), vload (xi + s + q),
                    vload (xr + 2 * s + q), vload (xi + 2 * s + q), vload (xr + 3 * s + q), vload (xi + 3 * s + q),
                    y0r, y0i, y1r, y1i, y2r, y2i, y3r, y3i);
        vstore (yr + q, y0r);
        vstore (yi + q, y0i);
        vstore (yr + s + q, y1r);
        vstore (yi + s + q, y1i);
        vstore (yr + 2 * s + q, y2r);
        vstore (yi + 2 * s + q, y2i);
        vstore (yr + 3 * s + q, y3r);
        vstore (yi + 3 * s + q, y3i);
    }
}

// The closing radix-2 pass of length 2.
MERIDEX_TIER_FN void radix2LastPass (const float* xr, const float* xi, float* yr, float* yi, int stride)
{
    const int s = stride;
    for (int q = 0; q < s; q += 4)
    {
        const V ar = vload (xr + q), ai = vload (xi + q);
        const V br = vload (xr + s + q), bi = vload (xi + s + q);
        vstore (yr + q, vadd (ar, br));
        vstore (yi + q, vadd (ai, bi));
        vstore (yr + s + q, vsub (ar, br));
        vstore (yi + s + q, vsub (ai, bi));
    }
}

// Runs the passes after the first; returns the buffer holding the result.
MERIDEX_TIER_FN float* runLaterPasses (const floor_detail::FftPlan& plan, float* current, float* other)
{
    const int half = plan.half;
    for (int i = 1; i < plan.stageCount; ++i)
    {
        const floor_detail::FftStage& stage = plan.stages[i];
        if (stage.radix == 2)
            radix2LastPass (current, current + half, other, other + half, stage.stride);
        else if (stage.length == 4)
            radix4LastPass (current, current + half, other, other + half, stage.stride);
        else
            radix4Pass (current, current + half, other, other + half, stage.length, stage.stride, stage.twiddles);
        float* const written = other;
        other = current;
        current = written;
    }
    return current;
}

// ---------------------------------------------------------------------------
// The real transform. With z[k] = x[2k] + i x[2k + 1] and Z its transform of
// size M, the spectrum of x is, for W = exp (-2 pi i / N):
//   E = (Z[k] + conj Z[M-k]) / 2, O = -i (Z[k] - conj Z[M-k]) / 2,
//   X[k] = E + W^k O,  X[M-k] = conj (E - W^k O).
// Bins k and M - k come from one load each, four k at a time, k = 1 .. M/2.

MERIDEX_TIER_FN void splitForward (const float* zr, const float* zi, float* out, int half, const float* cosines, const float* sines)
{
    out[0] = zr[0] + zi[0];
    out[1] = zr[0] - zi[0];
    const V oneHalf = vset1 (0.5f);
    for (int k = 1; k <= half / 2; k += 4)
    {
        const V ar = vloadu (zr + k), ai = vloadu (zi + k);
        const V br = vreverse (vload (zr + half - k - 3)), bi = vreverse (vload (zi + half - k - 3));
        const V c = vload (cosines + k - 1), s = vload (sines + k - 1);
        const V er = vmul (oneHalf, vadd (ar, br)), ei = vmul (oneHalf, vsub (ai, bi));
        const V dr = vmul (oneHalf, vsub (ar, br)), di = vmul (oneHalf, vadd (ai, bi));
        // T = W^k O with O = -i D.
        const V tr = vsub (vmul (c, di), vmul (s, dr));
        const V ti = vsub (vset1 (0.0f), vadd (vmul (c, dr), vmul (s, di)));
        V lo, hi;
        vinterleave (vadd (er, tr), vadd (ei, ti), lo, hi);
        vstoreu (out + 2 * k, lo);
        vstoreu (out + 2 * k + 4, hi);
        vinterleave (vreverse (vsub (er, tr)), vreverse (vsub (ti, ei)), lo, hi);
        vstoreu (out + 2 * (half - k - 3), lo);
        vstoreu (out + 2 * (half - k - 3) + 4, hi);
    }
}

// The reverse of splitForward, at twice the scale so that the inverse complex
// transform (M times) gives N times the input: Z[k] = E' + i O' with
// E' = X[k] + conj X[M-k], O' = W^-k (X[k] - conj X[M-k]).
MERIDEX_TIER_FN void mergeInverse (const float* in, float* zr, float* zi, int half, const float* cosines, const float* sines)
{
    zr[0] = in[0] + in[1];
    zi[0] = in[0] - in[1];
    for (int k = 1; k <= half / 2; k += 4)
    {
        V ar, ai, br, bi;
        vdeinterleave (vloadu (in + 2 * k), vloadu (in + 2 * k + 4), ar, ai);
        vdeinterleave (vloadu (in + 2 * (half - k - 3)), vloadu (in + 2 * (half - k - 3) + 4), br, bi);
        br = vreverse (br);
        bi = vreverse (bi);
        const V c = vload (cosines + k - 1), s = vload (sines + k - 1);
        const V er = vadd (ar, br), ei = vsub (ai, bi);
        const V dr = vsub (ar, br), di = vadd (ai, bi);
        const V orr = vsub (vmul (c, dr), vmul (s, di));
        const V oi = vadd (vmul (c, di), vmul (s, dr));
        vstoreu (zr + k, vsub (er, oi));
        vstoreu (zi + k, vadd (ei, orr));
        vstore (zr + half - k - 3, vreverse (vadd (er, oi)));
        vstore (zi + half - k - 3, vreverse (vsub (orr, ei)));
    }
}

MERIDEX_TIER_FN void realForward (const floor_detail::FftPlan& plan, const float* in, float* out)
{
    const int half = plan.half;
    float* first = plan.bufferA;
    firstPassInterleaved (in, first, first + half, plan.stages[0].length, plan.stages[0].twiddles);
    const float* result = runLaterPasses (plan, first, plan.bufferB);
    splitForward (result, result + half, out, half, plan.postCos, plan.postSin);
}

// The inverse complex transform runs the forward passes on swapped real and
// imaginary parts: transform (swap z) = swap (inverse transform z).
MERIDEX_TIER_FN void realInverse (const floor_detail::FftPlan& plan, const float* in, float* out)
{
    const int half = plan.half;
    float* merged = plan.bufferA;
    float* first = plan.bufferB;
    mergeInverse (in, merged, merged + half, half, plan.postCos, plan.postSin);
    firstPassSplit (merged + half, merged, first, first + half, plan.stages[0].length, plan.stages[0].twiddles);
    const float* result = runLaterPasses (plan, first, merged);
    // result holds (imaginary, real) of the inverse: x[2k] is the real part.
    const float* realPart = result + half;
    const float* imagPart = result;
    for (int k = 0; k < half; k += 4)
    {
        V lo, hi;
        vinterleave (vload (realPart + k), vload (imagPart + k), lo, hi);
        vstoreu (out + 2 * k, lo);
        vstoreu (out + 2 * k + 4, hi);
    }
}

// ---------------------------------------------------------------------------
// Vector operations. Loops go in fours with a scalar tail.

MERIDEX_TIER_FN void opMultiplyInto (float* out, const float* a, const float* b, int n)
{
    int i = 0;
    for (; i + 4 <= n; i += 4)
        vstoreu (out + i, vmul (vloadu (a + i), vloadu (b + i)));
    for (; i < n; ++i)
        out[i] = a[i] * b[i];
}

MERIDEX_TIER_FN void opZero (float* a, int n)
{
    int i = 0;
    const V zero = vset1 (0.0f);
    for (; i + 4 <= n; i += 4)
        vstoreu (a + i, zero);
    for (; i < n; ++i)
        a[i] = 0.0f;
}

#define MERIDEX_BINARY_OP(name, vectorOp, scalarExpression)   \
    MERIDEX_TIER_FN void name (float* a, const float* b, int n) \
    {                                                          \
        int i = 0;                                             \
        for (; i + 4 <= n; i += 4)                             \
            vstoreu (a + i, vectorOp (vloadu (a + i), vloadu (b + i))); \
        for (; i < n; ++i)                                     \
        {                                                      \
            const float x = a[i], y = b[i];                    \
            a[i] = (scalarExpression);                         \
        }                                                      \
    }
MERIDEX_BINARY_OP (opAdd, vadd, x + y)
MERIDEX_BINARY_OP (opSubtract, vsub, x - y)
MERIDEX_BINARY_OP (opMultiply, vmul, x * y)
MERIDEX_BINARY_OP (opDivide, vdiv, x / y)
MERIDEX_BINARY_OP (opMaxElementwise, vmax, x > y ? x : y)
#undef MERIDEX_BINARY_OP

#define MERIDEX_SCALAR_OP(name, vectorOp, scalarExpression)   \
    MERIDEX_TIER_FN void name (float* a, float value, int n)   \
    {                                                          \
        int i = 0;                                             \
        const V v = vset1 (value);                             \
        for (; i + 4 <= n; i += 4)                             \
            vstoreu (a + i, vectorOp (vloadu (a + i), v));     \
        for (; i < n; ++i)                                     \
        {                                                      \
            const float x = a[i], y = value;                   \
            a[i] = (scalarExpression);                         \
        }                                                      \
    }
MERIDEX_SCALAR_OP (opAddScalar, vadd, x + y)
MERIDEX_SCALAR_OP (opMultiplyScalar, vmul, x * y)
MERIDEX_SCALAR_OP (opClampBelow, vmax, x > y ? x : y)
#undef MERIDEX_SCALAR_OP

MERIDEX_TIER_FN void opAbsolute (float* a, int n)
{
    int i = 0;
    for (; i + 4 <= n; i += 4)
        vstoreu (a + i, vabs (vloadu (a + i)));
    for (; i < n; ++i)
        a[i] = fabsf (a[i]);
}

MERIDEX_TIER_FN void opSquareRoot (float* a, int n)
{
    int i = 0;
    for (; i + 4 <= n; i += 4)
        vstoreu (a + i, vsqrt (vloadu (a + i)));
    for (; i < n; ++i)
        a[i] = sqrtf (a[i]);
}

// The transcendental functions use the C library on every tier: they are
// called once per bin and frame, far from the cost of the transform, and one
// implementation keeps the tiers identical.
MERIDEX_TIER_FN void opExp (float* a, int n)
{
    for (int i = 0; i < n; ++i)
        a[i] = expf (a[i]);
}

MERIDEX_TIER_FN void opLog (float* a, int n)
{
    for (int i = 0; i < n; ++i)
        a[i] = logf (a[i]);
}

// Angles and their sines and cosines by polynomials on reduced arguments, so
// that the four lanes run together: the libm calls cost a quarter of a
// stretch. Both are accurate to about 1.5e-7 absolute (a phase, not a
// relative quantity, is what the callers need), and the same on every tier.

// atan (a) for 0 <= a <= 1 as a * P (a^2): a least-squares fit, reweighted
// towards the smallest largest error.
MERIDEX_KERNEL V vatanUnit (V a)
{
    const V s = vmul (a, a);
    V p = vset1 (-4.054515078e-03f);
    p = vadd (vmul (p, s), vset1 (2.186276433e-02f));
    p = vadd (vmul (p, s), vset1 (-5.591203988e-02f));
    p = vadd (vmul (p, s), vset1 (9.642175724e-02f));
    p = vadd (vmul (p, s), vset1 (-1.390862086e-01f));
    p = vadd (vmul (p, s), vset1 (1.994656387e-01f));
    p = vadd (vmul (p, s), vset1 (-3.332986062e-01f));
    p = vadd (vmul (p, s), vset1 (9.999993355e-01f));
    return vmul (a, p);
}

// atan2 (y, x) in [-pi, pi]; 0 for the origin. The octant is folded onto
// [0, 1] by the ratio of the smaller to the larger magnitude, then unfolded.
MERIDEX_KERNEL V vatan2 (V y, V x)
{
    const V ax = vabs (x), ay = vabs (y);
    const V larger = vmax (ax, ay), smaller = vmin (ax, ay);
    V r = vatanUnit (vdiv (smaller, vmax (larger, vset1 (1.0e-37f))));
    r = vselectLess (ax, ay, vsub (vset1 (1.57079632679490f), r), r);
    r = vselectLess (x, vset1 (0.0f), vsub (vset1 (3.14159265358979f), r), r);
    return vcopySign (r, y);
}

// sin and cos: x = j pi/2 + r with |r| <= pi/4, pi/2 subtracted in three
// parts (the first two exact in float for |j| < 2^13), polynomials for
// sin r and cos r, then the quadrant j mod 4 swaps and negates them.
MERIDEX_KERNEL void vsinCos (V x, V& sine, V& cosine)
{
    const V j = vfloor (vadd (vmul (x, vset1 (0.636619772367581f)), vset1 (0.5f)));
    V r = vsub (x, vmul (j, vset1 (1.5703125f)));
    r = vsub (r, vmul (j, vset1 (4.837512969970703125e-4f)));
    r = vsub (r, vmul (j, vset1 (7.549789954891886e-8f)));
    const V s = vmul (r, r);

    V ps = vset1 (-1.949563462e-04f);
    ps = vadd (vmul (ps, s), vset1 (8.331978648e-03f));
    ps = vadd (vmul (ps, s), vset1 (-1.666665067e-01f));
    const V sinR = vadd (r, vmul (vmul (r, s), ps));

    V pc = vset1 (2.443844968e-05f);
    pc = vadd (vmul (pc, s), vset1 (-1.388736750e-03f));
    pc = vadd (vmul (pc, s), vset1 (4.166664687e-02f));
    const V cosR = vadd (vsub (vset1 (1.0f), vmul (vset1 (0.5f), s)), vmul (vmul (s, s), pc));

    // quadrant 0: (s, c); 1: (c, -s); 2: (-s, -c); 3: (-c, s)
    const V quadrant = vsub (j, vmul (vset1 (4.0f), vfloor (vmul (j, vset1 (0.25f)))));
    const V odd = vsub (quadrant, vmul (vset1 (2.0f), vfloor (vmul (quadrant, vset1 (0.5f)))));
    const V half = vset1 (0.5f);
    const V sinBase = vselectLess (odd, half, sinR, cosR);
    const V cosBase = vselectLess (odd, half, cosR, sinR);
    const V one = vset1 (1.0f), minusOne = vset1 (-1.0f);
    // sin is negative in quadrants 2 and 3, cos in 1 and 2.
    sine = vmul (sinBase, vselectLess (quadrant, vset1 (1.5f), one, minusOne));
    const V cosQuadrant = vsub (vadd (quadrant, one), vmul (vset1 (4.0f), vfloor (vmul (vadd (quadrant, one), vset1 (0.25f)))));
    cosine = vmul (cosBase, vselectLess (cosQuadrant, vset1 (1.5f), one, minusOne));
}

MERIDEX_TIER_FN void opSinCos (float* sines, float* cosines, const float* phases, int n)
{
    int i = 0;
    for (; i + 4 <= n; i += 4)
    {
        V sv, cv;
        vsinCos (vloadu (phases + i), sv, cv);
        vstoreu (sines + i, sv);
        vstoreu (cosines + i, cv);
    }
    if (i < n)
    {
        // The tail through the same lanes, so every element is computed alike.
        float in[4] = { 0.0f, 0.0f, 0.0f, 0.0f }, so[4], co[4];
        for (int t = 0; i + t < n; ++t)
            in[t] = phases[i + t];
        V sv, cv;
        vsinCos (vloadu (in), sv, cv);
        vstoreu (so, sv);
        vstoreu (co, cv);
        for (int t = 0; i + t < n; ++t)
        {
            sines[i + t] = so[t];
            cosines[i + t] = co[t];
        }
    }
}

// The extreme value in fours, then the first index that holds it.
MERIDEX_TIER_FN void opFindMax (const float* a, float* value, int* index, int n)
{
    if (n < 1)
    {
        *value = 0.0f;
        *index = 0;
        return;
    }
    float best = a[0];
    int i = 0;
    if (n >= 4)
    {
        V m = vloadu (a);
        for (i = 4; i + 4 <= n; i += 4)
            m = vmax (vloadu (a + i), m);
        best = vhmax (m);
    }
    for (; i < n; ++i)
        best = a[i] > best ? a[i] : best;
    int where = 0;
    while (where < n - 1 && ! (a[where] == best))
        ++where;
    *value = best;
    *index = where;
}

MERIDEX_TIER_FN void opFindMin (const float* a, float* value, int* index, int n)
{
    if (n < 1)
    {
        *value = 0.0f;
        *index = 0;
        return;
    }
    float best = a[0];
    int i = 0;
    if (n >= 4)
    {
        V m = vloadu (a);
        for (i = 4; i + 4 <= n; i += 4)
            m = vmin (vloadu (a + i), m);
        best = vhmin (m);
    }
    for (; i < n; ++i)
        best = a[i] < best ? a[i] : best;
    int where = 0;
    while (where < n - 1 && ! (a[where] == best))
        ++where;
    *value = best;
    *index = where;
}

MERIDEX_TIER_FN float opSum (const float* a, int n)
{
    V total = vset1 (0.0f);
    int i = 0;
    for (; i + 4 <= n; i += 4)
        total = vadd (total, vloadu (a + i));
    float result = vhsum (total);
    for (; i < n; ++i)
        result += a[i];
    return result;
}

MERIDEX_TIER_FN float opSumSquares (const float* a, int n)
{
    V total = vset1 (0.0f);
    int i = 0;
    for (; i + 4 <= n; i += 4)
    {
        const V x = vloadu (a + i);
        total = vadd (total, vmul (x, x));
    }
    float result = vhsum (total);
    for (; i < n; ++i)
        result += a[i] * a[i];
    return result;
}

MERIDEX_TIER_FN void opComplexMultiply (float* a, const float* b, int n)
{
    if (n < 2)
        return;
    a[0] *= b[0];
    a[1] *= b[1];
    int i = 2;
    for (; i + 4 <= n; i += 4)
        vstoreu (a + i, vcomplexMultiply (vloadu (a + i), vloadu (b + i)));
    for (; i + 2 <= n; i += 2)
    {
        const float ar = a[i], ai = a[i + 1];
        a[i] = ar * b[i] - ai * b[i + 1];
        a[i + 1] = ai * b[i] + ar * b[i + 1];
    }
}

MERIDEX_TIER_FN void opConjugate (float* a, int n)
{
    int i = 2;
    for (; i + 4 <= n; i += 4)
        vstoreu (a + i, vconjugate (vloadu (a + i)));
    for (; i + 2 <= n; i += 2)
        a[i + 1] = -a[i + 1];
}

// out may be the spectrum itself: each output lies at or below what has been
// read, and the Nyquist value is taken first.
MERIDEX_TIER_FN void opMagnitude (float* out, const float* spectrum, int n)
{
    if (n < 2)
        return;
    const int half = n / 2;
    const float dc = 0.5f * fabsf (spectrum[0]);
    const float nyquist = 0.5f * fabsf (spectrum[1]);
    int k = 1;
    for (; k + 4 <= half; k += 4)
    {
        V re, im;
        vdeinterleave (vloadu (spectrum + 2 * k), vloadu (spectrum + 2 * k + 4), re, im);
        vstoreu (out + k, vsqrt (vadd (vmul (re, re), vmul (im, im))));
    }
    for (; k < half; ++k)
    {
        const float re = spectrum[2 * k], im = spectrum[2 * k + 1];
        out[k] = sqrtf (re * re + im * im);
    }
    out[0] = dc;
    out[half] = nyquist;
}

MERIDEX_TIER_FN void opPhase (float* out, const float* spectrum, int n)
{
    if (n < 2)
        return;
    const float pi = 3.14159265358979f;
    const int half = n / 2;
    const float dc = spectrum[0] > 0.0f ? 0.0f : pi;
    const float nyquist = spectrum[1] > 0.0f ? 0.0f : pi;
    int k = 1;
    for (; k + 4 <= half; k += 4)
    {
        V re, im;
        vdeinterleave (vloadu (spectrum + 2 * k), vloadu (spectrum + 2 * k + 4), re, im);
        vstoreu (out + k, vatan2 (im, re));
    }
    for (; k < half; ++k)
    {
        float lane[4] = { 0.0f, 0.0f, 0.0f, 0.0f };
        vstoreu (lane, vatan2 (vset1 (spectrum[2 * k + 1]), vset1 (spectrum[2 * k])));
        out[k] = lane[0];
    }
    out[0] = dc;
    out[half] = nyquist;
}

MERIDEX_TIER_FN void opWrapPhase (float* a, int n)
{
    const float pi = 3.14159265358979f;
    const float twoPi = 6.28318530717959f;
    const float inverseTwoPi = 0.159154943091895f;
    const V vpi = vset1 (pi), vtwoPi = vset1 (twoPi), vinverse = vset1 (inverseTwoPi);
    int i = 0;
    for (; i + 4 <= n; i += 4)
    {
        const V shifted = vadd (vloadu (a + i), vpi);
        const V turns = vfloor (vmul (shifted, vinverse));
        vstoreu (a + i, vsub (vsub (shifted, vmul (turns, vtwoPi)), vpi));
    }
    for (; i < n; ++i)
    {
        const float shifted = a[i] + pi;
        const float turns = vfirst (vfloor (vset1 (shifted * inverseTwoPi)));
        a[i] = (shifted - turns * twoPi) - pi;
    }
}


// ---------------------------------------------------------------------------
// What the tier hands to the dispatch table.

const floor_detail::FftKernels tierFftKernels { realForward, realInverse, opMultiplyInto };

void fillTierVectorOps (VectorDispatch& table)
{
    table.zero = opZero;
    table.add = opAdd;
    table.addScalar = opAddScalar;
    table.subtract = opSubtract;
    table.multiply = opMultiply;
    table.multiplyScalar = opMultiplyScalar;
    table.divide = opDivide;
    table.maxElementwise = opMaxElementwise;
    table.clampBelow = opClampBelow;
    table.absolute = opAbsolute;
    table.exp = opExp;
    table.log = opLog;
    table.squareRoot = opSquareRoot;
    table.findMax = opFindMax;
    table.findMin = opFindMin;
    table.sum = opSum;
    table.sumSquares = opSumSquares;
    table.complexMultiply = opComplexMultiply;
    table.conjugate = opConjugate;
    table.magnitude = opMagnitude;
    table.phase = opPhase;
    table.wrapPhase = opWrapPhase;
    table.sinCos = opSinCos;
}

#undef MERIDEX_KERNEL
// clang-format on
