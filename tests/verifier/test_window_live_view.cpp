#include <QCheckBox>
#include <QMouseEvent>
#include <QtTest>

#include "camera/OV5642Camera.h"
#include "support/WindowFixture.h"

namespace {

constexpr const char* kHighlight = "background-color: rgb(0, 170, 255);";
constexpr const char* kPlain = "background-color: none;";

} // namespace

class TestWindowLiveView : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { m_fixture = std::make_unique<WindowFixture>(); }

    void cleanupTestCase() { m_fixture.reset(); }

    void init()
    {
        switchTo(1);
        setChecked("CHECK_SCALED_TO_FIT", false);
        setChecked("CHECK_SCALED_TO_FIT", true); // resets the view offset
        setChecked("CHECK_CROSS_LINE", false);
    }

    void aFrameIsPaintedOverAndOver() { QVERIFY(m_fixture->waitForFrames(5)); }

    void onlyTheLiveViewIsRepaintedPerFrame()
    {
        struct Watcher : QObject
        {
            bool eventFilter(QObject*, QEvent* event) override
            {
                if (event->type() == QEvent::Paint)
                    painted |= static_cast<QPaintEvent*>(event)->region();
                return false;
            }
            QRegion painted;
        } watcher;
        QVERIFY(m_fixture->waitForFrames(3));
        m_fixture->window().installEventFilter(&watcher);
        QVERIFY(m_fixture->waitForFrames(3));
        QVERIFY(!watcher.painted.isEmpty());
        QCOMPARE(watcher.painted.boundingRect(), QRect(0, 0, 640, 480));
    }

    void scaledToFitShowsTheWholeFrame_data() { modes(); }

    void scaledToFitShowsTheWholeFrame()
    {
        QFETCH(int, mode);
        switchTo(mode);
        const QImage view = grabView();
        const QImage frame = currentFrame();
        // Nearest-neighbour shrinking: each view pixel is one of the frame's pixels nearby.
        const double scaleX = frame.width() / 640.0;
        const double scaleY = frame.height() / 480.0;
        for (const QPoint& point : probes()) {
            const int x = static_cast<int>((point.x() + 0.5) * scaleX);
            const int y = static_cast<int>((point.y() + 0.5) * scaleY);
            QVERIFY2(isNear(view.pixelColor(point), frame, x, y), "view shows the frame");
        }
    }

    void oneToOneShowsThePartAtTheOffset_data() { modes(); }

    void oneToOneShowsThePartAtTheOffset()
    {
        QFETCH(int, mode);
        switchTo(mode);
        setChecked("CHECK_SCALED_TO_FIT", false);
        drag({500, 400}, {300, 250});
        const QPoint offset = mode == 0 ? QPoint(0, 0) : QPoint(200, 150);
        const QImage view = grabView();
        const QImage frame = currentFrame();
        for (const QPoint& point : probes()) {
            if (QRect(0, 0, 81, 61).contains(point))
                continue;
            QCOMPARE(view.pixel(point), frame.pixel(point + offset));
        }
    }

    void theNavigatorIsDrawnOnlyAtOneToOne()
    {
        const QColor yellow(255, 255, 0);
        QVERIFY(grabView().pixelColor(79, 30) != yellow);
        setChecked("CHECK_SCALED_TO_FIT", false);
        const QImage view = grabView();
        for (const QPoint& corner : {QPoint(0, 0), QPoint(80, 0), QPoint(0, 60), QPoint(80, 60)})
            QCOMPARE(view.pixelColor(corner), yellow);
        // The position rectangle of 1280 at the offset (0, 0).
        QCOMPARE(view.pixelColor(40, 15), yellow);
        QCOMPARE(view.pixelColor(20, 30), yellow);
    }

    void thePositionRectangleFollowsTheOffset()
    {
        switchTo(2);
        setChecked("CHECK_SCALED_TO_FIT", false);
        for (int i = 0; i < 6; ++i)
            drag({600, 440}, {10, 10});
        QRect rectangle;
        m_fixture->window().SetNavigatorRect(rectangle);
        QCOMPARE(rectangle, QRect(QPoint(60, 45), QPoint(79, 59)));
        const QImage view = grabView();
        QCOMPARE(view.pixelColor(60, 50), QColor(255, 255, 0));
        QCOMPARE(view.pixelColor(70, 45), QColor(255, 255, 0));
    }

    void checkingScaledToFitResetsTheOffset()
    {
        setChecked("CHECK_SCALED_TO_FIT", false);
        drag({500, 400}, {300, 250});
        QCOMPARE(navigator().topLeft(), QPoint(12, 9));
        setChecked("CHECK_SCALED_TO_FIT", true);
        setChecked("CHECK_SCALED_TO_FIT", false);
        QCOMPARE(navigator().topLeft(), QPoint(0, 0));
    }

    void panningWorksWhileScaledToFitToo()
    {
        drag({500, 400}, {300, 250});
        QCOMPARE(navigator().topLeft(), QPoint(12, 9));
    }

    void aPressOnTheBorderStartsNoDrag_data()
    {
        QTest::addColumn<QPoint>("press");
        QTest::newRow("left") << QPoint(0, 240);
        QTest::newRow("right") << QPoint(639, 240);
        QTest::newRow("top") << QPoint(320, 0);
        QTest::newRow("bottom") << QPoint(320, 479);
        QTest::newRow("outside") << QPoint(700, 20);
    }

    void aPressOnTheBorderStartsNoDrag()
    {
        QFETCH(QPoint, press);
        drag({400, 300}, {360, 260});
        const QRect before = navigator();
        drag(press, {200, 100});
        QCOMPARE(navigator(), before);
    }

    void aMoveOntoTheBorderPansAndOneBeyondDoesNot()
    {
        drag({160, 240}, {0, 240});
        QCOMPARE(navigator().left(), 10);
        setChecked("CHECK_SCALED_TO_FIT", false);
        setChecked("CHECK_SCALED_TO_FIT", true);
        drag({160, 240}, {-1, 240});
        QCOMPARE(navigator().left(), 0);
    }

    void afterTheReleaseAMoveDoesNothing()
    {
        drag({400, 300}, {360, 260});
        const QRect before = navigator();
        send(QEvent::MouseMove, {100, 100});
        QCOMPARE(navigator(), before);
    }

    void theCrossLineIsRedInTheMiddle_data()
    {
        QTest::addColumn<bool>("scaled");
        QTest::newRow("scaled to fit") << true;
        QTest::newRow("1:1") << false;
    }

    void theCrossLineIsRedInTheMiddle()
    {
        QFETCH(bool, scaled);
        setChecked("CHECK_SCALED_TO_FIT", scaled);
        setChecked("CHECK_CROSS_LINE", true);
        const QImage view = grabView();
        for (const QPoint& point :
             {QPoint(0, 240), QPoint(320, 240), QPoint(639, 240), QPoint(320, 0), QPoint(320, 479)})
            QCOMPARE(view.pixelColor(point), QColor(255, 0, 0));
        QVERIFY(view.pixelColor(300, 200) != QColor(255, 0, 0));
    }

    void aHiddenWindowGivesNoAnswerAndAShownOneGoesOn()
    {
        m_fixture->window().hide();
        QTest::qWait(100);
        QSignalSpy answers(&m_fixture->window(), &ORLA_II_Plus_Verifier::updateFrameDone);
        QTest::qWait(300);
        QCOMPARE(answers.count(), 0);
        m_fixture->window().show();
        QVERIFY(m_fixture->waitForFrames(2));
    }

    void aModeButtonMarksItselfAndReopensTheCamera_data()
    {
        QTest::addColumn<int>("mode");
        QTest::addColumn<QString>("button");
        QTest::newRow("VGA") << 0 << "BUTTON_RESOLUTION_VGA";
        QTest::newRow("1280") << 1 << "BUTTON_RESOLUTION_1280";
        QTest::newRow("1280 again") << 1 << "BUTTON_RESOLUTION_1280";
        QTest::newRow("5M") << 2 << "BUTTON_RESOLUTION_5M";
    }

    void aModeButtonMarksItselfAndReopensTheCamera()
    {
        QFETCH(int, mode);
        QFETCH(QString, button);
        QObject* before = m_fixture->window().findChild<OV5642Camera*>();
        m_fixture->clearConsoles();
        m_fixture->click(qPrintable(button));
        QCOMPARE(m_fixture->window().findChild<OV5642Camera*>(), before);
        for (const char* name : {"BUTTON_RESOLUTION_VGA", "BUTTON_RESOLUTION_1280", "BUTTON_RESOLUTION_5M"})
            QCOMPARE(m_fixture->style(name), QString(button == name ? kHighlight : kPlain));
        QVERIFY(m_fixture->window().isEnabled());
        QCOMPARE(camera()->mode(), mode);
        QVERIFY(camera()->isStreaming());
        const QString text = m_fixture->messages();
        QVERIFY(text.indexOf("stopCamera") < text.indexOf("OV5642Camera::open"));
        QVERIFY(text.indexOf("OV5642Camera::open") < text.indexOf("startCamera"));
        QVERIFY(m_fixture->waitForFrames(2));
    }

    void theStainingButtonsReopenWithTheirFile_data()
    {
        QTest::addColumn<QString>("button");
        QTest::addColumn<QString>("other");
        QTest::addColumn<QString>("file");
        QTest::newRow("TB") << "BUTTON_STAINING_TB"
                            << "BUTTON_STAINING_NTB"
                            << "/opt/ORLA3/conf/Calibration_CUS.ini";
        QTest::newRow("NTB") << "BUTTON_STAINING_NTB"
                             << "BUTTON_STAINING_TB"
                             << "/opt/ORLA3/conf/Calibration_BFN.ini";
    }

    void theStainingButtonsReopenWithTheirFile()
    {
        QFETCH(QString, button);
        QFETCH(QString, other);
        QFETCH(QString, file);
        switchTo(0);
        m_fixture->clearConsoles();
        m_fixture->click(qPrintable(button));
        QCOMPARE(m_fixture->style(qPrintable(button)), QString(kHighlight));
        QCOMPARE(m_fixture->style(qPrintable(other)), QString(kPlain));
        QVERIFY(m_fixture->messages().contains("camera_mode: 0 , ini_file " + file));
        QCOMPARE(camera()->mode(), 0);
        // The choice holds for the next resolution too.
        m_fixture->clearConsoles();
        m_fixture->click("BUTTON_RESOLUTION_1280");
        QVERIFY(m_fixture->messages().contains("camera_mode: 1 , ini_file " + file));
    }

    void theSensorRestsHalfASecondOnlyAfterAClose()
    {
        const auto pausedBefore = m_fixture->camera().counters().paused_us;
        m_fixture->window().stopCamera();
        QVERIFY(!camera()->isStreaming());
        QVERIFY(m_fixture->camera().counters().paused_us - pausedBefore >= 500000);
        const auto before = m_fixture->camera().counters().pauses;
        m_fixture->clearConsoles();
        m_fixture->window().stopCamera();
        QCOMPARE(m_fixture->camera().counters().pauses, before);
        QCOMPARE(m_fixture->messages(), QString("void ORLA_II_Plus_Verifier::stopCamera()() \n"));
    }

    void aCameraThatCannotBeOpenedLeavesAUsableWindow()
    {
        QVERIFY(m_fixture->camera().faults().enable("ioctl:VIDIOC_STREAMON"));
        m_fixture->clearConsoles();
        m_fixture->click("BUTTON_RESOLUTION_VGA");
        QVERIFY(m_fixture->messages().contains(
            "bool OV5642Camera::open(int, std::string, bool)() [Error] VIDIOC_STREAMON ! \n"));
        QVERIFY(m_fixture->window().isEnabled());
        QVERIFY(!camera()->isStreaming());
        // Its grab thread runs all the same, and the next press replaces it.
        QVERIFY(m_fixture->waitForPaints(2));
        m_fixture->click("BUTTON_RESOLUTION_VGA");
        QVERIFY(m_fixture->waitForPaints(2));
        m_fixture->camera().faults().clear();
        m_fixture->click("BUTTON_RESOLUTION_VGA");
        QVERIFY(camera()->isStreaming());
        QVERIFY(m_fixture->waitForFrames(2));
    }

    void manySwitchesLeaveNothingBehind()
    {
        switchTo(1);
        const auto descriptors = m_fixture->camera().openDescriptors();
        const auto mappings = m_fixture->camera().openMappings();
        for (int i = 0; i < 30; ++i)
            switchTo(i % 3);
        switchTo(1);
        QCOMPARE(m_fixture->camera().openDescriptors(), descriptors);
        QCOMPARE(m_fixture->camera().openMappings(), mappings);
    }

