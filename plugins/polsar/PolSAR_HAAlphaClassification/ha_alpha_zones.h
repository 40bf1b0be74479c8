// Zones of the entropy/alpha plane (Cloude and Pottier, 1997) and their refinement into classes.
#pragma once

#include <cmath>
#include <cstdint>
#include <cstring>

namespace polsarzones
{

// The eight feasible zones in class order; Z3 (high entropy, alpha < 40) cannot be reached by a valid coherency
// matrix and is folded into Z2. A value on a boundary belongs to the zone above it (higher entropy or alpha).
struct ZoneInfo
{
    const char* name;
    unsigned char red, green, blue;
};
constexpr int kZoneCount = 8;
constexpr ZoneInfo kZones[kZoneCount] = {
    {"Z1 high entropy multiple scattering", 128, 0, 0},
    {"Z2 high entropy vegetation scattering", 0, 128, 0},
    {"Z4 medium entropy multiple scattering", 255, 0, 255},
    {"Z5 medium entropy vegetation scattering", 0, 255, 0},
    {"Z6 medium entropy surface scattering", 0, 255, 255},
    {"Z7 low entropy multiple scattering", 255, 0, 0},
    {"Z8 low entropy dipole scattering", 255, 255, 0},
    {"Z9 low entropy surface scattering", 0, 0, 255},
};

// Zone index 0..7 of kZones. Entropy bands split at 0.5 and 0.9; alpha (degrees) at 47.5/42.5 for low entropy,
// 50/40 for medium entropy and 55 for high entropy.
inline int zoneOf(float entropy, float alphaDegrees)
{
    if (entropy >= 0.9f)
        return alphaDegrees >= 55.0f ? 0 : 1;
    if (entropy >= 0.5f)
        return alphaDegrees >= 50.0f ? 2 : alphaDegrees >= 40.0f ? 3 : 4;
    return alphaDegrees >= 47.5f ? 5 : alphaDegrees >= 42.5f ? 6 : 7;
}

// Pixel value: 0 for an invalid pixel (any input not finite); method 0 the zone (1..8); methods 1 and 2 each zone
// split in two (1..16): anisotropy below / at or above 0.5, lambda below / at or above `lambdaSplit`.
inline unsigned char classOf(int method, float entropy, float anisotropy, float alphaDegrees, float lambda,
                             float lambdaSplit)
{
    if (!std::isfinite(entropy) || !std::isfinite(anisotropy) || !std::isfinite(alphaDegrees) || !std::isfinite(lambda))
        return 0;
    const int zone = zoneOf(entropy, alphaDegrees);
    if (method == 0)
        return static_cast<unsigned char>(zone + 1);
    const bool upper = method == 1 ? anisotropy >= 0.5f : lambda >= lambdaSplit;
    return static_cast<unsigned char>(2 * zone + 1 + (upper ? 1 : 0));
}

// A float's bits mapped so that unsigned order is numeric order (radix selection of the median).
inline uint32_t orderedKey(float value)
{
    uint32_t bits;
    std::memcpy(&bits, &value, sizeof bits);
    return (bits & 0x80000000u) ? ~bits : (bits | 0x80000000u);
}

inline float fromOrderedKey(uint32_t key)
{
    const uint32_t bits = (key & 0x80000000u) ? (key & 0x7fffffffu) : ~key;
    float value;
    std::memcpy(&value, &bits, sizeof value);
    return value;
}

} // namespace polsarzones
