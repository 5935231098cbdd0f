// The live view on the simulated instrument, in real time: which of the delivered frames are
// painted and how long after the sensor they are on the screen, what a second of live view
// costs beside the same work as bare library calls, and what the hand-shake costs when no frame
// comes.
//
// Costs are processor time. What the simulated devices need for themselves is measured on the
// threads that call them, and taken off.

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include <linux/videodev2.h>

#include <QApplication>
#include <QCheckBox>
#include <QEventLoop>
#include <QLoggingCategory>
#include <QMouseEvent>
#include <QPainter>
#include <QPushButton>
#include <QScreen>
#include <QSpinBox>
#include <QThread>
#include <QTimer>

extern "C" {
#include <libswscale/swscale.h>
}

#include "ORLA_II_Plus_Verifier.h"
#include "benchmarks/DeviceCallsAround.h"
#include "benchmarks/Measure.h"
#include "camera/YuvConversion.h"
#include "settings/CaptureModes.h"
#include "simulator/instrument/SimulatedInstrument.h"
#include "support/ConversionCount.h"
#include "support/Patience.h"

namespace {

constexpr unsigned kBuffers = 4;
constexpr int kViewWidth_px = 640;
constexpr int kViewHeight_px = 480;
constexpr int kSettle_ms = 1000;
/// The longest that a machine as quick as the instrument takes for one frame.
constexpr int kFrame_ms = 1000;
constexpr int kFramesOfASpan = 4;
constexpr int kDragInterval_ms = 20;
constexpr int kDragWay_px = 60;
constexpr int kPercent = 100;
constexpr std::array<const char*, kCameraModeCount> kModeNames{"vga", "1280", "5m"};
constexpr std::array<double, kCameraModeCount> kSensorRates_hz{30.0, 30.0, 15.0};
constexpr std::array<const char*, kCameraModeCount> kModeButtons{
    "BUTTON_RESOLUTION_VGA", "BUTTON_RESOLUTION_1280", "BUTTON_RESOLUTION_5M"};

/// A frame's number stands in its picture as bits: bars of light and dark, of which one row of
/// the screen is read. Fitted into the view, a bar is as wide as at 1:1.
constexpr int kStampBits = 16;
constexpr unsigned kStampMask = (1U << kStampBits) - 1;
constexpr int kStampColumn_px = 200;
constexpr int kStampRow_px = 220;
constexpr int kBarWidth_px = 8;
constexpr int kBarHeight_px = 2 * kDragWay_px;
constexpr int kDark = 16;
constexpr int kLight = 235;

enum class View { Fit, OneToOne, Panning, Console };
constexpr std::array<const char*, 4> kViewNames{"fit", "1to1", "panning", "console"};

/// The simulated devices, with the processor time that they take, and with each frame's number
/// in its picture when asked.
class StampedFrames : public DeviceCallsAround
{
public:
    using DeviceCallsAround::DeviceCallsAround;

    double ownTime_ms() const { return static_cast<double>(m_ownTime_ns.load()) / 1e6; }
    std::uint64_t dequeued() const { return m_dequeued.load(); }
    /// Frames of that mode get stamps from now on, for that way of showing them; null: none do.
    void stamp(const CaptureMode* mode, View view)
    {
        m_view.store(view);
        m_stamped.store(mode);
    }
    /// When the sensor had the frame of that number complete, by the instrument's clock in ms.
    double completed_ms(std::uint64_t number)
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        const auto time = m_completed_ms.find(number);
        return time == m_completed_ms.end() ? -1.0 : time->second;
    }

    int captureIoctl(int fd, unsigned long request, void* argument) override
    {
        const double start = threadTime_ms();
        const int result = DeviceCallsAround::captureIoctl(fd, request, argument);
        if (request == VIDIOC_DQBUF && result == 0)
            countFrame(*static_cast<v4l2_buffer*>(argument));
        addOwnTime(start);
        return result;
    }
    void* mmap(std::size_t length, int protection, int flags, int fd, off_t offset) override
    {
        void* memory = DeviceCallsAround::mmap(length, protection, flags, fd, offset);
        if (m_mapped < m_memory.size())
            m_memory[m_mapped++] = static_cast<std::uint8_t*>(memory);
        return memory;
    }
    int munmap(void* address, std::size_t length) override
    {
        m_mapped = 0;
        return DeviceCallsAround::munmap(address, length);
    }
    int waitReadable(int fd, int timeout_ms) override
    {
        const double start = threadTime_ms();
        const int result = DeviceCallsAround::waitReadable(fd, timeout_ms);
        addOwnTime(start);
        return result;
    }

private:
    void addOwnTime(double start_ms)
    {
        m_ownTime_ns += static_cast<std::uint64_t>((threadTime_ms() - start_ms) * 1e6);
    }

