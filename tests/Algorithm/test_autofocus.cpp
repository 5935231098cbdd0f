#include "Algorithm/alg_Autofocus.h"

#include <cstdlib>
#include <functional>
#include <memory>

#include <QDir>
#include <QFile>
#include <QPointer>
#include <QRegularExpression>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QtTest>

#include <opencv2/imgcodecs.hpp>

#include "Controller/Controller.h"
#include "FocusCapture.h"
#include "ScriptedBoard.h"
#include "camera/OV5642Camera.h"
#include "platform/InstrumentPath.h"

using focus_sweep::State;
using Answer = ScriptedBoard::Answer;

namespace {

constexpr int kWidth = 640;
constexpr int kHeight = 480;
constexpr int kEnd_ms = 20000;
// The brightest stripes whose sum over a VGA frame stays below 2^32.
constexpr int kPeakContrast = 85;

/// What a run says, in the order in which it says it.
struct Run
{
    explicit Run(alg_Autofocus& autofocus)
    {
        QObject::connect(&autofocus, &alg_Autofocus::sig_move_z_position, &receiver,
                         [this](int z) { positions << z; });
        QObject::connect(&autofocus, &alg_Autofocus::sig_progress_AutoFocusing, &receiver,
                         [this](int step) { steps << step; });
        QObject::connect(&autofocus, &alg_Autofocus::sig_review_AutoFocusing, &receiver,
                         [this](int step, const std::vector<AutoFocusingData_t>& taken, int best) {
                             reviewedSteps << step;
                             samples = taken;
                             bestIndex = best;
                         });
        QObject::connect(&autofocus, &alg_Autofocus::sig_endAutoFocusing, &receiver,
                         [this](int z) { ends << z; });
        QObject::connect(&autofocus, &alg_Autofocus::sig_debug_Message, &receiver,
                         [this](const QStringList& parts) { log << parts.join(QLatin1Char('|')); });
    }

    QStringList logOf(const QString& part) const { return log.filter(part); }

    QObject receiver;
    QVector<int> positions;
    QVector<int> steps;
    QVector<int> reviewedSteps;
    std::vector<AutoFocusingData_t> samples;
    int bestIndex = -1;
    QVector<int> ends;
    QStringList log;
};

/// Reaches the sweeps that no run enters.
class FineAutofocus : public alg_Autofocus
{
public:
    using alg_Autofocus::alg_Autofocus;
    using alg_Autofocus::enterState;

    void listen()
    {
        connect(Controller::getInstance(), &Controller::sig_z_stage_mvn, this,
                &alg_Autofocus::slot_z_stage_moved);
        connect(Controller::getInstance(), &Controller::sig_z_stage_mvp, this,
                &alg_Autofocus::slot_z_stage_moved);
    }
};

QStringList g_debugStream;

void keepDebugStream(QtMsgType /*type*/, const QMessageLogContext& /*context*/, const QString& text)
{
    g_debugStream << text;
}

/// Contrast that falls off by one step per 100 motor steps on both sides of a peak.
std::function<int(int)> peakAt(int peak)
{
    return [peak](int z) { return std::max(1, kPeakContrast - std::abs(z - peak) / 100); };
}

QStringList repeated(const QString& line, int times)
{
    QStringList lines;
    for (int i = 0; i < times; ++i) {
        lines << line;
    }
    return lines;
}

} // namespace

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
    void aSecondRunOfTheSameObjectStartsAfresh();
    void refusedMovesDoNotStopTheRun();
    void aMoveThatIsNeverReportedLeavesTheRunWaiting();
    void aBoardThatFallsSilentInTheSweepEndsItAllTheSame();
    void deletingTheSequencerDuringARunLeavesNothingBehind();
    void deletingTheSequencerInItsEndIsSafe();
    void theLogNamesEveryStep();

    void savedFramesScoreAsTheTableSays();
    void withoutADiskTheRunEndsAndEachFailureIsLoggedOnce();
    void nothingIsWrittenUnlessAskedFor();

    void aMissingCameraScoresZeroEverywhere_data();
    void aMissingCameraScoresZeroEverywhere();
    void aFrameThatIsNoPictureScoresZero();

    void theFineSweepEndsOneSampleBeforeItsPeak();
    void aRisingFineSweepAsksForAThirdStep();
    void stateOneStepsByTheCoarseInterval();
    void relativeMovesTakeTheirDirectionFromTheSign();
    void aThirdStepIsLogged();
    void withoutSamplesTheResultStays();

    void measuresAreReachableThroughTheClass();
    void findFocusValueKeepsItsList();
    void compareFocusTellsThePeak();
    void sampleTypesAreRegistered();

