// The live view on the simulated instrument, in real time: how many frames come through,
// what one painted frame costs, and the same work as bare library calls in the same run.
//
//   bench_liveview [seconds per mode]
//
// Costs are processor time. What the simulated devices need for themselves is measured on
// the threads that call them, and taken off. Memory is compared between processes: an empty
// window beside a bare stream from the simulated camera, and the verifier's window on it.

#include <array>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include <fcntl.h>
#include <linux/videodev2.h>
#include <sys/mman.h>

#include <QApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QMainWindow>
#include <QPainter>
#include <QProcess>
#include <QPushButton>
#include <QScreen>
#include <QThread>
#include <QTimer>

extern "C" {
#include <libswscale/swscale.h>
}

#include "ORLA_II_Plus_Verifier.h"
#include "camera/YuvConversion.h"
#include "platform/DeviceCalls.h"
#include "settings/CaptureModes.h"
#include "simulator/instrument/SimulatedInstrument.h"

namespace {

constexpr int kModes = 3;
constexpr int kBuffers = 4;
constexpr int kBareRounds = 40;
constexpr int kSettle_ms = 2000;
constexpr int kViewWidth_px = 640;
constexpr int kViewHeight_px = 480;
constexpr const char* kModeButtons[kModes] = {"BUTTON_RESOLUTION_VGA", "BUTTON_RESOLUTION_1280",
                                              "BUTTON_RESOLUTION_5M"};
constexpr int kWantedRates_hz[kModes] = {30, 30, 15};
constexpr double kWantedRatio = 1.15;
constexpr double kWantedMemory_mb = 20.0;
constexpr double kWantedGuiShare = 0.5;
constexpr double kMb = 1024.0 * 1024.0;

/// Frame numbers are stamped into the picture as bits of 16 pixel pairs in this row, clear
/// of the navigator's lines.
constexpr int kStampRow = 70;
constexpr int kStampColumn = 200;
constexpr int kStampBits = 16;
constexpr int kBitWidth_px = 2;

std::atomic<std::uint64_t> g_conversions{0};

double clock_ms(clockid_t clock)
{
    timespec time{};
    clock_gettime(clock, &time);
    return static_cast<double>(time.tv_sec) * 1e3 + static_cast<double>(time.tv_nsec) / 1e6;
}

/// The simulated devices, with the processor time that they take, and with each delivered
/// frame's number in its picture when asked.
class MeasuredCalls : public DeviceCalls
{
public:
    explicit MeasuredCalls(DeviceCalls& calls) : m_calls(calls) {}

    double ownTime_ms() const { return static_cast<double>(m_ownTime_ns.load()) / 1e6; }
    std::uint64_t dequeued() const { return m_dequeued.load(); }
    void setStampedMode(const CaptureMode* mode) { m_stamped.store(mode); }

    int open(const char* path, int flags) override { return m_calls.open(path, flags); }
    int close(int fd) override { return m_calls.close(fd); }
    ssize_t read(int fd, void* buffer, std::size_t count) override { return m_calls.read(fd, buffer, count); }
    ssize_t write(int fd, const void* buffer, std::size_t count) override
    {
        return m_calls.write(fd, buffer, count);
    }
    int fcntl(int fd, int command, int argument) override { return m_calls.fcntl(fd, command, argument); }
    int ioctl(int fd, unsigned long request, unsigned long argument) override
    {
        return m_calls.ioctl(fd, request, argument);
    }
    int captureIoctl(int fd, unsigned long request, void* argument) override
    {
        const double start = clock_ms(CLOCK_THREAD_CPUTIME_ID);
        const int result = m_calls.captureIoctl(fd, request, argument);
        if (request == VIDIOC_DQBUF && result == 0)
            countFrame(*static_cast<v4l2_buffer*>(argument));
        addOwnTime(start);
        return result;
    }
    void* mmap(std::size_t length, int protection, int flags, int fd, off_t offset) override
    {
        void* memory = m_calls.mmap(length, protection, flags, fd, offset);
        if (m_mapped < m_memory.size())
            m_memory[m_mapped++] = static_cast<std::uint8_t*>(memory);
        return memory;
    }
    int munmap(void* address, std::size_t length) override
    {
        m_mapped = 0;
        return m_calls.munmap(address, length);
    }
    int waitReadable(int fd, int timeout_ms) override
    {
        const double start = clock_ms(CLOCK_THREAD_CPUTIME_ID);
        const int result = m_calls.waitReadable(fd, timeout_ms);
        addOwnTime(start);
        return result;
    }
    void pause(unsigned int duration_us) override { m_calls.pause(duration_us); }
    void syncFileSystems() override { m_calls.syncFileSystems(); }

private:
    void addOwnTime(double start_ms)
    {
        m_ownTime_ns += static_cast<std::uint64_t>((clock_ms(CLOCK_THREAD_CPUTIME_ID) - start_ms) * 1e6);
    }

