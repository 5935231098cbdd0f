#include "Algorithm/alg_Autofocus.h"

#include <algorithm>
#include <limits>
#include <new>

#include <QElapsedTimer>
#include <QSignalSpy>
#include <QtTest>

#include "Controller/Controller.h"
#include "FocusRig.h"

using focus_sweep::State;

namespace {

/// Reaches the sweeps that no run enters.
class FineAutofocus : public alg_Autofocus
{
public:
    using alg_Autofocus::alg_Autofocus;
    using alg_Autofocus::enterState;

    void beginFineSweep()
    {
        connect(Controller::getInstance(), &Controller::sig_z_stage_mvn, this,
                &alg_Autofocus::slot_z_stage_moved);
        connect(Controller::getInstance(), &Controller::sig_z_stage_mvp, this,
                &alg_Autofocus::slot_z_stage_moved);
        enterState(State::FineFirstStep);
        prepareAutoFocusing_Step(230, 7);
    }
};

/// While it lives, no matrix gets memory.
class NoMemoryLeft : public cv::MatAllocator
{
public:
    NoMemoryLeft() { cv::Mat::setDefaultAllocator(this); }
    ~NoMemoryLeft() override { cv::Mat::setDefaultAllocator(m_before); }

    cv::UMatData* allocate(int, const int*, int, void*, std::size_t*, cv::AccessFlag,
                           cv::UMatUsageFlags) const override
    {
        throw std::bad_alloc();
    }
    bool allocate(cv::UMatData*, cv::AccessFlag, cv::UMatUsageFlags) const override { return false; }
    void deallocate(cv::UMatData*) const override {}

private:
    cv::MatAllocator* const m_before = cv::Mat::getDefaultAllocator();
};

} // namespace

class TestAutofocusParts : public QObject, protected FocusRig
{
    Q_OBJECT

private slots:
    void initTestCase() { QVERIFY(isUp()); }

    void init()
    {
        reset();
        QVERIFY(putStage(0));
        show(peakAt(0));
    }

    // ---- what the run does not enter ----

    void theFineSweepEndsOneSampleBeforeItsPeak()
    {
        QVERIFY(putStage(10000));
        show(peakAt(10230));
        FineAutofocus sequencer(nullptr, camera(), 10000, kWidth, kHeight, false);
        Run run(sequencer);
        sequencer.beginFineSweep();
        QVERIFY(run.hasEnded());
        QCOMPARE(run.samples.size(), std::size_t(7));
        QCOMPARE(run.samples.front().zPosition, 9310 + 230);
        QCOMPARE(run.steps, QVector<int>(7, 2));
        QCOMPARE(run.reviewedSteps, QVector<int>{2});
        QCOMPARE(run.bestIndex, 2);
        QCOMPARE(run.ends.first(), 10000);
        const QStringList lines =
            QStringList{"GET_POS,", "MVN,690"} + repeated("MVP,230", 7) + QStringList{"GET_POS,", "MVN,920"};
        QCOMPARE(this->lines(), lines);
        QCOMPARE(
            run.log.first(),
            QStringLiteral("void alg_Autofocus::prepareAutoFocusing_Step(int, int)|interval: 230, count: 7"));
    }

    void aRisingFineSweepAsksForAThirdStep()
    {
        QVERIFY(putStage(10000));
        show(peakAt(11610));
        FineAutofocus sequencer(nullptr, camera(), 10000, kWidth, kHeight, false);
        Run run(sequencer);
        sequencer.beginFineSweep();
        QTRY_COMPARE_WITH_TIMEOUT(run.reviewedSteps.size(), 1, kEnd_ms);
        QCOMPARE(run.samples.back().zPosition, 10920);
        // The third step is centred 690 beyond the last sample, and so begins where it was taken.
        QCOMPARE(sequencer.resultZ(), 10920 + 690);
        QCOMPARE(sequencer.sweepStartZ(), 10920);
        QVERIFY(run.hasEnded());
        QCOMPARE(run.reviewedSteps, QVector<int>({2, 3}));
        QCOMPARE(run.steps, QVector<int>({2, 2, 2, 2, 2, 2, 2, 3, 3, 3, 3, 3, 3, 3}));
        QCOMPARE(run.samples.size(), std::size_t(7));
        QCOMPARE(run.samples.front().zPosition, 10920 + 230);
        QCOMPARE(run.ends.first(), 11610 - 230);
        QCOMPARE(stage(), 11610 - 230);
    }

