#include <QCheckBox>
#include <QDir>
#include <QLabel>
#include <QLineEdit>
#include <QProgressBar>
#include <QRegularExpression>
#include <QSpinBox>
#include <QTabWidget>
#include <QtTest>

#include "Algorithm/alg_Autofocus.h"
#include "Controller/Controller.h"
#include "camera/OV5642Camera.h"
#include "support/EventWatch.h"
#include "support/PaintWatch.h"
#include "support/PixelBounds.h"
#include "support/WindowFixture.h"
#include "verifier/UsbStick.h"

namespace {

constexpr int kSamples = 15;
constexpr int kStart_steps = 30000;
constexpr int kFocus_steps = 32100;
constexpr int kCentre_steps = 31500;
constexpr int kLongestRun_ms = 30000;
const QString kFinished = "Finish AutoFocus !";
const QString kQuit = "Are you sure quit ?";
const QString kSlots = "void ORLA_II_Plus_Verifier::";

WindowFixture::Options focusOptions()
{
    WindowFixture::Options options;
    options.camera.optics.bestFocus_steps = kFocus_steps;
    options.freshFrames = true;
    return options;
}

} // namespace

class TestWindowAutofocus : public QObject, protected WindowFixture
{
    Q_OBJECT

public:
    TestWindowAutofocus() : WindowFixture(focusOptions()) {}

private slots:
    void init()
    {
        endFaults();
        Controller::getInstance()->z_stage_abs(SERIAL_BLOCKING, kStart_steps);
        Controller::getInstance()->z_stage_pos();
        find<QCheckBox>("CHECK_DEBUG_AUTOFOCUS")->setChecked(false);
        setText("EDIT_Z_POSITION", QString::number(kCentre_steps));
        boxes().clear();
        clearConsoles();
        takeBoardLines();
    }

    void cleanup()
    {
        // A run that did not end would go on in the next test.
        if (!hasWindow())
            return;
        endStuckRun();
        if (find<QPushButton>("BUTTON_DEBUG")->isChecked())
            click("BUTTON_DEBUG");
    }

    void aRunSweepsFifteenPositionsAndGoesToTheBest()
    {
        QVERIFY(runs());
        const QStringList received = takeBoardLines();
        const int best = bestPosition();
        const QString query = "$,STM1,GET_POS,,";
        QStringList lines{query, "$,STM1,MVN,2980,", query};
        for (int i = 0; i < kSamples; ++i)
            lines << "$,STM1,MVP,640,";
        // The window asks for the position after every move that is reported to it.
        lines.insert(4, query);
        lines << query << QString("$,STM1,MVN,%1,").arg(36620 - best) << query;
        QCOMPARE(received, lines);
        QCOMPARE(text("EDIT_Z_POSITION"), QString::number(best));
        QVERIFY2(std::abs(best - kFocus_steps) <= 640, qPrintable(QString::number(best)));
    }

    // It is there for a moment, for the end is told in the middle of its work.
    void aRunThatHasEndedIsNotHeardAnyMore()
    {
        click("BUTTON_AUTOFOCUS");
        QCOMPARE(sequencers().size(), 1);
        alg_Autofocus* run = sequencers().first();
        const auto shown = [this] {
            return QStringList{messages(), text("EDIT_Z_POSITION"),
                               QString::number(find<QProgressBar>("PROGRESS_AUTOFOCUS")->value())};
        };
        QStringList before;
        QStringList after;
        connect(
            run, &alg_Autofocus::sig_endAutoFocusing, this,
            [&] {
                before = shown();
                emit run->sig_debug_Message({"late"});
                emit run->sig_move_z_position(12345);
                emit run->sig_progress_AutoFocusing(1);
                emit run->sig_review_AutoFocusing(1, {}, 0);
                after = shown();
            });
        QVERIFY(waitUntil([&] { return !after.isEmpty(); }, kLongestRun_ms));
        QCOMPARE(after, before);
        QTRY_VERIFY(sequencers().isEmpty());
    }

