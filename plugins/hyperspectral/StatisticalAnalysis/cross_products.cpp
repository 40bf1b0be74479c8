// Cross-product accumulation: 4x2 register tiles over pixel chunks that stay in the L2 cache.
// The integer kernel multiplies 16 pixel pairs per instruction (vpmaddwd) and never rounds.
#include "cross_products.h"

#include <algorithm>
#include <immintrin.h>
#include <limits>

namespace stats
{
namespace
{

constexpr size_t kChunk = 256; // pixels per pass: all rows of a chunk stay in L2 for 128 bands

// Scalar fallback and tail handling.
void tileScalar(const double* x, size_t stride, int i0, int i1, int j0, int j1, size_t p0, size_t p1, double* c,
                int rows)
{
    for (int i = i0; i < i1; ++i)
        for (int j = j0; j < std::min(j1, i + 1); ++j)
        {
            const double* a = x + size_t(i) * stride;
            const double* b = x + size_t(j) * stride;
            double sum = 0.0;
            for (size_t p = p0; p < p1; ++p)
                sum += a[p] * b[p];
            c[size_t(i) * rows + j] += sum;
        }
}

__attribute__((target("avx2,fma"))) inline double horizontalSum(__m256d v)
{
    const __m128d low = _mm256_castpd256_pd128(v);
    const __m128d high = _mm256_extractf128_pd(v, 1);
    const __m128d pair = _mm_add_pd(low, high);
    return _mm_cvtsd_f64(_mm_add_sd(pair, _mm_unpackhi_pd(pair, pair)));
}

// Rows i..i+3 against rows j, j+1 over pixels [p0, p1), p1 - p0 a multiple of 4.
__attribute__((target("avx2,fma"))) void tile4x2(const double* x, size_t stride, int i, int j, size_t p0,
                                                 size_t p1, double* c, int rows)
{
    const double* a0 = x + size_t(i) * stride;
    const double* a1 = a0 + stride;
    const double* a2 = a1 + stride;
    const double* a3 = a2 + stride;
    const double* b0 = x + size_t(j) * stride;
    const double* b1 = b0 + stride;
    __m256d s00 = _mm256_setzero_pd(), s01 = _mm256_setzero_pd(), s10 = _mm256_setzero_pd(),
            s11 = _mm256_setzero_pd(), s20 = _mm256_setzero_pd(), s21 = _mm256_setzero_pd(),
            s30 = _mm256_setzero_pd(), s31 = _mm256_setzero_pd();
    for (size_t p = p0; p < p1; p += 4)
    {
        const __m256d v0 = _mm256_loadu_pd(b0 + p);
        const __m256d v1 = _mm256_loadu_pd(b1 + p);
        __m256d u = _mm256_loadu_pd(a0 + p);
        s00 = _mm256_fmadd_pd(u, v0, s00);
        s01 = _mm256_fmadd_pd(u, v1, s01);
        u = _mm256_loadu_pd(a1 + p);
        s10 = _mm256_fmadd_pd(u, v0, s10);
        s11 = _mm256_fmadd_pd(u, v1, s11);
        u = _mm256_loadu_pd(a2 + p);
        s20 = _mm256_fmadd_pd(u, v0, s20);
        s21 = _mm256_fmadd_pd(u, v1, s21);
        u = _mm256_loadu_pd(a3 + p);
        s30 = _mm256_fmadd_pd(u, v0, s30);
        s31 = _mm256_fmadd_pd(u, v1, s31);
    }
    double* c0 = c + size_t(i) * rows + j;
    c0[0] += horizontalSum(s00);
    c0[1] += horizontalSum(s01);
    c0[rows] += horizontalSum(s10);
    c0[rows + 1] += horizontalSum(s11);
    c0[2 * rows] += horizontalSum(s20);
    c0[2 * rows + 1] += horizontalSum(s21);
    c0[3 * rows] += horizontalSum(s30);
    c0[3 * rows + 1] += horizontalSum(s31);
}

__attribute__((target("avx2,fma"))) void accumulateAvx2(const double* x, size_t stride, int rows, size_t count,
                                                        double* c)
{
    const int fullRows = rows / 4 * 4;
    for (size_t p0 = 0; p0 < count; p0 += kChunk)
    {
        const size_t p1 = std::min(count, p0 + kChunk);
        const size_t vectorEnd = p0 + (p1 - p0) / 4 * 4;
        for (int i = 0; i < fullRows; i += 4)
        {
            // Full 4x2 tiles strictly left of the 4x4 diagonal block, then the diagonal block itself;
            // tiles that reach above the diagonal add to entries that are never read.
            for (int j = 0; j < i + 4; j += 2)
                tile4x2(x, stride, i, j, p0, vectorEnd, c, rows);
        }
        if (vectorEnd < p1)
            tileScalar(x, stride, 0, fullRows, 0, fullRows, vectorEnd, p1, c, rows);
        // Rows beyond the last full group of four, against every column.
        tileScalar(x, stride, fullRows, rows, 0, rows, p0, p1, c, rows);
    }
}

void accumulateScalar(const double* x, size_t stride, int rows, size_t count, double* c)
{
    for (size_t p0 = 0; p0 < count; p0 += kChunk)
        tileScalar(x, stride, 0, rows, 0, rows, p0, std::min(count, p0 + kChunk), c, rows);
}

// ---- 16-bit integers ----

void tileScalar16(const int16_t* x, size_t stride, int i0, int i1, int j0, int j1, size_t p0, size_t p1,
                  int64_t* c, int rows)
{
    for (int i = i0; i < i1; ++i)
        for (int j = j0; j < std::min(j1, i + 1); ++j)
        {
            const int16_t* a = x + size_t(i) * stride;
            const int16_t* b = x + size_t(j) * stride;
            int64_t sum = 0;
            for (size_t p = p0; p < p1; ++p)
                sum += int32_t(a[p]) * int32_t(b[p]);
            c[size_t(i) * rows + j] += sum;
        }
}

__attribute__((target("avx2"))) inline int64_t horizontalSum64(__m256i v)
{
    const __m256i wide = _mm256_add_epi64(_mm256_cvtepi32_epi64(_mm256_castsi256_si128(v)),
                                          _mm256_cvtepi32_epi64(_mm256_extracti128_si256(v, 1)));
    const __m128i pair = _mm_add_epi64(_mm256_castsi256_si128(wide), _mm256_extracti128_si256(wide, 1));
    return _mm_cvtsi128_si64(pair) + _mm_extract_epi64(pair, 1);
}

__attribute__((target("avx2"))) inline __m256i load(const int16_t* p)
{
    return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p));
}

