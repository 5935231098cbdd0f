// Does one piece of a frame's work some times, and nothing else: frame_work WORK MODE TIMES.
// benchmarks/instructions.py counts what another time costs.

#include <cstdint>
#include <cstring>
#include <functional>
#include <vector>

#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include <QGuiApplication>
#include <QImage>
#include <QPixmap>

#include "Algorithm/FocusMeasures.h"
#include "QC/TargetSearch.h"
#include "benchmarks/Measure.h"
#include "camera/YuvConversion.h"
#include "settings/CaptureModes.h"

namespace {

constexpr QPoint kDot(320, 240);
constexpr int kBitsPerPixel = kRgbBytesPerPixel * 8;

// What is computed must be used, or the compiler leaves it out.
volatile double g_used = 0.0;

cv::Mat randomFrame(const CaptureMode& mode, int type)
{
    cv::Mat frame(mode.height_px, mode.width_px, type);
    cv::RNG(1).fill(frame, cv::RNG::UNIFORM, 150, 230);
    return frame;
}

/// From the driver's bytes to the window's.
Work conversion(const CaptureMode& mode)
{
    return [yuyv = randomFrame(mode, CV_8UC2), rgb = cv::Mat(mode.height_px, mode.width_px, CV_8UC3)] {
        sws_yuv2rgb24(static_cast<unsigned>(yuyv.cols), static_cast<unsigned>(yuyv.rows), yuyv.data,
                      rgb.data);
        g_used = rgb.data[0];
    };
}

/// What the window makes of them, to paint from.
Work picture(const CaptureMode& mode)
{
    return [rgb = randomFrame(mode, CV_8UC3)] {
        const QImage frame(rgb.data, rgb.cols, rgb.rows, static_cast<int>(rgb.step), QImage::Format_RGB888);
        g_used = QPixmap::fromImage(frame).width();
    };
}

Work planes(const CaptureMode& mode)
{
    return [rgb = randomFrame(mode, CV_8UC3)] {
        std::vector<cv::Mat> planes;
        cv::split(rgb, planes);
        g_used = planes[focus_measures::kGreenPlane].data[0];
    };
}

Work brenner(const CaptureMode& mode)
{
    return [plane = randomFrame(mode, CV_8UC1)] { g_used = focus_measures::brennerGradient(plane); };
}

Work search(const CaptureMode& mode)
{
    cv::Mat rgb = randomFrame(mode, CV_8UC3);
    cv::circle(rgb, {kDot.x(), kDot.y()}, 10, cv::Scalar::all(20), cv::FILLED);
    return [rgb, search = TargetSearch()]() mutable {
        const FrameView view{rgb.data, {rgb.cols, rgb.rows}, kBitsPerPixel};
        if (search.find(view, kDot).outcome != TargetSearch::Outcome::Found)
            giveUp("The dot was not found.");
    };
}

struct Kind
{
    const char* name;
    Work (*make)(const CaptureMode&);
};

constexpr Kind kKinds[] = {
    {"conversion", conversion}, {"picture", picture}, {"planes", planes},
    {"brenner", brenner},       {"search", search},
};

} // namespace

int main(int argc, char** argv)
{
    const QGuiApplication application(argc, argv);
    // One thread counts like any other number of them.
    cv::setNumThreads(1);
    const QStringList arguments = QCoreApplication::arguments();
    const unsigned mode = arguments.value(2).toUInt();
    const int times = arguments.value(3).toInt();
    for (const Kind& kind : kKinds) {
        if (arguments.value(1) != kind.name || mode >= kCaptureModes.size() || times < 1)
            continue;
        const Work work = kind.make(kCaptureModes[mode]);
        for (int i = 0; i < times; ++i)
            work();
        return 0;
    }
    giveUp("This wants a kind of work, a mode and how many times.");
}