    void aDownwardIntervalStillStepsUp_data()
    {
        QTest::addColumn<bool>("coarse");
        QTest::newRow("coarse sweep") << true;
        QTest::newRow("third step") << false;
    }

    void aDownwardIntervalStillStepsUp()
    {
        QFETCH(bool, coarse);
        QVERIFY(putStage(10000));
        QSignalSpy moved(Controller::getInstance(), &Controller::sig_z_stage_mvp);
        const auto sequencer = autofocus(10000);
        if (coarse)
            sequencer->prepareAutoFocusing_Step2(-30, 5);
        else
            sequencer->prepareAutoFocusing_Step(-30, 5);
        QCOMPARE(sequencer->sweepStartZ(), 10060);
        QTRY_COMPARE(moved.size(), 1);
        QStringList lines{"GET_POS,", "MVP,60", "MVP,30"};
        if (coarse)
            lines.insert(2, "GET_POS,");
        QCOMPARE(this->lines(), lines);
    }

    void stateOneStepsByTheCoarseInterval()
    {
        QSignalSpy moved(Controller::getInstance(), &Controller::sig_z_stage_mvp);
        FineAutofocus sequencer(nullptr, camera(), 0, kWidth, kHeight, false);
        sequencer.enterState(State::CoarseFirstStep);
        sequencer.dispatch_proc();
        QCOMPARE(sequencer.state(), State::Coarse);
        QTRY_COMPARE(moved.size(), 1);
        QCOMPARE(lines(), QStringList{"MVP,640"});
        sequencer.enterState(State::Done);
        sequencer.dispatch_proc();
        QCOMPARE(sequencer.state(), State::Done);
        QCOMPARE(lines(), QStringList{"MVP,640"});
    }

    void relativeMovesTakeTheirDirectionFromTheSign()
    {
        const auto sequencer = autofocus(0);
        QSignalSpy up(Controller::getInstance(), &Controller::sig_z_stage_mvp);
        QSignalSpy down(Controller::getInstance(), &Controller::sig_z_stage_mvn);
        int moves = 0;
        for (int interval : {12, -34, 0}) {
            sequencer->adjust_z_position(interval);
            ++moves;
            QTRY_COMPARE(up.size() + down.size(), moves);
        }
        QCOMPARE(lines(), QStringList({"MVP,12", "MVN,34", "MVP,0"}));
    }

    void aThirdStepIsLogged()
    {
        Run run(autofocus(0));
        std::vector<AutoFocusingData_s> rising{{1.0, 10}, {2.0, 20}};
        std::size_t best = 9;
        QCOMPARE(run.sequencer->find_best_focus(rising, best, false), AutoFocusingResult_BestPositionFound);
        QVERIFY(run.log.isEmpty());
        QCOMPARE(run.sequencer->find_best_focus(rising, best, true), AutoFocusingResult_ThirdStepNecessary);
        QCOMPARE(best, std::size_t(1));
        QCOMPARE(run.log.size(), 1);
        QVERIFY(run.log.first().endsWith("|!!! AutoFocusingResult_ThirdStepNecessary !!!"));
        QVERIFY(run.log.first().contains("alg_Autofocus::find_best_focus("));
    }

    void withoutSamplesTheResultStays()
    {
        Run run(autofocus(4711));
        std::vector<AutoFocusingData_s> none;
        std::size_t best = 9;
        QCOMPARE(run.sequencer->find_best_focus(none, best, true), AutoFocusingResult_NoSample);
        QCOMPARE(best, std::size_t(9));
        QCOMPARE(run.sequencer->find_AutoFocusing_Position(true), AutoFocusingResult_NoSample);
        QCOMPARE(run.sequencer->resultZ(), 4711);
        QVERIFY(run.reviewedSteps.isEmpty());
    }

    // ---- measures ----

    void measuresAreReachableThroughTheClass()
    {
        const auto sequencer = autofocus(0);
        cv::Mat frame(480, 640, CV_8UC3);
        cv::randu(frame, 0, 60);
        cv::Mat plane;
        cv::extractChannel(frame, plane, 1);
        QVERIFY(sequencer->brennerGradient(plane) > 0.0);
        QCOMPARE(sequencer->brennerGradient(plane), focus_measures::brennerGradient(plane));
        QVERIFY(sequencer->varianceOfLaplacian(plane) > 0.0);
        QCOMPARE(sequencer->varianceOfLaplacian(plane), focus_measures::varianceOfLaplacian(plane));
        QCOMPARE(sequencer->get_focusValue(plane), sequencer->varianceOfLaplacian(plane));
        const int dark = sequencer->find_fv_korvex_dark_edge(frame, 1, FOCUS_WINDOW_320x240);
        QVERIFY(dark > 0);
        QCOMPARE(dark, focus_measures::darkPixelCount(frame, 1, FOCUS_WINDOW_320x240));
        sequencer->analyze_grabbed_image_bG(frame);
        QCOMPARE(sequencer->samples().back().focusValue, sequencer->brennerGradient(plane));
    }

