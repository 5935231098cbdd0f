#include <cstdint>
#include <limits>
#include <memory>
#include <vector>

#include <QCheckBox>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QSettings>
#include <QSpinBox>
#include <QtTest>

#include "QC/CalibrationFrame.h"
#include "QC/QC_measure.h"
#include "camera/OV5642Camera.h"
#include "settings/GlobalIni.h"
#include "support/EventWatch.h"
#include "support/LogRecorder.h"
#include "support/QcOperator.h"

namespace {

constexpr SlidePoint kDots[] = {{800.3, 900.6}, {1800.2, 930.4}};
constexpr int kFullSizeDelay_ms = 2500;
constexpr int kNotWhileThisRuns_ms = 3600000;
constexpr QRect kBelowTheNotice(0, 80, 640, 400);
const QString kSlots = "void ORLA_II_Plus_Verifier::";
/// The changes of a window that is locked for a while.
const QStringList kLockedAndFreed{"disabled ORLA_II_Plus_Verifier", "enabled ORLA_II_Plus_Verifier"};
constexpr const char* kMainFile = "/opt/ORLA3/conf/ORLA3.ini";

const QString kStainedFile = "/opt/ORLA3/conf/Calibration_CUS.ini";
const QString kUnstainedFile = "/opt/ORLA3/conf/Calibration_BFN.ini";

constexpr const char* kControls[] = {"CHECK_TARGET", "BUTTON_POINT_1", "BUTTON_POINT_2", "BUTTON_QC_MEASURE"};
constexpr const char* kResults[] = {"EDIT_POINT_1",       "EDIT_POINT_2",       "EDIT_MAGNIFICATION",
                                    "EDIT_VOLUME_FACTOR", "EDIT_INTENSITY_RED", "EDIT_INTENSITY_GREEN",
                                    "EDIT_INTENSITY_BLUE"};

WindowFixture::Options targetOptions()
{
    WindowFixture::Options options;
    options.camera.slide.kind = SlideKind::Target;
    options.camera.slide.targetDots = {kDots[0], kDots[1]};
    options.camera.optics.bestFocus_steps = 32000.0; // where the stage stands after the start
    options.prepare = [](const QString& root) {
        // The two stainings differ in their exposure at 5M.
        QSettings stained(root + kStainedFile, QSettings::IniFormat);
        stained.setValue("5M/0x3501", "0x15");
    };
    return options;
}

} // namespace

class TestWindowQc : public QObject, protected WindowFixture
{
    Q_OBJECT

public:
    TestWindowQc() : WindowFixture(targetOptions()) {}

private slots:
    /// Every test begins in the live view at 5M, with the target box unchecked.
    void init()
    {
        camera().faults().clear();
        if (button() == "Live")
            m_qc.goLive();
        find<QCheckBox>("CHECK_TARGET")->setChecked(false);
        if (!style("BUTTON_RESOLUTION_5M").contains("170") || !programCamera()->isStreaming())
            click("BUTTON_RESOLUTION_5M");
        if (!style("BUTTON_STAINING_NTB").contains("170"))
            click("BUTTON_STAINING_NTB");
        openTab(2);
        boxes().clear();
        clearConsoles();
        QVERIFY(window().isEnabled());
        QVERIFY(waitForFrames(2));
    }

    void beforeTheFirstCaptureNothingCanBePressed()
    {
        QVERIFY(widget().isHidden());
        compareControls({false, false, false, false});
        QCOMPARE(button(), QString("Capture"));
        QVERIFY(isEnabled("BUTTON_QC_CAPTURE"));
        QVERIFY(isEnabled("BUTTON_INTENSITY"));
        for (const char* edit : kResults)
            QVERIFY2(find<QLineEdit>(edit)->isReadOnly(), edit);
    }

    void aStateEnablesWhatItNeeds_data()
    {
        QTest::addColumn<int>("before");
        QTest::addColumn<int>("state");
        QTest::addColumn<bool>("visible");
        QTest::addColumn<QVector<bool>>("enabled");
        const QVector<bool> nothing{false, false, false, false};
        const QVector<bool> points{true, false, false, true};
        const QVector<bool> targeting{true, true, true, true};
        QTest::newRow("hidden from points") << 1 << 0 << false << nothing;
        QTest::newRow("hidden from targeting") << 2 << 0 << false << nothing;
        QTest::newRow("points from hidden") << 0 << 1 << true << points;
        QTest::newRow("points from targeting") << 2 << 1 << true << points;
        QTest::newRow("targeting from points") << 1 << 2 << true << targeting;
        QTest::newRow("targeting does not show") << 0 << 2 << false << targeting;
        QTest::newRow("-1 from hidden") << 0 << -1 << false << nothing;
        QTest::newRow("-1 from targeting") << 2 << -1 << true << targeting;
        QTest::newRow("3 from points") << 1 << 3 << true << points;
        QTest::newRow("3 from hidden") << 0 << 3 << false << nothing;
    }