    void countFrame(const v4l2_buffer& buffer)
    {
        const std::uint64_t number = ++m_dequeued;
        const CaptureMode* mode = m_stamped.load();
        if (mode == nullptr || buffer.index >= m_mapped)
            return;
        std::uint8_t* luma =
            m_memory[buffer.index] + (std::size_t(kStampRow) * mode->width_px + kStampColumn) * 2;
        for (int bit = 0; bit < kStampBits; ++bit)
            for (int pixel = 0; pixel < kBitWidth_px; ++pixel)
                luma[std::size_t(bit * kBitWidth_px + pixel) * 2] = ((number >> bit) & 1U) != 0 ? 235 : 16;
    }

    DeviceCalls& m_calls;
    std::atomic<std::uint64_t> m_ownTime_ns{0};
    std::atomic<std::uint64_t> m_dequeued{0};
    std::atomic<const CaptureMode*> m_stamped{nullptr};
    std::array<std::uint8_t*, kBuffers> m_memory{};
    std::size_t m_mapped = 0;
};

void wait(int duration_ms)
{
    QEventLoop loop;
    QTimer::singleShot(duration_ms, &loop, &QEventLoop::quit);
    loop.exec();
}

/// What was counted and measured over one span, per second and per painted frame.
struct Span
{
    double seconds;
    double delivered_hz;
    double converted_hz;
    double painted_hz;
    double gui_ms;
    double all_ms;
    double guiShare;
};

Span measureSpan(ORLA_II_Plus_Verifier& window, const MeasuredCalls& calls, int duration_ms)
{
    int painted = 0;
    const auto connection = QObject::connect(&window, &ORLA_II_Plus_Verifier::updateFrameDone, &window,
                                             [&painted] { ++painted; });
    QElapsedTimer clock;
    clock.start();
    const double gui = clock_ms(CLOCK_THREAD_CPUTIME_ID);
    const double all = clock_ms(CLOCK_PROCESS_CPUTIME_ID) - calls.ownTime_ms();
    const auto delivered = calls.dequeued();
    const auto converted = g_conversions.load();
    wait(duration_ms);
    const double seconds = static_cast<double>(clock.nsecsElapsed()) / 1e9;
    const double guiUsed = clock_ms(CLOCK_THREAD_CPUTIME_ID) - gui;
    const double allUsed = clock_ms(CLOCK_PROCESS_CPUTIME_ID) - calls.ownTime_ms() - all;
    QObject::disconnect(connection);
    return {seconds,
            static_cast<double>(calls.dequeued() - delivered) / seconds,
            static_cast<double>(g_conversions.load() - converted) / seconds,
            painted / seconds,
            guiUsed / painted,
            allUsed / painted,
            guiUsed / 1e3 / seconds};
}

int readStamp(QWidget& window)
{
    const QImage row = window.screen()
                           ->grabWindow(window.winId(), kStampColumn, kStampRow, kStampBits * kBitWidth_px, 1)
                           .toImage();
    int number = 0;
    for (int bit = 0; bit < kStampBits; ++bit)
        number |= (qGray(row.pixel(bit * kBitWidth_px, 0)) > 128 ? 1 : 0) << bit;
    return number;
}

/// Part of the delivered frames that were on the screen, by the numbers in their pictures:
/// each is read when the next one is painted.
double partSeen(ORLA_II_Plus_Verifier& window, MeasuredCalls& calls, const CaptureMode& mode, int duration_ms)
{
    auto* scaled = window.findChild<QAbstractButton*>("CHECK_SCALED_TO_FIT");
    scaled->setChecked(false);
    calls.setStampedMode(&mode);
    wait(kSettle_ms / 2);
    std::set<int> seen;
    const auto connection = QObject::connect(&window, &ORLA_II_Plus_Verifier::updateFrameDone, &window,
                                             [&] { seen.insert(readStamp(window)); });
    const auto first = calls.dequeued();
    wait(duration_ms);
    const auto delivered = calls.dequeued() - first;
    wait(kSettle_ms / 4);
    QObject::disconnect(connection);
    calls.setStampedMode(nullptr);
    scaled->setChecked(true);
    std::uint64_t found = 0;
    for (std::uint64_t number = first + 1; number <= first + delivered; ++number)
        found += seen.count(static_cast<int>(number & ((1U << kStampBits) - 1)));
    return static_cast<double>(found) / static_cast<double>(delivered);
}

/// The work on one frame as bare calls, step by step, in milliseconds of processor time.
struct BareCosts
{
    double copy = 0.0;
    double convert = 0.0;
    double copyRgb = 0.0;
    double picture = 0.0;
    double draw = 0.0;