    void theEndIsReportedOnceTheControlsAreUsableAgain()
    {
        QVERIFY(runs());
        expectBox("ORLA-III", kFinished, QMessageBox::Information);
        QVERIFY(boxes().seen().first().controlsWereEnabled);
        QVERIFY(isEnabled("TAB_MENU"));
        QTRY_VERIFY(sequencers().isEmpty());
    }

    void theBarFollowsTheSamplesAndIsPainted()
    {
        openTab(0);
        auto* bar = find<QProgressBar>("PROGRESS_AUTOFOCUS");
        bar->setValue(50);
        const PaintWatch barWatch(*bar);
        const PaintWatch positionWatch(*find<QLineEdit>("EDIT_Z_POSITION"));
        QVector<int> values;
        int paintsBehind = 0;
        QObject listener;
        connect(bar, &QProgressBar::valueChanged, &listener, [&](int value) {
            paintsBehind = std::max(paintsBehind, int(values.size()) - barWatch.paints());
            values << value;
        });
        QVERIFY(runs());
        QCOMPARE(values, QVector<int>({0, 6, 13, 20, 26, 33, 40, 46, 53, 60, 66, 73, 80, 86, 93, 100}));
        // Each value is on the screen before the next one comes, though no event runs.
        QVERIFY2(paintsBehind <= 1, qPrintable(QString::number(paintsBehind)));
        QVERIFY2(positionWatch.paints() >= kSamples - 1, QByteArray::number(positionWatch.paints()));
    }

    void onlyTheTabsAreDisabledDuringARun()
    {
        find<QProgressBar>("PROGRESS_AUTOFOCUS")->setValue(50);
        QStringList wrong;
        int looks = 0;
        QObject listener;
        connect(find<QProgressBar>("PROGRESS_AUTOFOCUS"), &QProgressBar::valueChanged, &listener, [&] {
            ++looks;
            for (const char* name :
                 {"BUTTON_EXIT", "BUTTON_DEBUG", "SPIN_DEBUG", "DebugMessage", "DebugController"})
                if (!isEnabled(name))
                    wrong << QString("%1 is disabled").arg(name);
            const bool started = looks > 1; // the bar is reset before the controls are locked
            if (started && isEnabled("TAB_MENU"))
                wrong << "TAB_MENU is enabled";
        });
        QVERIFY(runs());
        QCOMPARE(wrong, QStringList());
        QVERIFY(looks > kSamples);
    }

    void theControlsAreSeenToBeLockedBeforeTheStageMoves()
    {
        addFault({LineFault::NoAnswer, "MVP", 1});
        auto* bar = find<QProgressBar>("PROGRESS_AUTOFOCUS");
        bar->setValue(50);
        QStringList seen;
        const auto look = [&] { seen << (isEnabled("TAB_MENU") ? "enabled" : "locked") << takeBoardLines(); };
        QObject pending; // goes with what has not had its turn
        // What is pending when the bar is reset has its turn before the first command.
        const auto connection = connect(bar, &QProgressBar::valueChanged, [&] {
            QMetaObject::invokeMethod(&pending, look, Qt::QueuedConnection);
        });
        click("BUTTON_AUTOFOCUS");
        disconnect(connection);
        QCOMPARE(seen, QStringList("locked"));
        QVERIFY(!takeBoardLines().isEmpty());
    }

    void theLogTellsEverySampleAndEveryPosition()
    {
        QVERIFY(runs());
        const QString best = QString::number(bestPosition());
        const QStringList log = logLines();
        QCOMPARE(log.filter("on_BUTTON_AUTOFOCUS_clicked"),
                 QStringList(kSlots + "on_BUTTON_AUTOFOCUS_clicked()() "));
        QStringList progress;
        QStringList positions;
        for (int i = 1; i <= kSamples; ++i) {
            progress << QString("%1slot_progress_AutoFocusing(int)() [1] %2/15 %3% ")
                            .arg(kSlots)
                            .arg(i)
                            .arg(i / 15.0 * 100.0, 0, 'g', 6);
            positions << QString("%1slot_move_z_position(int)() %2 ").arg(kSlots).arg(27020 + 640 * i);
        }
        positions << kSlots + "slot_move_z_position(int)() " + best + ' ';
        QCOMPARE(log.filter("slot_progress_AutoFocusing"), progress);
        QCOMPARE(progress.first(), kSlots + "slot_progress_AutoFocusing(int)() [1] 1/15 6.66667% ");
        QCOMPARE(log.filter("slot_move_z_position"), positions);
        QCOMPARE(log.filter("slot_endAutoFocusing"),
                 QStringList(kSlots + "slot_endAutoFocusing(int)() " + best + ' '));
    }