    void aStateEnablesWhatItNeeds()
    {
        QFETCH(int, before);
        QFETCH(int, state);
        QFETCH(bool, visible);
        QFETCH(QVector<bool>, enabled);
        if (before == 2)
            setState(1);
        setState(before);
        setState(state);
        QCOMPARE(widget().isVisible(), visible);
        compareControls(enabled);
        setState(0);
    }

    void aCaptureAt5MFreezesAtOnce()
    {
        const LogRecorder log;
        const EventWatch watch({&window()});
        const Moment stop = momentOf("stopCamera()");
        const bool* enabledWhenPainted = askWhenEventsRun();
        click("BUTTON_QC_CAPTURE");

        QCOMPARE(button(), QString("Live"));
        QVERIFY(widget().isVisible());
        QCOMPARE(widget().geometry(), QRect(0, 0, 640, 480));
        compareControls({true, false, false, true});
        QVERIFY(!programCamera()->isStreaming());
        QCOMPARE(watch.enabledChanges(), kLockedAndFreed);
        QVERIFY(!*enabledWhenPainted);
        QCOMPARE(m_buttonWhenEventsRan, QString("Capture"));
        // The frame is stored before the camera stops, and shown after it.
        QVERIFY(stop->met);
        QCOMPARE(stop->button, QString("Live"));
        QVERIFY(stop->streaming && !stop->visible && !stop->enabled);
        expectInOrder(log.messages(),
                      {kSlots + "on_BUTTON_QC_CAPTURE_clicked() m_QC_mode: 1", kSlots + "stopCamera()"});
        QVERIFY(messages().contains(kSlots + "on_BUTTON_QC_CAPTURE_clicked()() m_QC_mode: 1 \n"));
        QVERIFY(log.messages().filter("camera_mode:").isEmpty());
    }

    void theFrozenFrameIsTheOneOfTheCamera()
    {
        const std::vector<unsigned char> live = liveFrame();
        QVERIFY(m_qc.freeze());
        const QImage frame(live.data(), 2592, 1944, 2592 * 3, QImage::Format_RGB888);
        m_qc.panTo(dot(0));
        const QImage view = this->view();
        QVERIFY(view.pixelColor(dot(0) - m_qc.offset()).green() < 50);
        for (const QPoint& place : {QPoint(320, 240), QPoint(330, 245), QPoint(100, 100), QPoint(639, 479)})
            QCOMPARE(view.pixelColor(place), frame.pixelColor(place + m_qc.offset()));
    }

    void aCaptureFromASmallerModeFreezesWhenTheSensorIsReady_data()
    {
        QTest::addColumn<QString>("resolution");
        QTest::newRow("VGA") << "BUTTON_RESOLUTION_VGA";
        QTest::newRow("1280") << "BUTTON_RESOLUTION_1280";
    }

    void aCaptureFromASmallerModeFreezesWhenTheSensorIsReady()
    {
        QFETCH(QString, resolution);
        click(qPrintable(resolution));
        const LogRecorder log;
        const EventWatch watch({&window()});
        // The locked window is painted before the wait begins.
        bool lockedBeforeTheWait = false;
        QTimer::singleShot(0, this,
                           [&] { lockedBeforeTheWait = !window().isEnabled() && runningWait() == nullptr; });
        click("BUTTON_QC_CAPTURE");
        QVERIFY(lockedBeforeTheWait);
        QVERIFY(runningWait() != nullptr);
        QCOMPARE(runningWait()->interval(), kFullSizeDelay_ms);
        QCOMPARE(runningWait()->timerType(), Qt::PreciseTimer);
        // The switch is over, the wait has begun; the live view goes on and nothing can be pressed.
        QCOMPARE(watch.enabledChanges(), kLockedAndFreed + QStringList("disabled ORLA_II_Plus_Verifier"));
        QCOMPARE(button(), QString("Capture"));
        QVERIFY(widget().isHidden());
        QVERIFY(style("BUTTON_RESOLUTION_5M").contains("rgb(0, 170, 255)"));
        // Two frames take a slow machine longer than that.
        QTimer* const wait = runningWait();
        wait->start(kNotWhileThisRuns_ms);
        QVERIFY(waitForFrames(2));
        click("BUTTON_QC_CAPTURE");
        click("BUTTON_RESOLUTION_VGA");
        click("BUTTON_EXIT");
        QVERIFY(boxes().seen().isEmpty());
        QVERIFY(programCamera()->isStreaming());

        QCOMPARE(runningWait(), wait);
        wait->start(0);
        QVERIFY(waitUntil([this] { return window().isEnabled(); }, 20000));
        QCOMPARE(button(), QString("Live"));
        QVERIFY(widget().isVisible());
        compareControls({true, false, false, true});
        QVERIFY(!programCamera()->isStreaming());
        expectInOrder(log.messages(),
                      {kSlots + "on_BUTTON_QC_CAPTURE_clicked() m_QC_mode: 1",
                       kSlots + "on_BUTTON_RESOLUTION_5M_clicked()", kSlots + "stopCamera()",
                       "camera_mode: 2", kSlots + "startCamera(int) 2", kSlots + "stopCamera()"});
        QCOMPARE(log.messages().filter("m_QC_mode:").size(), 1);

        m_qc.goLive();
        QCOMPARE(programCamera()->mode(), 2);
    }