    void countFrame(const v4l2_buffer& buffer)
    {
        const std::uint64_t number = ++m_dequeued;
        {
            const std::lock_guard<std::mutex> lock(m_mutex);
            m_completed_ms[number] = static_cast<double>(buffer.timestamp.tv_sec) * 1e3 +
                                     static_cast<double>(buffer.timestamp.tv_usec) / 1e3;
        }
        const CaptureMode* mode = m_stamped.load();
        if (mode != nullptr && buffer.index < m_mapped)
            drawStamp(m_memory[buffer.index], *mode, number);
    }

    void drawStamp(std::uint8_t* yuyv, const CaptureMode& mode, std::uint64_t number) const
    {
        const bool fitted = m_view.load() == View::Fit;
        const auto scaled = [&](int pixels, int frame, int view) {
            return fitted ? pixels * frame / view : pixels;
        };
        const auto column = [&](int bar) {
            return scaled(kStampColumn_px + bar * kBarWidth_px, mode.width_px, kViewWidth_px);
        };
        const int first = scaled(kStampRow_px - 2, mode.height_px, kViewHeight_px);
        const int last = scaled(kStampRow_px + (fitted ? 2 : kBarHeight_px), mode.height_px, kViewHeight_px);
        for (int row = first; row < last; ++row) {
            std::uint8_t* luma = yuyv + std::size_t(row) * std::size_t(mode.width_px) * kYuyvBytesPerPixel;
            for (int bar = 0; bar < kStampBits; ++bar)
                for (int x = column(bar); x < column(bar + 1); ++x)
                    luma[std::size_t(x) * kYuyvBytesPerPixel] =
                        static_cast<std::uint8_t>(((number >> bar) & 1U) != 0 ? kLight : kDark);
        }
    }

    std::atomic<std::uint64_t> m_ownTime_ns{0};
    std::atomic<std::uint64_t> m_dequeued{0};
    std::atomic<const CaptureMode*> m_stamped{nullptr};
    std::atomic<View> m_view{View::Fit};
    std::array<std::uint8_t*, kBuffers> m_memory{};
    std::size_t m_mapped = 0;
    std::mutex m_mutex;
    std::map<std::uint64_t, double> m_completed_ms;
};

using SteadyClock = std::chrono::steady_clock;
const SteadyClock::time_point g_powerOn = SteadyClock::now();

InstrumentTime instrumentTime()
{
    return std::chrono::duration_cast<InstrumentTime>(SteadyClock::now() - g_powerOn);
}

void wait(int duration_ms)
{
    QEventLoop loop;
    QTimer::singleShot(duration_ms, &loop, &QEventLoop::quit);
    loop.exec();
}

/// Waits for the next frame to be taken up, so that what is counted then has come just as far as
/// what was counted after another.
void waitForConversion()
{
    const int patience_ms = patient_ms(1000);
    const int before = conversionsSoFar();
    const double limit_ms = wallTime_ms() + patience_ms;
    while (conversionsSoFar() == before && wallTime_ms() < limit_ms)
        wait(1);
}

/// The number in the picture on the screen.
unsigned readStamp(QWidget& window)
{
    const QImage row =
        window.screen()
            ->grabWindow(window.winId(), kStampColumn_px, kStampRow_px, kStampBits * kBarWidth_px, 1)
            .toImage();
    unsigned number = 0;
    for (int bar = 0; bar < kStampBits; ++bar)
        number |= (qGray(row.pixel(bar * kBarWidth_px + kBarWidth_px / 2, 0)) > 128 ? 1U : 0U) << bar;
    return number;
}

