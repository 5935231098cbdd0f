#include "Algorithm/alg_Autofocus.h"

#include <memory>

#include <QDir>
#include <QFile>
#include <QPointer>
#include <QRegularExpression>
#include <QSignalSpy>
#include <QtTest>

#include <opencv2/imgcodecs.hpp>

#include "Controller/Controller.h"
#include "FocusRig.h"
#include "support/LogRecorder.h"

using focus_sweep::State;

class TestAutofocus : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanup();
    void cleanupTestCase();

    void aRunScoresFifteenPositionsAndGoesToTheBest();
    void aStageBelowTheSweepIsMovedUp();
    void aStageAtTheSweepStartBeginsAtOnce();
    void aRunWhoseBestIsItsLastPositionDoesNotEnd();
    void aDarkSlideEndsAtTheFirstPosition();
    void afterItsEndTheStagesMovesConcernARunNoMore();
    void aSecondRunOfTheSameObjectStartsAfresh();
    void refusedMovesDoNotStopTheRun();
    void aMoveThatIsNeverReportedLeavesTheRunWaiting();
    void aBoardThatFallsSilentInTheSweepEndsItAllTheSame();
    void deletingTheSequencerDuringARunLeavesNothingBehind();
    void deletingTheSequencerInItsEndIsSafe();
    void theLogNamesEveryStep();
    void everySampleIsLoggedReachedSavedAndReportedInThatOrder();

    void savedFramesScoreAsTheTableSays();
    void withoutADiskTheRunEndsAndEachFailureIsLoggedOnce();
    void nothingIsWrittenUnlessAskedFor();

    void aMissingCameraScoresZeroEverywhere_data();
    void aMissingCameraScoresZeroEverywhere();
    void aFrameThatIsNoPictureScoresZero();

private:
    std::unique_ptr<FocusRig> m_rig;
};

void TestAutofocus::initTestCase()
{
    m_rig = std::make_unique<FocusRig>();
    QVERIFY(m_rig->isUp());
}

void TestAutofocus::init()
{
    m_rig->reset();
    QVERIFY(m_rig->putStage(0));
}

void TestAutofocus::cleanup()
{
    Controller::getInstance()->m_timeouts = ControllerTimeouts();
}

void TestAutofocus::cleanupTestCase()
{
    m_rig.reset();
}

// ---- run ----

void TestAutofocus::aRunScoresFifteenPositionsAndGoesToTheBest()
{
    QVERIFY(m_rig->putStage(10000));
    m_rig->show(peakAt(9000));
    const auto sequencer = m_rig->autofocus(10000);
    Run run(*sequencer);
    sequencer->process();
    QCOMPARE(sequencer->state(), State::Coarse);
    QCOMPARE(sequencer->sweepStartZ(), 5520);
    QTRY_COMPARE_WITH_TIMEOUT(run.ends.size(), 1, kEnd_ms);

    // The sweep starts at 5520; its first sample is taken one step above that.
    QCOMPARE(run.samples.size(), std::size_t(15));
    QVector<int> expected;
    for (int i = 0; i < 15; ++i) {
        expected << 6160 + 640 * i;
        QCOMPARE(run.samples[i].zPosition, expected[i]);
        QVERIFY(run.samples[i].focusValue > 0.0);
    }
    QCOMPARE(run.bestIndex, 4);
    const int best = 8720;
    QCOMPARE(run.ends.first(), best);
    QCOMPARE(sequencer->resultZ(), best);
    QCOMPARE(m_rig->stage(), best);
    QCOMPARE(run.positions, expected << best);
    QCOMPARE(run.steps, QVector<int>(15, 1));
    QCOMPARE(run.reviewedSteps, QVector<int>{1});
    QCOMPARE(sequencer->state(), State::Done);
    const QStringList lines = QStringList{"GET_POS,", "MVN,4480", "GET_POS,"} + repeated("MVP,640", 15) +
                              QStringList{"GET_POS,", "MVN,6400"};
    QCOMPARE(m_rig->lines(), lines);
    QVERIFY(run.logOf("[Error]").isEmpty());
}