    void theReviewIsLoggedAsItWasTaken()
    {
        std::vector<AutoFocusingData_t> samples;
        int bestIndex = -1;
        // The sequencer exists once the bar has been reset.
        auto* bar = find<QProgressBar>("PROGRESS_AUTOFOCUS");
        bar->setValue(50);
        QObject listener;
        connect(bar, &QProgressBar::valueChanged, &listener, [&](int value) {
            if (value != 0)
                return;
            connect(sequencers().first(), &alg_Autofocus::sig_review_AutoFocusing, &listener,
                    [&](int, const std::vector<AutoFocusingData_t>& taken, int best) {
                        samples = taken;
                        bestIndex = best;
                    });
        });
        QVERIFY(runs());
        QCOMPARE(int(samples.size()), kSamples);
        QCOMPARE(logLines().filter("slot_review_AutoFocusing"), reviewLog(1, samples, bestIndex));
        for (int i = 0; i < kSamples; ++i)
            QCOMPARE(samples[std::size_t(i)].zPosition, 27660 + 640 * i);
    }

    void everyStepsReviewIsLogged_data()
    {
        QTest::addColumn<int>("step");
        for (int step = -1; step <= 4; ++step)
            QTest::addRow("step %d", step) << step;
    }

    void everyStepsReviewIsLogged()
    {
        QFETCH(int, step);
        const std::vector<AutoFocusingData_t> samples{
            {0.0, -120}, {1234567.89, 0}, {0.000012345, 32000}, {421.5, 2147483647}};
        window().slot_review_AutoFocusing(step, samples, 3);
        QStringList expected = reviewLog(step, samples, 3);
        if (step < 1 || step > 3)
            expected = expected.mid(0, 1);
        QCOMPARE(logLines(), expected);
        const QString head =
            kSlots + "slot_review_AutoFocusing(int, std::vector<AutoFocusingData_s>, int)() ";
        QCOMPARE(expected.first(), head + "######################### ");
        if (step == 1)
            QCOMPARE(expected[3], head + "[1](1) focus_value: 1.23457e+06 , position: 0 ");
    }

    void withoutADiskNothingIsSavedAndNoRunStarts()
    {
        find<QProgressBar>("PROGRESS_AUTOFOCUS")->setValue(50);
        find<QCheckBox>("CHECK_DEBUG_AUTOFOCUS")->setChecked(true);
        click("BUTTON_AUTOFOCUS");
        expectBox("Error", "Please insert USB disk !!!", QMessageBox::Critical);
        QVERIFY(sequencers().isEmpty());
        QVERIFY(isEnabled("TAB_MENU"));
        QCOMPARE(takeBoardLines(), QStringList());
        QCOMPARE(find<QProgressBar>("PROGRESS_AUTOFOCUS")->value(), 50);
        QCOMPARE(logLines(), QStringList(kSlots + "on_BUTTON_AUTOFOCUS_clicked()() "));
    }

    void withADiskTheSweepIsSavedThere()
    {
        QVERIFY(plugAndMount(*this));
        find<QCheckBox>("CHECK_DEBUG_AUTOFOCUS")->setChecked(true);
        const bool ended = runs();
        const QStringList names = savedRuns().entryList();
        QStringList files;
        if (names.size() == 1)
            files = QDir(savedRuns().filePath(names.first() + "/Step1")).entryList(QDir::Files, QDir::Name);
        pullAndUnmount(*this);
        QVERIFY(ended);
        QCOMPARE(names.size(), 1);
        QVERIFY(QRegularExpression("^\\d{8}_\\d{6}$").match(names.first()).hasMatch());
        QCOMPARE(files.size(), kSamples + 1);
        QCOMPARE(files.last(), QString("best_focus_value.csv"));
        for (int i = 0; i < kSamples; ++i) {
            const QString begin =
                QString("Autofocus_%1_%2_").arg(i + 1, 2, 10, QChar('0')).arg(27660 + 640 * i);
            QVERIFY2(files[i].startsWith(begin) && files[i].endsWith(".tiff"), qPrintable(files[i]));
        }
    }

