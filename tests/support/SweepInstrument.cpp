#include "support/SweepInstrument.h"

#include <algorithm>
#include <chrono>

#include <QDir>
#include <QSettings>
#include <QtTest>

#include "Algorithm/alg_Autofocus.h"
#include "Controller/Controller.h"
#include "camera/OV5642Camera.h"
#include "platform/InstrumentPath.h"
#include "settings/CalibrationFile.h"
#include "simulator/instrument/InstrumentTree.h"

namespace {

constexpr int kStart_steps = 12000;
constexpr int kLongestRun_ms = 120000;
constexpr std::chrono::seconds kLongestFrame(30);

InstrumentTime periodOf(int mode)
{
    // Rounded up: each step of the clock ends exactly one frame.
    return InstrumentTime(1000000 / kPictureModes[static_cast<std::size_t>(mode)].framesPerSecond + 1);
}

} // namespace

/// Knows when the program has done with a frame: it gives the buffer back.
class SweepInstrument::WatchedCalls : public SimulatedDeviceCalls
{
public:
    using SimulatedDeviceCalls::SimulatedDeviceCalls;

    int captureIoctl(int fd, unsigned long request, void* argument) override
    {
        const int result = SimulatedDeviceCalls::captureIoctl(fd, request, argument);
        if (result == 0 && (request & 0xFFFFFFFFUL) == VIDIOC_QBUF) {
            const std::lock_guard<std::mutex> lock(m_mutex);
            ++m_returned;
            m_changed.notify_all();
        }
        return result;
    }

    std::uint64_t returned() const
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_returned;
    }

    void awaitReturned(std::uint64_t count)
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_changed.wait_for(lock, kLongestFrame, [&] { return m_returned >= count; });
    }

private:
    mutable std::mutex m_mutex;
    std::condition_variable m_changed;
    std::uint64_t m_returned = 0;
};

std::vector<double> SweepResult::values() const
{
    std::vector<double> values;
    for (const AutoFocusingData_t& sample : samples)
        values.push_back(sample.focusValue);
    return values;
}

SweepInstrument::SweepInstrument()
{
    setInstrumentRoot(m_root.path());
    const bool good = InstrumentTree(m_root.path()).create() && QDir(m_root.path()).mkpath("mnt");
    std::copy(kCalibrationRegisters.begin(), kCalibrationRegisters.end(), g_RegIdx);
    for (const CalibrationFile& file : kCalibrationFiles)
        loadCalibration(file, g_RegIdx, *global_ini(), [](const QString&) {});
    m_board = std::make_unique<BoardPort>(m_root.path().toStdString(), BoardParameters(), BoardPace::Instant);
    Controller::getInstance()->openSerialPort();
    m_up = good && Controller::getInstance()->z_stage_pos() == kStart_steps;
}

SweepInstrument::~SweepInstrument()
{
    m_board.reset();
    setInstrumentRoot("/");
}

void SweepInstrument::prepareBoard(const SweepScene& scene)
{
    BoardParameters parameters;
    parameters.stage.start_steps = kStart_steps;
    parameters.stage.backlash_steps = scene.backlash_steps;
    m_board->withBoard([&](Board& board, InstrumentTime) { board = Board(parameters); });
    Controller::getInstance()->z_stage_pos();
    m_framePeriod = periodOf(scene.mode);
    m_framesPerMove = scene.frameDelay_frames + 1;
    m_oldestFrames = scene.oldestFrames;
    m_chance.seed(scene.optics.seed);
    m_board->setArrivalWatcher([this](InstrumentTime arrival) { photograph(arrival); });
}

// The frames are a frame time apart and as many as it takes for what they show to come out.
void SweepInstrument::photograph(InstrumentTime arrival)
{
    std::uniform_int_distribution<std::int64_t> age_us(0, m_framePeriod.count());
    const InstrumentTime age = m_oldestFrames ? m_framePeriod : InstrumentTime(age_us(m_chance));
    for (int later = m_framesPerMove - 1; later >= 0; --later) {
        const std::uint64_t returned = m_calls->returned();
        m_lookAt_us = (arrival - kDelivery - age - later * m_framePeriod).count();
        m_clock_us += m_framePeriod.count();
        m_calls->clockMoved();
        m_calls->awaitReturned(returned + 1);
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

LightPath SweepInstrument::lightPath() const
{
    const BoardLight light = m_board->light(InstrumentTime(m_lookAt_us));
    return {light.stagePosition_steps, light.ledOn, light.ledLevel};
}

SweepResult SweepInstrument::run(const SweepScene& scene, int centre_steps)
{
    SimulatedCameraParameters parameters;
    parameters.slide = scene.slide;
    parameters.optics = scene.optics;
    parameters.picture.frameDelay_frames = scene.frameDelay_frames;
    parameters.instantPauses = true;
    m_calls = std::make_unique<WatchedCalls>(
        parameters, [this](InstrumentTime) { return lightPath(); }, [this] { return frameClock(); });
    m_clockRuns = false;
    installDeviceCalls(m_calls.get());

    SweepResult result;
    result.trueFocus_steps = m_calls->bestFocus_steps();
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
            m_board->setArrivalWatcher({});
            result.carriage_steps = m_board->light().stagePosition_steps;
        }
        m_clockRuns = true;
        camera.close();
    }
    installDeviceCalls(nullptr);
    m_calls.reset();
    return result;
}