/// A hand that drags the view down and up again for as long as this lives.
class Drag
{
public:
    explicit Drag(QWidget& window) : m_window(window)
    {
        send(QEvent::MouseButtonPress, m_y);
        QObject::connect(&m_timer, &QTimer::timeout, [this] {
            m_step = m_y <= kTop_px ? 4 : m_y >= kTop_px + kDragWay_px ? -4 : m_step;
            send(QEvent::MouseMove, m_y += m_step);
        });
        m_timer.start(kDragInterval_ms);
    }
    ~Drag() { send(QEvent::MouseButtonRelease, m_y); }
    Drag(const Drag&) = delete;
    Drag& operator=(const Drag&) = delete;

private:
    void send(QEvent::Type type, int y)
    {
        QMouseEvent event(type, QPointF(kColumn_px, y), Qt::LeftButton, Qt::LeftButton, Qt::NoModifier);
        QCoreApplication::sendEvent(&m_window, &event);
    }

    static constexpr int kColumn_px = 500;
    static constexpr int kTop_px = 300;

    QWidget& m_window;
    QTimer m_timer;
    int m_y = kTop_px + kDragWay_px;
    int m_step = -4;
};

/// The window and how it is looked at.
class Bench
{
public:
    Bench(SimulatedInstrument& instrument, bool shortRun)
        : m_instrument(instrument),
          m_short(shortRun),
          m_settle_ms(shortRun ? 400 : kSettle_ms),
          m_calls(instrument.camera())
    {
        m_before = installDeviceCalls(&m_calls);
        m_window = std::make_unique<ORLA_II_Plus_Verifier>();
        m_window->show();
    }
    ~Bench()
    {
        m_window->stopCamera();
        m_window.reset();
        installDeviceCalls(m_before);
    }
    Bench(const Bench&) = delete;
    Bench& operator=(const Bench&) = delete;

    void tellMode(int index);
    void tellGrowth();

private:
    /// What a span of live view came to, per second.
    struct Span
    {
        double delivered_hz;
        double converted_hz;
        double painted_hz;
        double all_ms;
        double gui_ms;
    };
    /// One way of showing the frames.
    struct Shown
    {
        double part;
        std::vector<double> delays_ms;
    };

    template <class Widget>
    Widget* find(const char* name)
    {
        return m_window->findChild<Widget*>(name);
    }
    Span measureSpan(int duration_ms, int frames);
    void waitUntilStill();
    void show(View view);
    Shown watch(const CaptureMode& mode, View view, int frames);
    void tellFrames(const std::string& name, const CaptureMode& mode, double rate_hz);
    void tellCost(const std::string& name, const CaptureMode& mode, int index);
    void tellIdleRounds(const std::string& name);

    SimulatedInstrument& m_instrument;
    const bool m_short;
    const int m_settle_ms;
    StampedFrames m_calls;
    DeviceCalls* m_before = nullptr;
    std::unique_ptr<ORLA_II_Plus_Verifier> m_window;
    // Of a delivered frame, all threads.
    std::array<double, kCameraModeCount> m_frameCosts_ms{};
};

/// At least so long, and until so many frames have been converted: with any, from one conversion to
/// another.
Bench::Span Bench::measureSpan(int duration_ms, int frames)
{
    int painted = 0;
    const auto connection = QObject::connect(m_window.get(), &ORLA_II_Plus_Verifier::updateFrameDone,
                                             m_window.get(), [&painted] { ++painted; });
    if (frames > 0)
        waitForConversion();
    const double start = wallTime_ms();
    const double gui = threadTime_ms();
    const double all = processTime_ms() - m_calls.ownTime_ms();
    const std::uint64_t delivered = m_calls.dequeued();
    const int converted = conversionsSoFar();
    wait(duration_ms);
    const double limit_ms = wallTime_ms() + patient_ms(kFrame_ms) * frames;
    while (conversionsSoFar() < converted + frames - 1 && wallTime_ms() < limit_ms)
        wait(1);
    if (frames > 0)
        waitForConversion();
    const double seconds = (wallTime_ms() - start) / 1e3;
    const double guiUsed = threadTime_ms() - gui;
    const double allUsed = processTime_ms() - m_calls.ownTime_ms() - all;
    QObject::disconnect(connection);
    return {static_cast<double>(m_calls.dequeued() - delivered) / seconds,
            (conversionsSoFar() - converted) / seconds, painted / seconds, allUsed / seconds,
            guiUsed / seconds};
}

