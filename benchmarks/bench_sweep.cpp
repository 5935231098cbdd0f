// What a whole autofocus sweep takes on the simulated instrument in real time, against what
// the stage's own motions with their answers and fifteen samples take, at 1280 x 960 and
// 2592 x 1944.

#include <chrono>
#include <cstdlib>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <fcntl.h>
#include <poll.h>
#include <termios.h>
#include <unistd.h>

#include <QCoreApplication>
#include <QEventLoop>
#include <QLoggingCategory>
#include <QTimer>

#include "Algorithm/alg_Autofocus.h"
#include "Controller/Controller.h"
#include "benchmarks/Measure.h"
#include "camera/OV5642Camera.h"
#include "settings/CaptureModes.h"
#include "simulator/instrument/SimulatedInstrument.h"
#include "tests/support/Patience.h"

namespace {

constexpr int kSamples = 15;
constexpr int kInterval_steps = 640;
constexpr int kCentre_steps = 32000;
const int kAnswer_ms = patient_ms(10000);
const int kLongestRun_ms = patient_ms(60000);
const std::chrono::milliseconds kPatience(patient_ms(10000));

/// The board's line and nothing else: a command out, its answer in.
class BareLine
{
public:
    explicit BareLine(const std::string& device) : m_fd(::open(device.c_str(), O_RDWR | O_NOCTTY))
    {
        termios settings{};
        if (m_fd < 0 || ::tcgetattr(m_fd, &settings) != 0)
            giveUp("The board's line cannot be opened.");
        ::cfmakeraw(&settings);
        ::tcsetattr(m_fd, TCSANOW, &settings);
    }
    ~BareLine() { ::close(m_fd); }
    BareLine(const BareLine&) = delete;
    BareLine& operator=(const BareLine&) = delete;

    void ask(const std::string& command)
    {
        const std::string line = command + "\r\n";
        if (::write(m_fd, line.data(), line.size()) != static_cast<ssize_t>(line.size()))
            giveUp("The board's line cannot be written.");
        char last = 0;
        while (last != '\n') {
            pollfd source{m_fd, POLLIN, 0};
            if (::poll(&source, 1, kAnswer_ms) <= 0 || ::read(m_fd, &last, 1) != 1)
                giveUp("The board does not answer.");
        }
    }

    void move(int steps)
    {
        ask((steps < 0 ? "$,STM1,MVN," : "$,STM1,MVP,") + std::to_string(std::abs(steps)) + ",");
    }

private:
    const int m_fd;
};

/// The commands of a sweep around the centre, the stage standing there, that ends on a sample.
double bareSweep_ms(BareLine& line, int best)
{
    return timeOf_ms(
        wallTime_ms,
        [&] {
            line.ask("$,STM1,GET_POS,,");
            line.move(-kInterval_steps * (kSamples / 2));
            line.ask("$,STM1,GET_POS,,");
            for (int sample = 0; sample < kSamples; ++sample)
                line.move(kInterval_steps);
            line.ask("$,STM1,GET_POS,,");
            line.move(-kInterval_steps * (kSamples - 1 - best));
        });
}

struct Sweep
{
    double took_ms = 0.0;
    int best = -1;
    int end_steps = 0;
};

std::unique_ptr<alg_Autofocus> sequencerFor(OV5642Camera& camera)
{
    return std::make_unique<alg_Autofocus>(nullptr, &camera, kCentre_steps, static_cast<int>(camera.width()),
                                           static_cast<int>(camera.height()), false);
}

Sweep wholeSweep(OV5642Camera& camera)
{
    Controller::getInstance()->z_stage_abs(SERIAL_BLOCKING, kCentre_steps);
    const std::unique_ptr<alg_Autofocus> autofocus = sequencerFor(camera);
    Sweep sweep;
    QEventLoop loop;
    QObject::connect(autofocus.get(), &alg_Autofocus::sig_review_AutoFocusing,
                     [&](int, const std::vector<AutoFocusingData_t>&, int best) { sweep.best = best; });
    bool ended = false;
    QObject::connect(autofocus.get(), &alg_Autofocus::sig_endAutoFocusing, [&](int position_steps) {
        sweep.end_steps = position_steps;
        ended = true;
        loop.quit();
    });
    QTimer::singleShot(kLongestRun_ms, &loop, &QEventLoop::quit);
    sweep.took_ms = timeOf_ms(wallTime_ms, [&] {
        autofocus->process();
        loop.exec();
    });
    if (!ended)
        giveUp("The run did not end.");
    return sweep;
}

/// Fifteen samples as a run takes them, a new frame for each, the stage at rest.
double samples_ms(OV5642Camera& camera, SimulatedInstrument& instrument)
{
    const std::unique_ptr<alg_Autofocus> autofocus = sequencerFor(camera);
    double sum_ms = 0.0;
    for (int sample = 0; sample < kSamples; ++sample) {
        if (!instrument.camera().waitForFreshFrames(1, kPatience))
            giveUp("The camera delivers no frame.");
        sum_ms += timeOf_ms(wallTime_ms, [&] { autofocus->trigger_image_grab(); });
    }
    return sum_ms;
}

void measure(const std::string& name, int mode, int runs, SimulatedInstrument& instrument, BareLine& line)
{
    OV5642Camera camera;
    if (!camera.open(mode, "", false))
        giveUp("The camera does not open.");
    std::vector<double> ratios;
    std::vector<double> sweeps;
    std::vector<double> motions;
    std::vector<double> samples;
    for (int run = 0; run < runs; ++run) {
        const Sweep sweep = wholeSweep(camera);
        sweeps.push_back(sweep.took_ms);
        samples.push_back(samples_ms(camera, instrument));
        Controller::getInstance()->z_stage_abs(SERIAL_BLOCKING, kCentre_steps);
        motions.push_back(bareSweep_ms(line, sweep.best));
        ratios.push_back(sweep.took_ms / (motions.back() + samples.back()));
    }
    camera.close();
    tell(name, median(ratios),
         QString::asprintf("%.0f ms, motion and answers %.0f ms, samples %.0f ms", median(sweeps),
                           median(motions), median(samples)));
}

} // namespace

int main(int argc, char** argv)
{
    const bool shortRun = isShort(argc, argv);
    const QCoreApplication application(argc, argv);
    QLoggingCategory::setFilterRules("default.debug=false");
    SimulatedInstrument instrument(InstrumentParameters{});
    if (!instrument.error().isEmpty())
        giveUp(instrument.error().toStdString());
    // Before the controller, which has it to itself from then on.
    BareLine line(instrument.board().devicePath());
    Controller::getInstance()->openSerialPort();
    if (shortRun) {
        // Without its motions' time, which is most of it.
        instrument.setRealTimeMotion(false);
        instrument.answerMovesWithFreshFrames(true);
    }
    measure("sweep_1280", kMode1280, shortRun ? 1 : 2, instrument, line);
    measure("sweep_5m", kMode5M, shortRun ? 1 : 2, instrument, line);
    return 0;
}
