// A satellite orbit given by state vectors, interpolated in time (positions, velocities, accelerations).
#pragma once

#include "geodesy.h"

#include <vector>

struct SarParameterRecord;

namespace sargeo
{

struct OrbitState
{
    double time = 0.0; // seconds on the product's time base
    Vec3 position = Vec3::Zero();
    Vec3 velocity = Vec3::Zero();
};

class Orbit
{
public:
    // States in increasing time; throws std::invalid_argument for fewer than four, or times not increasing.
    explicit Orbit(std::vector<OrbitState> states);

    // The state vectors of a SAR parameter record; throws std::invalid_argument as above.
    static Orbit fromRecord(const SarParameterRecord& record);

    // Lagrange interpolation over the (up to) eight vectors around t, applied to positions and velocities
    // separately; the acceleration is the derivative of the velocity polynomial.
    void at(double t, Vec3* position, Vec3* velocity, Vec3* acceleration = nullptr) const;

    double firstTime() const { return m_states.front().time; }
    double lastTime() const { return m_states.back().time; }
    const std::vector<OrbitState>& states() const { return m_states; }

private:
    std::vector<OrbitState> m_states;
};

} // namespace sargeo
