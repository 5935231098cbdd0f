// What a focus score costs on a 2592 x 1944 frame, against merely reading the plane, against
// the usual expression of the same sum in matrix calls, and for a whole sample against the
// library calls that it is made of. Prints the ratios and fails when one misses its goal.

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <map>
#include <memory>
#include <string>

#include <benchmark/benchmark.h>

#include <opencv2/core.hpp>

extern "C" {
#include <libswscale/swscale.h>
}

#include "Algorithm/FocusMeasures.h"
#include "Algorithm/alg_Autofocus.h"
#include "camera/OV5642Camera.h"
#include "simulator/camera/CameraDevices.h"
#include "simulator/camera/ScriptedFrames.h"

// The library's loop has a variable that nobody reads.
// NOLINTBEGIN(clang-analyzer-deadcode.DeadStores)
namespace {

constexpr int kMode5M = 2;
constexpr int kWidth = 2592;
constexpr int kHeight = 1944;
constexpr int kRepetitions = 15;
constexpr int kContrast = 60;

const cv::Mat& plane()
{
    static const cv::Mat image = [] {
        cv::Mat random(kHeight, kWidth, CV_8UC1);
        cv::RNG(1).fill(random, cv::RNG::UNIFORM, 0, 256);
        return random;
    }();
    return image;
}

/// Every byte once, as the compiler vectorises it.
void planeRead(benchmark::State& state)
{
    const cv::Mat& image = plane();
    for (auto _ : state) {
        std::uint32_t sum = 0;
        for (int y = 0; y < image.rows; ++y) {
            const std::uint8_t* row = image.ptr(y);
            for (int x = 0; x < image.cols; ++x)
                sum += row[x];
        }
        benchmark::DoNotOptimize(sum);
    }
}

/// Every eight bytes as one number: what the memory gives, without a look at the pixels.
void planeWordRead(benchmark::State& state)
{
    const cv::Mat& image = plane();
    for (auto _ : state) {
        std::uint64_t sum = 0;
        for (int y = 0; y < image.rows; ++y) {
            const std::uint8_t* row = image.ptr(y);
            for (int x = 0; x + 8 <= image.cols; x += 8) {
                std::uint64_t word = 0;
                std::memcpy(&word, row + x, sizeof word);
                sum += word;
            }
        }
        benchmark::DoNotOptimize(sum);
    }
}

void planeBrenner(benchmark::State& state)
{
    for (auto _ : state)
        benchmark::DoNotOptimize(focus_measures::brennerGradient(plane()));
}

double squaredDifferences(int differenceType, int squareType)
{
    const cv::Mat& image = plane();
    cv::Mat difference;
    cv::subtract(image.colRange(2, image.cols), image.colRange(0, image.cols - 2), difference, cv::noArray(),
                 differenceType);
    cv::Mat square;
    cv::multiply(difference, difference, square, 1.0, squareType);
    return cv::sum(square)[0];
}

/// Difference, square, sum in floating point, as it is usually written.
void planeMatrixCalls(benchmark::State& state)
{
    for (auto _ : state)
        benchmark::DoNotOptimize(squaredDifferences(CV_32F, CV_32F));
}

/// The same in the smallest integers that hold every difference and every square.
void planeIntegerMatrixCalls(benchmark::State& state)
{
    for (auto _ : state)
        benchmark::DoNotOptimize(squaredDifferences(CV_16S, CV_32S));
}

/// A camera that has one 5-megapixel frame and gets no more.
struct StillCamera
{
    StillCamera()
    {
        frames.showStripes(kContrast);
        devices.faults().enable({CameraFault::NoBus});
        installDeviceCalls(&devices);
        camera = std::make_unique<OV5642Camera>();
        good = camera->open(kMode5M, "", false) && devices.waitForFreshFrames(1, std::chrono::seconds(10));
        devices.faults().enable({CameraFault::StalledStream});
    }
    ~StillCamera()
    {
        camera.reset();
        installDeviceCalls(nullptr);
    }