/// Waits until what has come has been converted and painted.
void Bench::waitUntilStill()
{
    int before = 0;
    do {
        before = conversionsSoFar();
        wait(patient_ms(m_settle_ms / 2));
    } while (conversionsSoFar() != before);
}

void Bench::show(View view)
{
    auto* scaled = find<QCheckBox>("CHECK_SCALED_TO_FIT");
    if (scaled->isChecked() != (view == View::Fit))
        scaled->click();
    find<QSpinBox>("SPIN_DEBUG")->setValue(1);
    auto* console = find<QPushButton>("BUTTON_DEBUG");
    if (console->isChecked() != (view == View::Console))
        console->click();
}

/// Which of so many delivered frames were on the screen, and how long after they were complete
/// at the sensor. What lies below a console is not seen: there the frames are counted that went
/// into the picture, each by its one conversion.
Bench::Shown Bench::watch(const CaptureMode& mode, View view, int frames)
{
    show(view);
    m_calls.stamp(&mode, view);
    wait(m_settle_ms / 2);
    std::unique_ptr<Drag> drag;
    if (view == View::Panning)
        drag = std::make_unique<Drag>(*m_window);
    std::map<unsigned, double> seen_ms;
    // Queued: when it runs, the painting has gone on to the screen. What waits then goes with its
    // receiver; a disconnection would leave it to run when the map is gone.
    auto screen = std::make_unique<QObject>();
    QObject::connect(
        m_window.get(), &ORLA_II_Plus_Verifier::updateFrameDone, screen.get(),
        [&] { seen_ms.emplace(readStamp(*m_window), static_cast<double>(instrumentTime().count()) / 1e3); },
        Qt::QueuedConnection);
    wait(m_settle_ms / 4);
    waitForConversion();
    const std::uint64_t first = m_calls.dequeued();
    const int converted = conversionsSoFar();
    const auto delaysUpTo = [&](std::uint64_t last) {
        std::vector<double> delays_ms;
        for (std::uint64_t number = first + 1; number <= last; ++number) {
            const auto seen = seen_ms.find(static_cast<unsigned>(number & kStampMask));
            if (seen != seen_ms.end())
                delays_ms.push_back(seen->second - m_calls.completed_ms(number));
        }
        return delays_ms;
    };
    // A machine that is slow shows few of them: as many more as it takes for one.
    const auto isEnough = [&] {
        const std::uint64_t last = m_calls.dequeued();
        return last >= first + static_cast<unsigned>(frames) &&
               (view == View::Console || !delaysUpTo(last).empty());
    };
    const double limit_ms = wallTime_ms() + patient_ms(kFrame_ms) * frames;
    while (!isEnough() && wallTime_ms() < limit_ms)
        wait(10);
    waitForConversion();
    const std::uint64_t delivered = m_calls.dequeued() - first;
    const int shown = conversionsSoFar() - converted;
    wait(m_settle_ms / 2);
    screen.reset();
    m_calls.stamp(nullptr, view);
    if (delivered == 0)
        giveUp("The camera delivers no frame.");
    if (view == View::Console)
        return {std::min(1.0, static_cast<double>(shown) / static_cast<double>(delivered)), {}};
    std::vector<double> delays_ms = delaysUpTo(first + delivered);
    return {static_cast<double>(delays_ms.size()) / static_cast<double>(delivered), std::move(delays_ms)};
}

void Bench::tellFrames(const std::string& name, const CaptureMode& mode, double rate_hz)
{
    constexpr int kFrames = 1000;
    const int frames = m_short ? 8 : kFrames / 3 + 1;
    std::vector<double> delays_ms;
    for (const View view : {View::Fit, View::OneToOne, View::Panning, View::Console}) {
        const Shown shown = watch(mode, view, view == View::Console ? frames / 5 + 1 : frames);
        tell("painted_" + name + "_" + kViewNames[static_cast<std::size_t>(view)], shown.part);
        delays_ms.insert(delays_ms.end(), shown.delays_ms.begin(), shown.delays_ms.end());
    }
    show(View::Fit);
    if (delays_ms.empty())
        giveUp("No frame was seen on the screen.");
    const double frame_ms = 1e3 / rate_hz;
    const double worst_ms = *std::max_element(delays_ms.begin(), delays_ms.end());
    tell("delay_" + name, median(delays_ms) / frame_ms,
         QString::asprintf("%.1f ms, median of %zu frames", median(delays_ms), delays_ms.size()));
    tell("delay_worst_" + name, worst_ms / frame_ms, QString::asprintf("%.1f ms", worst_ms));
}

