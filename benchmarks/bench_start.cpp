// From the start of the process to the first painted frame, against an empty Qt window and the
// pauses that sensor and driver are left; and resident memory, against an empty window with
// a bare stream and the program's own frame buffers.
//
// Each start is a process of its own, this program with the name of what it is to be. Neither what
// the simulated instrument takes to be built nor the libraries that it needs are part of a start: to
// be loaded takes as long as until the shipped program has told its version, which is all but its
// first step.

#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include <fcntl.h>
#include <linux/videodev2.h>
#include <sys/mman.h>

#include <QApplication>
#include <QEventLoop>
#include <QFile>
#include <QLoggingCategory>
#include <QMainWindow>
#include <QProcess>
#include <QPushButton>
#include <QThread>
#include <QTimer>

#include "ORLA_II_Plus_Verifier.h"
#include "ProgramStart.h"
#include "benchmarks/DeviceCallsAround.h"
#include "benchmarks/Measure.h"
#include "settings/CaptureModes.h"
#include "simulator/instrument/SimulatedInstrument.h"

namespace {

constexpr unsigned kBuffers = 4;
constexpr int kSettle_ms = 2000;
constexpr double kBytesPerMb = 1024.0 * 1024.0;
constexpr int kPictureBytesPerPixel = 4;

/// Adds up the pauses of the thread that made it.
class CountedPauses : public DeviceCallsAround
{
public:
    using DeviceCallsAround::DeviceCallsAround;

