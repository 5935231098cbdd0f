#include <cstdint>
#include <limits>
#include <memory>
#include <vector>

#include <QCheckBox>
#include <QElapsedTimer>
#include <QLineEdit>
#include <QSettings>
#include <QSpinBox>
#include <QtTest>

#include "QC/CalibrationFrame.h"
#include "QC/QC_measure.h"
#include "camera/OV5642Camera.h"
#include "settings/GlobalIni.h"
#include "support/LogRecorder.h"
#include "support/QcOperator.h"

namespace {

constexpr SlidePoint kDots[] = {{800.3, 900.6}, {1800.2, 930.4}};
constexpr int kFullSizeDelay_ms = 2500;
constexpr QRect kBelowTheNotice(0, 80, 640, 400);
constexpr const char* kMainFile = "/opt/ORLA3/conf/ORLA3.ini";

constexpr const char* kControls[] = {"CHECK_TARGET", "BUTTON_POINT_1", "BUTTON_POINT_2", "BUTTON_QC_MEASURE"};
constexpr const char* kResults[] = {"EDIT_POINT_1",       "EDIT_POINT_2",       "EDIT_MAGNIFICATION",
                                    "EDIT_VOLUME_FACTOR", "EDIT_INTENSITY_RED", "EDIT_INTENSITY_GREEN",
                                    "EDIT_INTENSITY_BLUE"};

/// Keeps every change of a widget between enabled and disabled.
class EnabledChanges : public QObject
{
public:
    explicit EnabledChanges(QWidget& widget) : m_widget(widget) { widget.installEventFilter(this); }
    QVector<bool> seen;

protected:
    bool eventFilter(QObject*, QEvent* event) override
    {
        if (event->type() == QEvent::EnabledChange)
            seen.append(m_widget.isEnabled());
        return false;
    }

private:
    QWidget& m_widget;
};

} // namespace