/// The work on one frame as bare calls, step by step, in milliseconds of processor time.
class BareCalls
{
public:
    explicit BareCalls(const CaptureMode& mode)
        : m_mode(mode),
          m_yuyvBytes(std::size_t(mode.width_px) * std::size_t(mode.height_px) * kYuyvBytesPerPixel),
          m_converted(mode.rgbBytes()),
          m_shown(mode.rgbBytes())
    {
        std::uint32_t noise = 1;
        for (std::vector<std::uint8_t>& buffer : m_driver) {
            buffer.resize(m_yuyvBytes);
            for (std::uint8_t& byte : buffer)
                byte = static_cast<std::uint8_t>(128 + ((noise = noise * 1664525U + 1013904223U) >> 28));
        }
        for (std::vector<std::uint8_t>& copy : m_copies)
            copy.resize(m_yuyvBytes);
    }

    /// Rounds as far apart as the frames are, so that caches are as cold as they are there.
    double frame_ms(int rounds, double rate_hz)
    {
        std::vector<double> sums;
        for (int round = -1; round < rounds; ++round) {
            QThread::usleep(static_cast<unsigned long>(1e6 / rate_hz));
            const double before = sum();
            runOnce();
            if (round < 0)
                m_steps = {};
            else
                sums.push_back(sum() - before);
        }
        m_rounds = rounds;
        return median(sums);
    }

    QString parts() const
    {
        return QString::asprintf("copy %.2f, conversion %.2f, copy %.2f, picture %.2f, draw %.2f ms",
                                 m_steps[0] / m_rounds, m_steps[1] / m_rounds, m_steps[2] / m_rounds,
                                 m_steps[3] / m_rounds, m_steps[4] / m_rounds);
    }

private:
    double sum() const
    {
        double all = 0.0;
        for (const double step : m_steps)
            all += step;
        return all;
    }

    void runOnce()
    {
        const std::size_t index = m_next++ % kBuffers;
        const std::array<Work, 5> steps{
            [&] { std::memcpy(m_copies[index].data(), m_driver[index].data(), m_yuyvBytes); },
            [&] {
                sws_yuv2rgb24(static_cast<unsigned>(m_mode.width_px), m_mode.height_px,
                              m_copies[index].data(), m_converted.data());
            },
            [&] { std::memcpy(m_shown.data(), m_converted.data(), m_shown.size()); },
            [&] {
                m_picture =
                    QPixmap::fromImage(QImage(m_shown.data(), m_mode.width_px, m_mode.height_px,
                                              m_mode.width_px * kRgbBytesPerPixel, QImage::Format_RGB888));
            },
            [&] {
                QPainter painter(&m_screen);
                painter.drawPixmap(m_screen.rect(), m_picture, m_picture.rect());
            }};
        for (std::size_t i = 0; i < steps.size(); ++i)
            m_steps[i] += timeOf_ms(threadTime_ms, steps[i]);
    }

    const CaptureMode& m_mode;
    const std::size_t m_yuyvBytes;
    std::array<std::vector<std::uint8_t>, kBuffers> m_driver;
    std::array<std::vector<std::uint8_t>, kBuffers> m_copies;
    std::vector<std::uint8_t> m_converted;
    std::vector<std::uint8_t> m_shown;
    QPixmap m_picture;
    QImage m_screen{kViewWidth_px, kViewHeight_px, QImage::Format_RGB32};
    std::array<double, 5> m_steps{};
    std::size_t m_next = 0;
    int m_rounds = 1;
};