    void aFrameOfOneRowOrColumnIsOneToo_data()
    {
        QTest::addColumn<int>("width");
        QTest::addColumn<int>("height");
        QTest::newRow("row") << kWidth << 1;
        QTest::newRow("column") << 1 << kHeight;
    }

    void aFrameOfOneRowOrColumnIsOneToo()
    {
        QFETCH(int, width);
        QFETCH(int, height);
        QTRY_VERIFY(camera()->getFrame() != nullptr);
        alg_Autofocus sequencer(nullptr, camera(), 0, width, height, false);
        const Run run(sequencer);
        sequencer.trigger_image_grab();
        QCOMPARE(run.log, QStringList());
        QCOMPARE(sequencer.samples().size(), std::size_t(1));
    }

    void aFrameThatMemoryDoesNotSufficeForScoresZero()
    {
        Run run(autofocus(0));
        cv::Mat frame(480, 640, CV_8UC3, cv::Scalar(1, 2, 3));
        {
            const NoMemoryLeft noMemory;
            run.sequencer->analyze_grabbed_image_bG(frame);
            run.sequencer->analyze_grabbed_image_bG(frame);
        }
        QCOMPARE(run.sequencer->samples().back().focusValue, 0.0);
        QCOMPARE(run.log.size(), 1);
        QVERIFY2(run.log.first().endsWith("|[Error] frame not scored:|std::bad_alloc"),
                 qPrintable(run.log.first()));
    }

    void findFocusValueKeepsItsList()
    {
        const auto sequencer = autofocus(0);
        std::vector<unsigned char> data(std::size_t{3} * 640 * 480, 10);
        double value = -1.0;
        const auto find = [&](int criteria) {
            return sequencer->find_focus_value(data.data(), 640, 480, value,
                                               static_cast<FOCUS_VALUE_CRITERIA>(criteria), 1,
                                               FOCUS_WINDOW_320x240);
        };
        QVERIFY(find(1) >= 0.0);
        QCOMPARE(value, -1.0);
        QVERIFY(sequencer->focusValues().empty());
        QVERIFY(find(0) > 0.0);
        QCOMPARE(value, 320.0 * 240.0);
        data.assign(data.size(), 200);
        find(0);
        QCOMPARE(value, 0.0);
        QCOMPARE(sequencer->focusValues(), std::vector<double>({320.0 * 240.0, 0.0}));
        QVERIFY_EXCEPTION_THROWN(sequencer->find_focus_value(nullptr, 640, 480, value,
                                                             FOCUS_VALUE_DARK_PIXELS, 1,
                                                             FOCUS_WINDOW_320x240),
                                 cv::Exception);
        QCOMPARE(sequencer->focusValues().size(), std::size_t(2));
        sequencer->find_focus_value(nullptr, 0, 0, value, FOCUS_VALUE_DARK_PIXELS, 1, FOCUS_WINDOW_320x240);
        QCOMPARE(sequencer->focusValues().size(), std::size_t(3));
    }

    void findFocusValueTakesTheWidthBeforeTheHeight_data()
    {
        QTest::addColumn<int>("width");
        QTest::addColumn<int>("height");
        QTest::newRow("wide") << 800 << 400;
        QTest::newRow("tall") << 400 << 800;
        QTest::newRow("one row") << 800 << 1;
        QTest::newRow("one column") << 1 << 800;
    }

    void findFocusValueTakesTheWidthBeforeTheHeight()
    {
        QFETCH(int, width);
        QFETCH(int, height);
        // Dark on the left of the middle column only: a row that is taken for longer or shorter
        // than it is lays the dark half elsewhere.
        std::vector<unsigned char> data;
        for (int y = 0; y < height; ++y)
            for (int x = 0; x < width; ++x)
                data.insert(data.end(), 3, x < width / 2 ? 10 : 200);
        data.resize(std::size_t{3} * 800 * 800);
        double value = -1.0;
        const auto sequencer = autofocus(0);
        sequencer->find_focus_value(data.data(), width, height, value, FOCUS_VALUE_DARK_PIXELS, 1,
                                    FOCUS_WINDOW_320x240);
        QCOMPARE(value, double(std::min(width / 2, 160)) * std::min(height, 240));
    }