    void aFullDiskDoesNotStopTheRun()
    {
        if (!plugAndMount(*this, UsbDiskCondition::Full))
            QSKIP("this process may not mount a file system");
        find<QCheckBox>("CHECK_DEBUG_AUTOFOCUS")->setChecked(true);
        const bool ended = runs();
        pullAndUnmount(*this);
        QVERIFY(ended);
        QCOMPARE(boxes().texts(), QStringList(kFinished));
        QCOMPARE(find<QProgressBar>("PROGRESS_AUTOFOCUS")->value(), 100);
        QVERIFY(!logLines().filter("[Error] write image failed: /mnt/ORLA-II/Autofocus/").isEmpty());
        QVERIFY(isEnabled("TAB_MENU"));
    }

    void aDiskThatIsPulledDuringTheRunDoesNotStopIt()
    {
        QVERIFY(plugAndMount(*this));
        find<QCheckBox>("CHECK_DEBUG_AUTOFOCUS")->setChecked(true);
        auto* bar = find<QProgressBar>("PROGRESS_AUTOFOCUS");
        const auto connection = connect(bar, &QProgressBar::valueChanged, [&](int value) {
            if (value == 46)
                usb().pull();
        });
        const bool ended = runs();
        disconnect(connection);
        QVERIFY(waitUntil([this] { return !usb().isMounted(); }));
        QVERIFY(ended);
        QCOMPARE(boxes().texts(), QStringList(kFinished));
        QCOMPARE(bar->value(), 100);
        QCOMPARE(logLines().filter("[Error] write image failed:").size(), 1);
        QCOMPARE(logLines().filter("[Error] write file failed:").size(), 1);
        // The next run that is to be saved asks for a disk.
        boxes().clear();
        click("BUTTON_AUTOFOCUS");
        QCOMPARE(boxes().texts(), QStringList("Please insert USB disk !!!"));
    }

    void anUncheckedBoxSavesNothing()
    {
        QVERIFY(plugAndMount(*this));
        const QStringList before = savedRuns().entryList();
        const bool ended = runs();
        const QStringList after = savedRuns().entryList();
        pullAndUnmount(*this);
        QVERIFY(ended);
        QCOMPARE(after, before);
    }