    // The answer to a move that the program has given up on: were the window free again, a run
    // could begin, and lose the camera in the middle.
    void aLateAnswerOfTheStageDoesNotEndTheWait_data()
    {
        QTest::addColumn<QString>("command");
        QTest::newRow("absolute move") << "ABS";
        QTest::newRow("origin") << "ORIGIN";
    }

    void aLateAnswerOfTheStageDoesNotEndTheWait()
    {
        QFETCH(QString, command);
        click("BUTTON_RESOLUTION_VGA");
        click("BUTTON_QC_CAPTURE");
        QVERIFY(runningWait() != nullptr);
        runningWait()->start(kNotWhileThisRuns_ms);
        takeBoardLines();
        sayUnasked("$OK,STM1," + command.toStdString() + ",1000,\r\n");
        QVERIFY(waitUntil([this] { return takeBoardLines().contains("$,STM1,GET_POS,,"); }));
        QCoreApplication::processEvents();
        QVERIFY(!window().isEnabled());

        runningWait()->start(0);
        QVERIFY(waitUntil([this] { return window().isEnabled(); }, 20000));
        QCOMPARE(button(), QString("Live"));
        // Where none is waited for, the answer frees the window.
        window().setEnabled(false);
        sayUnasked("$OK,STM1," + command.toStdString() + ",1000,\r\n");
        QVERIFY(waitUntil([this] { return window().isEnabled(); }));
    }

    void leavingDuringTheWaitFreezesNothingLater()
    {
        click("BUTTON_RESOLUTION_VGA");
        click("BUTTON_QC_CAPTURE");
        QMetaObject::invokeMethod(&window(), "on_BUTTON_QC_CAPTURE_clicked");
        QVERIFY(window().isEnabled());
        QVERIFY2(runningWait() == nullptr, "no frame is waited for any more");
        QVERIFY(waitForFrames(2));
        QVERIFY(widget().isHidden());
        QCOMPARE(button(), QString("Capture"));
        QVERIFY(programCamera()->isStreaming());
        QVERIFY(waitForFrames(2));
    }

    void aSmallerFrameIsNeverFrozen()
    {
        click("BUTTON_RESOLUTION_VGA");
        click("BUTTON_QC_CAPTURE");
        QMetaObject::invokeMethod(&window(), "on_BUTTON_RESOLUTION_VGA_clicked");
        runningWait()->start(0);
        QVERIFY(waitUntil([this] { return button() == "Live"; }, 20000));
        QVERIFY(messages().contains("[Error] no 5M frame"));
        const auto* notice = find<QLabel>("LABEL_NOTICE");
        QCOMPARE(notice->text(), QString("No 5M picture to measure. Press Live, then Capture again."));
        expectNoCell();
        // The word goes with the press, not a second later.
        find<QPushButton>("BUTTON_QC_CAPTURE")->click();
        QCOMPARE(button(), QString("Capture"));
        QCOMPARE(notice->text(), QString());
    }

    void withoutACameraNoOldPictureIsFrozen()
    {
        QVERIFY(m_qc.freeze());
        m_qc.goLive();
        camera().faults().enable("ioctl:VIDIOC_S_FMT:EIO");
        click("BUTTON_RESOLUTION_5M");
        click("BUTTON_QC_CAPTURE");
        QCOMPARE(button(), QString("Live"));
        QVERIFY(window().isEnabled());
        compareControls({true, false, false, true});
        QVERIFY(messages().contains("[Error] no 5M frame"));
        // Nor does what the live view showed last shine through.
        const QImage view = window().grab(kBelowTheNotice).toImage();
        QImage plain(view.size(), view.format());
        plain.fill(window().palette().color(QPalette::Window));
        QCOMPARE(view, plain);
        expectNoCell();

        camera().faults().clear();
        m_qc.goLive();
        QVERIFY(waitForFrames(2));
        QVERIFY(m_qc.freeze());
        QVERIFY(found(0));
    }

    void goingLiveRestartsTheCameraAt5M_data()
    {
        QTest::addColumn<QString>("staining");
        QTest::addColumn<QString>("file");
        QTest::addColumn<QString>("exposure");
        QTest::newRow("NTB") << "BUTTON_STAINING_NTB" << kUnstainedFile << "0x1800";
        QTest::newRow("TB") << "BUTTON_STAINING_TB" << kStainedFile << "0x1500";
    }