    double sum() const { return copy + convert + copyRgb + picture + draw; }
};

/// The rounds come as far apart as the frames, so that caches are as cold as they are there.
BareCosts measureBareCalls(const CaptureMode& mode, double rate_hz)
{
    const auto yuyvBytes = std::size_t(mode.width_px) * mode.height_px * 2;
    const auto rgbBytes = mode.rgbBytes();
    std::vector<std::vector<std::uint8_t>> driver(kBuffers, std::vector<std::uint8_t>(yuyvBytes));
    std::uint32_t noise = 1;
    for (auto& buffer : driver)
        for (auto& byte : buffer)
            byte = static_cast<std::uint8_t>(128 + ((noise = noise * 1664525U + 1013904223U) >> 28));
    std::vector<std::vector<std::uint8_t>> copies(kBuffers, std::vector<std::uint8_t>(yuyvBytes));
    std::vector<std::uint8_t> converted(rgbBytes);
    std::vector<std::uint8_t> shown(rgbBytes);
    QPixmap picture;
    QImage screen(kViewWidth_px, kViewHeight_px, QImage::Format_RGB32);

    BareCosts sum;
    double last = 0.0;
    const auto lap = [&last](double& cost) {
        const double now = clock_ms(CLOCK_THREAD_CPUTIME_ID);
        cost += now - last;
        last = now;
    };
    for (int round = -2; round < kBareRounds; ++round) {
        if (round == 0)
            sum = {};
        const auto index = static_cast<std::size_t>((round + kBuffers) % kBuffers);
        QThread::usleep(static_cast<unsigned long>(1e6 / rate_hz));
        last = clock_ms(CLOCK_THREAD_CPUTIME_ID);
        std::memcpy(copies[index].data(), driver[index].data(), yuyvBytes);
        lap(sum.copy);
        sws_yuv2rgb24(static_cast<unsigned>(mode.width_px), mode.height_px, copies[index].data(),
                      converted.data());
        lap(sum.convert);
        std::memcpy(shown.data(), converted.data(), rgbBytes);
        lap(sum.copyRgb);
        picture = QPixmap::fromImage(
            QImage(shown.data(), mode.width_px, mode.height_px, mode.width_px * 3, QImage::Format_RGB888));
        lap(sum.picture);
        QPainter painter(&screen);
        painter.drawPixmap(QRect(0, 0, kViewWidth_px, kViewHeight_px), picture, picture.rect());
        painter.end();
        lap(sum.draw);
    }
    return {sum.copy / kBareRounds, sum.convert / kBareRounds, sum.copyRgb / kBareRounds,
            sum.picture / kBareRounds, sum.draw / kBareRounds};
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

const char* verdict(bool reached)
{
    return reached ? "reached" : "MISSED";
}

void reportMode(ORLA_II_Plus_Verifier& window, MeasuredCalls& calls, int index, int duration_ms)
{
    const CaptureMode& mode = kCaptureModes[static_cast<std::size_t>(index)];
    window.findChild<QAbstractButton*>(kModeButtons[index])->click();
    wait(kSettle_ms);
    const Span span = measureSpan(window, calls, duration_ms);
    const double part = partSeen(window, calls, mode, duration_ms);
    const BareCosts bare = measureBareCalls(mode, span.painted_hz);
    const double ratio = span.all_ms / bare.sum();
    std::printf("%d x %d\n", mode.width_px, mode.height_px);
    std::printf(
        "  frames/s   delivered %.1f  converted %.1f  painted %.1f  (wanted %d); on the screen %.1f %% "
        "of the delivered  %s\n",
        span.delivered_hz, span.converted_hz, span.painted_hz, kWantedRates_hz[index], part * 100.0,
        verdict(part > 0.99));
    std::printf("  ms/frame   GUI thread %.2f  all threads %.2f;  GUI thread busy %.0f %%  %s\n", span.gui_ms,
                span.all_ms, span.guiShare * 100.0, verdict(span.guiShare <= kWantedGuiShare));
    std::printf("  bare calls copy %.2f  convert %.2f  copy %.2f  picture %.2f  draw %.2f  = %.2f ms\n",
                bare.copy, bare.convert, bare.copyRgb, bare.picture, bare.draw, bare.sum());
    std::printf("  ratio      %.2f  (wanted at most %.2f)  %s\n", ratio, kWantedRatio,
                verdict(ratio <= kWantedRatio));
    std::fflush(stdout);
}

/// Streams 5-megapixel frames as a program with nothing but the driver's buffers would.
void streamBare(DeviceCalls& calls, int duration_ms)
{
    const int fd = calls.open("/dev/video0", O_RDWR);
    v4l2_format format{};
    format.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    format.fmt.pix.width = 2592;
    format.fmt.pix.height = 1944;
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
    for (buffer.index = 0; buffer.index < request.count; ++buffer.index) {
        calls.captureIoctl(fd, VIDIOC_QUERYBUF, &buffer);
        calls.mmap(buffer.length, PROT_READ | PROT_WRITE, MAP_SHARED, fd, buffer.m.offset);
        calls.captureIoctl(fd, VIDIOC_QBUF, &buffer);
    }
    int type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    calls.captureIoctl(fd, VIDIOC_STREAMON, &type);
    QElapsedTimer clock;
    clock.start();
    while (clock.elapsed() < duration_ms)
        if (calls.waitReadable(fd, 100) > 0 && calls.captureIoctl(fd, VIDIOC_DQBUF, &buffer) == 0)
            calls.captureIoctl(fd, VIDIOC_QBUF, &buffer);
}

/// The child processes' part: prints the resident memory of an empty window with a bare
/// stream, or of the verifier's window streaming 5-megapixel frames.
int printMemory(const std::string& what, SimulatedInstrument& instrument)
{
    if (what == "bare") {
        QMainWindow window;
        window.resize(800, 480);
        window.show();
        wait(kSettle_ms / 4);
        streamBare(instrument.camera(), kSettle_ms);
        std::printf("%.1f\n", residentMemory_mb());
        return 0;
    }
    ORLA_II_Plus_Verifier window;
    window.show();
    window.findChild<QAbstractButton*>(kModeButtons[0])->click();
    wait(kSettle_ms / 2);
    window.findChild<QAbstractButton*>(kModeButtons[2])->click();
    wait(kSettle_ms);
    std::printf("%.1f\n", residentMemory_mb());
    std::fflush(stdout);
    window.stopCamera();
    return 0;
}

double childMemory_mb(const QString& what)
{
    QProcess child;
    child.setProcessChannelMode(QProcess::SeparateChannels);
    child.start(QCoreApplication::applicationFilePath(), {"--memory", what});
    child.waitForFinished(-1);
    return QString::fromLatin1(child.readAllStandardOutput()).trimmed().toDouble();
}

void reportMemory()
{
    // The window's RGB buffers and pictures of all modes, and in 5M four copies of the
    // device's frames and the converted frame.
    double needed = 0.0;
    for (const CaptureMode& mode : kCaptureModes) {
        const double pixels = double(mode.width_px) * mode.height_px;
        needed += pixels * (3 + 4);
    }
    const double pixels5M = double(kCaptureModes[2].width_px) * kCaptureModes[2].height_px;
    needed = (needed + pixels5M * (2 * kBuffers + 3)) / kMb;
    const double bare = childMemory_mb("bare");
    const double verifier = childMemory_mb("verifier");
    const double beyond = verifier - bare - needed;
    std::printf(
        "resident memory in MB\n  empty window and bare stream %.1f, buffers %.1f, verifier %.1f; beyond "
        "that %.1f  (wanted at most %.0f)  %s\n",
        bare, needed, verifier, beyond, kWantedMemory_mb, verdict(beyond <= kWantedMemory_mb));
}

} // namespace

// The linker sends every conversion through here (-Wl,--wrap), by names of its own making.
// NOLINTBEGIN(bugprone-reserved-identifier)
extern "C" SwsContext* __real_sws_getContext(int, int, AVPixelFormat, int, int, AVPixelFormat, int,
                                             SwsFilter*, SwsFilter*, const double*);
extern "C" SwsContext* __wrap_sws_getContext(int sourceWidth, int sourceHeight, AVPixelFormat sourceFormat,
                                             int width, int height, AVPixelFormat format, int flags,
                                             SwsFilter* sourceFilter, SwsFilter* filter,
                                             const double* parameters)
{
    ++g_conversions;
    return __real_sws_getContext(sourceWidth, sourceHeight, sourceFormat, width, height, format, flags,
                                 sourceFilter, filter, parameters);
}
// NOLINTEND(bugprone-reserved-identifier)

int main(int argc, char* argv[])
{
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    qInstallMessageHandler([](QtMsgType, const QMessageLogContext&, const QString&) {});
    SimulatedInstrument instrument(InstrumentParameters{});
    if (!instrument.error().isEmpty()) {
        std::fprintf(stderr, "%s\n", qPrintable(instrument.error()));
        return 1;
    }
    QApplication application(argc, argv);
    if (argc == 3 && std::string(argv[1]) == "--memory")
        return printMemory(argv[2], instrument);

    const int duration_ms = (argc > 1 ? std::atoi(argv[1]) : 10) * 1000;
    MeasuredCalls calls(instrument.camera());
    DeviceCalls* before = installDeviceCalls(&calls);
    {
        ORLA_II_Plus_Verifier window;
        window.show();
        for (int mode = 0; mode < kModes; ++mode)
            reportMode(window, calls, mode, duration_ms);
        window.stopCamera();
    }
    installDeviceCalls(before);
    reportMemory();
    return 0;
}
