#pragma once

#include <vector>

/// The course of one motor motion: phases of constant acceleration, one after the other.
/// Positions in steps, times in seconds from the motion's start. Pure; any thread.
class MotionProfile
{
public:
    /// A motion at rest at position, zero seconds long.
    explicit MotionProfile(double position_steps = 0.0);

    /// From rest to rest: accelerates, cruises at speed_stepsPerS where the distance allows
    /// it, brakes. Speed and acceleration are above 0.
    static MotionProfile between(double from_steps, double to_steps, double speed_stepsPerS,
                                 double acceleration_stepsPerS2);

    /// Brakes from a moving start to rest at a whole step, in the direction of the motion.
    static MotionProfile braking(double from_steps, double speed_stepsPerS, double acceleration_stepsPerS2);

    /// Constant before the start and after the end, where it is exactly the end position.
    double position_steps(double elapsed_s) const;
    /// Signed; 0 before the start and after the end.
    double speed_stepsPerS(double elapsed_s) const;
    double duration_s() const;
    double end_steps() const { return m_end; }

private:
    struct Phase
    {
        double duration_s;
        double speed_stepsPerS; // at its start
        double acceleration_stepsPerS2;
    };

    double m_start;
    double m_end;
    std::vector<Phase> m_phases;
};