    void goingLiveRestartsTheCameraAt5M()
    {
        QFETCH(QString, staining);
        QFETCH(QString, file);
        QFETCH(QString, exposure);
        click(qPrintable(staining));
        click("BUTTON_RESOLUTION_VGA");
        QVERIFY(m_qc.freeze());
        setText("EDIT_EXPOSURE", "");

        const LogRecorder log;
        const EventWatch watch({&window()});
        const Moment open = momentOf("OV5642Camera::open");
        const Moment start = momentOf("startCamera(int)");
        const bool* enabledWhenPainted = askWhenEventsRun();
        m_qc.goLive();
        QCOMPARE(watch.enabledChanges(), kLockedAndFreed);
        QVERIFY(!*enabledWhenPainted);
        QCOMPARE(m_buttonWhenEventsRan, QString("Live"));
        QVERIFY(open->met && start->met);
        QCOMPARE(open->button, QString("Capture"));
        QVERIFY(open->visible && !open->enabled && start->visible && !start->enabled && start->streaming);
        expectInOrder(log.messages(), {kSlots + "on_BUTTON_QC_CAPTURE_clicked() m_QC_mode: 0",
                                       "camera_mode: 2 , ini_file " + file, kSlots + "startCamera(int) 2"});
        QVERIFY(log.messages().filter("stopCamera").isEmpty());

        QCOMPARE(button(), QString("Capture"));
        QVERIFY(widget().isHidden());
        compareControls({false, false, false, false});
        QCOMPARE(text("EDIT_EXPOSURE"), exposure);
        QCOMPARE(camera().sensorRegister(0x3501), exposure.mid(2, 2).toInt(nullptr, 16));
        QVERIFY(programCamera()->isStreaming());
        QVERIFY(waitForFrames(2));
    }

    void whatIsPressedOverTheFrozenFrameIsWhatLiveIsIn_data()
    {
        QTest::addColumn<QString>("pressed");
        QTest::addColumn<int>("mode");
        QTest::addColumn<QString>("file");
        QTest::addColumn<int>("exposure");
        QTest::newRow("resolution") << "BUTTON_RESOLUTION_1280" << 1 << kUnstainedFile << 0x18;
        QTest::newRow("staining") << "BUTTON_STAINING_TB" << 2 << kStainedFile << 0x15;
    }

    void whatIsPressedOverTheFrozenFrameIsWhatLiveIsIn()
    {
        QFETCH(QString, pressed);
        QFETCH(int, mode);
        QFETCH(QString, file);
        QFETCH(int, exposure);
        QVERIFY(m_qc.freeze());
        click(qPrintable(pressed));
        QVERIFY(widget().isVisible());
        QCOMPARE(button(), QString("Live"));
        QVERIFY(programCamera()->isStreaming());
        QVERIFY(found(0));
        const LogRecorder log;
        m_qc.goLive();
        QVERIFY(window().isEnabled());
        QVERIFY(widget().isHidden());
        expectInOrder(log.messages(), {"m_QC_mode: 0", kSlots + "stopCamera()",
                                       QString("camera_mode: %1 , ini_file %2").arg(mode).arg(file),
                                       kSlots + QString("startCamera(int) %1").arg(mode)});
        QCOMPARE(int(camera().sensorRegister(0x3501)), exposure);
        QVERIFY(waitForFrames(3));
    }

    void theTargetBoxSwitchesTargeting()
    {
        QVERIFY(m_qc.freeze());
        click("CHECK_TARGET");
        compareControls({true, true, true, true});
        QTest::mouseClick(&widget(), Qt::LeftButton, Qt::NoModifier, QPoint(300, 200));
        QCOMPARE(shown().pixelColor(280, 190), QColor(Qt::green));
        QCOMPARE(shown().pixelColor(320, 190), QColor(Qt::green));
        click("CHECK_TARGET");
        compareControls({true, false, false, true});
        QVERIFY(shown().pixelColor(280, 190) != QColor(Qt::green));
        QCOMPARE(messages().count("on_CHECK_TARGET_clicked(bool)"), 2);
    }

    void aNewCaptureLeavesTheTargetBoxChecked()
    {
        QVERIFY(m_qc.freeze());
        m_qc.setTargeting(true);
        m_qc.goLive();
        QVERIFY(find<QCheckBox>("CHECK_TARGET")->isChecked());
        QVERIFY(!isEnabled("CHECK_TARGET"));
        QVERIFY(m_qc.freeze());
        QVERIFY(find<QCheckBox>("CHECK_TARGET")->isChecked());
        compareControls({true, false, false, true});
        // Targeting is off all the same: a press places nothing.
        QTest::mouseClick(&widget(), Qt::LeftButton, Qt::NoModifier, QPoint(300, 200));
        QVERIFY(shown().pixelColor(280, 190) != QColor(Qt::green));
    }

    void theFingerStaysOnThePlaceThatItDrags()
    {
        QVERIFY(m_qc.freeze());
        m_qc.panTo(dot(0));
        const QPoint place = dot(0) - m_qc.offset();
        QVERIFY(shown().pixelColor(place).green() < 50);
        m_qc.panTo(dot(0) + QPoint(120, -90));
        QVERIFY(shown().pixelColor(place).green() > 150);
        QVERIFY(shown().pixelColor(place - QPoint(120, -90)).green() < 50);
    }