private:
    std::unique_ptr<alg_Autofocus> autofocus(int centre, bool save = false);
    void putStage(int position, ScriptedBoard::Script script = {});
    void show(std::function<int(int)> contrastAt);
    QString diskPath(const QString& fixedPath) const { return m_root.path() + fixedPath; }

    QTemporaryDir m_root;
    std::unique_ptr<FocusCapture> m_capture;
    std::unique_ptr<ScriptedBoard> m_board;
    std::unique_ptr<OV5642Camera> m_camera;
};

void TestAutofocus::initTestCase()
{
    QVERIFY(m_root.isValid());
    setInstrumentRoot(m_root.path());
    m_capture = std::make_unique<FocusCapture>();
    m_board = std::make_unique<ScriptedBoard>();
    QVERIFY(QDir(m_root.path()).mkpath(QStringLiteral("dev")));
    QVERIFY(QFile::link(m_board->terminal(), diskPath(QStringLiteral("/dev/ttyS2"))));
    QSignalSpy connected(Controller::getInstance(), &Controller::sig_connected_controller);
    Controller::getInstance()->openSerialPort();
    QCOMPARE(connected.size(), 1);
    m_camera = std::make_unique<OV5642Camera>();
    QVERIFY(m_camera->open(0, "/opt/ORLA3/conf/Calibration_BFN.ini", false));
}

void TestAutofocus::init()
{
    QDir(diskPath(QStringLiteral("/mnt"))).removeRecursively();
    QFile::remove(diskPath(QStringLiteral("/mnt")));
    show(peakAt(0));
    putStage(0);
}

void TestAutofocus::cleanup()
{
    qInstallMessageHandler(nullptr);
}

void TestAutofocus::cleanupTestCase()
{
    m_board->setOnMove({});
    m_camera->close();
    m_camera.reset();
    m_board.reset();
    m_capture.reset();
    setInstrumentRoot({});
}

std::unique_ptr<alg_Autofocus> TestAutofocus::autofocus(int centre, bool save)
{
    return std::make_unique<alg_Autofocus>(nullptr, m_camera.get(), centre, kWidth, kHeight, save);
}

void TestAutofocus::putStage(int position, ScriptedBoard::Script script)
{
    m_board->reset(position);
    QCOMPARE(Controller::getInstance()->z_stage_pos(), position);
    m_board->reset(position, std::move(script));
}

void TestAutofocus::show(std::function<int(int)> contrastAt)
{
    m_board->setOnMove([this, contrastAt](int z) { m_capture->show(contrastAt(z)); });
}

// ---- run ----

void TestAutofocus::aRunScoresFifteenPositionsAndGoesToTheBest()
{
    putStage(10000);
    show(peakAt(9000));
    const auto sequencer = autofocus(10000);
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
    QCOMPARE(m_board->position(), best);
    QCOMPARE(run.positions, expected << best);
    QCOMPARE(run.steps, QVector<int>(15, 1));
    QCOMPARE(run.reviewedSteps, QVector<int>{1});
    QCOMPARE(sequencer->state(), State::Done);
    const QStringList lines = QStringList{"GET_POS,", "MVN,4480", "GET_POS,"} + repeated("MVP,640", 15) +
                              QStringList{"GET_POS,", "MVN,6400"};
    QCOMPARE(m_board->lines(), lines);
    QVERIFY(run.logOf("[Error]").isEmpty());
}

void TestAutofocus::aStageBelowTheSweepIsMovedUp()
{
    putStage(-2000);
    show(peakAt(7440));
    const auto sequencer = autofocus(10000);
    Run run(*sequencer);
    sequencer->process();
    QTRY_COMPARE_WITH_TIMEOUT(run.ends.size(), 1, kEnd_ms);
    QCOMPARE(run.ends.first(), 7440);
    QCOMPARE(m_board->lines().mid(0, 4), QStringList({"GET_POS,", "MVP,7520", "GET_POS,", "MVP,640"}));
}