void TestAutofocus::aStageBelowTheSweepIsMovedUp()
{
    QVERIFY(m_rig->putStage(-2000));
    m_rig->show(peakAt(7440));
    const auto sequencer = m_rig->autofocus(10000);
    Run run(*sequencer);
    sequencer->process();
    QTRY_COMPARE_WITH_TIMEOUT(run.ends.size(), 1, kEnd_ms);
    QCOMPARE(run.ends.first(), 7440);
    QCOMPARE(m_rig->lines().mid(0, 4), QStringList({"GET_POS,", "MVP,7520", "GET_POS,", "MVP,640"}));
}

void TestAutofocus::aStageAtTheSweepStartBeginsAtOnce()
{
    QVERIFY(m_rig->putStage(5520));
    m_rig->show(peakAt(10640));
    const auto sequencer = m_rig->autofocus(10000);
    Run run(*sequencer);
    sequencer->process();
    // All fifteen samples are taken before process() returns, fifteen levels deep.
    QCOMPARE(run.steps.size(), 15);
    QCOMPARE(run.samples.front().zPosition, 6160);
    QCOMPARE(run.samples.back().zPosition, 15120);
    QTRY_COMPARE_WITH_TIMEOUT(run.ends.size(), 1, kEnd_ms);
    QCOMPARE(run.ends.first(), 10640);
    const QStringList lines =
        QStringList{"GET_POS,"} + repeated("MVP,640", 15) + QStringList{"GET_POS,", "MVN,4480"};
    QCOMPARE(m_rig->lines(), lines);
}

void TestAutofocus::aRunWhoseBestIsItsLastPositionDoesNotEnd()
{
    QVERIFY(m_rig->putStage(5520));
    m_rig->show(peakAt(15120));
    auto sequencer = m_rig->autofocus(10000);
    Run run(*sequencer);
    sequencer->process();
    QCOMPARE(run.bestIndex, 14);
    QCOMPARE(sequencer->resultZ(), 15120);
    QCOMPARE(sequencer->state(), State::MovingToResult);
    QTest::qWait(100);
    QVERIFY(run.ends.isEmpty());
    QCOMPARE(m_rig->lines().last(), QStringLiteral("GET_POS,"));
    // It can be let go like any other, and the stage's next move concerns nobody.
    sequencer.reset();
    Controller::getInstance()->z_stage_mvp(SERIAL_NON_BLOCKING, 10);
    QSignalSpy moved(Controller::getInstance(), &Controller::sig_z_stage_mvp);
    QTRY_COMPARE(moved.size(), 1);
    QVERIFY(run.ends.isEmpty());
}

void TestAutofocus::aDarkSlideEndsAtTheFirstPosition()
{
    QVERIFY(m_rig->putStage(10000));
    m_rig->show([](int) { return 0; });
    const auto sequencer = m_rig->autofocus(10000);
    Run run(*sequencer);
    sequencer->process();
    QTRY_COMPARE_WITH_TIMEOUT(run.ends.size(), 1, kEnd_ms);
    QCOMPARE(run.bestIndex, 0);
    QCOMPARE(run.ends.first(), 6160);
    QCOMPARE(run.samples.front().focusValue, 0.0);
}

void TestAutofocus::afterItsEndTheStagesMovesConcernARunNoMore()
{
    QVERIFY(m_rig->putStage(10000));
    m_rig->show(peakAt(9360));
    const auto sequencer = m_rig->autofocus(10000);
    Run run(*sequencer);
    sequencer->process();
    QTRY_COMPARE_WITH_TIMEOUT(run.ends.size(), 1, kEnd_ms);
    const int positions = run.positions.size();
    const int messages = run.log.size();
    QSignalSpy up(Controller::getInstance(), &Controller::sig_z_stage_mvp);
    QSignalSpy down(Controller::getInstance(), &Controller::sig_z_stage_mvn);
    Controller::getInstance()->z_stage_mvp(SERIAL_NON_BLOCKING, 10);
    QTRY_COMPARE(up.size(), 1);
    Controller::getInstance()->z_stage_mvn(SERIAL_NON_BLOCKING, 10);
    QTRY_COMPARE(down.size(), 1);
    QCOMPARE(run.positions.size(), positions);
    QCOMPARE(run.log.size(), messages);
    QCOMPARE(run.ends.size(), 1);
}