    void aPointIsShownAndMarked_data()
    {
        QTest::addColumn<int>("index");
        QTest::newRow("1") << 0;
        QTest::newRow("2") << 1;
    }

    void aPointIsShownAndMarked()
    {
        QFETCH(int, index);
        QVERIFY(m_qc.freeze());
        m_qc.aimAt(dot(index));
        setText("EDIT_POINT_1", "before");
        setText("EDIT_POINT_2", "before");
        const LogRecorder log;
        QSignalSpy points(&widget(), &QC_measure::sig_measure_point);
        const EventWatch watch({&window()});
        const bool* enabledWhenPainted = askWhenEventsRun();
        m_qc.findPoint(index);

        QCOMPARE(points.count(), 1);
        const QPoint point(points.at(0).at(1).toInt(), points.at(0).at(2).toInt());
        QVERIFY(qAbs(point.x() - kDots[index].x_px) <= 1 && qAbs(point.y() - kDots[index].y_px) <= 1);
        const QString text = QString("%1, %2").arg(point.x()).arg(point.y());
        QCOMPARE(this->text("EDIT_POINT_1"), index == 0 ? text : "before");
        QCOMPARE(this->text("EDIT_POINT_2"), index == 1 ? text : "before");
        QCOMPARE(watch.enabledChanges(), kLockedAndFreed);
        QVERIFY(!*enabledWhenPainted);
        QVERIFY(boxes().seen().isEmpty());
        expectInOrder(log.messages(),
                      {kSlots + QString("on_BUTTON_POINT_%1_clicked()").arg(index + 1),
                       kSlots + QString("slot_measure_point(int, int, int) %1 ").arg(index) + text});
        QCOMPARE(shown().pixelColor(point - m_qc.offset() + QPoint(14, 0)), QColor(Qt::red));
    }

    void aPointOfAnotherIndexIsNotShown()
    {
        setText("EDIT_POINT_1", "before");
        setText("EDIT_POINT_2", "before");
        window().setEnabled(false);
        emit widget().sig_measure_point(2, 5, -6);
        QCOMPARE(text("EDIT_POINT_1"), QString("before"));
        QCOMPARE(text("EDIT_POINT_2"), QString("before"));
        QVERIFY(window().isEnabled());
        emit widget().sig_measure_point(0, 0, -6);
        QCOMPARE(text("EDIT_POINT_1"), QString("0, -6"));
    }

    void aPointThatIsNotFoundIsTold_data()
    {
        QTest::addColumn<int>("index");
        QTest::addColumn<int>("cells");
        QTest::addColumn<QString>("text");
        for (int index = 0; index < 2; ++index) {
            QTest::addRow("point %d, no cell", index + 1) << index << 0 << "Cell not detected !";
            QTest::addRow("point %d, two cells", index + 1) << index << 2 << "Too many Cells detected !";
        }
    }

    void aPointThatIsNotFoundIsTold()
    {
        QFETCH(int, index);
        QFETCH(int, cells);
        QFETCH(QString, text);
        QVERIFY(m_qc.freeze());
        CalibrationFrame frame(QSize(2592, 1944));
        for (int i = 0; i < cells; ++i)
            frame.dot(QPoint(310 + 20 * i, 240), 5);
        widget().setImageData(frame.data());
        m_qc.aimAt(QPoint(320, 240));
        setText("EDIT_POINT_1", "before");
        setText("EDIT_POINT_2", "before");
        const LogRecorder log;
        const EventWatch watch({&window()});
        m_qc.findPoint(index);

        expectBox("Error", text, QMessageBox::Critical);
        QVERIFY(!boxes().seen().first().windowWasEnabled);
        QCOMPARE(watch.enabledChanges(), kLockedAndFreed);
        QCOMPARE(this->text("EDIT_POINT_1"), QString("before"));
        QCOMPARE(this->text("EDIT_POINT_2"), QString("before"));
        expectInOrder(log.messages(),
                      {kSlots + "slot_measure_error(TargetingError_e) " + (cells == 0 ? '0' : '1')});
    }

    void anUnknownErrorOnlyEnablesTheWindow()
    {
        window().setEnabled(false);
        window().slot_measure_error(static_cast<TargetingError_e>(2));
        QVERIFY(window().isEnabled());
        QVERIFY(boxes().seen().isEmpty());
    }

    void thePointsSurviveANewFrame()
    {
        QVERIFY(m_qc.freeze());
        QVERIFY(found(0) && found(1));
        const QString first = text("EDIT_POINT_1");
        click("BUTTON_QC_MEASURE");
        const QString magnification = text("EDIT_MAGNIFICATION");
        m_qc.goLive();
        setText("EDIT_MAGNIFICATION", "");
        QVERIFY(m_qc.freeze());
        QCOMPARE(text("EDIT_POINT_1"), first);
        click("BUTTON_QC_MEASURE");
        QCOMPARE(text("EDIT_MAGNIFICATION"), magnification);
    }