void TestAutofocus::aStageAtTheSweepStartBeginsAtOnce()
{
    putStage(5520);
    show(peakAt(10640));
    const auto sequencer = autofocus(10000);
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
    QCOMPARE(m_board->lines(), lines);
}

void TestAutofocus::aRunWhoseBestIsItsLastPositionDoesNotEnd()
{
    putStage(5520);
    show(peakAt(15120));
    auto sequencer = autofocus(10000);
    Run run(*sequencer);
    sequencer->process();
    QCOMPARE(run.bestIndex, 14);
    QCOMPARE(sequencer->resultZ(), 15120);
    QCOMPARE(sequencer->state(), State::MovingToResult);
    QTest::qWait(100);
    QVERIFY(run.ends.isEmpty());
    QCOMPARE(m_board->lines().last(), QStringLiteral("GET_POS,"));
    // It can be let go like any other, and the stage's next move concerns nobody.
    sequencer.reset();
    Controller::getInstance()->z_stage_mvp(SERIAL_NON_BLOCKING, 10);
    QSignalSpy moved(Controller::getInstance(), &Controller::sig_z_stage_mvp);
    QTRY_COMPARE(moved.size(), 1);
    QVERIFY(run.ends.isEmpty());
}

void TestAutofocus::aDarkSlideEndsAtTheFirstPosition()
{
    putStage(10000);
    show([](int) { return 0; });
    const auto sequencer = autofocus(10000);
    Run run(*sequencer);
    sequencer->process();
    QTRY_COMPARE_WITH_TIMEOUT(run.ends.size(), 1, kEnd_ms);
    QCOMPARE(run.bestIndex, 0);
    QCOMPARE(run.ends.first(), 6160);
    QCOMPARE(run.samples.front().focusValue, 0.0);
}

void TestAutofocus::aSecondRunOfTheSameObjectStartsAfresh()
{
    putStage(10000);
    show(peakAt(9360));
    const auto sequencer = autofocus(10000);
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
    putStage(10000, [](int, const QString& command) {
        return command == QLatin1String("MVP") ? Answer::Refuse : Answer::Ok;
    });
    const auto sequencer = autofocus(10000);
    Run run(*sequencer);
    sequencer->process();
    QTRY_COMPARE_WITH_TIMEOUT(run.ends.size(), 1, kEnd_ms);
    // The tracked position moves on, whatever the board did.
    QCOMPARE(run.samples.back().zPosition, 15120);
    QCOMPARE(m_board->position(), 5520);
}

void TestAutofocus::aMoveThatIsNeverReportedLeavesTheRunWaiting()
{
    // The fourth line is the non-blocking step that takes the first sample.
    putStage(10000, [](int n, const QString&) { return n == 4 ? Answer::Hold : Answer::Ok; });
    const auto sequencer = autofocus(10000);
    Run run(*sequencer);
    sequencer->process();
    QTRY_COMPARE(m_board->lines().size(), 4);
    QTest::qWait(100);
    QVERIFY(run.steps.isEmpty());
    QCOMPARE(sequencer->state(), State::Coarse);
    // An answer that comes late is still an answer.
    m_board->release();
    QTRY_COMPARE_WITH_TIMEOUT(run.ends.size(), 1, kEnd_ms);
    QCOMPARE(run.steps.size(), 15);
}

void TestAutofocus::aBoardThatFallsSilentInTheSweepEndsItAllTheSame()
{
    // The eighteenth line is the step to the fifteenth sample: it runs into the read
    // time-out, and the sample is taken where the stage is believed to be.
    putStage(10000, [](int n, const QString&) { return n == 18 ? Answer::Ignore : Answer::Ok; });
    show(peakAt(8720));
    const auto sequencer = autofocus(10000);
    Run run(*sequencer);
    sequencer->process();
    QTRY_COMPARE_WITH_TIMEOUT(run.ends.size(), 1, kEnd_ms);
    QCOMPARE(run.steps.size(), 15);
    QCOMPARE(run.samples.back().zPosition, 15120);
    QCOMPARE(run.ends.first(), 8720);
    // The last move is reckoned from where the board says that the stage stands.
    QCOMPARE(m_board->lines().last(), QStringLiteral("MVN,5760"));
    QCOMPARE(m_board->position(), 8720);
}