    void pause(unsigned int duration_us) override
    {
        const double start = wallTime_ms();
        DeviceCallsAround::pause(duration_us);
        if (QThread::currentThread() == m_thread)
            m_paused_ms += wallTime_ms() - start;
    }
    double paused_ms() const { return m_paused_ms; }

private:
    QThread* const m_thread = QThread::currentThread();
    double m_paused_ms = 0.0;
};

void wait(int duration_ms)
{
    QEventLoop loop;
    QTimer::singleShot(duration_ms, &loop, &QEventLoop::quit);
    loop.exec();
}

double residentMemory_mb()
{
    QFile status("/proc/self/status");
    status.open(QIODevice::ReadOnly);
    const QList<QByteArray> lines = status.readAll().split('\n');
    for (const QByteArray& line : lines)
        if (line.startsWith("VmRSS:"))
            return line.mid(6).simplified().split(' ').first().toDouble() / 1024.0;
    return 0.0;
}

/// Looks into every page, as whoever uses a frame does: only then the memory is the process's.
void readPages(const std::uint8_t* frame, std::size_t size)
{
    constexpr std::size_t kPage_bytes = 4096;
    volatile std::uint8_t used = 0;
    for (std::size_t i = 0; i < size; i += kPage_bytes)
        used = frame[i];
    static_cast<void>(used);
}

/// Streams 5-megapixel frames as a program with nothing but the driver's buffers would.
void streamBare(DeviceCalls& calls, int duration_ms)
{
    const int fd = calls.open("/dev/video0", O_RDWR);
    v4l2_format format{};
    format.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    format.fmt.pix.width = static_cast<unsigned>(kCaptureModes[kMode5M].width_px);
    format.fmt.pix.height = static_cast<unsigned>(kCaptureModes[kMode5M].height_px);
    format.fmt.pix.pixelformat = V4L2_PIX_FMT_YUYV;
    calls.captureIoctl(fd, VIDIOC_S_FMT, &format);
    v4l2_requestbuffers request{};
    request.count = kBuffers;
    request.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    request.memory = V4L2_MEMORY_MMAP;
    calls.captureIoctl(fd, VIDIOC_REQBUFS, &request);
    v4l2_buffer buffer{};
    buffer.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    buffer.memory = V4L2_MEMORY_MMAP;
    std::vector<const std::uint8_t*> frames(request.count);
    for (buffer.index = 0; buffer.index < request.count; ++buffer.index) {
        calls.captureIoctl(fd, VIDIOC_QUERYBUF, &buffer);
        frames.at(buffer.index) = static_cast<const std::uint8_t*>(
            calls.mmap(buffer.length, PROT_READ | PROT_WRITE, MAP_SHARED, fd, buffer.m.offset));
        calls.captureIoctl(fd, VIDIOC_QBUF, &buffer);
    }
    int type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    calls.captureIoctl(fd, VIDIOC_STREAMON, &type);
    const double end_ms = wallTime_ms() + duration_ms;
    while (wallTime_ms() < end_ms)
        if (calls.waitReadable(fd, 100) > 0 && calls.captureIoctl(fd, VIDIOC_DQBUF, &buffer) == 0) {
            readPages(frames.at(buffer.index), buffer.bytesused);
            calls.captureIoctl(fd, VIDIOC_QBUF, &buffer);
        }
}

/// Resident memory with an empty window beside a bare stream from the simulated camera.
void beBare(SimulatedInstrument& instrument)
{
    QMainWindow window;
    window.setFixedSize(800, 480);
    window.show();
    wait(kSettle_ms / 4);
    streamBare(instrument.camera(), kSettle_ms);
    std::printf("%.3f\n", residentMemory_mb());
}

/// Resident memory of the verifier's window in the largest mode, after the others.
void beStreaming()
{
    ORLA_II_Plus_Verifier window;
    window.show();
    for (const char* button : {"BUTTON_RESOLUTION_VGA", "BUTTON_RESOLUTION_5M"}) {
        window.findChild<QPushButton*>(button)->click();
        wait(kSettle_ms);
    }
    std::printf("%.3f\n", residentMemory_mb());
    std::fflush(stdout);
    window.stopCamera();
}

/// The time of the first painted frame, how long building the instrument and the pauses took, and
/// the time at which the program proper began.
void beStarted(SimulatedInstrument& instrument, double main_ms, double built_ms)
{
    CountedPauses calls(instrument.camera());
    DeviceCalls* before = installDeviceCalls(&calls);
    {
        ORLA_II_Plus_Verifier window;
        QObject::connect(&window, &ORLA_II_Plus_Verifier::updateFrameDone, &window, [&] {
            std::printf("%.3f %.3f %.3f %.3f\n", wallTime_ms(), built_ms, calls.paused_ms(), main_ms);
            std::fflush(stdout);
            QObject::disconnect(&window, &ORLA_II_Plus_Verifier::updateFrameDone, nullptr, nullptr);
            QCoreApplication::quit();
        });
        window.show();
        QCoreApplication::exec();
        window.stopCamera();
    }
    installDeviceCalls(before);
}

int be(const std::string& what, int argc, char** argv)
{
    const double start_ms = wallTime_ms();
    const bool timed = what == "--started";
    InstrumentParameters parameters;
    const auto instrument = std::make_unique<SimulatedInstrument>(parameters);
    if (!instrument->error().isEmpty())
        giveUp(instrument->error().toStdString());
    if (timed)
        instrument->setRealTimeMotion(false);
    const double built_ms = wallTime_ms() - start_ms;
    const std::unique_ptr<QApplication> application = startApplication("bench_start", argc, argv);
    if (!application)
        return kProgramFailed;
    if (timed)
        beStarted(*instrument, start_ms, built_ms);
    else if (what == "--bare")
        beBare(*instrument);
    else
        beStreaming();
    return 0;
}

double loadingOfTheProgram_ms()
{
    const QString program = QCoreApplication::applicationDirPath() + "/../verifier/orla-verifier";
    const double start_ms = wallTime_ms();
    QProcess child;
    child.start(program, {"--version"});
    child.waitForReadyRead(-1);
    const double took_ms = wallTime_ms() - start_ms;
    child.waitForFinished(-1);
    if (child.exitStatus() != QProcess::NormalExit || child.exitCode() != 0)
        giveUp((program + " failed: " + child.readAllStandardError()).toStdString());
    return took_ms;
}

/// Runs a program to its end; the numbers of its first line.
std::vector<double> run(const QString& program, const QStringList& arguments, double& start_ms)
{
    QProcess child;
    start_ms = wallTime_ms();
    child.start(program, arguments);
    child.waitForFinished(-1);
    std::vector<double> numbers;
    const QList<QByteArray> words = child.readAllStandardOutput().split('\n').first().split(' ');
    for (const QByteArray& word : words)
        numbers.push_back(word.toDouble());
    if (child.exitStatus() != QProcess::NormalExit || child.exitCode() != 0 || numbers.front() <= 0.0)
        giveUp((program + " failed: " + child.readAllStandardError()).toStdString());
    return numbers;
}

void tellStart(int pairs)
{
    const QString own = QCoreApplication::applicationFilePath();
    const QString empty = QCoreApplication::applicationDirPath() + "/empty_window";
    std::vector<double> ratios;
    std::vector<double> starts;
    std::vector<double> empties;
    std::vector<double> pauses;
    std::vector<double> loadings;
    // The first pair brings the files into memory.
    for (int pair = -1; pair < pairs; ++pair) {
        double start_ms = 0.0;
        const std::vector<double> verifier = run(own, {"--started"}, start_ms);
        const double loading_ms = loadingOfTheProgram_ms();
        const double took_ms = loading_ms + verifier.at(0) - verifier.at(3) - verifier.at(1);
        const double emptyTook_ms = run(empty, {}, start_ms).at(0);
        if (pair < 0)
            continue;
        starts.push_back(took_ms);
        pauses.push_back(verifier.at(2));
        loadings.push_back(loading_ms);
        empties.push_back(emptyTook_ms - start_ms);
        ratios.push_back(took_ms / (empties.back() + pauses.back()));
    }
    tell("start", median(ratios),
         QString::asprintf(
             "%.0f ms, of which %.0f ms load the libraries; empty window %.0f ms, pauses %.0f ms",
             median(starts), median(loadings), median(empties), median(pauses)));
}

/// Of every mode the buffer and the picture, in 5M four copies of the device's frames and one
/// converted frame.
double buffers_mb()
{
    double bytes = 0.0;
    for (const CaptureMode& mode : kCaptureModes)
        bytes += double(mode.width_px) * mode.height_px * (kRgbBytesPerPixel + kPictureBytesPerPixel);
    const CaptureMode& largest = kCaptureModes[kMode5M];
    bytes +=
        double(largest.width_px) * largest.height_px * (kYuyvBytesPerPixel * kBuffers + kRgbBytesPerPixel);
    return bytes / kBytesPerMb;
}

void tellMemory(int pairs)
{
    const QString own = QCoreApplication::applicationFilePath();
    std::vector<double> ratios;
    std::vector<double> bares;
    std::vector<double> verifiers;
    for (int pair = 0; pair < pairs; ++pair) {
        double start_ms = 0.0;
        bares.push_back(run(own, {"--bare"}, start_ms).at(0));
        verifiers.push_back(run(own, {"--streaming"}, start_ms).at(0));
        ratios.push_back(verifiers.back() / (bares.back() + buffers_mb()));
    }
    tell("memory", median(ratios),
         QString::asprintf("%.1f MB, empty window and bare stream %.1f MB, buffers %.1f MB",
                           median(verifiers), median(bares), buffers_mb()));
}

} // namespace

int main(int argc, char** argv)
{
    QLoggingCategory::setFilterRules("default.debug=false");
    for (const char* what : {"--bare", "--streaming", "--started"})
        if (argc == 2 && std::string(argv[1]) == what)
            return be(what, argc, argv);
    const bool shortRun = isShort(argc, argv);
    const QCoreApplication application(argc, argv);
    tellStart(shortRun ? 1 : 9);
    tellMemory(1);
    return 0;
}