    void theCentreIsWhatThePositionFieldSays_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<int>("start_steps");
        QTest::newRow("number") << "31500" << 27020;
        QTest::newRow("blanks around") << " 31500 " << 27020;
        QTest::newRow("10,000") << "10000" << 5520;
        QTest::newRow("negative") << "-20" << -4500;
        for (const char* text : {"", "abc", "315oo", "0x7B0C", "31500.0", "99999999999"})
            QTest::newRow(*text != '\0' ? text : "empty") << text << -4480;
    }

    void theCentreIsWhatThePositionFieldSays()
    {
        QFETCH(QString, text);
        QFETCH(int, start_steps);
        // A board that answers no single step: the run stays where it begins.
        addFault({LineFault::NoAnswer, "MVP", 0});
        setText("EDIT_Z_POSITION", text);
        click("BUTTON_AUTOFOCUS");
        QCOMPARE(takeBoardLines().filter("MVN"),
                 QStringList(QString("$,STM1,MVN,%1,").arg(kStart_steps - start_steps)));
    }

    void aRunThatStandsOnItsBestPositionDoesNotEnd()
    {
        // The stage takes the first step and refuses all others: the first sample is the best,
        // as the picture is sharper below, and the stage stands there.
        for (int n = 2; n <= kSamples; ++n)
            addFault({LineFault::Failure, "MVP", n});
        Controller::getInstance()->z_stage_abs(SERIAL_BLOCKING, 34000);
        setText("EDIT_Z_POSITION", QString::number(34000 + 4480));
        takeBoardLines();
        click("BUTTON_AUTOFOCUS");
        QTRY_COMPARE(find<QProgressBar>("PROGRESS_AUTOFOCUS")->value(), 100);
        QTest::qWait(300);
        QCOMPARE(takeBoardLines().size(), kSamples + 2);
        QCOMPARE(logLines().filter("[1] best_index:").size(), 1);
        QVERIFY(logLines().filter("[1] best_index:").first().endsWith("best_index: 0 "));
        QVERIFY(boxes().seen().isEmpty());
        stillUsableButForTheTabs();
    }

    void aMoveThatIsNeverReportedLeavesTheRunWaiting_data()
    {
        QTest::addColumn<QString>("command");
        QTest::addColumn<int>("number");
        QTest::addColumn<int>("progress");
        QTest::newRow("first step") << "MVP" << 1 << 0;
        QTest::newRow("last move") << "MVN" << 2 << 100;
    }

    void aMoveThatIsNeverReportedLeavesTheRunWaiting()
    {
        QFETCH(QString, command);
        QFETCH(int, number);
        QFETCH(int, progress);
        addFault({LineFault::NoAnswer, command.toStdString(), number});
        click("BUTTON_AUTOFOCUS");
        QTRY_COMPARE(find<QProgressBar>("PROGRESS_AUTOFOCUS")->value(), progress);
        QTest::qWait(300);
        QCOMPARE(find<QProgressBar>("PROGRESS_AUTOFOCUS")->value(), progress);
        QVERIFY(boxes().seen().isEmpty());
        stillUsableButForTheTabs();
    }

    void aMoveThatWasNotConfirmedLeavesTheBestFocusInDoubtUntilTheNextRun()
    {
        const auto* notice = find<QLabel>("LABEL_NOTICE");
        addFault({LineFault::Failure, "MVP", 5});
        click("BUTTON_AUTOFOCUS");
        QCOMPARE(sequencers().size(), 1);
        // Told before anything can be pressed again.
        QString atTheEnd;
        EventWatch watch({find<QWidget>("TAB_MENU")});
        watch.atChange([&](const QString& change) {
            if (change == "enabled TAB_MENU")
                atTheEnd = notice->text();
        });
        QVERIFY(waitUntil([&] { return boxes().texts().contains(kFinished); }, kLongestRun_ms));
        QVERIFY2(atTheEnd.contains("best focus"), qPrintable(atTheEnd));
        QVERIFY(notice->isVisible());
        // The board's word for the position says nothing of the sweep.
        click("BUTTON_Z_POSITION");
        QVERIFY(waitUntil([&] { return !notice->text().contains("Z position"); }));
        QVERIFY(notice->text().contains("best focus"));
        // From the next run's beginning nobody speaks of the last one.
        beginStuckRun();
        QVERIFY(waitUntil([&] { return !notice->text().contains("best focus"); }));
        QCOMPARE(sequencers().size(), 1);
        endStuckRun();
        boxes().clear();
        endFaults();
        setText("EDIT_Z_POSITION", QString::number(kCentre_steps));
        QVERIFY(runs());
        QVERIFY2(waitUntil([&] { return notice->isHidden(); }), qPrintable(notice->text()));
    }

    void aRefusedLastMoveEndsTheRunAndShowsWhereTheStageIs()
    {
        addFault({LineFault::Failure, "MVN", 2});
        QVERIFY(runs());
        const int stage = bestPosition();
        QCOMPARE(text("EDIT_Z_POSITION"), QString::number(stage));
        const QStringList best = logLines().filter("best_index:");
        QCOMPARE(best.size(), 1);
        const int index = best.first().section(' ', -2, -2).toInt();
        // The end tells where the stage was sent.
        const int target = 27660 + 640 * index;
        QVERIFY(target != stage);
        QVERIFY(logLines().contains(QString("%1slot_endAutoFocusing(int)() %2 ").arg(kSlots).arg(target)));
        QVERIFY(isEnabled("TAB_MENU"));
    }

    void aStepThatIsNotAnsweredCostsItsTimeoutAndTheRunEnds()
    {
        // Long enough for the steps that are answered, also on a busy machine.
        constexpr int kSilence_ms = 700;
        Controller::getInstance()->m_timeouts.read_ms = kSilence_ms;
        addFault({LineFault::NoAnswer, "MVP", 4});
        QElapsedTimer timer;
        timer.start();
        QVERIFY(runs());
        QVERIFY(timer.elapsed() >= kSilence_ms);
        QCOMPARE(logLines().filter("slot_progress_AutoFocusing").size(), kSamples);
        QCOMPARE(boxes().texts(), QStringList(kFinished));
    }

    void aWaitingRunCanBeLeftByExit()
    {
        beginStuckRun();
        click("BUTTON_EXIT");
        QCOMPARE(boxes().texts(), QStringList(kQuit));
        stillUsableButForTheTabs();
    }

    void aRunGoesOnBeneathTheQuestionOfExit()
    {
        // The step's answer comes late, when the question is already on the screen.
        addFault({LineFault::Late, "MVP", 1});
        click("BUTTON_AUTOFOCUS");
        boxes().answerNextWith("No");
        click("BUTTON_EXIT");
        QVERIFY(waitUntil([this] { return boxes().texts().contains(kFinished); }, kLongestRun_ms));
        QCOMPARE(boxes().texts(), QStringList({kQuit, kFinished}));
        QVERIFY(isEnabled("TAB_MENU"));
    }

    void theWindowIsNotClosedByARequestDuringARun()
    {
        beginStuckRun();
        QVERIFY(!window().close());
        QCOMPARE(boxes().texts(), QStringList(kQuit));
        QVERIFY(window().isVisible());
        QCOMPARE(sequencers().size(), 1);
    }

    void aPressDuringARunDoesNothing()
    {
        beginStuckRun();
        clearConsoles();
        click("BUTTON_AUTOFOCUS");
        find<QPushButton>("BUTTON_AUTOFOCUS")->click();
        QTest::keyClick(find<QPushButton>("BUTTON_AUTOFOCUS"), Qt::Key_Space);
        QTest::qWait(100);
        QCOMPARE(logLines().filter("on_BUTTON_AUTOFOCUS_clicked"), QStringList());
        QCOMPARE(takeBoardLines(), QStringList());
        QCOMPARE(sequencers().size(), 1);
    }

    void aRunThatNeverEndsMakesRoomForTheNext()
    {
        beginStuckRun();
        const QPointer<alg_Autofocus> stuck = sequencers().first();
        find<QTabWidget>("TAB_MENU")->setEnabled(true);
        QVERIFY(runs());
        QVERIFY(stuck.isNull());
        QCOMPARE(boxes().texts(), QStringList(kFinished));
        QTRY_VERIFY(sequencers().isEmpty());
    }

    void aRunScoresTheFramesOfTheResolutionThatIsOn()
    {
        click("BUTTON_RESOLUTION_VGA");
        QVERIFY(waitForFrames(3));
        const bool ended = runs();
        const QStringList log = logLines();
        click("BUTTON_RESOLUTION_1280");
        QVERIFY(waitForFrames(3));
        QVERIFY(ended);
        QCOMPARE(log.filter("focus_value: ").size(), kSamples);
        QCOMPARE(log.filter("focus_value: 0 ").size(), 0);
        QCOMPARE(log.filter("[Error]"), QStringList());
    }

    void withoutACameraTheRunScoresNothingAndEnds()
    {
        QVERIFY(camera().faults().enable("ioctl:VIDIOC_S_FMT"));
        click("BUTTON_RESOLUTION_1280");
        QVERIFY(!programCamera()->isStreaming());
        const bool ended = runs();
        const QStringList log = logLines();
        camera().faults().clear();
        click("BUTTON_RESOLUTION_1280");
        QVERIFY(ended);
        QCOMPARE(log.filter("focus_value: 0 , position:").size(), kSamples);
        QVERIFY(log.filter("best_index:").first().endsWith("[1] best_index: 0 "));
        QCOMPARE(log.filter("[Error] no frame").size(), 1);
        QCOMPARE(text("EDIT_Z_POSITION"), QString("27660"));
    }

    void theGraphShowsTheRunAsSoonAsItIsReviewed()
    {
        window().slot_review_AutoFocusing(1, {}, 0);
        showGraph();
        QVERIFY(reds().isNull());
        QVERIFY(runs());
        const int index = (bestPosition() - 27660) / 640;
        const QRect red = reds();
        QVERIFY(!red.isNull());
        QVERIFY(QRect(47 + 40 * index, 0, 7, 360).contains(red));
    }

    // No frame and no grab paints here: what is painted was asked for by the review.
    void aReviewIsPaintedByItself()
    {
        window().slot_review_AutoFocusing(1, {}, 0);
        QVERIFY(showsGraphAtRest());
        const PaintWatch watch(window(), QRect(0, 0, 640, 480));
        window().slot_review_AutoFocusing(1, sweep(kSamples), 3);
        QCOMPARE(watch.paints(), 0);
        QTRY_COMPARE(watch.paints(), 1);
    }

    // Nobody who watches takes the curve of the run before for the present one's.
    void theGraphIsClearedOnTheScreenAsARunBegins()
    {
        window().slot_review_AutoFocusing(1, sweep(kSamples), 3);
        QVERIFY(showsGraphAtRest());
        const PaintWatch watch(window(), QRect(0, 0, 640, 480));
        // The last time that a press lets events run is before the first command.
        int paintsBefore = -1;
        const auto noting = atBoardLine("$,STM1", [&](const QString&) {
            if (paintsBefore < 0)
                paintsBefore = watch.paints();
        });
        beginStuckRun();
        QCOMPARE(paintsBefore, 1);
    }

    void theGraphIsEmptyWhileARunIsWaiting()
    {
        window().slot_review_AutoFocusing(1, sweep(kSamples), 3);
        showGraph();
        QVERIFY(!reds().isNull());
        beginStuckRun();
        QVERIFY(reds().isNull());
        // The old best sample is forgotten too: its number is black again.
        const QImage graph = view();
        const auto isBlank = [&graph](int number) {
            return boundsOf(graph, QRect(40 * number, 360, 20, 20),
                            [](QRgb pixel) { return QColor(pixel) != Qt::white; })
                .isNull();
        };
        QVERIFY(isBlank(1));
        QVERIFY(!isBlank(4));
    }

    void theGraphShowsTheFirstStepsReviewOnly()
    {
        window().slot_review_AutoFocusing(1, sweep(kSamples), 3);
        window().slot_review_AutoFocusing(2, sweep(7), 5);
        window().slot_review_AutoFocusing(3, sweep(7), 6);
        showGraph();
        QVERIFY(QRect(47 + 120, 0, 7, 360).contains(reds()));
        QVERIFY(logLines().filter("[Error]").isEmpty());
    }

    void tooFewSamplesAreLoggedAndTheProgramGoesOn_data()
    {
        QTest::addColumn<int>("count");
        for (const int count : {1, 7, 14})
            QTest::addRow("%d", count) << count;
    }

    void tooFewSamplesAreLoggedAndTheProgramGoesOn()
    {
        QFETCH(int, count);
        window().slot_review_AutoFocusing(1, sweep(count), 0);
        clearConsoles();
        showGraph();
        const QString text =
            QString("%1paintFocusGraph(QPainter&)() [Error] vector::_M_range_check: __n (which "
                    "is %2) >= this->size() (which is %2) ")
                .arg(kSlots)
                .arg(count);
        QVERIFY2(logLines().contains(text), qPrintable(messages()));
        click("BUTTON_DEBUG");
        QVERIFY(waitForFrames(2));
    }

    // The window goes here: last of all.
    void aWindowThatGoesDuringARunLeavesNothingBehind()
    {
        beginStuckRun();
        const QPointer<alg_Autofocus> sequencer = sequencers().first();
        destroyWindow();
        QVERIFY(sequencer.isNull());
        emit Controller::getInstance()->sig_z_stage_mvp();
        emit Controller::getInstance()->sig_z_stage_mvn();
        QCoreApplication::processEvents();
    }