void TestAutofocus::deletingTheSequencerDuringARunLeavesNothingBehind()
{
    putStage(10000, [](int n, const QString&) { return n == 4 ? Answer::Hold : Answer::Ok; });
    QSignalSpy moved(Controller::getInstance(), &Controller::sig_z_stage_mvp);
    auto sequencer = autofocus(10000);
    Run run(*sequencer);
    sequencer->process();
    QTRY_COMPARE(m_board->lines().size(), 4);
    sequencer.reset();
    m_board->release();
    QTRY_COMPARE(moved.size(), 1);
    QTest::qWait(50);
    QVERIFY(run.positions.isEmpty());
    QCOMPARE(m_board->lines().size(), 4);
}

void TestAutofocus::deletingTheSequencerInItsEndIsSafe()
{
    putStage(10000);
    show(peakAt(9360));
    QPointer<alg_Autofocus> sequencer = autofocus(10000).release();
    Run run(*sequencer);
    connect(sequencer.data(), &alg_Autofocus::sig_endAutoFocusing, this, [&sequencer] { delete sequencer; });
    sequencer->process();
    QTRY_VERIFY_WITH_TIMEOUT(sequencer.isNull(), kEnd_ms);
    QCOMPARE(run.ends, QVector<int>{9360});
}

void TestAutofocus::theLogNamesEveryStep()
{
    putStage(10000);
    show(peakAt(9360));
    const auto sequencer = autofocus(10000);
    Run run(*sequencer);
    g_debugStream.clear();
    qInstallMessageHandler(keepDebugStream);
    sequencer->process();
    QTRY_COMPARE_WITH_TIMEOUT(run.ends.size(), 1, kEnd_ms);
    qInstallMessageHandler(nullptr);

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
    for (QString message : qAsConst(run.log)) {
        QVERIFY2(g_debugStream.contains(message.replace('|', ' ')), qPrintable(message));
    }
    for (const char* line : {"------------> target :  5520", "------------> current :  10000",
                             "After move m_current_pos  :  10000", "After move Real current :  5520"}) {
        QCOMPARE(g_debugStream.count(line), 1);
        QVERIFY(run.logOf(QString(line).left(12)).isEmpty());
    }
}

// ---- files ----

void TestAutofocus::savedFramesScoreAsTheTableSays()
{
    putStage(10000);
    show(peakAt(9000));
    const auto sequencer = autofocus(10000, true);
    Run run(*sequencer);
    sequencer->process();
    QTRY_COMPARE_WITH_TIMEOUT(run.ends.size(), 1, kEnd_ms);
    QVERIFY(run.logOf("[Error]").isEmpty());

    const QRegularExpression directoryName(R"(^/mnt/ORLA-II/Autofocus/\d{8}_\d{6}$)");
    QVERIFY2(directoryName.match(sequencer->logDirectory()).hasMatch(),
             qPrintable(sequencer->logDirectory()));
    const QDir directory(diskPath(sequencer->logDirectory() + "/Step1"));
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
    QFile inTheWay(diskPath(QStringLiteral("/mnt")));
    QVERIFY(inTheWay.open(QIODevice::WriteOnly));
    putStage(10000);
    show(peakAt(9360));
    const auto sequencer = autofocus(10000, true);
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
    putStage(10000);
    show(peakAt(9360));
    const auto sequencer = autofocus(10000);
    Run run(*sequencer);
    sequencer->process();
    QTRY_COMPARE_WITH_TIMEOUT(run.ends.size(), 1, kEnd_ms);
    QVERIFY(sequencer->logDirectory().isEmpty());
    QVERIFY(!QDir(diskPath(QStringLiteral("/mnt"))).exists());
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
    if (camera != QLatin1String("none")) {
        source = camera == QLatin1String("closed") ? &closed : m_camera.get();
    }
    const int factor = camera == QLatin1String("small") ? 2 : 1;
    putStage(10000);
    alg_Autofocus sequencer(nullptr, source, 10000, kWidth * factor, kHeight * factor, true);
    Run run(sequencer);
    sequencer.process();
    QTRY_COMPARE_WITH_TIMEOUT(run.ends.size(), 1, kEnd_ms);
    QCOMPARE(run.samples.size(), std::size_t(15));
    for (const AutoFocusingData_t& sample : run.samples) {
        QCOMPARE(sample.focusValue, 0.0);
    }
    QCOMPARE(run.ends.first(), 6160);
    QCOMPARE(run.logOf("[Error]").size(), 1);
    QCOMPARE(run.logOf("[Error] no frame").size(), 1);
    // Scores, but no pictures.
    const QDir directory(diskPath(sequencer.logDirectory() + "/Step1"));
    QCOMPARE(directory.entryList(QDir::Files), QStringList{"best_focus_value.csv"});
}