class TestWindowQc : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        WindowFixture::Options options;
        options.camera.slide.kind = SlideKind::Target;
        options.camera.slide.targetDots = {kDots[0], kDots[1]};
        options.camera.optics.bestFocus_steps = 32000.0; // where the stage stands after the start
        options.prepare = [](const QString& root) {
            // The two stainings differ in their exposure at 5M.
            QSettings stained(root + "/opt/ORLA3/conf/Calibration_CUS.ini", QSettings::IniFormat);
            stained.setValue("5M/0x3501", "0x15");
        };
        m_fixture = std::make_unique<WindowFixture>(options);
        m_qc = std::make_unique<QcOperator>(*m_fixture);
    }

    void cleanupTestCase()
    {
        m_qc.reset();
        m_fixture.reset();
    }

    /// Every test begins in the live view at 5M, with the target box unchecked.
    void init()
    {
        m_fixture->camera().faults().clear();
        if (button() == "Live")
            m_qc->goLive();
        m_fixture->find<QCheckBox>("CHECK_TARGET")->setChecked(false);
        if (!m_fixture->style("BUTTON_RESOLUTION_5M").contains("170") || !camera().isStreaming())
            m_fixture->click("BUTTON_RESOLUTION_5M");
        if (!m_fixture->style("BUTTON_STAINING_NTB").contains("170"))
            m_fixture->click("BUTTON_STAINING_NTB");
        m_fixture->openTab(2);
        m_fixture->boxes().clear();
        m_fixture->clearConsoles();
        QVERIFY(m_fixture->window().isEnabled());
        QVERIFY(m_fixture->waitForFrames(2));
    }

    void beforeTheFirstCaptureNothingCanBePressed()
    {
        QVERIFY(widget().isHidden());
        compareControls({false, false, false, false});
        QCOMPARE(button(), QString("Capture"));
        QVERIFY(m_fixture->isEnabled("BUTTON_QC_CAPTURE"));
        QVERIFY(m_fixture->isEnabled("BUTTON_INTENSITY"));
        for (const char* edit : kResults)
            QVERIFY2(m_fixture->find<QLineEdit>(edit)->isReadOnly(), edit);
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
        EnabledChanges changes(m_fixture->window());
        const Moment stop = momentOf("stopCamera()");
        const bool* enabledWhenPainted = askWhenEventsRun();
        m_fixture->click("BUTTON_QC_CAPTURE");

        QCOMPARE(button(), QString("Live"));
        QVERIFY(widget().isVisible());
        QCOMPARE(widget().geometry(), QRect(0, 0, 640, 480));
        compareControls({true, false, false, true});
        QVERIFY(!camera().isStreaming());
        QCOMPARE(changes.seen, QVector<bool>({false, true}));
        QVERIFY(!*enabledWhenPainted);
        // The frame is stored before the camera stops, and shown after it.
        QVERIFY(stop->met);
        QCOMPARE(stop->button, QString("Live"));
        QVERIFY(stop->streaming && !stop->visible && !stop->enabled);
        compareOrder(log.messages(),
                     {"void ORLA_II_Plus_Verifier::on_BUTTON_QC_CAPTURE_clicked() m_QC_mode: 1",
                      "void ORLA_II_Plus_Verifier::stopCamera()"});
        QVERIFY(m_fixture->messages().contains(
            "void ORLA_II_Plus_Verifier::on_BUTTON_QC_CAPTURE_clicked()() m_QC_mode: 1 \n"));
        QVERIFY(log.messages().filter("camera_mode:").isEmpty());
    }

    void theFrozenFrameIsTheOneOfTheCamera()
    {
        const std::vector<unsigned char> live = liveFrame();
        QVERIFY(m_qc->freeze());
        const QImage frame(live.data(), 2592, 1944, 2592 * 3, QImage::Format_RGB888);
        m_qc->panTo(dot(0));
        const QImage view = m_fixture->window().grab(QRect(0, 0, 640, 480)).toImage();
        QVERIFY(view.pixelColor(dot(0) - m_qc->offset()).green() < 50);
        for (const QPoint& place : {QPoint(320, 240), QPoint(330, 245), QPoint(100, 100), QPoint(639, 479)})
            QCOMPARE(view.pixelColor(place), frame.pixelColor(place + m_qc->offset()));
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
        m_fixture->click(qPrintable(resolution));
        const LogRecorder log;
        EnabledChanges changes(m_fixture->window());
        // The locked window is painted before the wait begins.
        bool lockedBeforeTheWait = false;
        QTimer::singleShot(0, this, [&] {
            lockedBeforeTheWait = !m_fixture->window().isEnabled() && runningWait() == nullptr;
        });
        m_fixture->click("BUTTON_QC_CAPTURE");
        QVERIFY(lockedBeforeTheWait);
        QVERIFY(runningWait() != nullptr);
        QCOMPARE(runningWait()->interval(), kFullSizeDelay_ms);
        // The switch is over, the wait has begun; the live view goes on and nothing can be pressed.
        QCOMPARE(changes.seen, QVector<bool>({false, true, false}));
        QCOMPARE(button(), QString("Capture"));
        QVERIFY(widget().isHidden());
        QVERIFY(m_fixture->style("BUTTON_RESOLUTION_5M").contains("rgb(0, 170, 255)"));
        QVERIFY(m_fixture->waitForFrames(2));
        m_fixture->click("BUTTON_QC_CAPTURE");
        m_fixture->click("BUTTON_RESOLUTION_VGA");
        m_fixture->click("BUTTON_EXIT");
        QVERIFY(m_fixture->boxes().seen().isEmpty());
        QVERIFY(camera().isStreaming());

        runningWait()->start(0);
        QVERIFY(m_fixture->waitUntil([this] { return m_fixture->window().isEnabled(); }, 20000));
        QCOMPARE(button(), QString("Live"));
        QVERIFY(widget().isVisible());
        compareControls({true, false, false, true});
        QVERIFY(!camera().isStreaming());
        compareOrder(log.messages(),
                     {"void ORLA_II_Plus_Verifier::on_BUTTON_QC_CAPTURE_clicked() m_QC_mode: 1",
                      "void ORLA_II_Plus_Verifier::on_BUTTON_RESOLUTION_5M_clicked()",
                      "void ORLA_II_Plus_Verifier::stopCamera()", "camera_mode: 2",
                      "void ORLA_II_Plus_Verifier::startCamera(int) 2",
                      "void ORLA_II_Plus_Verifier::stopCamera()"});
        QCOMPARE(log.messages().filter("m_QC_mode:").size(), 1);

        m_qc->goLive();
        QCOMPARE(camera().mode(), 2);
    }

    void leavingDuringTheWaitFreezesNothingLater()
    {
        m_fixture->click("BUTTON_RESOLUTION_VGA");
        m_fixture->click("BUTTON_QC_CAPTURE");
        QMetaObject::invokeMethod(&m_fixture->window(), "on_BUTTON_QC_CAPTURE_clicked");
        QVERIFY(m_fixture->window().isEnabled());
        QVERIFY2(runningWait() == nullptr, "no frame is waited for any more");
        QVERIFY(m_fixture->waitForFrames(2));
        QVERIFY(widget().isHidden());
        QCOMPARE(button(), QString("Capture"));
        QVERIFY(camera().isStreaming());
        QVERIFY(m_fixture->waitForFrames(2));
    }

    void aSmallerFrameIsNeverFrozen()
    {
        m_fixture->click("BUTTON_RESOLUTION_VGA");
        m_fixture->click("BUTTON_QC_CAPTURE");
        QMetaObject::invokeMethod(&m_fixture->window(), "on_BUTTON_RESOLUTION_VGA_clicked");
        runningWait()->start(0);
        QVERIFY(m_fixture->waitUntil([this] { return button() == "Live"; }, 20000));
        QVERIFY(m_fixture->messages().contains("[Error] no 5M frame"));
        expectNoCell();
    }

    void withoutACameraNoOldPictureIsFrozen()
    {
        QVERIFY(m_qc->freeze());
        m_qc->goLive();
        m_fixture->camera().faults().enable("ioctl:VIDIOC_S_FMT:EIO");
        m_fixture->click("BUTTON_RESOLUTION_5M");
        m_fixture->click("BUTTON_QC_CAPTURE");
        QCOMPARE(button(), QString("Live"));
        QVERIFY(m_fixture->window().isEnabled());
        compareControls({true, false, false, true});
        QVERIFY(m_fixture->messages().contains("[Error] no 5M frame"));
        // Nor does what the live view showed last shine through.
        const QImage view = m_fixture->window().grab(kBelowTheNotice).toImage();
        QImage plain(view.size(), view.format());
        plain.fill(m_fixture->window().palette().color(QPalette::Window));
        QCOMPARE(view, plain);
        expectNoCell();

        m_fixture->camera().faults().clear();
        m_qc->goLive();
        QVERIFY(m_fixture->waitForFrames(2));
        QVERIFY(m_qc->freeze());
        QVERIFY(found(0));
    }

    void goingLiveRestartsTheCameraAt5M_data()
    {
        QTest::addColumn<QString>("staining");
        QTest::addColumn<QString>("file");
        QTest::addColumn<QString>("exposure");
        QTest::newRow("NTB") << "BUTTON_STAINING_NTB"
                             << "/opt/ORLA3/conf/Calibration_BFN.ini"
                             << "0x1800";
        QTest::newRow("TB") << "BUTTON_STAINING_TB"
                            << "/opt/ORLA3/conf/Calibration_CUS.ini"
                            << "0x1500";
    }

    void goingLiveRestartsTheCameraAt5M()
    {
        QFETCH(QString, staining);
        QFETCH(QString, file);
        QFETCH(QString, exposure);
        m_fixture->click(qPrintable(staining));
        m_fixture->click("BUTTON_RESOLUTION_VGA");
        QVERIFY(m_qc->freeze());
        m_fixture->setText("EDIT_EXPOSURE", "");

        const LogRecorder log;
        EnabledChanges changes(m_fixture->window());
        const Moment open = momentOf("OV5642Camera::open");
        const Moment start = momentOf("startCamera(int)");
        const bool* enabledWhenPainted = askWhenEventsRun();
        m_qc->goLive();
        QCOMPARE(changes.seen, QVector<bool>({false, true}));
        QVERIFY(!*enabledWhenPainted);
        QVERIFY(open->met && start->met);
        QCOMPARE(open->button, QString("Capture"));
        QVERIFY(open->visible && !open->enabled && start->visible && !start->enabled && start->streaming);
        compareOrder(log.messages(),
                     {"void ORLA_II_Plus_Verifier::on_BUTTON_QC_CAPTURE_clicked() m_QC_mode: 0",
                      "camera_mode: 2 , ini_file " + file, "void ORLA_II_Plus_Verifier::startCamera(int) 2"});
        QVERIFY(log.messages().filter("stopCamera").isEmpty());

        QCOMPARE(button(), QString("Capture"));
        QVERIFY(widget().isHidden());
        compareControls({false, false, false, false});
        QCOMPARE(m_fixture->text("EDIT_EXPOSURE"), exposure);
        QCOMPARE(m_fixture->camera().sensorRegister(0x3501), exposure.mid(2, 2).toInt(nullptr, 16));
        QVERIFY(camera().isStreaming());
        QVERIFY(m_fixture->waitForFrames(2));
    }

    void aResolutionPressedOverTheFrozenFrameIsTheOneToGoLiveIn()
    {
        QVERIFY(m_qc->freeze());
        m_fixture->click("BUTTON_RESOLUTION_1280");
        QVERIFY(widget().isVisible());
        QCOMPARE(button(), QString("Live"));
        QVERIFY(camera().isStreaming());
        QVERIFY(found(0));
        const LogRecorder log;
        m_qc->goLive();
        QVERIFY(m_fixture->window().isEnabled());
        QVERIFY(widget().isHidden());
        compareOrder(log.messages(), {"m_QC_mode: 0", "void ORLA_II_Plus_Verifier::stopCamera()",
                                      "camera_mode: 1", "void ORLA_II_Plus_Verifier::startCamera(int) 1"});
        QVERIFY(m_fixture->waitForFrames(3));
    }

    void aStainingPressedOverTheFrozenFrameIsTheOneToGoLiveWith()
    {
        QVERIFY(m_qc->freeze());
        m_fixture->click("BUTTON_STAINING_TB");
        QVERIFY(widget().isVisible());
        QCOMPARE(button(), QString("Live"));
        const LogRecorder log;
        m_qc->goLive();
        compareOrder(log.messages(), {"camera_mode: 2 , ini_file /opt/ORLA3/conf/Calibration_CUS.ini"});
        QCOMPARE(m_fixture->camera().sensorRegister(0x3501), 0x15);
        QVERIFY(m_fixture->waitForFrames(3));
    }

    void theTargetBoxSwitchesTargeting()
    {
        QVERIFY(m_qc->freeze());
        m_fixture->click("CHECK_TARGET");
        compareControls({true, true, true, true});
        QTest::mouseClick(&widget(), Qt::LeftButton, Qt::NoModifier, QPoint(300, 200));
        QCOMPARE(shown().pixelColor(280, 190), QColor(Qt::green));
        QCOMPARE(shown().pixelColor(320, 190), QColor(Qt::green));
        m_fixture->click("CHECK_TARGET");
        compareControls({true, false, false, true});
        QVERIFY(shown().pixelColor(280, 190) != QColor(Qt::green));
        QCOMPARE(m_fixture->messages().count("on_CHECK_TARGET_clicked(bool)"), 2);
    }

    void aNewCaptureLeavesTheTargetBoxChecked()
    {
        QVERIFY(m_qc->freeze());
        m_qc->setTargeting(true);
        m_qc->goLive();
        QVERIFY(m_fixture->find<QCheckBox>("CHECK_TARGET")->isChecked());
        QVERIFY(!m_fixture->isEnabled("CHECK_TARGET"));
        QVERIFY(m_qc->freeze());
        QVERIFY(m_fixture->find<QCheckBox>("CHECK_TARGET")->isChecked());
        compareControls({true, false, false, true});
        // Targeting is off all the same: a press places nothing.
        QTest::mouseClick(&widget(), Qt::LeftButton, Qt::NoModifier, QPoint(300, 200));
        QVERIFY(shown().pixelColor(280, 190) != QColor(Qt::green));
    }

    void theFingerStaysOnThePlaceThatItDrags()
    {
        QVERIFY(m_qc->freeze());
        m_qc->panTo(dot(0));
        const QPoint place = dot(0) - m_qc->offset();
        QVERIFY(shown().pixelColor(place).green() < 50);
        m_qc->panTo(dot(0) + QPoint(120, -90));
        QVERIFY(shown().pixelColor(place).green() > 150);
        QVERIFY(shown().pixelColor(place - QPoint(120, -90)).green() < 50);
    }

    void aPointIsShownAndMarked_data()
    {
        QTest::addColumn<int>("index");
        QTest::addColumn<QString>("edit");
        QTest::addColumn<QString>("signature");
        QTest::newRow("1") << 0 << "EDIT_POINT_1"
                           << "void ORLA_II_Plus_Verifier::on_BUTTON_POINT_1_clicked()";
        QTest::newRow("2") << 1 << "EDIT_POINT_2"
                           << "void ORLA_II_Plus_Verifier::on_BUTTON_POINT_2_clicked()";
    }

    void aPointIsShownAndMarked()
    {
        QFETCH(int, index);
        QFETCH(QString, edit);
        QFETCH(QString, signature);
        QVERIFY(m_qc->freeze());
        m_qc->aimAt(dot(index));
        m_fixture->setText("EDIT_POINT_1", "before");
        m_fixture->setText("EDIT_POINT_2", "before");
        const LogRecorder log;
        QSignalSpy points(&widget(), &QC_measure::sig_measure_point);
        EnabledChanges changes(m_fixture->window());
        const bool* enabledWhenPainted = askWhenEventsRun();
        m_qc->findPoint(index);

        QCOMPARE(points.count(), 1);
        const QPoint point(points.at(0).at(1).toInt(), points.at(0).at(2).toInt());
        QVERIFY(qAbs(point.x() - kDots[index].x_px) <= 1 && qAbs(point.y() - kDots[index].y_px) <= 1);
        const QString text = QString("%1, %2").arg(point.x()).arg(point.y());
        QCOMPARE(m_fixture->text(qPrintable(edit)), text);
        QCOMPARE(m_fixture->text(index == 0 ? "EDIT_POINT_2" : "EDIT_POINT_1"), QString("before"));
        QCOMPARE(changes.seen, QVector<bool>({false, true}));
        QVERIFY(!*enabledWhenPainted);
        QVERIFY(m_fixture->boxes().seen().isEmpty());
        compareOrder(
            log.messages(),
            {signature, QString("void ORLA_II_Plus_Verifier::slot_measure_point(int, int, int) %1 %2")
                            .arg(index)
                            .arg(text)});
        QCOMPARE(shown().pixelColor(point - m_qc->offset() + QPoint(14, 0)), QColor(Qt::red));
    }

    void aPointOfAnotherIndexIsNotShown()
    {
        m_fixture->setText("EDIT_POINT_1", "before");
        m_fixture->setText("EDIT_POINT_2", "before");
        m_fixture->window().setEnabled(false);
        emit widget().sig_measure_point(2, 5, -6);
        QCOMPARE(m_fixture->text("EDIT_POINT_1"), QString("before"));
        QCOMPARE(m_fixture->text("EDIT_POINT_2"), QString("before"));
        QVERIFY(m_fixture->window().isEnabled());
        emit widget().sig_measure_point(0, 0, -6);
        QCOMPARE(m_fixture->text("EDIT_POINT_1"), QString("0, -6"));
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
        QVERIFY(m_qc->freeze());
        CalibrationFrame frame(QSize(2592, 1944));
        for (int i = 0; i < cells; ++i)
            frame.dot(QPoint(310 + 20 * i, 240), 5);
        widget().setImageData(frame.data());
        m_qc->aimAt(QPoint(320, 240));
        m_fixture->setText("EDIT_POINT_1", "before");
        m_fixture->setText("EDIT_POINT_2", "before");
        const LogRecorder log;
        EnabledChanges changes(m_fixture->window());
        m_qc->findPoint(index);

        QCOMPARE(m_fixture->boxes().seen().size(), 1);
        const SeenBox& box = m_fixture->boxes().seen().first();
        QCOMPARE(box.title, QString("Error"));
        QCOMPARE(box.text, text);
        QCOMPARE(box.icon, QMessageBox::Critical);
        QCOMPARE(box.buttons, QStringList("OK"));
        QVERIFY(!box.windowWasEnabled);
        QCOMPARE(changes.seen, QVector<bool>({false, true}));
        QCOMPARE(m_fixture->text("EDIT_POINT_1"), QString("before"));
        QCOMPARE(m_fixture->text("EDIT_POINT_2"), QString("before"));
        compareOrder(log.messages(),
                     {QString("void ORLA_II_Plus_Verifier::slot_measure_error(TargetingError_e) %1")
                          .arg(cells == 0 ? 0 : 1)});
    }

    void anUnknownErrorOnlyEnablesTheWindow()
    {
        m_fixture->window().setEnabled(false);
        m_fixture->window().slot_measure_error(static_cast<TargetingError_e>(2));
        QVERIFY(m_fixture->window().isEnabled());
        QVERIFY(m_fixture->boxes().seen().isEmpty());
    }

    void thePointsSurviveANewFrame()
    {
        QVERIFY(m_qc->freeze());
        QVERIFY(found(0) && found(1));
        const QString first = m_fixture->text("EDIT_POINT_1");
        m_fixture->click("BUTTON_QC_MEASURE");
        const QString magnification = m_fixture->text("EDIT_MAGNIFICATION");
        m_qc->goLive();
        m_fixture->setText("EDIT_MAGNIFICATION", "");
        QVERIFY(m_qc->freeze());
        QCOMPARE(m_fixture->text("EDIT_POINT_1"), first);
        m_fixture->click("BUTTON_QC_MEASURE");
        QCOMPARE(m_fixture->text("EDIT_MAGNIFICATION"), magnification);
    }

    void aMeasurementIsShownAndKept()
    {
        QVERIFY(m_qc->freeze());
        QVERIFY(found(0) && found(1));
        const LogRecorder log;
        EnabledChanges changes(m_fixture->window());
        QSignalSpy results(&widget(), &QC_measure::sig_measure_result);
        const bool* enabledWhenPainted = askWhenEventsRun();
        m_fixture->click("BUTTON_QC_MEASURE");
        QCOMPARE(changes.seen, QVector<bool>({false, true}));
        QVERIFY(!*enabledWhenPainted);
        QCOMPARE(results.count(), 1);
        const auto info = results.at(0).at(0).value<MeasureInfo_t>();
        QVERIFY(qAbs(double(info.length_pixel) - 1000.3) < 2);
        QCOMPARE(global_ini()->System.Magnification, double(info.Magnification));
        QCOMPARE(global_ini()->System.Volume_factor, double(info.Volume_factor));
        QCOMPARE(m_fixture->text("EDIT_MAGNIFICATION"), QString::number(double(info.Magnification), 'f', 3));
        QCOMPARE(m_fixture->text("EDIT_VOLUME_FACTOR"), QString::number(double(info.Volume_factor), 'f', 5));
        compareOrder(log.messages(), {"void ORLA_II_Plus_Verifier::on_BUTTON_QC_MEASURE_clicked()",
                                      "----->Before Magnification :", "----->Volume_factor :",
                                      "------> global_ini()->System.Magnification : " +
                                          QString::number(global_ini()->System.Magnification),
                                      "------> global_ini()->System.Volume_factor : " +
                                          QString::number(global_ini()->System.Volume_factor)});
        QVERIFY(m_fixture->messages().contains("------> global_ini()->System.Magnification :"));
    }

    void aResultIsShownAsItComes_data()
    {
        QTest::addColumn<float>("magnification");
        QTest::addColumn<float>("volumeFactor");
        QTest::addColumn<QString>("magnificationText");
        QTest::addColumn<QString>("volumeFactorText");
        const float infinite = std::numeric_limits<float>::infinity();
        const float none = std::numeric_limits<float>::quiet_NaN();
        QTest::newRow("usual") << 1.469F << 0.45783F << "1.469"
                               << "0.45783";
        QTest::newRow("zeros are filled up") << 1.4F << 0.5F << "1.400"
                                             << "0.50000";
        QTest::newRow("infinite") << infinite << 0.0F << "inf"
                                  << "0.00000";
        QTest::newRow("minus infinite") << -infinite << infinite << "-inf"
                                        << "inf";
        QTest::newRow("no number") << none << none << "nan"
                                   << "nan";
    }

    void aResultIsShownAsItComes()
    {
        QFETCH(float, magnification);
        QFETCH(float, volumeFactor);
        QFETCH(QString, magnificationText);
        QFETCH(QString, volumeFactorText);
        m_fixture->window().setEnabled(false);
        giveResult(magnification, volumeFactor);
        QCOMPARE(m_fixture->text("EDIT_MAGNIFICATION"), magnificationText);
        QCOMPARE(m_fixture->text("EDIT_VOLUME_FACTOR"), volumeFactorText);
        QVERIFY(m_fixture->window().isEnabled());
        const auto same = [](double stored, float given) {
            return stored == double(given) || (qIsNaN(stored) && qIsNaN(given));
        };
        QVERIFY(same(global_ini()->System.Magnification, magnification));
        QVERIFY(same(global_ini()->System.Volume_factor, volumeFactor));
    }

    void whatIsMeasuredBetweenOnePointAndItselfIsNoNumber()
    {
        QVERIFY(m_qc->freeze());
        QVERIFY(found(0));
        m_qc->findPoint(1);
        m_fixture->click("BUTTON_QC_MEASURE");
        QCOMPARE(m_fixture->text("EDIT_MAGNIFICATION"), QString("nan"));
        QCOMPARE(m_fixture->text("EDIT_VOLUME_FACTOR"), QString("nan"));
        QVERIFY(m_fixture->window().isEnabled());
        QVERIFY(m_fixture->boxes().seen().isEmpty());
    }

    void saveOnTheQcTabWritesTheRoundedResult()
    {
        giveResult(1.23456F, 0.4567891F);
        m_fixture->openTab(2);
        m_fixture->click("BUTTON_SAVE_INI");
        QCOMPARE(saved("ORLA-III/Magnification").toDouble(), 1.2346);
        QCOMPARE(saved("ORLA-III/Volume factor").toDouble(), 0.45679);
        QCOMPARE(m_fixture->boxes().texts(), QStringList("INI saved !"));
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
        m_fixture->openTab(2);
        m_fixture->click("BUTTON_SAVE_INI");
        giveResult(magnification, volumeFactor);
        m_fixture->openTab(tab);
        m_fixture->click("BUTTON_SAVE_INI");
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
        m_fixture->click(qPrintable(resolution));
        m_fixture->window().set_COLOR_RED(0x0380);
        m_fixture->window().set_COLOR_BLUE(0x0300);
        QVERIFY(m_fixture->waitForFrames(4));
        const double magnification = global_ini()->System.Magnification;
        const std::vector<unsigned char> frame = liveFrame();
        std::uint64_t sums[3] = {};
        for (std::size_t i = 0; i < frame.size(); ++i)
            sums[i % 3] += frame[i];
        m_fixture->click("BUTTON_INTENSITY");
        const char* const edits[] = {"EDIT_INTENSITY_RED", "EDIT_INTENSITY_GREEN", "EDIT_INTENSITY_BLUE"};
        double means[3] = {};
        for (int channel = 0; channel < 3; ++channel) {
            means[channel] = double(float(double(sums[channel]) * 3 / double(frame.size())));
            QCOMPARE(m_fixture->text(edits[channel]), QString::number(means[channel], 'f', 1));
        }
        QVERIFY(means[1] > means[0] + 10 && means[0] > means[2] + 10);
        QVERIFY(widget().isHidden());
        QCOMPARE(button(), QString("Capture"));
        QVERIFY(m_fixture->window().isEnabled());
        QCOMPARE(global_ini()->System.Magnification, magnification);
        QVERIFY(m_fixture->messages().contains("on_BUTTON_INTENSITY_clicked()"));
        m_fixture->window().set_COLOR_RED(0x0400);
        m_fixture->window().set_COLOR_BLUE(0x0400);
    }

    void theIntensityLeavesTheFrozenFrameAlone()
    {
        QVERIFY(m_qc->freeze());
        m_qc->panTo(dot(1));
        const QImage before = shown();
        m_fixture->setText("EDIT_INTENSITY_GREEN", "");
        m_fixture->click("BUTTON_INTENSITY");
        QVERIFY(m_fixture->text("EDIT_INTENSITY_GREEN").toDouble() > 150);
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
            QVERIFY(m_qc->freeze());
        } else {
            m_fixture->find<QSpinBox>("SPIN_DEBUG")->setValue(cover.toInt());
            m_fixture->click("BUTTON_DEBUG");
        }
        // The camera starts anew under the cover: no repaint asks for a second frame.
        m_fixture->click("BUTTON_RESOLUTION_1280");
        QVERIFY(waitForDeliveries(3));
        const double lit = measuredGreen();
        m_fixture->window().set_LED(0);
        QVERIFY(waitForDeliveries(6));
        const double dark = measuredGreen();
        m_fixture->window().set_LED(225);
        if (!frozen)
            m_fixture->click("BUTTON_DEBUG");
        QVERIFY2(lit > 150.0 && dark < 20.0, qPrintable(QString("%1 and %2").arg(lit).arg(dark)));
    }

    void theIntensityOfACameraThatCannotBeOpenedDoesNotHang()
    {
        m_fixture->camera().faults().enable("ioctl:VIDIOC_S_FMT:EIO");
        m_fixture->click("BUTTON_RESOLUTION_1280");
        QVERIFY(!camera().isStreaming());
        m_fixture->setText("EDIT_INTENSITY_GREEN", "");
        m_fixture->click("BUTTON_INTENSITY");
        QVERIFY(!m_fixture->text("EDIT_INTENSITY_GREEN").isEmpty());
        QVERIFY(m_fixture->window().isEnabled());
    }

    /// Last, because an event loop that has been left once stays so.
    void theProgramCanBeLeftWhileAFrameIsWaitedFor()
    {
        m_fixture->click("BUTTON_RESOLUTION_VGA");
        m_fixture->click("BUTTON_QC_CAPTURE");
        m_fixture->boxes().answerNextWith("Yes");
        QMetaObject::invokeMethod(&m_fixture->window(), "on_BUTTON_EXIT_clicked");
        QVERIFY(!camera().isStreaming());
        QVERIFY2(runningWait() == nullptr, "no frame is waited for any more");
        QVERIFY(!m_fixture->window().isEnabled());
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
            look->enabled = m_fixture->window().isEnabled();
            look->streaming = camera().isStreaming();
        };
        connect(&m_fixture->window(), &ORLA_II_Plus_Verifier::sig_debug_Message, look, keep);
        connect(&camera(), &OV5642Camera::sig_debug_Message, look, keep);
        return moment;
    }

    /// Whether the window is enabled when pending events are processed the next time.
    const bool* askWhenEventsRun()
    {
        m_enabledWhenEventsRan = true;
        QTimer::singleShot(0, this, [this] { m_enabledWhenEventsRan = m_fixture->window().isEnabled(); });
        return &m_enabledWhenEventsRan;
    }

    /// What runs while the sensor is given its time before the frame is frozen, else null.
    QTimer* runningWait()
    {
        for (QTimer* timer : m_fixture->window().findChildren<QTimer*>())
            if (timer->isSingleShot() && timer->isActive())
                return timer;
        return nullptr;
    }

    static void compareOrder(const QStringList& lines, const QStringList& expected)
    {
        int from = 0;
        for (const QString& part : expected) {
            while (from < lines.size() && !lines.at(from).contains(part))
                ++from;
            QVERIFY2(from < lines.size(), qPrintable(part + " is missing in\n" + lines.join('\n')));
            ++from;
        }
    }

    void compareControls(const QVector<bool>& enabled)
    {
        for (int i = 0; i < enabled.size(); ++i)
            QVERIFY2(m_fixture->isEnabled(kControls[i]) == enabled.at(i), kControls[i]);
    }

    void expectNoCell()
    {
        m_qc->setTargeting(true);
        QTest::mouseClick(&widget(), Qt::LeftButton, Qt::NoModifier, QPoint(300, 200));
        m_qc->findPoint(0);
        QCOMPARE(m_fixture->boxes().texts(), QStringList("Cell not detected !"));
        QVERIFY(m_fixture->window().isEnabled());
    }

    /// Waits for frames of the device, whether they are painted or not.
    bool waitForDeliveries(unsigned count)
    {
        // Frames that the program has taken in: the device fills its first buffers by itself.
        const auto target = m_fixture->camera().counters().framesReturned + count;
        return m_fixture->waitUntil([&] { return m_fixture->camera().counters().framesReturned >= target; });
    }

    double measuredGreen()
    {
        m_fixture->click("BUTTON_INTENSITY");
        return m_fixture->text("EDIT_INTENSITY_GREEN").toDouble();
    }

    bool found(int index)
    {
        QSignalSpy points(&widget(), &QC_measure::sig_measure_point);
        m_qc->aimAt(dot(index));
        m_qc->findPoint(index);
        return points.count() == 1;
    }

    void giveResult(float magnification, float volumeFactor)
    {
        emit widget().sig_measure_result({1000, 1, 1, magnification, 5, volumeFactor});
    }

    void setState(int state) { m_fixture->window().setState_QC_widget(static_cast<QC_widget_e>(state)); }

    /// The newest frame of the streaming camera, RGB24.
    std::vector<unsigned char> liveFrame()
    {
        const unsigned char* frame = camera().getFrame();
        return frame == nullptr ? std::vector<unsigned char>()
                                : std::vector<unsigned char>(frame, frame + camera().rgbFrameSize());
    }

    QVariant saved(const char* key)
    {
        return QSettings(m_fixture->machinePath(kMainFile), QSettings::IniFormat).value(key);
    }

    static QPoint dot(int index) { return {qRound(kDots[index].x_px), qRound(kDots[index].y_px)}; }
    QImage shown() { return widget().grab().toImage(); }
    QString button() { return m_fixture->find<QPushButton>("BUTTON_QC_CAPTURE")->text(); }
    QC_measure& widget() { return m_qc->widget(); }
    OV5642Camera& camera() { return *m_fixture->window().findChild<OV5642Camera*>(); }

    std::unique_ptr<WindowFixture> m_fixture;
    std::unique_ptr<QcOperator> m_qc;
    bool m_enabledWhenEventsRan = true;
};

QTEST_MAIN(TestWindowQc)
#include "test_window_qc.moc"
