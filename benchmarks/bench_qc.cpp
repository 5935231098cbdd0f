// The point search against the bare library calls, and the repaint of a drag.
//
//   QT_QPA_PLATFORM=offscreen bench_qc --benchmark_repetitions=5
//   --benchmark_enable_random_interleaving=true
//
// The search, marking and signals included, is to take at most 1.15 times the bare calls
// of the same run; a repaint during a drag less than 10 ms, of the widget alone and, with
// all that a move sets going, of the real window over a frozen frame.

#include <cstdint>
#include <memory>
#include <vector>

#include <QApplication>
#include <QImage>
#include <QMouseEvent>

#include <benchmark/benchmark.h>
#include <opencv2/imgproc.hpp>

#include "QC/QC_measure.h"
#include "tests/support/QcOperator.h"

// The library's loop has a variable that nobody reads.
// NOLINTBEGIN(clang-analyzer-deadcode.DeadStores)
namespace {

constexpr int kWidth_px = 2592;
constexpr int kHeight_px = 1944;
constexpr QSize kView(640, 480);
constexpr QPoint kDot(320, 240);

/// A bright frame with a dark dot of radius 10.
std::vector<unsigned char> calibrationFrame()
{
    std::vector<unsigned char> bytes(std::size_t(kWidth_px) * kHeight_px * 3);
    cv::Mat image(kHeight_px, kWidth_px, CV_8UC3, bytes.data());
    cv::randu(image, cv::Scalar::all(150), cv::Scalar::all(230));
    cv::circle(image, {kDot.x(), kDot.y()}, 10, cv::Scalar::all(20), cv::FILLED);
    return bytes;
}

std::unique_ptr<QC_measure> widgetWithFrame()
{
    std::vector<unsigned char> frame = calibrationFrame();
    auto widget = std::make_unique<QC_measure>();
    widget->resize(kView);
    widget->setImageData(frame.data());
    return widget;
}

void sendMouse(QWidget& widget, QEvent::Type type, QPoint position)
{
    QMouseEvent event(type, position, Qt::LeftButton, Qt::LeftButton, Qt::NoModifier);
    QCoreApplication::sendEvent(&widget, &event);
}

void bareLibraryCalls(benchmark::State& state)
{
    std::vector<unsigned char> frame = calibrationFrame();
    const cv::Mat image(kHeight_px, kWidth_px, CV_8UC3, frame.data());
    std::vector<cv::Mat> channels;
    cv::Mat filtered;
    std::vector<std::vector<cv::Point>> contours;
    cv::Point2f centre;
    float radius = 0;
    for (auto _ : state) {
        cv::split(image, channels);
        cv::threshold(channels[1], channels[1], 50, 255, cv::THRESH_BINARY_INV);
        cv::medianBlur(channels[1], channels[1], 3);
        cv::bilateralFilter(channels[1], filtered, 5, 95, 95, cv::BORDER_DEFAULT);
        const cv::Mat window = filtered(cv::Rect(kDot.x() - 20, kDot.y() - 20, 40, 40));
        cv::findContours(window, contours, cv::RETR_EXTERNAL, cv::CHAIN_APPROX_SIMPLE);
        cv::minEnclosingCircle(contours.at(0), centre, radius);
        benchmark::DoNotOptimize(centre);
    }
}
BENCHMARK(bareLibraryCalls)->Unit(benchmark::kMillisecond)->UseRealTime();

void pointSearch(benchmark::State& state)
{
    const std::unique_ptr<QC_measure> widget = widgetWithFrame();
    int found = 0;
    QObject::connect(widget.get(), &QC_measure::sig_measure_point, [&found] { ++found; });
    widget->setTargetingMode(true);
    sendMouse(*widget, QEvent::MouseButtonPress, kDot);
    for (auto _ : state)
        widget->setPoint(0);
    if (found != int(state.iterations()))
        state.SkipWithError("the dot was not found");
}
BENCHMARK(pointSearch)->Unit(benchmark::kMillisecond)->UseRealTime();

/// One mouse move and the repaint that it asks for, at a zoom of range(0) / 2.
void dragRepaint(benchmark::State& state)
{
    const std::unique_ptr<QC_measure> widget = widgetWithFrame();
    widget->setScale(double(state.range(0)) / 2);
    QImage screen(kView, QImage::Format_RGB32);
    sendMouse(*widget, QEvent::MouseButtonPress, {320, 240});
    int x = 0;
    for (auto _ : state) {
        x = (x + 7) % 1000;
        sendMouse(*widget, QEvent::MouseMove, {-x, -x});
        widget->render(&screen);
    }
}
BENCHMARK(dragRepaint)->Arg(2)->Arg(3)->Arg(4)->Unit(benchmark::kMillisecond);

/// Counts the repaints of a widget.
class PaintCounter : public QObject
{
public:
    explicit PaintCounter(QObject& widget) { widget.installEventFilter(this); }
    std::int64_t paints = 0;

protected:
    bool eventFilter(QObject*, QEvent* event) override
    {
        paints += event->type() == QEvent::Paint ? 1 : 0;
        return false;
    }
};

/// One mouse move over the frozen frame of the real window, and all that is painted for it.
void dragInTheWindow(benchmark::State& state)
{
    WindowFixture::Options options;
    options.camera.slide.kind = SlideKind::Target;
    options.withBoard = false;
    WindowFixture fixture(options);
    fixture.click("BUTTON_RESOLUTION_5M");
    QcOperator qc(fixture);
    if (!fixture.waitForFrames() || !qc.freeze()) {
        state.SkipWithError("no frame was frozen");
        return;
    }
    const PaintCounter counter(qc.widget());
    sendMouse(qc.widget(), QEvent::MouseButtonPress, {320, 240});
    int x = 0;
    for (auto _ : state) {
        x = (x + 7) % 1000;
        sendMouse(qc.widget(), QEvent::MouseMove, {-x, -x});
        QCoreApplication::sendPostedEvents(&fixture.window(), QEvent::UpdateRequest);
    }
    if (counter.paints < std::int64_t(state.iterations()))
        state.SkipWithError("not every move was painted");
}
BENCHMARK(dragInTheWindow)->Unit(benchmark::kMillisecond);

} // namespace
// NOLINTEND(clang-analyzer-deadcode.DeadStores)

int main(int argc, char** argv)
{
    const QApplication application(argc, argv);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