void TestAutofocus::aFrameThatIsNoPictureScoresZero()
{
    const auto sequencer = autofocus(0);
    cv::Mat empty;
    cv::Mat grey(8, 8, CV_8UC1, cv::Scalar(7));
    sequencer->analyze_grabbed_image_bG(empty);
    sequencer->analyze_grabbed_image_bG(grey);
    QCOMPARE(sequencer->samples().size(), std::size_t(2));
    QCOMPARE(sequencer->samples()[1].focusValue, 0.0);
}

// ---- what the run does not enter ----

void TestAutofocus::theFineSweepEndsOneSampleBeforeItsPeak()
{
    putStage(10000);
    show(peakAt(10230));
    FineAutofocus sequencer(nullptr, m_camera.get(), 10000, kWidth, kHeight, false);
    Run run(sequencer);
    sequencer.listen();
    sequencer.enterState(State::FineFirstStep);
    sequencer.prepareAutoFocusing_Step(230, 7);
    QTRY_COMPARE_WITH_TIMEOUT(run.ends.size(), 1, kEnd_ms);
    QCOMPARE(run.samples.size(), std::size_t(7));
    QCOMPARE(run.samples.front().zPosition, 9310 + 230);
    QCOMPARE(run.steps, QVector<int>(7, 2));
    QCOMPARE(run.reviewedSteps, QVector<int>{2});
    QCOMPARE(run.bestIndex, 2);
    QCOMPARE(run.ends.first(), 10000);
    const QStringList lines =
        QStringList{"GET_POS,", "MVN,690"} + repeated("MVP,230", 7) + QStringList{"GET_POS,", "MVN,920"};
    QCOMPARE(m_board->lines(), lines);
    QCOMPARE(
        run.log.first(),
        QStringLiteral("void alg_Autofocus::prepareAutoFocusing_Step(int, int)|interval: 230, count: 7"));
}

void TestAutofocus::aRisingFineSweepAsksForAThirdStep()
{
    putStage(10000);
    show(peakAt(11610));
    FineAutofocus sequencer(nullptr, m_camera.get(), 10000, kWidth, kHeight, false);
    Run run(sequencer);
    sequencer.listen();
    sequencer.enterState(State::FineFirstStep);
    sequencer.prepareAutoFocusing_Step(230, 7);
    QTRY_COMPARE_WITH_TIMEOUT(run.reviewedSteps.size(), 1, kEnd_ms);
    QCOMPARE(run.samples.back().zPosition, 10920);
    // The third step is centred 690 beyond the last sample, and so begins where it was taken.
    QCOMPARE(sequencer.resultZ(), 10920 + 690);
    QCOMPARE(sequencer.sweepStartZ(), 10920);
    QTRY_COMPARE_WITH_TIMEOUT(run.ends.size(), 1, kEnd_ms);
    QCOMPARE(run.reviewedSteps, QVector<int>({2, 3}));
    QCOMPARE(run.steps, QVector<int>(7, 2) + QVector<int>(7, 3));
    QCOMPARE(run.samples.size(), std::size_t(7));
    QCOMPARE(run.samples.front().zPosition, 10920 + 230);
    QCOMPARE(run.ends.first(), 11610 - 230);
    QCOMPARE(m_board->position(), 11610 - 230);
}