    void aMeasurementIsShownAndKept()
    {
        QVERIFY(m_qc.freeze());
        QVERIFY(found(0) && found(1));
        const LogRecorder log;
        const EventWatch watch({&window()});
        QSignalSpy results(&widget(), &QC_measure::sig_measure_result);
        const bool* enabledWhenPainted = askWhenEventsRun();
        click("BUTTON_QC_MEASURE");
        QCOMPARE(watch.enabledChanges(), kLockedAndFreed);
        QVERIFY(!*enabledWhenPainted);
        QCOMPARE(results.count(), 1);
        const auto info = results.at(0).at(0).value<MeasureInfo_t>();
        QVERIFY(qAbs(double(info.length_pixel) - 1000.3) < 2);
        QCOMPARE(global_ini()->System.Magnification, double(info.Magnification));
        QCOMPARE(global_ini()->System.Volume_factor, double(info.Volume_factor));
        QCOMPARE(text("EDIT_MAGNIFICATION"), QString::number(double(info.Magnification), 'f', 3));
        QCOMPARE(text("EDIT_VOLUME_FACTOR"), QString::number(double(info.Volume_factor), 'f', 5));
        expectInOrder(log.messages(), {kSlots + "on_BUTTON_QC_MEASURE_clicked()",
                                       "----->Before Magnification :", "----->Volume_factor :",
                                       "------> global_ini()->System.Magnification : " +
                                           QString::number(global_ini()->System.Magnification),
                                       "------> global_ini()->System.Volume_factor : " +
                                           QString::number(global_ini()->System.Volume_factor)});
        QVERIFY(messages().contains("------> global_ini()->System.Magnification :"));
    }

    void aResultIsShownAsItComes_data()
    {
        QTest::addColumn<float>("magnification");
        QTest::addColumn<float>("volumeFactor");
        QTest::addColumn<QString>("magnificationText");
        QTest::addColumn<QString>("volumeFactorText");
        const float infinite = std::numeric_limits<float>::infinity();
        const float none = std::numeric_limits<float>::quiet_NaN();
        const auto row = [](const char* name, float magnification, float volumeFactor,
                            const char* magnificationText, const char* volumeFactorText) {
            QTest::newRow(name) << magnification << volumeFactor << magnificationText << volumeFactorText;
        };
        row("usual", 1.469F, 0.45783F, "1.469", "0.45783");
        row("zeros are filled up", 1.4F, 0.5F, "1.400", "0.50000");
        row("infinite", infinite, 0.0F, "inf", "0.00000");
        row("minus infinite", -infinite, infinite, "-inf", "inf");
        row("no number", none, none, "nan", "nan");
    }

    void aResultIsShownAsItComes()
    {
        QFETCH(float, magnification);
        QFETCH(float, volumeFactor);
        QFETCH(QString, magnificationText);
        QFETCH(QString, volumeFactorText);
        window().setEnabled(false);
        giveResult(magnification, volumeFactor);
        QCOMPARE(text("EDIT_MAGNIFICATION"), magnificationText);
        QCOMPARE(text("EDIT_VOLUME_FACTOR"), volumeFactorText);
        QVERIFY(window().isEnabled());
        const auto same = [](double stored, float given) {
            return stored == double(given) || (qIsNaN(stored) && qIsNaN(given));
        };
        QVERIFY(same(global_ini()->System.Magnification, magnification));
        QVERIFY(same(global_ini()->System.Volume_factor, volumeFactor));
    }

    void whatIsMeasuredBetweenOnePointAndItselfIsNoNumber()
    {
        QVERIFY(m_qc.freeze());
        QVERIFY(found(0));
        m_qc.findPoint(1);
        click("BUTTON_QC_MEASURE");
        QCOMPARE(text("EDIT_MAGNIFICATION"), QString("nan"));
        QCOMPARE(text("EDIT_VOLUME_FACTOR"), QString("nan"));
        QVERIFY(window().isEnabled());
        QVERIFY(boxes().seen().isEmpty());
    }

    void saveOnTheQcTabWritesTheRoundedResult()
    {
        giveResult(1.23456F, 0.4567891F);
        openTab(2);
        click("BUTTON_SAVE_INI");
        QCOMPARE(saved("ORLA-III/Magnification").toDouble(), 1.2346);
        QCOMPARE(saved("ORLA-III/Volume factor").toDouble(), 0.45679);
        QCOMPARE(boxes().texts(), QStringList("INI saved !"));
    }

    void anUnfinishedResultLeavesTheSavedOne_data()
    {
        QTest::addColumn<float>("magnification");
        QTest::addColumn<float>("volumeFactor");
        QTest::addColumn<int>("tab");
        QTest::newRow("no magnification") << 0.0F << 0.5F << 2;
        QTest::newRow("no volume factor") << 1.5F << 0.0F << 2;
        QTest::newRow("neither") << 0.0F << 0.0F << 2;
        QTest::newRow("on the stage tab") << 1.5F << 0.5F << 0;
        QTest::newRow("on the camera tab") << 1.5F << 0.5F << 1;
    }