void Bench::tellCost(const std::string& name, const CaptureMode& mode, int index)
{
    const int pairs = m_short ? 1 : 5;
    const int span_ms = m_short ? 500 : 1500;
    const int rounds = m_short ? 2 : 15;
    BareCalls bareCalls(mode);
    std::vector<double> ratios;
    std::vector<double> spans_ms;
    std::vector<double> bares_ms;
    std::vector<double> costs_ms;
    std::vector<double> gui;
    double painted_hz = 0.0;
    for (int pair = 0; pair < pairs; ++pair) {
        const Span span = measureSpan(span_ms, kFramesOfASpan);
        // An emulated processor does not come up with the camera.
        const double frames_hz = std::min(span.delivered_hz, span.converted_hz);
        const double bare_ms = bareCalls.frame_ms(rounds, frames_hz);
        spans_ms.push_back(span.all_ms);
        bares_ms.push_back(bare_ms * frames_hz);
        ratios.push_back(spans_ms.back() / bares_ms.back());
        costs_ms.push_back(span.all_ms / frames_hz);
        gui.push_back(span.gui_ms / 1e3);
        painted_hz = span.painted_hz;
        wait(m_settle_ms / 4);
    }
    m_frameCosts_ms[static_cast<std::size_t>(index)] = median(costs_ms);
    tell("cost_" + name, median(ratios),
         QString::asprintf("%.0f ms a second, bare calls %.0f ms: %s; %.0f repaints a second",
                           median(spans_ms), median(bares_ms), qPrintable(bareCalls.parts()), painted_hz));
    if (index == kMode5M)
        tell("gui_5m", median(gui));
}

/// The hand-shake goes on when no frame comes.
void Bench::tellIdleRounds(const std::string& name)
{
    m_instrument.camera().faults().enable("stall");
    double dearest = 0.0;
    QString parts;
    for (const View view : {View::Fit, View::OneToOne}) {
        show(view);
        waitUntilStill();
        const Span span = measureSpan(m_short ? 300 : 1000, 0);
        dearest = std::max(dearest, span.all_ms / 1e3 * kPercent);
        parts += QString::asprintf("%s%s %.2f ms each, %.0f a second", parts.isEmpty() ? "" : "; ",
                                   view == View::Fit ? "fitted" : "1:1", span.all_ms / span.painted_hz,
                                   span.painted_hz);
    }
    show(View::Fit);
    m_instrument.camera().faults().clear();
    tell("idle_" + name, dearest, parts);
}

void Bench::tellMode(int index)
{
    const CaptureMode& mode = kCaptureModes[static_cast<std::size_t>(index)];
    const std::string name = kModeNames[static_cast<std::size_t>(index)];
    find<QPushButton>(kModeButtons[static_cast<std::size_t>(index)])->click();
    wait(m_settle_ms);
    tellCost(name, mode, index);
    tellFrames(name, mode, kSensorRates_hz[static_cast<std::size_t>(index)]);
    tellIdleRounds(name);
}

/// From mode to mode there are four times the pixels, and somewhat more.
void Bench::tellGrowth()
{
    double growth = 0.0;
    for (std::size_t i = 1; i < m_frameCosts_ms.size(); ++i) {
        const double pixels = static_cast<double>(kCaptureModes[i].rgbBytes()) /
                              static_cast<double>(kCaptureModes[i - 1].rgbBytes());
        growth = std::max(growth, m_frameCosts_ms[i] / m_frameCosts_ms[i - 1] / pixels);
    }
    tell("cost_growth", growth,
         QString::asprintf("%.2f, %.2f, %.2f ms for a delivered frame", m_frameCosts_ms[0],
                           m_frameCosts_ms[1], m_frameCosts_ms[2]));
}

} // namespace

int main(int argc, char* argv[])
{
    const bool shortRun = isShort(argc, argv);
    QLoggingCategory::setFilterRules("default.debug=false");
    InstrumentAssembly assembly;
    assembly.frameClock = instrumentTime;
    SimulatedInstrument instrument(InstrumentParameters{}, {}, {}, assembly);
    if (!instrument.error().isEmpty())
        giveUp(instrument.error().toStdString());
    instrument.setRealTimeMotion(false);
    const QApplication application(argc, argv);
    Bench bench(instrument, shortRun);
    for (int mode = 0; mode < kCameraModeCount; ++mode)
        bench.tellMode(mode);
    bench.tellGrowth();
    return 0;
}