void TestAutofocus::stateOneStepsByTheCoarseInterval()
{
    QSignalSpy moved(Controller::getInstance(), &Controller::sig_z_stage_mvp);
    FineAutofocus sequencer(nullptr, m_camera.get(), 0, kWidth, kHeight, false);
    sequencer.enterState(State::CoarseFirstStep);
    sequencer.dispatch_proc();
    QCOMPARE(sequencer.state(), State::Coarse);
    QTRY_COMPARE(moved.size(), 1);
    QCOMPARE(m_board->lines(), QStringList{"MVP,640"});
    sequencer.enterState(State::Done);
    sequencer.dispatch_proc();
    QCOMPARE(sequencer.state(), State::Done);
    QCOMPARE(m_board->lines(), QStringList{"MVP,640"});
}

void TestAutofocus::relativeMovesTakeTheirDirectionFromTheSign()
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
    QCOMPARE(m_board->lines(), QStringList({"MVP,12", "MVN,34", "MVP,0"}));
}

void TestAutofocus::aThirdStepIsLogged()
{
    const auto sequencer = autofocus(0);
    Run run(*sequencer);
    std::vector<AutoFocusingData_s> rising{{1.0, 10}, {2.0, 20}};
    std::size_t best = 9;
    QCOMPARE(sequencer->find_best_focus(rising, best, false), AutoFocusingResult_BestPositionFound);
    QVERIFY(run.log.isEmpty());
    QCOMPARE(sequencer->find_best_focus(rising, best, true), AutoFocusingResult_ThirdStepNecessary);
    QCOMPARE(best, std::size_t(1));
    QCOMPARE(run.log.size(), 1);
    QVERIFY(run.log.first().endsWith("|!!! AutoFocusingResult_ThirdStepNecessary !!!"));
    QVERIFY(run.log.first().contains("alg_Autofocus::find_best_focus("));
}

void TestAutofocus::withoutSamplesTheResultStays()
{
    const auto sequencer = autofocus(4711);
    Run run(*sequencer);
    std::vector<AutoFocusingData_s> none;
    std::size_t best = 9;
    QCOMPARE(sequencer->find_best_focus(none, best, true), AutoFocusingResult_NoSample);
    QCOMPARE(best, std::size_t(9));
    QCOMPARE(sequencer->find_AutoFocusing_Position(true), AutoFocusingResult_NoSample);
    QCOMPARE(sequencer->resultZ(), 4711);
    QVERIFY(run.reviewedSteps.isEmpty());
}

// ---- measures ----

void TestAutofocus::measuresAreReachableThroughTheClass()
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

void TestAutofocus::findFocusValueKeepsItsList()
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
    QVERIFY_EXCEPTION_THROWN(sequencer->find_focus_value(nullptr, 640, 480, value, FOCUS_VALUE_DARK_PIXELS, 1,
                                                         FOCUS_WINDOW_320x240),
                             cv::Exception);
    QCOMPARE(sequencer->focusValues().size(), std::size_t(2));
    sequencer->find_focus_value(nullptr, 0, 0, value, FOCUS_VALUE_DARK_PIXELS, 1, FOCUS_WINDOW_320x240);
    QCOMPARE(sequencer->focusValues().size(), std::size_t(3));
}

void TestAutofocus::compareFocusTellsThePeak()
{
    putStage(1234);
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

void TestAutofocus::sampleTypesAreRegistered()
{
    const auto sequencer = autofocus(0);
    QVERIFY(QMetaType::type("AutoFocusingData_t") != QMetaType::UnknownType);
    QCOMPARE(QMetaType::typeName(qMetaTypeId<AutoFocusingData_t>()), "AutoFocusingData_t");
    QVERIFY(QMetaType::type("std::vector<AutoFocusingData_t>") != QMetaType::UnknownType);
    QSignalSpy review(sequencer.get(),
                      SIGNAL(sig_review_AutoFocusing(int, std::vector<AutoFocusingData_t>, int)));
    QVERIFY(review.isValid());
    putStage(50);
    sequencer->function_Z_stage();
    sequencer->trigger_image_grab();
    QCOMPARE(sequencer->find_AutoFocusing_Position(false), AutoFocusingResult_BestPositionFound);
    QCOMPARE(review.size(), 1);
    const auto samples = review.first().at(1).value<std::vector<AutoFocusingData_t>>();
    QCOMPARE(samples.size(), std::size_t(1));
    QCOMPARE(samples.front().zPosition, 50);
}

QTEST_GUILESS_MAIN(TestAutofocus)
#include "test_autofocus.moc"