void TestAutofocus::aSecondRunOfTheSameObjectStartsAfresh()
{
    QVERIFY(m_rig->putStage(10000));
    m_rig->show(peakAt(9360));
    const auto sequencer = m_rig->autofocus(10000);
    Run run(*sequencer);
    sequencer->process();
    QTRY_COMPARE_WITH_TIMEOUT(run.ends.size(), 1, kEnd_ms);
    sequencer->process();
    QTRY_COMPARE_WITH_TIMEOUT(run.ends.size(), 2, kEnd_ms);
    QCOMPARE(run.steps.size(), 30);
    QCOMPARE(run.samples.size(), std::size_t(15));
    QCOMPARE(run.samples.front().zPosition, 6160);
    QCOMPARE(run.ends, QVector<int>({9360, 9360}));
}

void TestAutofocus::refusedMovesDoNotStopTheRun()
{
    QVERIFY(m_rig->putStage(10000, {{LineFault::Failure, "MVP", 0}}));
    const auto sequencer = m_rig->autofocus(10000);
    Run run(*sequencer);
    sequencer->process();
    QTRY_COMPARE_WITH_TIMEOUT(run.ends.size(), 1, kEnd_ms);
    // The tracked position moves on, whatever the board did.
    QCOMPARE(run.samples.back().zPosition, 15120);
    QCOMPARE(m_rig->stage(), 5520);
}

void TestAutofocus::aMoveThatIsNeverReportedLeavesTheRunWaiting()
{
    // The fourth line is the non-blocking step that takes the first sample.
    QVERIFY(m_rig->putStage(10000, {{LineFault::Held, {}, 4}}));
    const auto sequencer = m_rig->autofocus(10000);
    Run run(*sequencer);
    sequencer->process();
    QTRY_COMPARE(m_rig->lines().size(), 4);
    QTest::qWait(100);
    QVERIFY(run.steps.isEmpty());
    QCOMPARE(sequencer->state(), State::Coarse);
    // An answer that comes late is still an answer.
    m_rig->release();
    QTRY_COMPARE_WITH_TIMEOUT(run.ends.size(), 1, kEnd_ms);
    QCOMPARE(run.steps.size(), 15);
}

void TestAutofocus::aBoardThatFallsSilentInTheSweepEndsItAllTheSame()
{
    // The eighteenth line is the step to the fifteenth sample: it runs into the read
    // time-out, and the sample is taken where the stage is believed to be.
    QVERIFY(m_rig->putStage(10000, {{LineFault::Ignored, {}, 18}}));
    m_rig->show(peakAt(8720));
    const auto sequencer = m_rig->autofocus(10000);
    Run run(*sequencer);
    // Nothing else is waited for in vain.
    connect(sequencer.get(), &alg_Autofocus::sig_progress_AutoFocusing, [&run] {
        constexpr int kShort_ms = 100;
        Controller::getInstance()->m_timeouts.read_ms =
            run.steps.size() == 14 ? kShort_ms : ControllerTimeouts().read_ms;
    });
    sequencer->process();
    QTRY_COMPARE_WITH_TIMEOUT(run.ends.size(), 1, kEnd_ms);
    QCOMPARE(run.steps.size(), 15);
    QCOMPARE(run.samples.back().zPosition, 15120);
    QCOMPARE(run.ends.first(), 8720);
    // The last move is reckoned from where the board says that the stage stands.
    QCOMPARE(m_rig->lines().last(), QStringLiteral("MVN,5760"));
    QCOMPARE(m_rig->stage(), 8720);
}

