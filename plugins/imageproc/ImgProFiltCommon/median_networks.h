// Median selection networks for 3 x 3 and 5 x 5 windows (odd-even merge sort pruned to the middle output),
// written for plain values and for SIMD vectors alike.
#pragma once

#include <utility>

namespace filtcommon
{

template <typename V> inline V vmin(V a, V b)
{
    return a < b ? a : b;
}
template <typename V> inline V vmax(V a, V b)
{
    return a < b ? b : a;
}
template <typename V> inline void sortPair(V& a, V& b)
{
    const V low = vmin(a, b);
    b = vmax(a, b);
    a = low;
}

template <typename V> inline V median9(V* v)
{
    sortPair(v[0], v[1]);
    sortPair(v[2], v[3]);
    sortPair(v[0], v[2]);
    sortPair(v[1], v[3]);
    sortPair(v[1], v[2]);
    sortPair(v[4], v[5]);
    sortPair(v[6], v[7]);
    sortPair(v[4], v[6]);
    sortPair(v[5], v[7]);
    sortPair(v[5], v[6]);
    sortPair(v[0], v[4]);
    sortPair(v[2], v[6]);
    sortPair(v[2], v[4]);
    sortPair(v[1], v[5]);
    v[3] = vmin(v[3], v[7]);
    sortPair(v[3], v[5]);
    v[2] = vmax(v[1], v[2]);
    sortPair(v[3], v[4]);
    v[5] = vmin(v[5], v[6]);
    v[8] = vmax(v[0], v[8]);
    v[4] = vmin(v[4], v[8]);
    v[4] = vmax(v[2], v[4]);
    v[3] = vmin(v[3], v[5]);
    v[4] = vmax(v[3], v[4]);
    return v[4];
}

template <typename V> inline V median25(V* v)
{
    sortPair(v[0], v[1]);
    sortPair(v[2], v[3]);
    sortPair(v[0], v[2]);
    sortPair(v[1], v[3]);
    sortPair(v[1], v[2]);
    sortPair(v[4], v[5]);
    sortPair(v[6], v[7]);
    sortPair(v[4], v[6]);
    sortPair(v[5], v[7]);
    sortPair(v[5], v[6]);
    sortPair(v[0], v[4]);
    sortPair(v[2], v[6]);
    sortPair(v[2], v[4]);
    sortPair(v[1], v[5]);
    sortPair(v[3], v[7]);
    sortPair(v[3], v[5]);
    sortPair(v[1], v[2]);
    sortPair(v[3], v[4]);
    sortPair(v[5], v[6]);
    sortPair(v[8], v[9]);
    sortPair(v[10], v[11]);
    sortPair(v[8], v[10]);
    sortPair(v[9], v[11]);
    sortPair(v[9], v[10]);
    sortPair(v[12], v[13]);
    sortPair(v[14], v[15]);
    sortPair(v[12], v[14]);
    sortPair(v[13], v[15]);
    sortPair(v[13], v[14]);
    sortPair(v[8], v[12]);
    sortPair(v[10], v[14]);
    sortPair(v[10], v[12]);
    sortPair(v[9], v[13]);
    sortPair(v[11], v[15]);
    sortPair(v[11], v[13]);
    sortPair(v[9], v[10]);
    sortPair(v[11], v[12]);
    sortPair(v[13], v[14]);
    sortPair(v[0], v[8]);
    sortPair(v[4], v[12]);
    sortPair(v[4], v[8]);
    sortPair(v[2], v[10]);
    sortPair(v[6], v[14]);
    sortPair(v[6], v[10]);
    sortPair(v[2], v[4]);
    sortPair(v[6], v[8]);
    sortPair(v[10], v[12]);
    sortPair(v[1], v[9]);
    sortPair(v[5], v[13]);
    sortPair(v[5], v[9]);
    sortPair(v[3], v[11]);
    v[7] = vmin(v[7], v[15]);
    sortPair(v[7], v[11]);
    sortPair(v[3], v[5]);
    sortPair(v[7], v[9]);
    sortPair(v[11], v[13]);
    sortPair(v[1], v[2]);
    sortPair(v[3], v[4]);
    sortPair(v[5], v[6]);
    sortPair(v[7], v[8]);
    sortPair(v[9], v[10]);
    sortPair(v[11], v[12]);
    v[13] = vmin(v[13], v[14]);
    sortPair(v[16], v[17]);
    sortPair(v[18], v[19]);
    sortPair(v[16], v[18]);
    sortPair(v[17], v[19]);
    sortPair(v[17], v[18]);
    sortPair(v[20], v[21]);
    sortPair(v[22], v[23]);
    sortPair(v[20], v[22]);
    sortPair(v[21], v[23]);
    sortPair(v[21], v[22]);
    sortPair(v[16], v[20]);
    sortPair(v[18], v[22]);
    sortPair(v[18], v[20]);
    sortPair(v[17], v[21]);
    sortPair(v[19], v[23]);
    sortPair(v[19], v[21]);
    sortPair(v[17], v[18]);
    sortPair(v[19], v[20]);
    sortPair(v[21], v[22]);
    sortPair(v[16], v[24]);
    sortPair(v[20], v[24]);
    sortPair(v[18], v[20]);
    sortPair(v[22], v[24]);
    sortPair(v[19], v[21]);
    sortPair(v[17], v[18]);
    sortPair(v[19], v[20]);
    sortPair(v[21], v[22]);
    sortPair(v[23], v[24]);
    v[16] = vmax(v[0], v[16]);
    v[8] = vmin(v[8], v[24]);
    v[16] = vmax(v[8], v[16]);
    v[20] = vmax(v[4], v[20]);
    v[12] = vmin(v[12], v[20]);
    v[12] = vmin(v[12], v[16]);
    v[18] = vmax(v[2], v[18]);
    v[10] = vmin(v[10], v[18]);
    v[6] = vmin(v[6], v[22]);
    v[10] = vmax(v[6], v[10]);
    v[12] = vmax(v[10], v[12]);
    v[17] = vmax(v[1], v[17]);
    v[17] = vmax(v[9], v[17]);
    v[21] = vmax(v[5], v[21]);
    v[13] = vmin(v[13], v[21]);
    v[13] = vmin(v[13], v[17]);
    v[19] = vmax(v[3], v[19]);
    v[11] = vmin(v[11], v[19]);
    v[7] = vmin(v[7], v[23]);
    v[11] = vmax(v[7], v[11]);
    v[11] = vmin(v[11], v[13]);
    v[12] = vmax(v[11], v[12]);
    return v[12];
}

} // namespace filtcommon