private:
    static void modes()
    {
        QTest::addColumn<int>("mode");
        QTest::newRow("VGA") << 0;
        QTest::newRow("1280") << 1;
        QTest::newRow("5M") << 2;
    }

    static QVector<QPoint> probes()
    {
        QVector<QPoint> points;
        for (int y = 3; y < 480; y += 37) {
            for (int x = 5; x < 640; x += 41)
                points.append({x, y});
        }
        return points;
    }

    static bool isNear(const QColor& colour, const QImage& frame, int x, int y)
    {
        for (int dy = -1; dy <= 1; ++dy) {
            for (int dx = -1; dx <= 1; ++dx) {
                const QPoint point(x + dx, y + dy);
                if (frame.valid(point) && frame.pixelColor(point) == colour)
                    return true;
            }
        }
        return false;
    }

    OV5642Camera* camera() { return m_fixture->window().findChild<OV5642Camera*>(); }

    void switchTo(int mode)
    {
        static const char* const kButtons[] = {"BUTTON_RESOLUTION_VGA", "BUTTON_RESOLUTION_1280",
                                               "BUTTON_RESOLUTION_5M"};
        if (camera()->isStreaming() && camera()->mode() == mode)
            return;
        m_fixture->click(kButtons[mode]);
        QVERIFY(m_fixture->waitForFrames(3));
    }

    void setChecked(const char* box, bool checked)
    {
        if (m_fixture->find<QCheckBox>(box)->isChecked() != checked)
            m_fixture->click(box);
        QCOMPARE(m_fixture->find<QCheckBox>(box)->isChecked(), checked);
    }

    QRect navigator()
    {
        QRect rectangle;
        m_fixture->window().SetNavigatorRect(rectangle);
        return rectangle;
    }

    QImage grabView()
    {
        m_fixture->waitForFrames(2);
        return m_fixture->window().grab(QRect(0, 0, 640, 480)).toImage();
    }

    /// What the camera shows now. Nothing moves on this instrument, so that every frame of
    /// a mode is the same.
    QImage currentFrame()
    {
        const int width = static_cast<int>(camera()->width());
        const QImage frame(camera()->getFrame(), width, static_cast<int>(camera()->height()), width * 3,
                           QImage::Format_RGB888);
        return frame.convertToFormat(QImage::Format_RGB32);
    }

    void send(QEvent::Type type, const QPoint& point)
    {
        const auto buttons = type == QEvent::MouseButtonRelease ? Qt::NoButton : Qt::LeftButton;
        QMouseEvent event(type, point, Qt::LeftButton, buttons, Qt::NoModifier);
        QCoreApplication::sendEvent(&m_fixture->window(), &event);
    }

    void drag(const QPoint& from, const QPoint& to)
    {
        send(QEvent::MouseButtonPress, from);
        send(QEvent::MouseMove, to);
        send(QEvent::MouseButtonRelease, to);
    }

    std::unique_ptr<WindowFixture> m_fixture;
};

QTEST_MAIN(TestWindowLiveView)
#include "test_window_live_view.moc"