void TestAutofocus::deletingTheSequencerDuringARunLeavesNothingBehind()
{
    QVERIFY(m_rig->putStage(10000, {{LineFault::Held, {}, 4}}));
    QSignalSpy moved(Controller::getInstance(), &Controller::sig_z_stage_mvp);
    auto sequencer = m_rig->autofocus(10000);
    Run run(*sequencer);
    sequencer->process();
    QTRY_COMPARE(m_rig->lines().size(), 4);
    sequencer.reset();
    m_rig->release();
    QTRY_COMPARE(moved.size(), 1);
    QTest::qWait(50);
    QVERIFY(run.positions.isEmpty());
    QCOMPARE(m_rig->lines().size(), 4);
}

void TestAutofocus::deletingTheSequencerInItsEndIsSafe()
{
    QVERIFY(m_rig->putStage(10000));
    m_rig->show(peakAt(9360));
    QPointer<alg_Autofocus> sequencer = m_rig->autofocus(10000).release();
    Run run(*sequencer);
    connect(sequencer.data(), &alg_Autofocus::sig_endAutoFocusing, this, [&sequencer] { delete sequencer; });
    sequencer->process();
    QTRY_VERIFY_WITH_TIMEOUT(sequencer.isNull(), kEnd_ms);
    QCOMPARE(run.ends, QVector<int>{9360});
}

void TestAutofocus::theLogNamesEveryStep()
{
    QVERIFY(m_rig->putStage(10000));
    m_rig->show(peakAt(9360));
    const auto sequencer = m_rig->autofocus(10000);
    Run run(*sequencer);
    const LogRecorder log;
    sequencer->process();
    QTRY_COMPARE_WITH_TIMEOUT(run.ends.size(), 1, kEnd_ms);
    const QStringList debugStream = log.messages();

    const QString name = QStringLiteral("void alg_Autofocus::");
    QCOMPARE(run.log.first(), name + "process()");
    QCOMPARE(run.log.at(1), name + "prepareAutoFocusing_Step2(int, int)|interval: 640, count: 15");
    const QRegularExpression timed(R"(^void alg_Autofocus::(dispatch_proc|slot_z_stage_moved)\(\)\|)"
                                   R"(\d{4}/\d\d/\d\d \d\d:\d\d:\d\d,\d{3}$)");
    QCOMPARE(run.log.filter(timed).filter("dispatch_proc").size(), 14);
    QCOMPARE(run.log.filter(timed).filter("slot_z_stage_moved").size(), 16);
    QCOMPARE(run.logOf("dispatch_proc").size(), 14);
    QCOMPARE(run.logOf("slot_z_stage_moved").size(), 16);
    QCOMPARE(run.logOf(name + "prepareEndAutoFocusing()").size(), 1);
    QCOMPARE(run.log.last(), name + "endAutoFocusing()");

    // The same messages stand in the debug stream, and four more that are for it alone.
    for (QString message : qAsConst(run.log))
        QVERIFY2(debugStream.contains(message.replace('|', ' ')), qPrintable(message));
    for (const char* line : {"------------> target :  5520", "------------> current :  10000",
                             "After move m_current_pos  :  10000", "After move Real current :  5520"}) {
        QCOMPARE(debugStream.count(line), 1);
        QVERIFY(run.logOf(QString(line).left(12)).isEmpty());
    }
}