private:
    QList<alg_Autofocus*> sequencers() const { return window().findChildren<alg_Autofocus*>(); }

    /// A whole run, up to the answered box.
    bool runs()
    {
        click("BUTTON_AUTOFOCUS");
        return waitUntil([this] { return boxes().texts().contains(kFinished); }, kLongestRun_ms);
    }

    /// A run that waits for the stage from its first step on.
    void beginStuckRun()
    {
        addFault({LineFault::NoAnswer, "MVP", 1});
        click("BUTTON_AUTOFOCUS");
        QCOMPARE(sequencers().size(), 1);
        QVERIFY(waitUntil([this] { return takeBoardLines().contains("$,STM1,MVP,640,"); }));
    }

    /// Lets a run end that waits for the stage.
    void endStuckRun()
    {
        if (sequencers().isEmpty())
            return;
        disconnect(Controller::getInstance(), nullptr, sequencers().first(), nullptr);
        window().slot_endAutoFocusing(0);
        QTRY_VERIFY(sequencers().isEmpty());
    }

    /// The answer to this question says that the board has met under its faults what went out
    /// under them.
    void endFaults()
    {
        Controller::getInstance()->z_stage_pos();
        clearFaults();
    }

    void stillUsableButForTheTabs()
    {
        QVERIFY(!isEnabled("TAB_MENU"));
        QCOMPARE(sequencers().size(), 1);
        QVERIFY(isEnabled("BUTTON_EXIT"));
        find<QSpinBox>("SPIN_DEBUG")->setValue(1);
        click("BUTTON_DEBUG");
        QVERIFY(find<QWidget>("DebugMessage")->isVisible());
        click("BUTTON_DEBUG");
        QVERIFY(waitForFrames(1));
    }

    /// A folder for each run that is saved on the disk.
    QDir savedRuns()
    {
        return {usb().filesOf() + "/ORLA-II/Autofocus", QString(), QDir::Name,
                QDir::Dirs | QDir::NoDotAndDotDot};
    }

    QStringList logLines() const
    {
        QStringList lines = messages().split('\n');
        lines.removeAll(QString());
        return lines;
    }

    int bestPosition() const { return Controller::getInstance()->z_stage_pos(); }

    static QStringList reviewLog(int step, const std::vector<AutoFocusingData_t>& samples, int best)
    {
        const QString head =
            kSlots + "slot_review_AutoFocusing(int, std::vector<AutoFocusingData_s>, int)() ";
        QStringList lines{head + QString(25, '#') + ' '};
        lines << QString("%1[%2] best_index: %3 ").arg(head).arg(step).arg(best);
        for (std::size_t i = 0; i < samples.size(); ++i) {
            lines << QString("%1[%2](%3) focus_value: %4 , position: %5 ")
                         .arg(head)
                         .arg(step)
                         .arg(i)
                         .arg(samples[i].focusValue)
                         .arg(samples[i].zPosition);
        }
        return lines;
    }

    static std::vector<AutoFocusingData_t> sweep(int count)
    {
        std::vector<AutoFocusingData_t> samples;
        samples.reserve(std::size_t(count));
        for (int i = 0; i < count; ++i)
            samples.push_back({100.0 + i, 27660 + 640 * i});
        return samples;
    }

    void showGraph()
    {
        find<QSpinBox>("SPIN_DEBUG")->setValue(3);
        click("BUTTON_DEBUG");
    }

    /// The graph is on the screen, and for a while nothing of the view has been painted.
    bool showsGraphAtRest()
    {
        const PaintWatch watch(window(), QRect(0, 0, 640, 480));
        showGraph();
        return waitUntil([&] {
            const int before = watch.paints();
            QTest::qWait(300);
            return before > 0 && watch.paints() == before;
        });
    }

    /// Extent of the pure red in the curve's part of the graph.
    QRect reds()
    {
        return boundsOf(
            view(), QRect(0, 0, 640, 360), [](QRgb pixel) { return QColor(pixel) == Qt::red; });
    }
};

QTEST_MAIN(TestWindowAutofocus)
#include "test_window_autofocus.moc"
