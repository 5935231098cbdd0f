#include "Algorithm/alg_Autofocus.h"

#include <QDir>
#include <QFile>
#include <QPointer>
#include <QRegularExpression>
#include <QSignalSpy>
#include <QtTest>

#include <opencv2/imgcodecs.hpp>

#include "Controller/Controller.h"
#include "FocusRig.h"
#include "support/FileBytes.h"
#include "support/LogRecorder.h"

using focus_sweep::State;

/// Where a run begins that has not been told otherwise, and the centre of its sweep.
constexpr int kCentre = 10000;

class TestAutofocus : public QObject, protected FocusRig
{
    Q_OBJECT

private slots:
    void initTestCase() { QVERIFY(isUp()); }

    void init()
    {
        reset();
        QVERIFY(putStage(kCentre));
        show(peakAt(9360));
    }

    void cleanup() { Controller::getInstance()->m_timeouts = ControllerTimeouts(); }

    // ---- run ----

    void aRunScoresFifteenPositionsAndGoesToTheBest()
    {
        show(peakAt(9000));
        Run run(autofocus(kCentre));
        run.sequencer->process();
        QCOMPARE(run.sequencer->state(), State::Coarse);
        QCOMPARE(run.sequencer->sweepStartZ(), 5520);
        QVERIFY(run.hasEnded());

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
        QCOMPARE(run.sequencer->resultZ(), best);
        QCOMPARE(stage(), best);
        QCOMPARE(run.positions, expected << best);
        QCOMPARE(run.steps, QVector<int>(15, 1));
        QCOMPARE(run.reviewedSteps, QVector<int>{1});
        QCOMPARE(run.sequencer->state(), State::Done);
        const QStringList lines = QStringList{"GET_POS,", "MVN,4480", "GET_POS,"} + repeated("MVP,640", 15) +
                                  QStringList{"GET_POS,", "MVN,6400"};
        QCOMPARE(this->lines(), lines);
        QVERIFY(run.logOf("[Error]").isEmpty());
    }

    void aStageBelowTheSweepIsMovedUp()
    {
        QVERIFY(putStage(-2000));
        show(peakAt(7440));
        Run run(autofocus(kCentre));
        QVERIFY(run.toEnd());
        QCOMPARE(run.ends.first(), 7440);
        QCOMPARE(lines().mid(0, 4), QStringList({"GET_POS,", "MVP,7520", "GET_POS,", "MVP,640"}));
    }

    void aStageAtTheSweepStartBeginsAtOnce()
    {
        QVERIFY(putStage(5520));
        show(peakAt(10640));
        Run run(autofocus(kCentre));
        run.sequencer->process();
        // All fifteen samples are taken before process() returns, fifteen levels deep.
        QCOMPARE(run.steps.size(), 15);
        QCOMPARE(run.samples.front().zPosition, 6160);
        QCOMPARE(run.samples.back().zPosition, 15120);
        QVERIFY(run.hasEnded());
        QCOMPARE(run.ends.first(), 10640);
        const QStringList lines =
            QStringList{"GET_POS,"} + repeated("MVP,640", 15) + QStringList{"GET_POS,", "MVN,4480"};
        QCOMPARE(this->lines(), lines);
    }

    void aRunWhoseBestIsItsLastPositionDoesNotEnd()
    {
        QVERIFY(putStage(5520));
        show(peakAt(15120));
        Run run(autofocus(kCentre));
        run.sequencer->process();
        QCOMPARE(run.bestIndex, 14);
        QCOMPARE(run.sequencer->resultZ(), 15120);
        QCOMPARE(run.sequencer->state(), State::MovingToResult);
        QTest::qWait(100);
        QVERIFY(run.ends.isEmpty());
        QCOMPARE(lines().last(), QStringLiteral("GET_POS,"));
        // It can be let go like any other, and the stage's next move concerns nobody.
        run.sequencer.reset();
        Controller::getInstance()->z_stage_mvp(SERIAL_NON_BLOCKING, 10);
        QSignalSpy moved(Controller::getInstance(), &Controller::sig_z_stage_mvp);
        QTRY_COMPARE(moved.size(), 1);
        QVERIFY(run.ends.isEmpty());
    }

    void aDarkSlideEndsAtTheFirstPosition()
    {
        show([](int) { return 0; });
        Run run(autofocus(kCentre));
        QVERIFY(run.toEnd());
        QCOMPARE(run.bestIndex, 0);
        QCOMPARE(run.ends.first(), 6160);
        QCOMPARE(run.samples.front().focusValue, 0.0);
    }

