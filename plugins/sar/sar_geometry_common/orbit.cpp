// Orbit interpolation by Lagrange polynomials over the nearest state vectors.
#include "orbit.h"

#include "sar_parameter_file.h"

#include <algorithm>
#include <stdexcept>

namespace sargeo
{

Orbit::Orbit(std::vector<OrbitState> states) : m_states(std::move(states))
{
    if (m_states.size() < 4)
        throw std::invalid_argument("an orbit needs at least four state vectors");
    for (size_t i = 1; i < m_states.size(); ++i)
        if (!(m_states[i].time > m_states[i - 1].time))
            throw std::invalid_argument("the state vector times do not increase");
}

Orbit Orbit::fromRecord(const SarParameterRecord& record)
{
    if (record.numStateVectors < 4 || record.numStateVectors > kMaxStateVectors ||
        !(record.stateVectorTimeSpacing > 0.0))
        throw std::invalid_argument("the parameter file holds fewer than four evenly spaced state vectors");
    std::vector<OrbitState> states(size_t(record.numStateVectors));
    for (int i = 0; i < record.numStateVectors; ++i)
    {
        const StateVector& v = record.stateVectors[size_t(i)];
        states[size_t(i)].time = record.firstStateTime + i * record.stateVectorTimeSpacing;
        states[size_t(i)].position = Vec3(v.xPosition, v.yPosition, v.zPosition);
        states[size_t(i)].velocity = Vec3(v.xVelocity, v.yVelocity, v.zVelocity);
    }
    return Orbit(std::move(states));
}

void Orbit::at(double t, Vec3* position, Vec3* velocity, Vec3* acceleration) const
{
    const int n = int(m_states.size());
    const int order = std::min(n, 8);
    // The window of `order` vectors whose middle is nearest to t.
    const auto upper = std::lower_bound(m_states.begin(), m_states.end(), t,
                                        [](const OrbitState& s, double value) { return s.time < value; });
    int first = int(upper - m_states.begin()) - order / 2;
    first = std::max(0, std::min(first, n - order));

    Vec3 p = Vec3::Zero(), v = Vec3::Zero(), a = Vec3::Zero();
    for (int j = 0; j < order; ++j)
    {
        const double tj = m_states[size_t(first + j)].time;
        double weight = 1.0, derivative = 0.0;
        for (int k = 0; k < order; ++k)
        {
            if (k == j)
                continue;
            const double tk = m_states[size_t(first + k)].time;
            // d/dt of the product, accumulated by the product rule.
            derivative = derivative * (t - tk) / (tj - tk) + weight / (tj - tk);
            weight *= (t - tk) / (tj - tk);
        }
        p += weight * m_states[size_t(first + j)].position;
        v += weight * m_states[size_t(first + j)].velocity;
        a += derivative * m_states[size_t(first + j)].velocity;
    }
    if (position)
        *position = p;
    if (velocity)
        *velocity = v;
    if (acceleration)
        *acceleration = a;
}

} // namespace sargeo