// Rows i..i+3 against rows j, j+1 over pixels [p0, p1), p1 - p0 a multiple of 16 and short enough that
// no 32-bit lane overflows.
__attribute__((target("avx2"))) void tile4x2(const int16_t* x, size_t stride, int i, int j, size_t p0, size_t p1,
                                             int64_t* c, int rows)
{
    const int16_t* a0 = x + size_t(i) * stride;
    const int16_t* a1 = a0 + stride;
    const int16_t* a2 = a1 + stride;
    const int16_t* a3 = a2 + stride;
    const int16_t* b0 = x + size_t(j) * stride;
    const int16_t* b1 = b0 + stride;
    __m256i s00 = _mm256_setzero_si256(), s01 = _mm256_setzero_si256(), s10 = _mm256_setzero_si256(),
            s11 = _mm256_setzero_si256(), s20 = _mm256_setzero_si256(), s21 = _mm256_setzero_si256(),
            s30 = _mm256_setzero_si256(), s31 = _mm256_setzero_si256();
    for (size_t p = p0; p < p1; p += 16)
    {
        const __m256i v0 = load(b0 + p);
        const __m256i v1 = load(b1 + p);
        __m256i u = load(a0 + p);
        s00 = _mm256_add_epi32(s00, _mm256_madd_epi16(u, v0));
        s01 = _mm256_add_epi32(s01, _mm256_madd_epi16(u, v1));
        u = load(a1 + p);
        s10 = _mm256_add_epi32(s10, _mm256_madd_epi16(u, v0));
        s11 = _mm256_add_epi32(s11, _mm256_madd_epi16(u, v1));
        u = load(a2 + p);
        s20 = _mm256_add_epi32(s20, _mm256_madd_epi16(u, v0));
        s21 = _mm256_add_epi32(s21, _mm256_madd_epi16(u, v1));
        u = load(a3 + p);
        s30 = _mm256_add_epi32(s30, _mm256_madd_epi16(u, v0));
        s31 = _mm256_add_epi32(s31, _mm256_madd_epi16(u, v1));
    }
    int64_t* c0 = c + size_t(i) * rows + j;
    c0[0] += horizontalSum64(s00);
    c0[1] += horizontalSum64(s01);
    c0[rows] += horizontalSum64(s10);
    c0[rows + 1] += horizontalSum64(s11);
    c0[2 * rows] += horizontalSum64(s20);
    c0[2 * rows + 1] += horizontalSum64(s21);
    c0[3 * rows] += horizontalSum64(s30);
    c0[3 * rows + 1] += horizontalSum64(s31);
}

// Pixels per chunk: each 32-bit lane adds one pair of products (at most 2 * maxAbs^2) per 16 pixels.
size_t chunkPixels(int maxAbs)
{
    const int64_t pair = 2 * int64_t(maxAbs) * maxAbs;
    const int64_t steps = pair > 0 ? std::numeric_limits<int32_t>::max() / pair : 64;
    return size_t(16 * std::max<int64_t>(1, std::min<int64_t>(64, steps)));
}

__attribute__((target("avx2"))) void accumulateAvx2(const int16_t* x, size_t stride, int rows, size_t count,
                                                    int maxAbs, int64_t* c)
{
    const int fullRows = rows / 4 * 4;
    const size_t chunk = chunkPixels(maxAbs);
    const size_t vectorCount = count / 16 * 16;
    for (size_t p0 = 0; p0 < vectorCount; p0 += chunk)
    {
        const size_t p1 = std::min(vectorCount, p0 + chunk);
        for (int i = 0; i < fullRows; i += 4)
            for (int j = 0; j < i + 4; j += 2)
                tile4x2(x, stride, i, j, p0, p1, c, rows);
    }
    if (vectorCount < count)
        tileScalar16(x, stride, 0, fullRows, 0, fullRows, vectorCount, count, c, rows);
    tileScalar16(x, stride, fullRows, rows, 0, rows, 0, count, c, rows);
}

} // namespace

void accumulateCrossProducts(const int16_t* x, size_t stride, int rows, size_t count, int maxAbs, int64_t* c)
{
    static const bool hasAvx2 = __builtin_cpu_supports("avx2");
    if (hasAvx2)
        accumulateAvx2(x, stride, rows, count, maxAbs, c);
    else
        tileScalar16(x, stride, 0, rows, 0, rows, 0, count, c, rows);
}

void accumulateCrossProducts(const double* x, size_t stride, int rows, size_t count, double* c)
{
    static const bool hasAvx2 = __builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma");
    if (hasAvx2)
        accumulateAvx2(x, stride, rows, count, c);
    else
        accumulateScalar(x, stride, rows, count, c);
}

} // namespace stats