    void afterItsEndTheStagesMovesConcernARunNoMore()
    {
        Run run(autofocus(kCentre));
        QVERIFY(run.toEnd());
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

    void aSecondRunOfTheSameObjectStartsAfresh()
    {
        Run run(autofocus(kCentre));
        QVERIFY(run.toEnd());
        QVERIFY(run.toEnd(2));
        QCOMPARE(run.steps.size(), 30);
        QCOMPARE(run.samples.size(), std::size_t(15));
        QCOMPARE(run.samples.front().zPosition, 6160);
        QCOMPARE(run.ends, QVector<int>({9360, 9360}));
    }

    void refusedMovesDoNotStopTheRun()
    {
        QVERIFY(putStage(kCentre, {{LineFault::Failure, "MVP", 0}}));
        Run run(autofocus(kCentre));
        QVERIFY(run.toEnd());
        // The tracked position moves on, whatever the board did.
        QCOMPARE(run.samples.back().zPosition, 15120);
        QCOMPARE(stage(), 5520);
    }

    void aMoveThatIsNeverReportedLeavesTheRunWaiting()
    {
        // The fourth line is the non-blocking step that takes the first sample.
        QVERIFY(putStage(kCentre, {{LineFault::Held, {}, 4}}));
        Run run(autofocus(kCentre));
        run.sequencer->process();
        QTRY_COMPARE(lines().size(), 4);
        QTest::qWait(100);
        QVERIFY(run.steps.isEmpty());
        QCOMPARE(run.sequencer->state(), State::Coarse);
        // An answer that comes late is still an answer.
        release();
        QVERIFY(run.hasEnded());
        QCOMPARE(run.steps.size(), 15);
    }

    void aBoardThatFallsSilentInTheSweepEndsItAllTheSame()
    {
        // The eighteenth line is the step to the fifteenth sample: it runs into the read
        // time-out, and the sample is taken where the stage is believed to be.
        QVERIFY(putStage(kCentre, {{LineFault::Ignored, {}, 18}}));
        show(peakAt(8720));
        Run run(autofocus(kCentre));
        // Nothing else is waited for in vain.
        connect(run.sequencer.get(), &alg_Autofocus::sig_progress_AutoFocusing, [&run] {
            constexpr int kShort_ms = 100;
            Controller::getInstance()->m_timeouts.read_ms =
                run.steps.size() == 14 ? kShort_ms : ControllerTimeouts().read_ms;
        });
        QVERIFY(run.toEnd());
        QCOMPARE(run.steps.size(), 15);
        QCOMPARE(run.samples.back().zPosition, 15120);
        QCOMPARE(run.ends.first(), 8720);
        // The last move is reckoned from where the board says that the stage stands.
        QCOMPARE(lines().last(), QStringLiteral("MVN,5760"));
        QCOMPARE(stage(), 8720);
    }

    void deletingTheSequencerDuringARunLeavesNothingBehind()
    {
        QVERIFY(putStage(kCentre, {{LineFault::Held, {}, 4}}));
        QSignalSpy moved(Controller::getInstance(), &Controller::sig_z_stage_mvp);
        Run run(autofocus(kCentre));
        run.sequencer->process();
        QTRY_COMPARE(lines().size(), 4);
        run.sequencer.reset();
        release();
        QTRY_COMPARE(moved.size(), 1);
        QTest::qWait(50);
        QVERIFY(run.positions.isEmpty());
        QCOMPARE(lines().size(), 4);
    }

    void deletingTheSequencerInItsEndIsSafe()
    {
        QPointer<alg_Autofocus> sequencer = autofocus(kCentre).release();
        Run run(*sequencer);
        connect(sequencer.data(), &alg_Autofocus::sig_endAutoFocusing, this,
                [&sequencer] { delete sequencer; });
        sequencer->process();
        QTRY_VERIFY_WITH_TIMEOUT(sequencer.isNull(), kEnd_ms);
        QCOMPARE(run.ends, QVector<int>{9360});
    }

    void theLogNamesEveryStep()
    {
        Run run(autofocus(kCentre));
        const LogRecorder log;
        QVERIFY(run.toEnd());
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
        // They stand where it was known what they tell.
        const QStringList way = debugStream.filter(QRegularExpression("^(-+> |After move|write_)"));
        const QString query = R"(write_Blocking command: "$,STM1,GET_POS,,\r\n")";
        QCOMPARE(way.mid(0, 8),
                 QStringList({query, "------------> target :  5520", "------------> current :  10000",
                              R"(write_Blocking command: "$,STM1,MVN,4480,\r\n")",
                              "After move m_current_pos  :  10000", query, "After move Real current :  5520",
                              R"(write_nonBlocking command: "$,STM1,MVP,640,\r\n")"}));
    }

    void everySampleIsLoggedReachedSavedAndReportedInThatOrder()
    {
        const auto sequencer = autofocus(kCentre, true);
        QStringList events;
        const auto files = [&](const char* pattern) {
            const QDir directory(diskPath(sequencer->logDirectory() + "/Step1"));
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

    void savedFramesScoreAsTheTableSays()
    {
        show(peakAt(9000));
        Run run(autofocus(kCentre, true));
        QVERIFY(run.toEnd());
        QVERIFY(run.logOf("[Error]").isEmpty());

        const QRegularExpression directoryName(R"(^/mnt/ORLA-II/Autofocus/\d{8}_\d{6}$)");
        QVERIFY2(directoryName.match(run.sequencer->logDirectory()).hasMatch(),
                 qPrintable(run.sequencer->logDirectory()));
        const QDir directory(diskPath(run.sequencer->logDirectory() + "/Step1"));
        const QList<QByteArray> lines = bytesOf(directory.filePath("best_focus_value.csv")).split('\n');
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

    void withoutADiskTheRunEndsAndEachFailureIsLoggedOnce()
    {
        QFile inTheWay(diskPath(QStringLiteral("/mnt")));
        QVERIFY(inTheWay.open(QIODevice::WriteOnly));
        Run run(autofocus(kCentre, true));
        QVERIFY(run.toEnd());
        QCOMPARE(run.ends.first(), 9360);
        QCOMPARE(run.logOf("[Error]").size(), 3);
        QCOMPARE(run.logOf("[Error] create directory failed:|/mnt/ORLA-II/Autofocus/").size(), 1);
        QCOMPARE(run.logOf("[Error] write image failed:|/mnt/ORLA-II/Autofocus/").size(), 1);
        QCOMPARE(run.logOf("[Error] write file failed:|/mnt/ORLA-II/Autofocus/").size(), 1);
        // Once a run.
        QVERIFY(run.toEnd(2));
        QCOMPARE(run.logOf("[Error]").size(), 6);
        QFile::remove(inTheWay.fileName());
    }

    void nothingIsWrittenUnlessAskedFor()
    {
        Run run(autofocus(kCentre));
        QVERIFY(run.toEnd());
        QVERIFY(run.sequencer->logDirectory().isEmpty());
        QVERIFY(!QDir(diskPath(QStringLiteral("/mnt"))).exists());
    }

    // ---- pictures that are not there ----

    void aMissingCameraScoresZeroEverywhere_data()
    {
        QTest::addColumn<QString>("camera");
        QTest::newRow("no camera object") << "none";
        QTest::newRow("camera closed") << "closed";
        QTest::newRow("frames smaller than told") << "small";
    }

    void aMissingCameraScoresZeroEverywhere()
    {
        QFETCH(QString, camera);
        OV5642Camera closed;
        OV5642Camera* source = nullptr;
        if (camera != QLatin1String("none"))
            source = camera == QLatin1String("closed") ? &closed : this->camera();
        const int factor = camera == QLatin1String("small") ? 2 : 1;
        alg_Autofocus sequencer(nullptr, source, kCentre, kWidth * factor, kHeight * factor, true);
        Run run(sequencer);
        sequencer.process();
        QVERIFY(run.hasEnded());
        QCOMPARE(run.samples.size(), std::size_t(15));
        for (const AutoFocusingData_t& sample : run.samples)
            QCOMPARE(sample.focusValue, 0.0);
        QCOMPARE(run.ends.first(), 6160);
        QCOMPARE(run.logOf("[Error]").size(), 1);
        QCOMPARE(run.logOf("[Error] no frame").size(), 1);
        // Scores, but no pictures.
        const QDir directory(diskPath(sequencer.logDirectory() + "/Step1"));
        QCOMPARE(directory.entryList(QDir::Files), QStringList{"best_focus_value.csv"});
    }

    void aFrameThatIsNoPictureScoresZero()
    {
        const auto sequencer = autofocus(0);
        cv::Mat empty;
        cv::Mat grey(8, 8, CV_8UC1, cv::Scalar(7));
        sequencer->analyze_grabbed_image_bG(empty);
        sequencer->analyze_grabbed_image_bG(grey);
        QCOMPARE(sequencer->samples().size(), std::size_t(2));
        QCOMPARE(sequencer->samples()[1].focusValue, 0.0);
        // No run has begun, and no move was reported.
        QCOMPARE(sequencer->samples()[1].zPosition, 0);
    }
};

QTEST_GUILESS_MAIN(TestAutofocus)
#include "test_autofocus.moc"
