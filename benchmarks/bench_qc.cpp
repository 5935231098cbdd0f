// The point search, marking and signals included, against the bare library calls, and the
// repaint of a drag over the frozen frame: of the widget alone and, with all that a move sets
// going, of the real window.

#include <array>
#include <cstdint>
#include <memory>
#include <vector>

#include <QApplication>
#include <QImage>
#include <QLoggingCategory>
#include <QMouseEvent>

#include <opencv2/imgproc.hpp>

#include "QC/QC_measure.h"
#include "QC/TargetSearch.h"
#include "benchmarks/Measure.h"
#include "settings/CaptureModes.h"
#include "tests/support/QcOperator.h"

namespace {

constexpr const CaptureMode& kFrame = kCaptureModes[kMode5M];
constexpr QSize kView(640, 480);
constexpr QPoint kDot(320, 240);
constexpr int kBitsPerPixel = kRgbBytesPerPixel * 8;
constexpr int kStep_px = 7;
constexpr int kWay_px = 1000;

/// A bright frame with a dark dot of radius 10.
std::vector<unsigned char> calibrationFrame(int rows)
{
    std::vector<unsigned char> bytes(std::size_t(kFrame.width_px) * std::size_t(rows) * kRgbBytesPerPixel);
    cv::Mat image(rows, kFrame.width_px, CV_8UC3, bytes.data());
    cv::randu(image, cv::Scalar::all(150), cv::Scalar::all(230));
    cv::circle(image, {kDot.x(), kDot.y()}, 10, cv::Scalar::all(20), cv::FILLED);
    return bytes;
}

std::unique_ptr<QC_measure> widgetWithFrame(std::vector<unsigned char>& frame)
{
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

/// The filters over the whole frame and the dot in its window.
class LibraryCalls
{
public:
    explicit LibraryCalls(std::vector<unsigned char>& frame)
        : m_image(kFrame.height_px, kFrame.width_px, CV_8UC3, frame.data())
    {
    }

    void run()
    {
        cv::split(m_image, m_channels);
        cv::threshold(m_channels[1], m_channels[1], 50, 255, cv::THRESH_BINARY_INV);
        cv::medianBlur(m_channels[1], m_channels[1], 3);
        cv::bilateralFilter(m_channels[1], m_filtered, 5, 95, 95, cv::BORDER_DEFAULT);
        const cv::Mat window = m_filtered(cv::Rect(kDot.x() - 20, kDot.y() - 20, 40, 40));
        cv::findContours(window, m_contours, cv::RETR_EXTERNAL, cv::CHAIN_APPROX_SIMPLE);
        cv::Point2f centre;
        float radius = 0;
        cv::minEnclosingCircle(m_contours.at(0), centre, radius);
    }

private:
    const cv::Mat m_image;
    std::vector<cv::Mat> m_channels;
    cv::Mat m_filtered;
    std::vector<std::vector<cv::Point>> m_contours;
};

void tellSearch(bool shortRun)
{
    std::vector<unsigned char> frame = calibrationFrame(kFrame.height_px);
    const std::unique_ptr<QC_measure> widget = widgetWithFrame(frame);
    int found = 0;
    QObject::connect(widget.get(), &QC_measure::sig_measure_point, [&found] { ++found; });
    widget->setTargetingMode(true);
    sendMouse(*widget, QEvent::MouseButtonPress, kDot);
    LibraryCalls library(frame);
    int searches = 0;
    // The library uses threads of its own.
    const PairedTimes times = measurePairs(
        processTime_ms, shortRun ? 1 : 15,
        [&] {
            widget->setPoint(0);
            ++searches;
        },
        [&] { library.run(); });
    if (found != searches)
        giveUp("The dot was not found.");
    tell("search", times.ratio,
         QString::asprintf("%.1f ms, library calls %.1f ms", times.first_ms, times.second_ms));
}

void tellSearchGrowth(bool shortRun)
{
    TargetSearch search;
    constexpr int kRows[] = {kFrame.height_px / 2, kFrame.height_px, kFrame.height_px * 2};
    std::array<std::vector<unsigned char>, 3> frames;
    std::array<Work, 3> works;
    for (std::size_t i = 0; i < frames.size(); ++i) {
        frames[i] = calibrationFrame(kRows[i]);
        const FrameView view{frames[i].data(), {kFrame.width_px, kRows[i]}, kBitsPerPixel};
        works[i] = [&search, view] {
            if (search.find(view, kDot).outcome != TargetSearch::Outcome::Found)
                giveUp("The dot was not found.");
        };
    }
    // The planes that are kept from search to search are taken anew for another size.
    tell("search_growth", growthOf(processTime_ms, shortRun ? 1 : 9, works));
}

/// Moves to and fro, each with the repaint that it asks for.
template <class Paint>
double drag_ms(QWidget& widget, int moves, Paint paint)
{
    sendMouse(widget, QEvent::MouseButtonPress, {kView.width() / 2, kView.height() / 2});
    std::vector<double> times;
    for (int move = 1; move <= moves; ++move) {
        const int place = -(move * kStep_px % kWay_px);
        times.push_back(timeOf_ms(threadTime_ms, [&] {
            sendMouse(widget, QEvent::MouseMove, {place, place});
            paint();
        }));
    }
    return median(times);
}

void tellDrag(bool shortRun)
{
    const int moves = shortRun ? 5 : 200;
    std::vector<unsigned char> frame = calibrationFrame(kFrame.height_px);
    const std::unique_ptr<QC_measure> widget = widgetWithFrame(frame);
    widget->setScale(1.5);
    QImage screen(kView, QImage::Format_RGB32);
    tell("drag_zoomed", drag_ms(*widget, moves, [&] { widget->render(&screen); }));
}

/// Counts the repaints of a widget.
class PaintCounter : public QObject
{
public:
    explicit PaintCounter(QObject& widget) { widget.installEventFilter(this); }
    int paints = 0;

protected:
    bool eventFilter(QObject*, QEvent* event) override
    {
        paints += event->type() == QEvent::Paint ? 1 : 0;
        return false;
    }
};

/// One mouse move over the frozen frame of the real window, and all that is painted for it.
void tellDragInTheWindow(bool shortRun)
{
    const int moves = shortRun ? 5 : 200;
    WindowFixture::Options options;
    options.camera.slide.kind = SlideKind::Target;
    options.withBoard = false;
    WindowFixture fixture(options);
    fixture.click("BUTTON_RESOLUTION_5M");
    QcOperator qc(fixture);
    if (!fixture.waitForFrames() || !qc.freeze())
        giveUp("No frame was frozen.");
    const PaintCounter counter(qc.widget());
    tell("drag_window", drag_ms(qc.widget(), moves, [&] {
             QCoreApplication::sendPostedEvents(&fixture.window(), QEvent::UpdateRequest);
         }));
    if (counter.paints < moves)
        giveUp("Not every move was painted.");
}

} // namespace

int main(int argc, char** argv)
{
    const bool shortRun = isShort(argc, argv);
    const QApplication application(argc, argv);
    QLoggingCategory::setFilterRules("default.debug=false");
    tellSearch(shortRun);
    tellSearchGrowth(shortRun);
    tellDrag(shortRun);
    tellDragInTheWindow(shortRun);
    return 0;
}
