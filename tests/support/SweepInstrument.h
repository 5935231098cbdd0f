#pragma once

#include <atomic>
#include <cstdint>
#include <random>
#include <vector>

#include "Algorithm/AutoFocusingData.h"
#include "simulator/instrument/SimulatedInstrument.h"

/// What a sweep finds: the slide, the eye that looks at it, the stage under it.
struct SweepScene
{
    /// Resolution index.
    int mode = 1;
    SlideParameters slide;
    OpticsParameters optics;
    double backlash_steps = 0.0;
    int frameDelay_frames = 0;
    /// Every frame as old as it can be, instead of at random between that and just taken.
    bool oldestFrames = false;
    bool saveImages = false;
};

/// What came of it. Positions in motor steps.
struct SweepResult
{
    /// Whether the run reported its end, or moved nowhere at the end because it stood there.
    bool finished = false;
    int chosen_steps = 0;
    std::vector<AutoFocusingData_t> samples;
    int bestIndex = -1;
    double trueFocus_steps = 0.0;
    /// Where the carriage came to rest.
    double carriage_steps = 0.0;

    std::vector<double> values() const;
};

/// Autofocus runs with the real sequencer, camera object, capture thread and serial line on
/// the simulated instrument, in a fraction of their time: a stage motion is skipped, and the
/// frames that its last moments would have given are taken before the board answers.
///
/// The picture that the sequencer then gets is the one it would have got in real time: that
/// of the newest frame that had ended kDelivery before the stage came to rest. As the frame
/// clock and the stage know nothing of each other, that frame is up to one frame time older
/// still, by a seeded chance; a frame delay adds its own.
///
/// One per process, on the GUI thread: the controller is one.
class SweepInstrument
{
public:
    /// From the end of a frame to its being the newest that the program knows: the capture
    /// thread looks every 10 ms and copies up to 10 MB.
    static constexpr InstrumentTime kDelivery{20000};

    SweepInstrument();

    /// Whether the board answered.
    bool isUp() const { return m_up; }
    /// Runs an autofocus around a centre position. The scene's seeds decide everything.
    SweepResult run(const SweepScene& scene, int centre_steps);
    /// Machine path of a fixed path.
    QString machinePath(const QString& fixedPath) const { return m_instrument.root() + fixedPath; }

private:
    InstrumentAssembly assembly();
    void prepareBoard(const SweepScene& scene);
    void photograph(InstrumentTime arrival);
    InstrumentTime frameClock() const;
    LightPath lightPath();

    bool m_up = false;
    // Of the scene under way; the board's thread reads it during a run only.
    InstrumentTime m_framePeriod{0};
    int m_framesPerMove = 1;
    bool m_oldestFrames = false;
    std::mt19937 m_chance;
    // The frame clock and the moment that the frames show; written by the board's thread.
    std::atomic<std::int64_t> m_clock_us{0};
    std::atomic<std::int64_t> m_lookAt_us{0};
    // Whether the frame clock goes by itself, so that the capture thread comes to an end.
    std::atomic<bool> m_clockRuns{false};
    SimulatedInstrument m_instrument; ///< whose threads ask for the above
};
