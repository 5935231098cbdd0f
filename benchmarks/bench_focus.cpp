// What a focus score costs on a 2592 x 1944 frame, against merely reading the plane and against
// the usual expression of the same sum in matrix calls; and a whole sample against the library
// calls that it is made of.

#include <chrono>
#include <cstdint>
#include <memory>
#include <vector>

#include <opencv2/core.hpp>

#include <QCoreApplication>
#include <QLoggingCategory>

#include "Algorithm/FocusMeasures.h"
#include "Algorithm/alg_Autofocus.h"
#include "benchmarks/Measure.h"
#include "camera/OV5642Camera.h"
#include "camera/YuvConversion.h"
#include "settings/CaptureModes.h"
#include "simulator/camera/CameraDevices.h"
#include "simulator/camera/ScriptedFrames.h"

namespace {

constexpr const CaptureMode& kFrame = kCaptureModes[kMode5M];
constexpr int kContrast = 60;
constexpr int kTimesInAPair = 8;
constexpr std::chrono::seconds kPatience(10);

// What is computed must be used, or the compiler leaves it out.
volatile double g_used = 0.0;

cv::Mat planeOf(int rows)
{
    cv::Mat random(rows, kFrame.width_px, CV_8UC1);
    cv::RNG(1).fill(random, cv::RNG::UNIFORM, 0, 256);
    return random;
}

/// Every byte once, as the compiler vectorises it.
void readPlane(const cv::Mat& plane)
{
    std::uint32_t sum = 0;
    for (int y = 0; y < plane.rows; ++y) {
        const std::uint8_t* row = plane.ptr(y);
        for (int x = 0; x < plane.cols; ++x)
            sum += row[x];
    }
    g_used = sum;
}

void scorePlane(const cv::Mat& plane)
{
    g_used = focus_measures::brennerGradient(plane);
}

/// Difference, square, sum in floating point, as it is usually written.
void scoreByMatrixCalls(const cv::Mat& plane)
{
    cv::Mat difference;
    cv::subtract(plane.colRange(2, plane.cols), plane.colRange(0, plane.cols - 2), difference, cv::noArray(),
                 CV_32F);
    cv::Mat square;
    cv::multiply(difference, difference, square);
    g_used = cv::sum(square)[0];
}

Work repeated(void (*work)(const cv::Mat&), const cv::Mat& plane, int times)
{
    return [=, &plane] {
        for (int i = 0; i < times; ++i)
            work(plane);
    };
}

void tellScores(bool shortRun)
{
    const int pairs = shortRun ? 1 : 25;
    const cv::Mat plane = planeOf(kFrame.height_px);
    const cv::Mat half = planeOf(kFrame.height_px / 2);
    const cv::Mat twice = planeOf(kFrame.height_px * 2);
    const Work score = repeated(scorePlane, plane, kTimesInAPair);
    const PairedTimes read =
        measurePairs(threadTime_ms, pairs, score, repeated(readPlane, plane, kTimesInAPair));
    tell("brenner_read", read.ratio,
         QString::asprintf("%.2f ms, read %.2f ms", read.first_ms / kTimesInAPair,
                           read.second_ms / kTimesInAPair));
    const PairedTimes matrix = measurePairs(threadTime_ms, pairs, repeated(scorePlane, plane, 1),
                                            [&] { scoreByMatrixCalls(plane); });
    tell("brenner_matrix", matrix.ratio,
         QString::asprintf("%.2f ms, matrix calls %.1f ms", matrix.first_ms, matrix.second_ms));
    tell("brenner_growth", growthOf(threadTime_ms, pairs,
                                    {repeated(scorePlane, half, kTimesInAPair), score,
                                     repeated(scorePlane, twice, kTimesInAPair)}));
}

/// Conversion and split, nothing else: not even the score.
class LibraryCalls
{
public:
    explicit LibraryCalls(const CaptureMode& mode)
        : m_yuyv(mode.height_px, mode.width_px, CV_8UC2, cv::Scalar(100, 128)),
          m_rgb(mode.height_px, mode.width_px, CV_8UC3)
    {
    }

    void run()
    {
        sws_yuv2rgb24(static_cast<unsigned>(m_yuyv.cols), m_yuyv.rows, m_yuyv.data, m_rgb.data);
        std::vector<cv::Mat> planes;
        cv::split(m_rgb, planes);
        g_used = planes[1].at<std::uint8_t>(0, 0);
    }

private:
    cv::Mat m_yuyv;
    cv::Mat m_rgb;
};

struct SampleTimes
{
    std::vector<double> ratios;
    std::vector<double> samples_ms;
    std::vector<double> calls_ms;
};

/// Adds samples of a camera in that mode, a new frame for each, beside the library calls.
void addSamples(int mode, int pairs, SampleTimes& times)
{
    ScriptedFrames frames;
    frames.showStripes(kContrast);
    CameraDevices devices({}, frames);
    devices.faults().enable({CameraFault::NoBus});
    installDeviceCalls(&devices);
    {
        OV5642Camera camera;
        if (!camera.open(mode, "", false))
            giveUp("The camera does not open.");
        const CaptureMode& size = kCaptureModes[static_cast<std::size_t>(mode)];
        alg_Autofocus autofocus(nullptr, &camera, 0, size.width_px, size.height_px, false);
        LibraryCalls library(size);
        // The first pair is for the caches.
        for (int pair = -1; pair < pairs; ++pair) {
            if (!devices.waitForFreshFrames(1, kPatience))
                giveUp("The camera delivers no frame.");
            const double sample = timeOf_ms(
                threadTime_ms, [&] { autofocus.trigger_image_grab(); });
            const double bare = timeOf_ms(threadTime_ms, [&] { library.run(); });
            if (pair < 0)
                continue;
            times.ratios.push_back(sample / bare);
            times.samples_ms.push_back(sample);
            times.calls_ms.push_back(bare);
        }
        if (autofocus.samples().empty() || autofocus.samples().back().focusValue <= 0.0)
            giveUp("A sample has no score.");
    }
    installDeviceCalls(nullptr);
}

/// The modes take turns: a machine that is slower for some seconds is so for both.
void tellSamples(bool shortRun)
{
    const int rounds = shortRun ? 1 : 5;
    const int pairs = shortRun ? 1 : 5;
    SampleTimes smaller;
    SampleTimes larger;
    for (int round = 0; round < rounds; ++round) {
        addSamples(kMode1280, pairs, smaller);
        addSamples(kMode5M, pairs, larger);
    }
    tell("sample", median(larger.ratios),
         QString::asprintf("%.1f ms, library calls %.1f ms", median(larger.samples_ms),
                           median(larger.calls_ms)));
    const double pixels = double(kFrame.rgbBytes()) / double(kCaptureModes[kMode1280].rgbBytes());
    std::vector<double> growths;
    for (std::size_t i = 0; i < larger.samples_ms.size(); ++i)
        growths.push_back(larger.samples_ms.at(i) / smaller.samples_ms.at(i) / pixels);
    tell("sample_growth", median(growths),
         QString::asprintf("%.1f ms for %.1f times the pixels of %.1f ms", median(larger.samples_ms), pixels,
                           median(smaller.samples_ms)));
}

} // namespace

int main(int argc, char** argv)
{
    const bool shortRun = isShort(argc, argv);
    const QCoreApplication application(argc, argv);
    QLoggingCategory::setFilterRules("default.debug=false");
    tellScores(shortRun);
    tellSamples(shortRun);
    return 0;
}
