#include "simulator/board/Stage.h"

#include <algorithm>
#include <cmath>

namespace {

constexpr double kTwoPi = 6.283185307179586;

} // namespace

Stage::Stage(const StageParameters& parameters)
    : m_parameters(parameters),
      m_braking(parameters.start_steps),
      m_motion(parameters.start_steps),
      m_carriageAtStart_steps(parameters.start_steps)
{
}

bool Stage::reaches(long long position_steps) const
{
    return position_steps >= m_parameters.minimum_steps && position_steps <= m_parameters.maximum_steps;
}

InstrumentTime Stage::moveTo(int target_steps, InstrumentTime now)
{
    return go(target_steps, m_parameters.maximumSpeed_stepsPerS, now);
}

InstrumentTime Stage::home(InstrumentTime now)
{
    return moveTo(0, now);
}

InstrumentTime Stage::run(int direction, int runValue, InstrumentTime now)
{
    const int end = direction < 0 ? m_parameters.minimum_steps : m_parameters.maximum_steps;
    return go(end, runValue * m_parameters.runValueSpeed_stepsPerS, now);
}

InstrumentTime Stage::stop(InstrumentTime now)
{
    return go(restPosition_steps(now), m_parameters.maximumSpeed_stepsPerS, now);
}

void Stage::halt(InstrumentTime now)
{
    const double rest = std::round(position_steps(now));
    m_carriageAtStart_steps = carriagePosition_steps(now) - ringing_steps(now);
    m_braking = MotionProfile(rest);
    m_motion = MotionProfile(rest);
    m_brakingStart = m_motionStart = m_end = now;
}

// A braking distance is never longer than the one that the motion under way ends with, so
// braking stays inside the travel.
InstrumentTime Stage::go(double target_steps, double speed_stepsPerS, InstrumentTime now)
{
    if (!isMoving(now) && target_steps == position_steps(now))
        return now;
    m_carriageAtStart_steps = carriagePosition_steps(now) - ringing_steps(now);
    m_braking = MotionProfile::braking(position_steps(now), this->speed_stepsPerS(now),
                                       m_parameters.acceleration_stepsPerS2);
    m_motion = MotionProfile::between(m_braking.end_steps(), target_steps, speed_stepsPerS,
                                      m_parameters.acceleration_stepsPerS2);
    m_brakingStart = now;
    m_motionStart = now + spanOf(m_braking.duration_s());
    m_end = m_motionStart + spanOf(m_motion.duration_s());
    m_hasMoved = true;
    return m_end;
}

int Stage::restPosition_steps(InstrumentTime now) const
{
    const MotionProfile braking = MotionProfile::braking(position_steps(now), speed_stepsPerS(now),
                                                         m_parameters.acceleration_stepsPerS2);
    return static_cast<int>(braking.end_steps());
}

double Stage::position_steps(InstrumentTime time) const
{
    if (time < m_motionStart)
        return m_braking.position_steps(seconds(time - m_brakingStart));
    return m_motion.position_steps(seconds(time - m_motionStart));
}

double Stage::speed_stepsPerS(InstrumentTime time) const
{
    if (time < m_motionStart)
        return m_braking.speed_stepsPerS(seconds(time - m_brakingStart));
    return m_motion.speed_stepsPerS(seconds(time - m_motionStart));
}

// Downwards the motor moves the carriage at once, upwards only after the play is used up:
// positions are counted from the home switch, which is approached downwards.
double Stage::carriageAfter(double carriage_steps, const MotionProfile& motion, double elapsed_s) const
{
    const double motor = motion.position_steps(elapsed_s);
    return std::clamp(carriage_steps, motor - m_parameters.backlash_steps, motor);
}

double Stage::carriagePosition_steps(InstrumentTime time) const
{
    const double atRestOrBraking =
        carriageAfter(m_carriageAtStart_steps, m_braking, seconds(time - m_brakingStart));
    const double carriage = time < m_motionStart
                                ? atRestOrBraking
                                : carriageAfter(atRestOrBraking, m_motion, seconds(time - m_motionStart));
    return carriage + ringing_steps(time);
}

double Stage::ringing_steps(InstrumentTime time) const
{
    if (!m_hasMoved || time < m_end || m_parameters.vibrationAmplitude_steps == 0.0)
        return 0.0;
    const double elapsed_s = seconds(time - m_end);
    return m_parameters.vibrationAmplitude_steps * std::exp(-elapsed_s / m_parameters.vibrationDecay_s) *
           std::sin(kTwoPi * m_parameters.vibrationFrequency_hz * elapsed_s);
}