    void anUnfinishedResultLeavesTheSavedOne()
    {
        QFETCH(float, magnification);
        QFETCH(float, volumeFactor);
        QFETCH(int, tab);
        giveResult(1.25F, 0.375F);
        openTab(2);
        click("BUTTON_SAVE_INI");
        giveResult(magnification, volumeFactor);
        openTab(tab);
        click("BUTTON_SAVE_INI");
        QCOMPARE(saved("ORLA-III/Magnification").toDouble(), 1.25);
        QCOMPARE(saved("ORLA-III/Volume factor").toDouble(), 0.375);
    }

    void theIntensityIsTheMeanOfTheLiveFrame_data()
    {
        QTest::addColumn<QString>("resolution");
        QTest::newRow("VGA") << "BUTTON_RESOLUTION_VGA";
        QTest::newRow("1280") << "BUTTON_RESOLUTION_1280";
        QTest::newRow("5M") << "BUTTON_RESOLUTION_5M";
    }

    void theIntensityIsTheMeanOfTheLiveFrame()
    {
        QFETCH(QString, resolution);
        click(qPrintable(resolution));
        window().set_COLOR_RED(0x0380);
        window().set_COLOR_BLUE(0x0300);
        QVERIFY(waitForFrames(4));
        const double magnification = global_ini()->System.Magnification;
        const std::vector<unsigned char> frame = liveFrame();
        std::uint64_t sums[3] = {};
        for (std::size_t i = 0; i < frame.size(); ++i)
            sums[i % 3] += frame[i];
        click("BUTTON_INTENSITY");
        const char* const edits[] = {"EDIT_INTENSITY_RED", "EDIT_INTENSITY_GREEN", "EDIT_INTENSITY_BLUE"};
        double means[3] = {};
        for (int channel = 0; channel < 3; ++channel) {
            means[channel] = double(float(double(sums[channel]) * 3 / double(frame.size())));
            QCOMPARE(text(edits[channel]), QString::number(means[channel], 'f', 1));
        }
        QVERIFY(means[1] > means[0] + 10 && means[0] > means[2] + 10);
        QVERIFY(widget().isHidden());
        QCOMPARE(button(), QString("Capture"));
        QVERIFY(window().isEnabled());
        QCOMPARE(global_ini()->System.Magnification, magnification);
        QVERIFY(messages().contains("on_BUTTON_INTENSITY_clicked()"));
        window().set_COLOR_RED(0x0400);
        window().set_COLOR_BLUE(0x0400);
    }

    void theIntensityLeavesTheFrozenFrameAlone()
    {
        QVERIFY(m_qc.freeze());
        m_qc.panTo(dot(1));
        const QImage before = shown();
        setText("EDIT_INTENSITY_GREEN", "");
        click("BUTTON_INTENSITY");
        QVERIFY(text("EDIT_INTENSITY_GREEN").toDouble() > 150);
        QCOMPARE(shown(), before);
        QVERIFY(found(1));
    }

    void theIntensityIsTheOneOfNowWhateverCoversTheLiveView_data()
    {
        QTest::addColumn<QString>("cover");
        QTest::newRow("frozen frame") << "frozen frame";
        QTest::newRow("message console") << "1";
        QTest::newRow("controller console") << "2";
        QTest::newRow("graph") << "3";
    }

    void theIntensityIsTheOneOfNowWhateverCoversTheLiveView()
    {
        QFETCH(QString, cover);
        const bool frozen = cover == "frozen frame";
        if (frozen) {
            QVERIFY(m_qc.freeze());
        } else {
            find<QSpinBox>("SPIN_DEBUG")->setValue(cover.toInt());
            click("BUTTON_DEBUG");
        }
        // The camera starts anew under the cover: no repaint asks for a second frame.
        click("BUTTON_RESOLUTION_1280");
        // Before the program has taken one in, it measures an empty one.
        const auto taken = programCamera()->framesCaptured();
        QVERIFY(waitForDeliveries(3));
        QVERIFY(waitUntil([&] { return programCamera()->framesCaptured() > taken; }));
        const double lit = measuredGreen();
        window().set_LED(0);
        QVERIFY(waitForDeliveries(6));
        const double dark = measuredGreen();
        window().set_LED(225);
        if (!frozen)
            click("BUTTON_DEBUG");
        QVERIFY2(lit > 150.0 && dark < 20.0, qPrintable(QString("%1 and %2").arg(lit).arg(dark)));
    }

    void theIntensityOfACameraThatCannotBeOpenedDoesNotHang()
    {
        camera().faults().enable("ioctl:VIDIOC_S_FMT:EIO");
        click("BUTTON_RESOLUTION_1280");
        QVERIFY(!programCamera()->isStreaming());
        setText("EDIT_INTENSITY_GREEN", "");
        click("BUTTON_INTENSITY");
        QVERIFY(!text("EDIT_INTENSITY_GREEN").isEmpty());
        QVERIFY(window().isEnabled());
    }

