#include "support/SweepInstrument.h"

#include <algorithm>
#include <chrono>

#include <QtTest>

#include "Algorithm/alg_Autofocus.h"
#include "Controller/Controller.h"
#include "camera/OV5642Camera.h"
#include "settings/CalibrationFile.h"
#include "support/Patience.h"

namespace {

constexpr int kStart_steps = 12000;
const int kLongestRun_ms = patient_ms(120000);
const std::chrono::milliseconds kLongestFrame(patient_ms(30000));

InstrumentTime periodOf(int mode)
{
    // Rounded up: each step of the clock ends exactly one frame.
    return InstrumentTime(1000000 / kPictureModes[static_cast<std::size_t>(mode)].framesPerSecond + 1);
}

InstrumentParameters instantInstrument()
{
    InstrumentParameters parameters;
    parameters.instant = true;
    return parameters;
}

} // namespace

std::vector<double> SweepResult::values() const
{
    std::vector<double> values;
    for (const AutoFocusingData_t& sample : samples)
        values.push_back(sample.focusValue);
    return values;
}

SweepInstrument::SweepInstrument() : m_instrument(instantInstrument(), {}, {}, assembly())
{
    if (!m_instrument.error().isEmpty())
        return;
    std::copy(kCalibrationRegisters.begin(), kCalibrationRegisters.end(), g_RegIdx);
    for (const CalibrationFile& file : kCalibrationFiles)
        loadCalibration(file, g_RegIdx, *global_ini(), [](const QString&) {});
    Controller::getInstance()->openSerialPort();
    m_up = Controller::getInstance()->z_stage_pos() == kStart_steps;
}

InstrumentAssembly SweepInstrument::assembly()
{
    InstrumentAssembly assembly;
    assembly.lightPath = [this](InstrumentTime) { return lightPath(); };
    assembly.frameClock = [this] { return frameClock(); };
    return assembly;
}

void SweepInstrument::prepareBoard(const SweepScene& scene)
{
    BoardParameters parameters;
    parameters.stage.start_steps = kStart_steps;
    parameters.stage.backlash_steps = scene.backlash_steps;
    BoardPort& board = m_instrument.board();
    board.withBoard([&](Board& served, InstrumentTime) { served = Board(parameters); });
    Controller::getInstance()->z_stage_pos();
    m_framePeriod = periodOf(scene.mode);
    m_framesPerMove = scene.frameDelay_frames + 1;
    m_oldestFrames = scene.oldestFrames;
    m_chance.seed(scene.optics.seed);
    board.setArrivalWatcher([this](InstrumentTime arrival) { photograph(arrival); });
}

// The frames are a frame time apart and as many as it takes for what they show to come out.
void SweepInstrument::photograph(InstrumentTime arrival)
{
    std::uniform_int_distribution<std::int64_t> age_us(0, m_framePeriod.count());
    const InstrumentTime age = m_oldestFrames ? m_framePeriod : InstrumentTime(age_us(m_chance));
    SimulatedDeviceCalls& camera = m_instrument.camera();
    for (int later = m_framesPerMove - 1; later >= 0; --later) {
        const std::uint64_t returned = camera.counters().framesReturned;
        m_lookAt_us = (arrival - kDelivery - age - later * m_framePeriod).count();
        m_clock_us += m_framePeriod.count();
        camera.clockMoved();
        camera.waitForReturnedFrames(returned + 1, kLongestFrame);
    }
}

InstrumentTime SweepInstrument::frameClock() const
{
    static const auto start = std::chrono::steady_clock::now();
    const InstrumentTime held(m_clock_us);
    if (!m_clockRuns)
        return held;
    return held + std::chrono::duration_cast<InstrumentTime>(std::chrono::steady_clock::now() - start);
}

LightPath SweepInstrument::lightPath()
{
    const BoardLight light = m_instrument.board().light(InstrumentTime(m_lookAt_us));
    return {light.stagePosition_steps, light.ledOn, light.ledLevel};
}

SweepResult SweepInstrument::run(const SweepScene& scene, int centre_steps)
{
    SimulatedCameraParameters parameters;
    parameters.slide = scene.slide;
    parameters.optics = scene.optics;
    parameters.picture.frameDelay_frames = scene.frameDelay_frames;
    m_instrument.changeCamera(parameters);
    m_clockRuns = false;

    SweepResult result;
    result.trueFocus_steps = m_instrument.bestFocus_steps();
    {
        OV5642Camera camera;
        if (camera.open(scene.mode, kBfnCalibrationFile, false)) {
            prepareBoard(scene);
            const auto width_px = static_cast<int>(camera.width());
            const auto height_px = static_cast<int>(camera.height());
            alg_Autofocus autofocus(nullptr, &camera, centre_steps, width_px, height_px, scene.saveImages);
            bool ended = false;
            QObject::connect(&autofocus, &alg_Autofocus::sig_endAutoFocusing, [&ended] { ended = true; });
            QObject::connect(&autofocus, &alg_Autofocus::sig_review_AutoFocusing,
                             [&](int, const std::vector<AutoFocusingData_t>& samples, int best) {
                                 result.samples = samples;
                                 result.bestIndex = best;
                             });
            autofocus.process();
            const auto isFinished = [&] {
                const bool stands = Controller::getInstance()->m_zStagePosition == autofocus.resultZ();
                return ended || (autofocus.state() == focus_sweep::State::MovingToResult && stands);
            };
            result.finished = QTest::qWaitFor(isFinished, kLongestRun_ms);
            result.chosen_steps = autofocus.resultZ();
            m_instrument.board().setArrivalWatcher({});
            result.carriage_steps = m_instrument.light().stagePosition_steps;
        }
        m_clockRuns = true;
        camera.close();
    }
    return result;
}
