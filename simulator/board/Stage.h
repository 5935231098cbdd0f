#pragma once

#include "simulator/board/MotionProfile.h"
#include "simulator/time/InstrumentTime.h"

/// What the Z stage can do. Positions in motor steps, 0 at the home switch.
struct StageParameters
{
    int minimum_steps = -1000;
    int maximum_steps = 64000;
    int start_steps = 12000;                  ///< where it stands at power-on
    double acceleration_stepsPerS2 = 40000.0; ///< accelerating and braking
    double maximumSpeed_stepsPerS = 16000.0;  ///< of moves and homing
    double runValueSpeed_stepsPerS = 16.0;    ///< continuous motion: speed per unit of the run value
    double backlash_steps = 0.0;              ///< play between motor and carriage
    double vibrationAmplitude_steps = 0.0;    ///< of the carriage, when a motion ends
    double vibrationFrequency_hz = 40.0;      ///< of that ringing
    double vibrationDecay_s = 0.05;           ///< time in which it falls to 1/e
};

/// The motion of the Z stage: a motor with acceleration limits, and a carriage behind it with
/// play and ringing. A pure model: every call takes the time, and times never go back from one
/// order to the next. One thread at a time.
class Stage
{
public:
    explicit Stage(const StageParameters& parameters = {});

    /// Whether a position lies inside the travel.
    bool reaches(long long position_steps) const;

    /// Orders a motion at time now and returns when it will be over. A motion under way is
    /// braked first. The target must lie inside the travel.
    InstrumentTime moveTo(int target_steps, InstrumentTime now);
    /// Goes to the home switch, which is position 0.
    InstrumentTime home(InstrumentTime now);
    /// Runs at the run value's speed (above 0) towards the end of the travel in the direction
    /// of the sign of direction, and stops there.
    InstrumentTime run(int direction, int runValue, InstrumentTime now);
    /// Brakes to rest, at a whole step.
    InstrumentTime stop(InstrumentTime now);
    /// The motor loses its current and stands still at once, at the nearest whole step.
    void halt(InstrumentTime now);

    /// Where the stage will rest if the motion under way is braked now (at rest: where it is).
    int restPosition_steps(InstrumentTime now) const;
    /// The motor's position, fractional while it moves, a whole number at rest.
    double position_steps(InstrumentTime time) const;
    /// The carriage's position: what the optics see.
    double carriagePosition_steps(InstrumentTime time) const;
    double speed_stepsPerS(InstrumentTime time) const;
    bool isMoving(InstrumentTime time) const { return time < m_end; }

private:
    InstrumentTime go(double target_steps, double speed_stepsPerS, InstrumentTime now);
    double carriageAfter(double carriage_steps, const MotionProfile& motion, double elapsed_s) const;
    double ringing_steps(InstrumentTime time) const;

    StageParameters m_parameters;
    // The motion under way: braking out of the one before, if it was moving, then the new one.
    MotionProfile m_braking;
    MotionProfile m_motion;
    InstrumentTime m_brakingStart{0};
    InstrumentTime m_motionStart{0};
    InstrumentTime m_end{0};
    double m_carriageAtStart_steps; // without ringing, when the braking began
    bool m_hasMoved = false;
};
