#include "simulator/board/MotionProfile.h"

#include <algorithm>
#include <cmath>

namespace {

// Keeps a braking distance that is a whole number whole in spite of rounding.
constexpr double kRounding_steps = 1e-6;

double travelled(double speed, double acceleration, double time)
{
    return speed * time + 0.5 * acceleration * time * time;
}

} // namespace

MotionProfile::MotionProfile(double position_steps) : m_start(position_steps), m_end(position_steps) {}

MotionProfile MotionProfile::between(double from_steps, double to_steps, double speed_stepsPerS,
                                     double acceleration_stepsPerS2)
{
    MotionProfile profile(from_steps);
    profile.m_end = to_steps;
    const double distance = std::abs(to_steps - from_steps);
    if (distance == 0.0)
        return profile;
    const double direction = to_steps > from_steps ? 1.0 : -1.0;
    // Over a short distance braking begins before the speed is reached: a triangle.
    const double peak = std::min(speed_stepsPerS, std::sqrt(distance * acceleration_stepsPerS2));
    const double ramp_s = peak / acceleration_stepsPerS2;
    const double cruise_s = std::max(0.0, distance / peak - ramp_s);
    profile.m_phases = {{ramp_s, 0.0, direction * acceleration_stepsPerS2},
                        {cruise_s, direction * peak, 0.0},
                        {ramp_s, direction * peak, -direction * acceleration_stepsPerS2}};
    return profile;
}

MotionProfile MotionProfile::braking(double from_steps, double speed_stepsPerS,
                                     double acceleration_stepsPerS2)
{
    MotionProfile profile(from_steps);
    const double ramp_s = std::abs(speed_stepsPerS) / acceleration_stepsPerS2;
    const double rest = from_steps + 0.5 * speed_stepsPerS * ramp_s;
    profile.m_end =
        speed_stepsPerS < 0.0 ? std::floor(rest + kRounding_steps) : std::ceil(rest - kRounding_steps);
    if (speed_stepsPerS != 0.0)
        profile.m_phases = {{ramp_s, speed_stepsPerS, -speed_stepsPerS / ramp_s}};
    return profile;
}

double MotionProfile::position_steps(double elapsed_s) const
{
    if (elapsed_s >= duration_s())
        return m_end;
    double position = m_start;
    double left_s = std::max(0.0, elapsed_s);
    for (const Phase& phase : m_phases) {
        const double time_s = std::min(left_s, phase.duration_s);
        position += travelled(phase.speed_stepsPerS, phase.acceleration_stepsPerS2, time_s);
        left_s -= time_s;
    }
    // Rounding must not carry the position past its ends.
    return std::clamp(position, std::min(m_start, m_end), std::max(m_start, m_end));
}

double MotionProfile::speed_stepsPerS(double elapsed_s) const
{
    if (elapsed_s < 0.0 || elapsed_s >= duration_s())
        return 0.0;
    for (const Phase& phase : m_phases) {
        if (elapsed_s < phase.duration_s)
            return phase.speed_stepsPerS + phase.acceleration_stepsPerS2 * elapsed_s;
        elapsed_s -= phase.duration_s;
    }
    return 0.0;
}

double MotionProfile::duration_s() const
{
    double duration = 0.0;
    for (const Phase& phase : m_phases)
        duration += phase.duration_s;
    return duration;
}