void TestAutofocus::everySampleIsLoggedReachedSavedAndReportedInThatOrder()
{
    QVERIFY(m_rig->putStage(10000));
    m_rig->show(peakAt(9360));
    const auto sequencer = m_rig->autofocus(10000, true);
    QStringList events;
    const auto files = [&](const char* pattern) {
        const QDir directory(m_rig->diskPath(sequencer->logDirectory() + "/Step1"));
        return QString::number(directory.entryList({pattern}, QDir::Files).size());
    };
    connect(
        sequencer.get(), &alg_Autofocus::sig_debug_Message, this,
        [&](const QStringList& parts) {
            for (const char* name : {"slot_z_stage_moved", "dispatch_proc", "endAutoFocusing"})
                if (parts.first().contains(name))
                    events << name;
        });
    connect(
        Controller::getInstance(), &Controller::sig_debug_Controller, sequencer.get(),
        [&](const QString& line) {
            if (line.startsWith("$,STM1,MV"))
                events << line.section(',', 2, 3);
        });
    connect(
        sequencer.get(), &alg_Autofocus::sig_move_z_position, this,
        [&](int z) { events << QString("at %1").arg(z); });
    connect(
        sequencer.get(), &alg_Autofocus::sig_progress_AutoFocusing, this,
        [&] { events << "taken, saved " + files("*.tiff"); });
    connect(
        sequencer.get(), &alg_Autofocus::sig_review_AutoFocusing, this,
        [&] { events << "review, tables " + files("*.csv"); });
    connect(sequencer.get(), &alg_Autofocus::sig_endAutoFocusing, this,
            [&](int z) { events << QString("end %1").arg(z); });
    sequencer->process();
    QTRY_VERIFY_WITH_TIMEOUT(events.contains("end 9360"), kEnd_ms);

    // The log says when a step begins, and then the step is made.
    const QStringList nextStep{"dispatch_proc", "MVP,640"};
    QStringList expected{"MVN,4480", "MVP,640"};
    for (int i = 0; i < 15; ++i) {
        expected << "slot_z_stage_moved" << QString("at %1").arg(6160 + 640 * i)
                 << QString("taken, saved %1").arg(i + 1);
        expected << (i < 14 ? nextStep : QStringList{"review, tables 1", "MVN,5760"});
    }
    expected << "slot_z_stage_moved"
             << "at 9360"
             << "endAutoFocusing"
             << "end 9360";
    QCOMPARE(events, expected);
}

// ---- files ----

void TestAutofocus::savedFramesScoreAsTheTableSays()
{
    QVERIFY(m_rig->putStage(10000));
    m_rig->show(peakAt(9000));
    const auto sequencer = m_rig->autofocus(10000, true);
    Run run(*sequencer);
    sequencer->process();
    QTRY_COMPARE_WITH_TIMEOUT(run.ends.size(), 1, kEnd_ms);
    QVERIFY(run.logOf("[Error]").isEmpty());

    const QRegularExpression directoryName(R"(^/mnt/ORLA-II/Autofocus/\d{8}_\d{6}$)");
    QVERIFY2(directoryName.match(sequencer->logDirectory()).hasMatch(),
             qPrintable(sequencer->logDirectory()));
    const QDir directory(m_rig->diskPath(sequencer->logDirectory() + "/Step1"));
    QFile table(directory.filePath("best_focus_value.csv"));
    QVERIFY(table.open(QIODevice::ReadOnly));
    const QList<QByteArray> lines = table.readAll().split('\n');
    QCOMPARE(lines.size(), 17);
    QVERIFY(lines[15].isEmpty());
    const QList<QByteArray> best = lines[run.bestIndex].split(',');
    QCOMPARE(lines[16], QByteArray::number(run.bestIndex + 1) + ',' + best[1] + ',' + best[2]);

    for (int i = 0; i < 15; ++i) {
        const int z = 6160 + 640 * i;
        const QList<QByteArray> fields = lines[i].split(',');
        QCOMPARE(fields.size(), 3);
        QCOMPARE(fields[0].toInt(), i);
        QCOMPARE(fields[1].toInt(), z);
        const QString name = QStringLiteral("Autofocus_%1_%2_%3.tiff")
                                 .arg(i + 1, 2, 10, QLatin1Char('0'))
                                 .arg(z)
                                 .arg(QString::fromLatin1(fields[2]));
        QVERIFY2(directory.exists(name), qPrintable(name));
        const cv::Mat image = cv::imread(directory.filePath(name).toStdString(), cv::IMREAD_UNCHANGED);
        QCOMPARE(image.cols, kWidth);
        QCOMPARE(image.rows, kHeight);
        cv::Mat green;
        cv::extractChannel(image, green, 1);
        const double score = focus_measures::brennerGradient(green);
        QCOMPARE(score, run.samples[i].focusValue);
        QCOMPARE(QByteArray::number(score, 'g', 6), fields[2]);
    }
    QCOMPARE(directory.entryList(QDir::Files).size(), 16);
}