    /// Last, because an event loop that has been left once stays so.
    void theProgramCanBeLeftWhileAFrameIsWaitedFor()
    {
        click("BUTTON_RESOLUTION_VGA");
        click("BUTTON_QC_CAPTURE");
        boxes().answerNextWith("Yes");
        QMetaObject::invokeMethod(&window(), "on_BUTTON_EXIT_clicked");
        QVERIFY(!programCamera()->isStreaming());
        QVERIFY2(runningWait() == nullptr, "no frame is waited for any more");
        QVERIFY(!window().isEnabled());
    }

private:
    /// A look at the window; what is connected to it ends with it.
    struct Look : QObject
    {
        bool met = false;
        QString button;
        bool visible = false;
        bool enabled = false;
        bool streaming = false;
    };
    using Moment = std::unique_ptr<Look>;

    /// What the window looks like when a log message of the name comes for the first time.
    Moment momentOf(const QString& name)
    {
        auto moment = std::make_unique<Look>();
        Look* look = moment.get();
        const auto keep = [this, look, name](const QStringList& parts) {
            if (look->met || !parts.first().contains(name))
                return;
            look->met = true;
            look->button = button();
            look->visible = widget().isVisible();
            look->enabled = window().isEnabled();
            look->streaming = programCamera()->isStreaming();
        };
        connect(&window(), &ORLA_II_Plus_Verifier::sig_debug_Message, look, keep);
        connect(programCamera(), &OV5642Camera::sig_debug_Message, look, keep);
        return moment;
    }

    /// Whether the window is enabled when pending events are processed the next time; keeps what
    /// the button says then, too.
    const bool* askWhenEventsRun()
    {
        m_enabledWhenEventsRan = true;
        m_buttonWhenEventsRan.clear();
        QTimer::singleShot(0, this, [this] {
            m_enabledWhenEventsRan = window().isEnabled();
            m_buttonWhenEventsRan = button();
        });
        return &m_enabledWhenEventsRan;
    }

    /// What runs while the sensor is given its time before the frame is frozen, else null.
    QTimer* runningWait()
    {
        for (QTimer* timer : window().findChildren<QTimer*>())
            if (timer->isSingleShot() && timer->isActive())
                return timer;
        return nullptr;
    }

    void compareControls(const QVector<bool>& enabled)
    {
        for (int i = 0; i < enabled.size(); ++i)
            QVERIFY2(isEnabled(kControls[i]) == enabled.at(i), kControls[i]);
    }

    void expectNoCell()
    {
        m_qc.setTargeting(true);
        QTest::mouseClick(&widget(), Qt::LeftButton, Qt::NoModifier, QPoint(300, 200));
        m_qc.findPoint(0);
        QCOMPARE(boxes().texts(), QStringList("Cell not detected !"));
        QVERIFY(window().isEnabled());
    }

    /// Waits for frames of the device, whether they are painted or not.
    bool waitForDeliveries(unsigned count)
    {
        // Frames that the program has taken in: the device fills its first buffers by itself.
        const auto target = camera().counters().framesReturned + count;
        return waitUntil([&] { return camera().counters().framesReturned >= target; });
    }

    double measuredGreen()
    {
        click("BUTTON_INTENSITY");
        return text("EDIT_INTENSITY_GREEN").toDouble();
    }

    bool found(int index)
    {
        QSignalSpy points(&widget(), &QC_measure::sig_measure_point);
        m_qc.aimAt(dot(index));
        m_qc.findPoint(index);
        return points.count() == 1;
    }

    void giveResult(float magnification, float volumeFactor)
    {
        emit widget().sig_measure_result({1000, 1, 1, magnification, 5, volumeFactor});
    }

    void setState(int state) { window().setState_QC_widget(static_cast<QC_widget_e>(state)); }

    /// The newest frame of the streaming camera, RGB24.
    std::vector<unsigned char> liveFrame()
    {
        const unsigned char* frame = programCamera()->getFrame();
        return frame == nullptr ? std::vector<unsigned char>()
                                : std::vector<unsigned char>(frame, frame + programCamera()->rgbFrameSize());
    }

    QVariant saved(const char* key)
    {
        return QSettings(machinePath(kMainFile), QSettings::IniFormat).value(key);
    }

    static QPoint dot(int index) { return {qRound(kDots[index].x_px), qRound(kDots[index].y_px)}; }
    QImage shown() { return widget().grab().toImage(); }
    QString button() { return find<QPushButton>("BUTTON_QC_CAPTURE")->text(); }
    QC_measure& widget() { return m_qc.widget(); }
    QcOperator m_qc{*this};
    bool m_enabledWhenEventsRan = true;
    QString m_buttonWhenEventsRan;
};

QTEST_MAIN(TestWindowQc)
#include "test_window_qc.moc"