    ScriptedFrames frames;
    CameraDevices devices{{}, frames};
    std::unique_ptr<OV5642Camera> camera;
    bool good = false;
};

void sample(benchmark::State& state)
{
    StillCamera still;
    alg_Autofocus autofocus(nullptr, still.camera.get(), 0, kWidth, kHeight, false);
    if (!still.good) {
        state.SkipWithError("no camera");
        return;
    }
    for (auto _ : state)
        autofocus.trigger_image_grab();
    if (autofocus.samples().empty() || autofocus.samples().front().focusValue <= 0.0)
        state.SkipWithError("no score");
}

/// Conversion and split, nothing else: not even the score.
void sampleLibraryCalls(benchmark::State& state)
{
    cv::Mat yuyv(kHeight, kWidth, CV_8UC2, cv::Scalar(100, 128));
    cv::Mat rgb(kHeight, kWidth, CV_8UC3);
    for (auto _ : state) {
        SwsContext* context = sws_getContext(kWidth, kHeight, AV_PIX_FMT_YUYV422, kWidth, kHeight,
                                             AV_PIX_FMT_RGB24, SWS_BILINEAR, nullptr, nullptr, nullptr);
        const std::uint8_t* source[] = {yuyv.data};
        const int sourceStride[] = {kWidth * 2};
        std::uint8_t* target[] = {rgb.data};
        const int targetStride[] = {kWidth * 3};
        sws_scale(context, source, sourceStride, 0, kHeight, target, targetStride);
        sws_freeContext(context);
        std::vector<cv::Mat> planes;
        cv::split(rgb, planes);
        benchmark::DoNotOptimize(planes[1].data);
    }
}

/// Prints as usual and keeps each benchmark's best repetition in processor time, which a
/// machine that does other work as well does not falsify.
class BestOf : public benchmark::ConsoleReporter
{
public:
    void ReportRuns(const std::vector<Run>& runs) override
    {
        for (const Run& run : runs) {
            if (run.run_type == Run::RT_Iteration && !run.error_occurred) {
                const std::string name = run.run_name.function_name;
                const double time = run.GetAdjustedCPUTime();
                const auto known = m_best.find(name);
                m_best[name] = known == m_best.end() ? time : std::min(known->second, time);
            }
        }
        ConsoleReporter::ReportRuns(runs);
    }

    /// 0 if either was not run.
    double ratio(const char* numerator, const char* denominator) const
    {
        const auto above = m_best.find(numerator);
        const auto below = m_best.find(denominator);
        return above == m_best.end() || below == m_best.end() ? 0.0 : above->second / below->second;
    }

private:
    std::map<std::string, double> m_best;
};

enum class Bound { None, AtMost, AtLeast };

struct Goal
{
    const char* text;
    const char* numerator;
    const char* denominator;
    Bound bound;
    double value;
};

constexpr Goal kGoals[] = {
    {"Brenner / plain read of the plane", "planeBrenner", "planeRead", Bound::AtMost, 2.0},
    {"Brenner / read by words", "planeBrenner", "planeWordRead", Bound::None, 0.0},
    {"matrix calls / Brenner", "planeMatrixCalls", "planeBrenner", Bound::AtLeast, 20.0},
    {"integer matrix calls / Brenner", "planeIntegerMatrixCalls", "planeBrenner", Bound::None, 0.0},
    {"sample / conversion and split", "sample", "sampleLibraryCalls", Bound::AtMost, 1.1},
};

bool isReached(const Goal& goal, double ratio)
{
    return goal.bound == Bound::AtMost ? ratio <= goal.value : ratio >= goal.value;
}

bool report(const BestOf& times)
{
    bool good = true;
    for (const Goal& goal : kGoals) {
        const double ratio = times.ratio(goal.numerator, goal.denominator);
        if (ratio == 0.0) {
            std::printf("%-34s not run\n", goal.text);
        } else if (goal.bound == Bound::None) {
            std::printf("%-34s %7.2f\n", goal.text, ratio);
        } else {
            const bool reached = isReached(goal, ratio);
            good = good && reached;
            std::printf("%-34s %7.2f   goal: at %s %.1f   %s\n", goal.text, ratio,
                        goal.bound == Bound::AtMost ? "most" : "least", goal.value,
                        reached ? "reached" : "MISSED");
        }
    }
    return good;
}

} // namespace
// NOLINTEND(clang-analyzer-deadcode.DeadStores)

int main(int argc, char** argv)
{
    benchmark::Initialize(&argc, argv);
    const auto add = [](const char* name, void (*function)(benchmark::State&)) {
        benchmark::RegisterBenchmark(name, function)
            ->Repetitions(kRepetitions)
            ->MinTime(0.05)
            ->Unit(benchmark::kMillisecond);
    };
    add("planeRead", planeRead);
    add("planeWordRead", planeWordRead);
    add("planeBrenner", planeBrenner);
    add("planeMatrixCalls", planeMatrixCalls);
    add("planeIntegerMatrixCalls", planeIntegerMatrixCalls);
    add("sample", sample);
    add("sampleLibraryCalls", sampleLibraryCalls);
    BestOf times;
    benchmark::RunSpecifiedBenchmarks(&times);
    return report(times) ? 0 : 1;
}
