// What is done with a frame, piece by piece, in each mode.

#include <cstdint>
#include <string>
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
constexpr const char* kModeNames[] = {"vga", "1280", "5m"};

} // namespace

int main(int argc, char** argv)
{
    const std::size_t rounds = isShort(argc, argv) ? 1 : 9;
    const QGuiApplication application(argc, argv);
    // All in the thread that is looked at.
    cv::setNumThreads(1);
    for (const Kind& kind : kKinds) {
        for (std::size_t mode = 0; mode < kCaptureModes.size(); ++mode) {
            const Work work = kind.make(kCaptureModes[mode]);
            // The first time is for the caches, and for what is made once.
            work();
            std::vector<double> costs_ms(rounds);
            for (double& cost_ms : costs_ms)
                cost_ms = timeOf_ms(threadTime_ms, work);
            tell(std::string(kind.name) + "_" + kModeNames[mode], median(costs_ms));
        }
    }
    return 0;
}