void TestAutofocus::withoutADiskTheRunEndsAndEachFailureIsLoggedOnce()
{
    QFile inTheWay(m_rig->diskPath(QStringLiteral("/mnt")));
    QVERIFY(inTheWay.open(QIODevice::WriteOnly));
    QVERIFY(m_rig->putStage(10000));
    m_rig->show(peakAt(9360));
    const auto sequencer = m_rig->autofocus(10000, true);
    Run run(*sequencer);
    sequencer->process();
    QTRY_COMPARE_WITH_TIMEOUT(run.ends.size(), 1, kEnd_ms);
    QCOMPARE(run.ends.first(), 9360);
    QCOMPARE(run.logOf("[Error]").size(), 3);
    QCOMPARE(run.logOf("[Error] create directory failed:|/mnt/ORLA-II/Autofocus/").size(), 1);
    QCOMPARE(run.logOf("[Error] write image failed:|/mnt/ORLA-II/Autofocus/").size(), 1);
    QCOMPARE(run.logOf("[Error] write file failed:|/mnt/ORLA-II/Autofocus/").size(), 1);
    QFile::remove(inTheWay.fileName());
}

void TestAutofocus::nothingIsWrittenUnlessAskedFor()
{
    QVERIFY(m_rig->putStage(10000));
    m_rig->show(peakAt(9360));
    const auto sequencer = m_rig->autofocus(10000);
    Run run(*sequencer);
    sequencer->process();
    QTRY_COMPARE_WITH_TIMEOUT(run.ends.size(), 1, kEnd_ms);
    QVERIFY(sequencer->logDirectory().isEmpty());
    QVERIFY(!QDir(m_rig->diskPath(QStringLiteral("/mnt"))).exists());
}

// ---- pictures that are not there ----

void TestAutofocus::aMissingCameraScoresZeroEverywhere_data()
{
    QTest::addColumn<QString>("camera");
    QTest::newRow("no camera object") << "none";
    QTest::newRow("camera closed") << "closed";
    QTest::newRow("frames smaller than told") << "small";
}

void TestAutofocus::aMissingCameraScoresZeroEverywhere()
{
    QFETCH(QString, camera);
    OV5642Camera closed;
    OV5642Camera* source = nullptr;
    if (camera != QLatin1String("none"))
        source = camera == QLatin1String("closed") ? &closed : m_rig->camera();
    const int factor = camera == QLatin1String("small") ? 2 : 1;
    QVERIFY(m_rig->putStage(10000));
    alg_Autofocus sequencer(nullptr, source, 10000, kWidth * factor, kHeight * factor, true);
    Run run(sequencer);
    sequencer.process();
    QTRY_COMPARE_WITH_TIMEOUT(run.ends.size(), 1, kEnd_ms);
    QCOMPARE(run.samples.size(), std::size_t(15));
    for (const AutoFocusingData_t& sample : run.samples)
        QCOMPARE(sample.focusValue, 0.0);
    QCOMPARE(run.ends.first(), 6160);
    QCOMPARE(run.logOf("[Error]").size(), 1);
    QCOMPARE(run.logOf("[Error] no frame").size(), 1);
    // Scores, but no pictures.
    const QDir directory(m_rig->diskPath(sequencer.logDirectory() + "/Step1"));
    QCOMPARE(directory.entryList(QDir::Files), QStringList{"best_focus_value.csv"});
}

void TestAutofocus::aFrameThatIsNoPictureScoresZero()
{
    const auto sequencer = m_rig->autofocus(0);
    cv::Mat empty;
    cv::Mat grey(8, 8, CV_8UC1, cv::Scalar(7));
    sequencer->analyze_grabbed_image_bG(empty);
    sequencer->analyze_grabbed_image_bG(grey);
    QCOMPARE(sequencer->samples().size(), std::size_t(2));
    QCOMPARE(sequencer->samples()[1].focusValue, 0.0);
}

QTEST_GUILESS_MAIN(TestAutofocus)
#include "test_autofocus.moc"
