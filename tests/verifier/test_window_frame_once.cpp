// What the hand-shake shows again is not worked out again.

#include <algorithm>
#include <atomic>
#include <ctime>

#include <QtTest>

extern "C" {
#include <libswscale/swscale.h>
}

#include "camera/OV5642Camera.h"
#include "support/WindowFixture.h"

namespace {

// Each conversion has a context of its own.
std::atomic<int> g_conversions{0};

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

class TestWindowFrameOnce : public QObject, protected WindowFixture
{
    Q_OBJECT

private slots:
    void eachDeliveredFrameIsConvertedOnceHoweverOftenItIsShown_data()
    {
        QTest::addColumn<QString>("button");
        QTest::newRow("VGA") << "BUTTON_RESOLUTION_VGA";
        QTest::newRow("1280") << "BUTTON_RESOLUTION_1280";
        QTest::newRow("5M") << "BUTTON_RESOLUTION_5M";
    }

    void eachDeliveredFrameIsConvertedOnceHoweverOftenItIsShown()
    {
        QFETCH(QString, button);
        click(qPrintable(button));
        QVERIFY(waitForFrames(2));
        constexpr int kPaints = 40;
        const int before = g_conversions;
        const std::uint64_t framesBefore = camera().counters().framesDelivered;
        QVERIFY(waitForPaints(kPaints));
        const auto frames = static_cast<int>(camera().counters().framesDelivered - framesBefore);
        // One frame may have been on its way when the counting began.
        QVERIFY2(g_conversions - before <= frames + 1,
                 qPrintable(QString("%1 conversions of %2 frames").arg(g_conversions - before).arg(frames)));
        QVERIFY(g_conversions > before);
    }

    /// A stream that stands still is shown on and on, and costs no conversion.
    void aFrameThatNoOtherFollowsIsNotConvertedAgain()
    {
        click("BUTTON_RESOLUTION_VGA");
        QVERIFY(waitForFrames(2));
        camera().faults().enable("stall");
        // What was filled before the stream stood still is taken in first.
        QVERIFY(waitForPaints(20));
        const int before = g_conversions;
        QVERIFY(waitForPaints(20));
        QCOMPARE(int(g_conversions), before);

        // The side of the window has a buffer of its own, which is filled once as well.
        auto* camera = programCamera();
        const uchar* first = camera->getFrame();
        const std::uint64_t number = camera->frameNumber();
        QCOMPARE(int(g_conversions), before + 1);
        QCOMPARE(static_cast<const uchar*>(camera->getFrame()), first);
        QCOMPARE(camera->frameNumber(), number);
        QCOMPARE(int(g_conversions), before + 1);
        clearFaults();
    }

    /// Nor is it scaled again: the largest frame, fitted into the view, is then shown for what a
    /// frame costs that is as large as the view.
    void whatIsShownAgainCostsNoMoreInALargeModeThanInASmallOne()
    {
        const double small_us = paintOfAStillView_us("BUTTON_RESOLUTION_VGA");
        const double large_us = paintOfAStillView_us("BUTTON_RESOLUTION_5M");
        QVERIFY(small_us > 0.0);
        QVERIFY2(large_us < 2.0 * small_us,
                 qPrintable(QString("%1 us at 5M, %2 us at VGA").arg(large_us).arg(small_us)));
    }

    void aCameraOpenedAnewShowsNothingOfTheStreamBefore()
    {
        auto* camera = programCamera();
        click("BUTTON_RESOLUTION_VGA");
        QVERIFY(waitForFrames(2));
        camera->getFrame();
        const std::uint64_t number = camera->frameNumber();
        click("BUTTON_RESOLUTION_VGA");
        QVERIFY(waitForFrames(2));
        const int before = g_conversions;
        camera->getFrame();
        QVERIFY(camera->frameNumber() > number);
        QVERIFY(g_conversions > before);
    }

private:
    static double threadTime_us()
    {
        timespec time{};
        clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
        return static_cast<double>(time.tv_sec) * 1e6 + static_cast<double>(time.tv_nsec) / 1e3;
    }

    /// Processor time of this thread for one round of the hand-shake in that mode, while the
    /// stream stands still: the least of some spans, for others use the machine as well.
    double paintOfAStillView_us(const char* button)
    {
        click(button);
        if (!waitForFrames(2))
            return 0.0;
        camera().faults().enable("stall");
        bool painted = waitForPaints(20);
        constexpr int kSpans = 5;
        constexpr int kPaints = 20;
        double least_us = 1e9;
        for (int span = 0; span < kSpans; ++span) {
            const double before_us = threadTime_us();
            painted = waitForPaints(kPaints) && painted;
            least_us = std::min(least_us, (threadTime_us() - before_us) / kPaints);
        }
        clearFaults();
        return painted ? least_us : 0.0;
    }
};

QTEST_MAIN(TestWindowFrameOnce)
#include "test_window_frame_once.moc"
