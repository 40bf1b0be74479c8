// Pixel conversions of the band-math plug-in: raster buffers of any real GDAL type to doubles and back,
// with the no-data rule applied on the way out.
#pragma once

#include <gdal.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>

namespace operband
{

// The type a band is read as: its own for the common types, Float64 for the rest (64-bit integers).
inline GDALDataType readTypeFor(GDALDataType type)
{
    switch (type)
    {
    case GDT_Byte: case GDT_UInt16: case GDT_Int16: case GDT_UInt32: case GDT_Int32: case GDT_Float32:
    case GDT_Float64:
        return type;
    default:
        return GDT_Float64;
    }
}

template <typename T> void widen(const void* source, double* out, int n)
{
    const T* in = static_cast<const T*>(source);
    for (int i = 0; i < n; ++i)
        out[i] = double(in[i]);
}

// source holds values of `type` (one of readTypeFor's results).
inline void toDoubles(GDALDataType type, const void* source, double* out, int n)
{
    switch (type)
    {
    case GDT_Byte: widen<std::uint8_t>(source, out, n); break;
    case GDT_UInt16: widen<std::uint16_t>(source, out, n); break;
    case GDT_Int16: widen<std::int16_t>(source, out, n); break;
    case GDT_UInt32: widen<std::uint32_t>(source, out, n); break;
    case GDT_Int32: widen<std::int32_t>(source, out, n); break;
    case GDT_Float32: widen<float>(source, out, n); break;
    default: widen<double>(source, out, n); break;
    }
}

// Marks pixels equal to a band's no-data value (a NaN no-data value matches NaN pixels).
inline void markNoData(const double* values, double noData, std::uint8_t* invalid, int n)
{
    if (std::isnan(noData))
        for (int i = 0; i < n; ++i)
            invalid[i] |= std::uint8_t(values[i] != values[i]);
    else
        for (int i = 0; i < n; ++i)
            invalid[i] |= std::uint8_t(values[i] == noData);
}

// The no-data value written where an operand is no-data: NaN for floating outputs, else the extreme
// of the type that computed values are kept off (the largest for unsigned types, the smallest for signed).
inline double outputNoData(GDALDataType type)
{
    switch (type)
    {
    case GDT_Byte: return 255.0;
    case GDT_UInt16: return 65535.0;
    case GDT_Int16: return -32768.0;
    case GDT_UInt32: return 4294967295.0;
    case GDT_Int32: return -2147483648.0;
    default: return std::numeric_limits<double>::quiet_NaN();
    }
}

// Integer outputs: rounded half away from zero and clamped to the type's range; with a no-data value,
// computed values are kept off it, and NaN results become it (else 0).
template <typename T> void narrowInteger(const double* in, const std::uint8_t* invalid, bool withNoData, void* target, int n)
{
    constexpr bool kSigned = std::numeric_limits<T>::is_signed;
    double low = double(std::numeric_limits<T>::lowest()), high = double(std::numeric_limits<T>::max());
    const T noData = kSigned ? std::numeric_limits<T>::lowest() : std::numeric_limits<T>::max();
    if (withNoData)
    {
        if (kSigned)
            low += 1.0;
        else
            high -= 1.0;
    }
    const T nanValue = withNoData ? noData : T(0);
    T* out = static_cast<T*>(target);
    for (int i = 0; i < n; ++i)
    {
        const bool isNan = in[i] != in[i];
        const double clamped = std::min(std::max(isNan ? 0.0 : in[i], low), high);
        const T value = T(clamped + (clamped >= 0.0 ? 0.5 : -0.5));
        out[i] = isNan ? nanValue : value;
    }
    if (invalid)
        for (int i = 0; i < n; ++i)
            out[i] = invalid[i] ? noData : out[i];
}

template <typename T> void narrowFloat(const double* in, const std::uint8_t* invalid, void* target, int n)
{
    T* out = static_cast<T*>(target);
    for (int i = 0; i < n; ++i)
        out[i] = T(in[i]);
    if (invalid)
        for (int i = 0; i < n; ++i)
            out[i] = invalid[i] ? std::numeric_limits<T>::quiet_NaN() : out[i];
}

// Writes n results as `type`; invalid (or null) marks the pixels that become no-data.
inline void fromDoubles(GDALDataType type, const double* in, const std::uint8_t* invalid, bool withNoData,
                        void* target, int n)
{
    switch (type)
    {
    case GDT_Byte: narrowInteger<std::uint8_t>(in, invalid, withNoData, target, n); break;
    case GDT_UInt16: narrowInteger<std::uint16_t>(in, invalid, withNoData, target, n); break;
    case GDT_Int16: narrowInteger<std::int16_t>(in, invalid, withNoData, target, n); break;
    case GDT_UInt32: narrowInteger<std::uint32_t>(in, invalid, withNoData, target, n); break;
    case GDT_Int32: narrowInteger<std::int32_t>(in, invalid, withNoData, target, n); break;
    case GDT_Float32: narrowFloat<float>(in, invalid, target, n); break;
    default: narrowFloat<double>(in, invalid, target, n); break;
    }
}

} // namespace operband
