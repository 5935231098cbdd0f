// What the hand-shake shows again is not worked out again.

#include <algorithm>
#include <chrono>
#include <ctime>
#include <future>
#include <thread>

#include <QtTest>

#include "camera/OV5642Camera.h"
#include "support/ConversionCount.h"
#include "support/WindowFixture.h"

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
        const int before = conversionsSoFar();
        const int beforeHere = conversionsOfThisThread();
        const std::uint64_t framesBefore = camera().counters().framesDelivered;
        QVERIFY(waitForPaints(kPaints));
        const auto frames = static_cast<int>(camera().counters().framesDelivered - framesBefore);
        QVERIFY2(conversionsOfThisThread() == beforeHere, "the window's thread only draws");
        // One frame may have been on its way when the counting began.
        QVERIFY2(
            conversionsSoFar() - before <= frames + 1,
            qPrintable(QString("%1 conversions of %2 frames").arg(conversionsSoFar() - before).arg(frames)));
        QVERIFY(conversionsSoFar() > before);
    }

    /// A stream that stands still is shown on and on, and costs no conversion.
    void aFrameThatNoOtherFollowsIsNotConvertedAgain()
    {
        click("BUTTON_RESOLUTION_VGA");
        QVERIFY(waitForFrames(2));
        camera().faults().enable("stall");
        // What was filled before the stream stood still is taken in first.
        QVERIFY(waitForPaints(20));
        const int before = conversionsSoFar();
        QVERIFY(waitForPaints(20));
        QCOMPARE(conversionsSoFar(), before);

        // The side of the window has a buffer of its own, which is filled once as well.
        auto* camera = programCamera();
        const uchar* first = camera->getFrame();
        const std::uint64_t number = camera->frameNumber();
        QCOMPARE(conversionsSoFar(), before + 1);
        QCOMPARE(static_cast<const uchar*>(camera->getFrame()), first);
        QCOMPARE(camera->frameNumber(), number);
        QCOMPARE(conversionsSoFar(), before + 1);
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
        const int before = conversionsSoFar();
        camera->getFrame();
        QVERIFY(camera->frameNumber() > number);
        QVERIFY(conversionsSoFar() > before);
    }

    /// A conversion that has begun when a technician asks for the intensity is of a frame of before.
    void theIntensityIsNotThatOfAFrameWhoseConversionHadBegun()
    {
        click("BUTTON_RESOLUTION_VGA");
        QVERIFY(waitForFrames(2));
        std::promise<void> begun;
        std::promise<void> goOn;
        beforeNextConversion([&] {
            begun.set_value();
            goOn.get_future().wait();
        });
        auto hasBegun = begun.get_future();
        const bool held = waitUntil(
            [&] { return hasBegun.wait_for(std::chrono::seconds(0)) == std::future_status::ready; });
        beforeNextConversion(nullptr);
        QVERIFY(held);
        window().set_LED(0);
        // The device fills its first buffers by itself.
        const auto dark = camera().counters().framesReturned + 6;
        const bool delivered = waitUntil([&] { return camera().counters().framesReturned >= dark; });
        std::thread later([&] {
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
            goOn.set_value();
        });
        click("BUTTON_INTENSITY");
        later.join();
        const QString green = text("EDIT_INTENSITY_GREEN");
        window().set_LED(225);
        QVERIFY(delivered);
        QVERIFY2(green.toDouble() < 20.0, qPrintable(green));
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