    void findFocusValueReturnsTheSecondsItTook()
    {
        const auto sequencer = autofocus(0);
        std::vector<unsigned char> data(std::size_t{3} * 2592 * 1944, 10);
        double value = 0.0;
        // Whoever else wants the processor can only make the time outside longer.
        double largestShare = 0.0;
        for (int attempt = 0; attempt < 50 && largestShare < 0.9; ++attempt) {
            QElapsedTimer timer;
            timer.start();
            const double seconds = sequencer->find_focus_value(
                data.data(), 2592, 1944, value, FOCUS_VALUE_DARK_PIXELS, 3, FOCUS_WINDOW_640x480);
            const double outside = double(timer.nsecsElapsed()) / 1e9;
            QVERIFY2(seconds <= outside, qPrintable(QString::number(seconds)));
            largestShare = std::max(largestShare, seconds / outside);
        }
        QVERIFY2(largestShare >= 0.9, qPrintable(QString::number(largestShare)));
    }

    void compareFocusTellsThePeak()
    {
        QVERIFY(putStage(1234));
        const auto sequencer = autofocus(0);
        QVERIFY(!sequencer->compare_focus(100.0, 0));
        QVERIFY(!sequencer->compare_focus(200.0, 2));
        QCOMPARE(sequencer->bestFocusIndex(), 2);
        QVERIFY(!sequencer->compare_focus(-1e9, 6));  // too early, however far it has fallen
        QVERIFY(!sequencer->compare_focus(150.0, 7)); // a fall of exactly 50.0
        QCOMPARE(sequencer->bestFocusValue(), 200.0);
        // There is no such sample yet: the peak is told, the result stays.
        QVERIFY(sequencer->compare_focus(149.9, 7));
        QCOMPARE(sequencer->resultZ(), 0);
        // An equal value takes over as the best.
        QVERIFY(!sequencer->compare_focus(200.0, 0));
        QCOMPARE(sequencer->bestFocusIndex(), 0);
        sequencer->function_Z_stage(); // reads the position; not in a sweep, so no sample
        QVERIFY(sequencer->samples().empty());
        sequencer->trigger_image_grab();
        QVERIFY(sequencer->compare_focus(0.0, 8));
        QCOMPARE(sequencer->resultZ(), 1234);
    }

    void compareFocusTakesNoNumberForNeitherBestNorFall()
    {
        const double noNumber = std::numeric_limits<double>::quiet_NaN();
        const auto sequencer = autofocus(4711);
        QVERIFY(putStage(1234));
        sequencer->function_Z_stage();
        sequencer->trigger_image_grab();
        QVERIFY(!sequencer->compare_focus(200.0, 0));
        for (int index : {0, 6, 7, 8}) {
            QVERIFY(!sequencer->compare_focus(noNumber, index));
            QCOMPARE(sequencer->bestFocusValue(), 200.0);
            QCOMPARE(sequencer->bestFocusIndex(), 0);
            QCOMPARE(sequencer->resultZ(), 4711);
        }
        QVERIFY(sequencer->compare_focus(0.0, 9));
        QCOMPARE(sequencer->resultZ(), 1234);
    }

    void sampleTypesAreRegistered()
    {
        const auto sequencer = autofocus(0);
        QVERIFY(QMetaType::type("AutoFocusingData_t") != QMetaType::UnknownType);
        QCOMPARE(QMetaType::typeName(qMetaTypeId<AutoFocusingData_t>()), "AutoFocusingData_t");
        QVERIFY(QMetaType::type("std::vector<AutoFocusingData_t>") != QMetaType::UnknownType);
        QSignalSpy review(sequencer.get(),
                          SIGNAL(sig_review_AutoFocusing(int, std::vector<AutoFocusingData_t>, int)));
        QVERIFY(review.isValid());
        QVERIFY(putStage(50));
        sequencer->function_Z_stage();
        sequencer->trigger_image_grab();
        QCOMPARE(sequencer->find_AutoFocusing_Position(false), AutoFocusingResult_BestPositionFound);
        QCOMPARE(review.size(), 1);
        const auto samples = review.first().at(1).value<std::vector<AutoFocusingData_t>>();
        QCOMPARE(samples.size(), std::size_t(1));
        QCOMPARE(samples.front().zPosition, 50);
    }
};

QTEST_GUILESS_MAIN(TestAutofocusParts)
#include "test_autofocus_parts.moc"
