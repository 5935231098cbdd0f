// What a whole autofocus sweep takes on the simulated instrument in real time, against what
// the stage's own motions with their answers and fifteen samples take, at 1280 x 960 and
// 2592 x 1944. Prints the ratios and fails when one misses its goal.
//
//   QT_QPA_PLATFORM=offscreen bench_sweep

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <memory>
#include <string>

#include <fcntl.h>
#include <poll.h>
#include <termios.h>
#include <unistd.h>

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QLoggingCategory>
#include <QTimer>

#include "Algorithm/alg_Autofocus.h"
#include "Controller/Controller.h"
#include "camera/OV5642Camera.h"
#include "simulator/instrument/SimulatedInstrument.h"

namespace {

constexpr int kSamples = 15;
constexpr int kInterval_steps = 640;
constexpr int kCentre_steps = 32000;
constexpr int kRuns = 3;
constexpr int kModes[] = {1, 2};
constexpr const char* kModeNames[] = {"640 x 480", "1280 x 960", "2592 x 1944"};
constexpr double kGoal = 1.1;
constexpr int kAnswer_ms = 10000;
constexpr int kLongestRun_ms = 60000;
constexpr double kMsPerNs = 1e-6;

double elapsed_ms(const std::function<void()>& work)
{
    QElapsedTimer timer;
    timer.start();
    work();
    return static_cast<double>(timer.nsecsElapsed()) * kMsPerNs;
}

[[noreturn]] void giveUp(const char* text)
{
    std::fprintf(stderr, "%s\n", text);
    std::exit(1);
}

/// The board's line and nothing else: a command out, its answer in.
class BareLine
{
public:
    explicit BareLine(const std::string& device) : m_fd(::open(device.c_str(), O_RDWR | O_NOCTTY))
    {
        termios settings{};
        if (m_fd < 0 || ::tcgetattr(m_fd, &settings) != 0)
            giveUp("the board's line cannot be opened");
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
            giveUp("the board's line cannot be written");
        char last = 0;
        while (last != '\n') {
            pollfd source{m_fd, POLLIN, 0};
            if (::poll(&source, 1, kAnswer_ms) <= 0 || ::read(m_fd, &last, 1) != 1)
                giveUp("the board does not answer");
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
    return elapsed_ms([&] {
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
    sweep.took_ms = elapsed_ms([&] {
        autofocus->process();
        loop.exec();
    });
    if (!ended)
        giveUp("the run did not end");
    return sweep;
}

/// Fifteen samples as a run takes them, the stage at rest.
double samples_ms(OV5642Camera& camera)
{
    const std::unique_ptr<alg_Autofocus> autofocus = sequencerFor(camera);
    return elapsed_ms([&] {
        for (int sample = 0; sample < kSamples; ++sample)
            autofocus->trigger_image_grab();
    });
}

bool measure(int mode, const std::string& device, double focus_steps)
{
    OV5642Camera camera;
    if (!camera.open(mode, "", false))
        giveUp("no camera");
    double bestRatio = 0.0;
    for (int run = 0; run < kRuns; ++run) {
        const Sweep sweep = wholeSweep(camera);
        const double samples = samples_ms(camera);
        Controller::getInstance()->z_stage_abs(SERIAL_BLOCKING, kCentre_steps);
        double bare = 0.0;
        {
            BareLine line(device);
            bare = bareSweep_ms(line, sweep.best);
        }
        const double ratio = sweep.took_ms / (bare + samples);
        bestRatio = run == 0 ? ratio : std::min(bestRatio, ratio);
        std::printf("%-12s  sweep %6.0f ms   motion and answers %6.0f ms   %d samples %5.0f ms   "
                    "ratio %.3f   ends at %d, focus at %.0f\n",
                    kModeNames[mode], sweep.took_ms, bare, kSamples, samples, ratio, sweep.end_steps,
                    focus_steps);
    }
    camera.close();
    const bool reached = bestRatio <= kGoal;
    std::printf("%-12s  best ratio %.3f   goal: at most %.1f   %s\n", kModeNames[mode], bestRatio, kGoal,
                reached ? "reached" : "MISSED");
    return reached;
}

} // namespace

int main(int argc, char** argv)
{
    const QCoreApplication application(argc, argv);
    QLoggingCategory::setFilterRules("default.debug=false");
    SimulatedInstrument instrument(InstrumentParameters{});
    if (!instrument.error().isEmpty())
        giveUp(qPrintable(instrument.error()));
    Controller::getInstance()->openSerialPort();
    bool good = true;
    for (const int mode : kModes)
        good = measure(mode, instrument.board().devicePath(), instrument.bestFocus_steps()) && good;
    return good ? 0 : 1;
}
