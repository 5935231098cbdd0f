#include <QApplication>
#include <QCheckBox>
#include <QMouseEvent>
#include <QPaintEngine>
#include <QPainter>
#include <QScreen>
#include <QSpinBox>
#include <QtTest>

#include "FocusGraph.h"
#include "camera/OV5642Camera.h"
#include "support/PaintWatch.h"
#include "support/WindowFixture.h"

namespace {

/// Counts what is painted, and paints nothing.
class CountingEngine : public QPaintEngine
{
public:
    CountingEngine() : QPaintEngine(AllFeatures) {}

    int pictures = 0;
    int grounds = 0; ///< areas that were filled and have no edge

    bool begin(QPaintDevice*) override { return true; }
    bool end() override { return true; }
    Type type() const override { return User; }
    void updateState(const QPaintEngineState& changed) override
    {
        if (changed.state() & DirtyPen)
            m_edge = changed.pen().style();
    }
    void drawPixmap(const QRectF&, const QPixmap&, const QRectF&) override { ++pictures; }
    void drawRects(const QRectF*, int count) override { grounds += m_edge == Qt::NoPen ? count : 0; }
    void drawRects(const QRect*, int count) override { grounds += m_edge == Qt::NoPen ? count : 0; }

private:
    Qt::PenStyle m_edge = Qt::SolidLine;
};

struct CountingPaper : QImage
{
    CountingPaper() : QImage(640, 480, QImage::Format_RGB32) {}
    QPaintEngine* paintEngine() const override { return &engine; }

    mutable CountingEngine engine;
};

QtMessageHandler messageHandlerBefore = nullptr;
QImage viewBeforeTheStart;

/// Takes a picture of the window, without what lies on it, from within its constructor: the
/// only time at which everything stands and no camera has been started.
void lookBeforeTheCameraStarts(QtMsgType type, const QMessageLogContext& context, const QString& text)
{
    if (viewBeforeTheStart.isNull() && text.contains("on_BUTTON_RESOLUTION_1280_clicked()")) {
        QImage view(640, 480, QImage::Format_RGB32);
        view.fill(Qt::magenta);
        for (QWidget* window : QApplication::topLevelWidgets()) {
            auto* cross = window->findChild<QCheckBox*>("CHECK_CROSS_LINE");
            auto* scaled = window->findChild<QCheckBox*>("CHECK_SCALED_TO_FIT");
            if (cross == nullptr || scaled == nullptr)
                continue;
            // With every mark that is painted beside the picture.
            cross->setChecked(true);
            scaled->setChecked(false);
            window->render(&view, QPoint(), QRegion(0, 0, 640, 480), QWidget::DrawWindowBackground);
            cross->setChecked(false);
            scaled->setChecked(true);
        }
        viewBeforeTheStart = view;
    }
    messageHandlerBefore(type, context, text);
}

/// What a finger does, and where.
struct Touch
{
    QEvent::Type type;
    QPointF place;
};

Touch touchAt(qreal x, qreal y)
{
    return {QEvent::MouseButtonPress, {x, y}};
}

Touch moveTo(qreal x, qreal y)
{
    return {QEvent::MouseMove, {x, y}};
}

Touch letGo()
{
    return {QEvent::MouseButtonRelease, {}};
}

WindowFixture::Options watchedStart()
{
    WindowFixture::Options options;
    options.prepare = [](const QString&) {
        messageHandlerBefore = qInstallMessageHandler(lookBeforeTheCameraStarts);
    };
    return options;
}

} // namespace
Q_DECLARE_METATYPE(QVector<Touch>)

class TestWindowLiveView : public QObject, protected WindowFixture
{
    Q_OBJECT

public:
    TestWindowLiveView() : WindowFixture(watchedStart()) { qInstallMessageHandler(messageHandlerBefore); }

private slots:
    void init()
    {
        switchTo(1);
        setChecked("CHECK_SCALED_TO_FIT", false);
        setChecked("CHECK_SCALED_TO_FIT", true); // resets the view offset
        setChecked("CHECK_CROSS_LINE", false);
    }

    void beforeACameraIsStartedTheViewIsBare()
    {
        QImage bare(viewBeforeTheStart.size(), QImage::Format_RGB32);
        QCOMPARE(bare.size(), QSize(640, 480));
        bare.fill(window().palette().color(QPalette::Window));
        QCOMPARE(viewBeforeTheStart, bare);
    }

    void onlyTheLiveViewIsRepaintedPerFrame()
    {
        QVERIFY(waitForFrames(3));
        const PaintWatch watch(window());
        QVERIFY(waitForFrames(3));
        QCOMPARE(watch.painted(), QRect(0, 0, 640, 480));
    }

    void theViewIsTheFrameAndItsMarksToThePixel_data()
    {
        QTest::addColumn<int>("mode");
        QTest::addColumn<bool>("scaled");
        QTest::newRow("VGA, scaled") << 0 << true;
        QTest::newRow("VGA") << 0 << false;
        QTest::newRow("1280, scaled") << 1 << true;
        QTest::newRow("1280") << 1 << false;
        QTest::newRow("5M, scaled") << 2 << true;
        QTest::newRow("5M") << 2 << false;
    }

    void theViewIsTheFrameAndItsMarksToThePixel()
    {
        QFETCH(int, mode);
        QFETCH(bool, scaled);
        switchTo(mode);
        setChecked("CHECK_SCALED_TO_FIT", scaled);
        if (!scaled)
            drag({500, 400}, {300, 250});
        const QPoint offset = scaled || mode == 0 ? QPoint(0, 0) : QPoint(200, 150);
        const QImage frame = currentFrame();

        QImage expected(640, 480, QImage::Format_RGB32);
        QPainter painter(&expected);
        painter.drawImage(QRect(0, 0, 640, 480), frame,
                          scaled ? frame.rect() : QRect(offset, QSize(640, 480)));
        if (!scaled) {
            painter.setPen(QColor(255, 255, 0));
            painter.drawRect(0, 0, 80, 60);
            const QRect positions[] = {{0, 0, 80, 60}, {12, 9, 40, 30}, {6, 4, 20, 15}};
            painter.drawRect(positions[mode]);
        }
        QCOMPARE(grabView(), expected);
        setChecked("CHECK_CROSS_LINE", true);
        painter.setPen(QColor(255, 0, 0));
        painter.drawLine(0, 240, 640, 240);
        painter.drawLine(320, 0, 320, 480);
        painter.end();
        QCOMPARE(grabView(), expected);
    }

    void nothingIsPaintedBelowAFrameThatCoversTheView_data()
    {
        theViewIsTheFrameAndItsMarksToThePixel_data();
    }

    void nothingIsPaintedBelowAFrameThatCoversTheView()
    {
        QFETCH(int, mode);
        QFETCH(bool, scaled);
        switchTo(mode);
        setChecked("CHECK_SCALED_TO_FIT", scaled);
        QVERIFY(waitForFrames(1));
        CountingPaper paper;
        window().render(&paper, QPoint(), QRegion(0, 0, 640, 480), QWidget::RenderFlags());
        QCOMPARE(paper.engine.pictures, 1);
        QCOMPARE(paper.engine.grounds, 0);
    }

    // From the answer on, the buffer may be filled with the next frame.
    void theNextFrameIsAskedForWhenThisOneIsPainted()
    {
        QVERIFY(waitForFrames(1));
        CountingPaper paper;
        QVector<int> paintedBefore;
        const auto answers = connect(&window(), &ORLA_II_Plus_Verifier::updateFrameDone, this,
                                     [&] { paintedBefore << paper.engine.pictures; });
        window().render(&paper, QPoint(), QRegion(0, 0, 640, 480), QWidget::RenderFlags());
        disconnect(answers);
        QCOMPARE(paintedBefore, QVector<int>(1, 1));
    }

    // The view offset outlives the mode, and may lie beyond a smaller mode's frame.
    void whereTheFrameEndsNothingOldIsLeftStanding_data()
    {
        QTest::addColumn<int>("mode");
        QTest::addColumn<QPoint>("offset");
        QTest::newRow("VGA, beyond it") << 0 << QPoint(1952, 1464);
        QTest::newRow("1280, partly") << 1 << QPoint(900, 700);
        QTest::newRow("1280, beyond it to the right only") << 1 << QPoint(1500, 0);
    }

    void whereTheFrameEndsNothingOldIsLeftStanding()
    {
        QFETCH(int, mode);
        QFETCH(QPoint, offset);
        switchTo(2);
        setChecked("CHECK_SCALED_TO_FIT", false);
        for (QPoint left = offset; !left.isNull();) {
            const QPoint step(qMin(left.x(), 600), qMin(left.y(), 440));
            drag(QPoint(10, 10) + step, {10, 10});
            left -= step;
        }
        QVERIFY(waitForFrames(2));
        switchTo(mode);

        const QImage screen = viewOnScreen();
        const QImage frame = currentFrame();
        const QColor ground = window().palette().color(QPalette::Window);
        for (const QPoint& point : probes()) {
            const QPoint shown = point + offset;
            QCOMPARE(screen.pixelColor(point),
                     frame.rect().contains(shown) ? frame.pixelColor(shown) : ground);
        }
    }

    void theNextDragBringsTheViewBackIntoASmallerFrame()
    {
        switchTo(2);
        for (int i = 0; i < 3; ++i)
            drag({610, 450}, {10, 10});
        QCOMPARE(navigator(), QRect(55, 40, 20, 15));
        switchTo(1);
        QCOMPARE(navigator(), QRect(112, 82, 40, 30));
        drag({320, 240}, {320, 240});
        QCOMPARE(navigator(), QRect(40, 30, 40, 30));
    }

    void thePositionRectangleFollowsTheOffset()
    {
        switchTo(2);
        setChecked("CHECK_SCALED_TO_FIT", false);
        for (int i = 0; i < 6; ++i)
            drag({600, 440}, {10, 10});
        QCOMPARE(navigator(), QRect(60, 45, 20, 15));
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

    // Scaled to fit, as elsewhere; a step of the navigator is 16 pixels of the frame.
    void touchesPanTheView_data()
    {
        QTest::addColumn<QVector<Touch>>("touches");
        QTest::addColumn<QPoint>("shown");
        const auto row = [](const char* name, const QVector<Touch>& touches, const QPoint& shown) {
            QTest::newRow(name) << touches << shown;
        };
        row("a drag", {touchAt(500, 400), moveTo(300, 250), letGo()}, {12, 9});
        row("each move counts from the one before",
            {touchAt(400, 300), moveTo(360, 268), moveTo(320, 236), moveTo(280, 204), moveTo(240, 172),
             letGo()},
            {10, 8});
        row("back from outside it goes on from where it left",
            {touchAt(160, 240), moveTo(-50, 240), moveTo(0, 240), letGo()}, {10, 0});
        row("after the release", {touchAt(400, 300), moveTo(360, 260), letGo(), moveTo(100, 100)}, {2, 2});
        row("a press outside ends a drag that was not released",
            {touchAt(400, 300), moveTo(360, 260), touchAt(0, 240), moveTo(100, 100), letGo()}, {2, 2});
        row("press on the left border", {touchAt(0, 240), moveTo(200, 100), letGo()}, {0, 0});
        row("press on the right border", {touchAt(639, 240), moveTo(200, 100), letGo()}, {0, 0});
        row("press on the upper border", {touchAt(320, 0), moveTo(200, 100), letGo()}, {0, 0});
        row("press on the lower border", {touchAt(320, 479), moveTo(200, 100), letGo()}, {0, 0});
        row("press outside", {touchAt(700, 20), moveTo(200, 100), letGo()}, {0, 0});
    }

    void touchesPanTheView()
    {
        QFETCH(QVector<Touch>, touches);
        QFETCH(QPoint, shown);
        for (const Touch& touch : touches)
            send(touch.type, touch.place);
        QCOMPARE(navigator().topLeft(), shown);
        send(QEvent::MouseButtonRelease, {});
    }

    void aPointBetweenTwoPixelsIsTheNearer_data()
    {
        QTest::addColumn<QPointF>("press");
        QTest::addColumn<QPointF>("move");
        QTest::addColumn<QPoint>("offset");
        const QPoint still(300, 230);
        QTest::newRow("press on the left border") << QPointF(0.4, 240) << QPointF(201, 240) << still;
        QTest::newRow("press beside it") << QPointF(0.5, 240) << QPointF(201, 240) << still - QPoint(200, 0);
        QTest::newRow("press on the lower border") << QPointF(320, 478.5) << QPointF(320, 300) << still;
        QTest::newRow("press above it") << QPointF(320, 478.4) << QPointF(320, 300) << still + QPoint(0, 178);
        QTest::newRow("move onto the border")
            << QPointF(320, 240) << QPointF(-0.4, 240) << still + QPoint(320, 0);
        QTest::newRow("move beyond it") << QPointF(320, 240) << QPointF(-0.6, 240) << still;
        QTest::newRow("move by parts")
            << QPointF(320.6, 240.4) << QPointF(319.6, 239.5) << still + QPoint(1, 0);
    }

    void aPointBetweenTwoPixelsIsTheNearer()
    {
        QFETCH(QPointF, press);
        QFETCH(QPointF, move);
        QFETCH(QPoint, offset);
        setChecked("CHECK_SCALED_TO_FIT", false);
        drag({310, 240}, {10, 10});
        drag(press, move);
        const QImage view = grabView();
        const QImage frame = currentFrame();
        for (const QPoint& point : probes())
            QCOMPARE(view.pixel(point), frame.pixel(point + offset));
    }

    void aDragRepaintsTheLiveViewOnlyAndAtOnce()
    {
        // No frame comes that would repaint it anyway.
        window().stopCamera();
        QTest::qWait(100);
        const PaintWatch watch(window());
        send(QEvent::MouseButtonPress, {400, 300});
        QTest::qWait(50);
        QCOMPARE(watch.paints(), 0);
        send(QEvent::MouseMove, {360, 260});
        QTest::qWait(50);
        QCOMPARE(watch.painted(), QRect(0, 0, 640, 480));
        send(QEvent::MouseButtonRelease, {360, 260});
        click("BUTTON_RESOLUTION_1280");
        QVERIFY(waitForFrames(2));
    }

    void theBoxesOfTheViewActAtOnce_data()
    {
        QTest::addColumn<QByteArray>("box");
        QTest::newRow("cross line") << QByteArray("CHECK_CROSS_LINE");
        QTest::newRow("scaled to fit") << QByteArray("CHECK_SCALED_TO_FIT");
    }

    void theBoxesOfTheViewActAtOnce()
    {
        QFETCH(QByteArray, box);
        // No frame comes that would repaint it anyway.
        window().stopCamera();
        QTest::qWait(100);
        for (int i = 0; i < 2; ++i) {
            const PaintWatch watch(window(), QRect(0, 0, 640, 480));
            click(box);
            QTRY_COMPARE(watch.paints(), 1);
        }
        click("BUTTON_RESOLUTION_1280");
        QVERIFY(waitForFrames(2));
    }

    // It paints all of its ground itself, and only what is not covered.
    void nobodyFillsTheWindowBeforeItPaints() { QVERIFY(window().testAttribute(Qt::WA_OpaquePaintEvent)); }

    void theWindowBringsItsPicturesAlong()
    {
        for (const char* picture : {"Graph", "Shade", "Veil"})
            QVERIFY2(!QImage(QString(":/GUI/%1.png").arg(picture)).isNull(), picture);
    }

    void theGraphTakesTheScaleOfTheMode_data()
    {
        QTest::addColumn<int>("mode");
        QTest::newRow("VGA") << 0;
        QTest::newRow("1280") << 1;
        QTest::newRow("5M") << 2;
    }

    void theGraphTakesTheScaleOfTheMode()
    {
        QFETCH(int, mode);
        switchTo(mode);
        std::vector<AutoFocusingData_t> samples;
        samples.reserve(15);
        for (int i = 0; i < 15; ++i)
            samples.push_back({20.0 * i, 27660 + 640 * i});
        window().slot_review_AutoFocusing(1, samples, 14);
        find<QSpinBox>("SPIN_DEBUG")->setValue(3);
        click("BUTTON_DEBUG");
        const QImage graph = view();
        click("BUTTON_DEBUG");

        QImage expected(640, 480, QImage::Format_RGB32);
        // Letters are as large as on the screen.
        const double dotsPerInch = window().logicalDpiY();
        expected.setDotsPerMeterX(qRound(dotsPerInch / 0.0254));
        expected.setDotsPerMeterY(qRound(dotsPerInch / 0.0254));
        QPainter painter(&expected);
        painter.setFont(window().font());
        drawFocusGraph(painter, expected.rect(), mode, samples, 14);
        painter.end();
        QCOMPARE(graph.convertToFormat(QImage::Format_RGB32), expected);
        QVERIFY(waitForFrames(2));
    }

    void aHiddenWindowGivesNoAnswerAndAShownOneGoesOn()
    {
        window().hide();
        QTest::qWait(100);
        QSignalSpy answers(&window(), &ORLA_II_Plus_Verifier::updateFrameDone);
        QTest::qWait(300);
        QCOMPARE(answers.count(), 0);
        window().show();
        QVERIFY(waitForFrames(2));
    }

    void aSwitchLocksTheWindowAndSaysItsSteps_data()
    {
        QTest::addColumn<int>("from");
        QTest::addColumn<QString>("button");
        QTest::addColumn<bool>("stained");
        QTest::addColumn<int>("mode");
        // One after the other: a staining holds for the next resolution.
        QTest::newRow("VGA") << 1 << "BUTTON_RESOLUTION_VGA" << false << 0;
        QTest::newRow("TB at VGA") << 0 << "BUTTON_STAINING_TB" << true << 0;
        QTest::newRow("1280, still TB") << 0 << "BUTTON_RESOLUTION_1280" << true << 1;
        QTest::newRow("1280 again") << 1 << "BUTTON_RESOLUTION_1280" << true << 1;
        QTest::newRow("TB again") << 1 << "BUTTON_STAINING_TB" << true << 1;
        QTest::newRow("5M") << 1 << "BUTTON_RESOLUTION_5M" << true << 2;
        QTest::newRow("back to NTB at 5M") << 2 << "BUTTON_STAINING_NTB" << false << 2;
        QTest::newRow("1280, still NTB") << 2 << "BUTTON_RESOLUTION_1280" << false << 1;
    }

    void aSwitchLocksTheWindowAndSaysItsSteps()
    {
        QFETCH(int, from);
        QFETCH(QString, button);
        QFETCH(bool, stained);
        QFETCH(int, mode);
        switchTo(from);
        const QObject* before = programCamera();
        QStringList steps;
        QStringList looks;
        const QString lookBefore = style(qPrintable(button));
        const auto note = [&](const QStringList& parts) {
            steps << (window().isEnabled() ? "free: " : "locked: ") + parts.join(' ');
            if (steps.last().contains("stopCamera") || steps.last().contains("camera_mode:"))
                looks << style(qPrintable(button));
        };
        const auto ofWindow = connect(&window(), &ORLA_II_Plus_Verifier::sig_debug_Message, this, note);
        const auto ofCamera = connect(programCamera(), &OV5642Camera::sig_debug_Message, this, note);
        click(qPrintable(button));
        disconnect(ofWindow);
        disconnect(ofCamera);
        const QString prefix = "void ORLA_II_Plus_Verifier::";
        const QString file = stained ? "CUS" : "BFN";
        QCOMPARE(
            steps,
            QStringList(
                {"free: " + prefix + "on_" + button + "_clicked()", "locked: " + prefix + "stopCamera()",
                 QString("locked: bool OV5642Camera::open(int, std::string, bool) camera_mode: %1 , ini_file "
                         "/opt/ORLA3/conf/Calibration_%2.ini")
                     .arg(mode)
                     .arg(file),
                 "locked: bool OV5642Camera::setFormat() VIDIOC_S_FMT: busy, the buffers are given back",
                 QString("locked: %1startCamera(int) %2").arg(prefix).arg(mode),
                 "locked: " + prefix + "getCamera_reg()"}));
        // The choice is marked between the stop and the opening.
        QCOMPARE(looks, QStringList({lookBefore, kHighlight}));
        for (int i = 0; i < 3; ++i)
            QCOMPARE(style(kResolutions[i]), QString(i == mode ? kHighlight : kPlain));
        QCOMPARE(style("BUTTON_STAINING_TB"), QString(stained ? kHighlight : kPlain));
        QCOMPARE(style("BUTTON_STAINING_NTB"), QString(stained ? kPlain : kHighlight));
        QVERIFY(window().isEnabled());
        QCOMPARE(programCamera(), before);
        QCOMPARE(programCamera()->mode(), mode);
        QVERIFY(programCamera()->isStreaming());
        QVERIFY(waitForFrames(2));
    }

    void aStoppedCameraLeavesItsLastFrameAndAsksForNone()
    {
        QVERIFY(waitForFrames(2));
        const QImage before = grabView();
        window().stopCamera();
        QSignalSpy answers(&window(), &ORLA_II_Plus_Verifier::updateFrameDone);
        window().repaint();
        QCOMPARE(view().convertToFormat(QImage::Format_RGB32), before);
        QCOMPARE(answers.count(), 0);
        click("BUTTON_RESOLUTION_1280");
        QVERIFY(waitForFrames(2));
    }

    void theSensorRestsHalfASecondOnlyAfterAClose()
    {
        // All other pauses are the capture thread's, between two of which it may stand now.
        constexpr std::uint64_t kCapturePause_us = 10000;
        const auto then = camera().counters();
        window().stopCamera();
        QVERIFY(!programCamera()->isStreaming());
        const auto now = camera().counters();
        const auto rest = now.paused_us - then.paused_us;
        QVERIFY(rest >= 500000);
        QVERIFY(rest <= 500000 + (now.pauses - then.pauses) * kCapturePause_us);
        QCOMPARE(rest % kCapturePause_us, std::uint64_t(0));
        const auto before = camera().counters().pauses;
        clearConsoles();
        window().stopCamera();
        QCOMPARE(camera().counters().pauses, before);
        QCOMPARE(messages(), QString("void ORLA_II_Plus_Verifier::stopCamera()() \n"));
    }

    void aCameraThatCannotBeOpenedLeavesAUsableWindow()
    {
        QVERIFY(camera().faults().enable("ioctl:VIDIOC_STREAMON"));
        clearConsoles();
        click("BUTTON_RESOLUTION_VGA");
        QVERIFY(messages().contains(
            "bool OV5642Camera::open(int, std::string, bool)() [Error] VIDIOC_STREAMON ! \n"));
        QVERIFY(window().isEnabled());
        QVERIFY(!programCamera()->isStreaming());
        QCOMPARE(style("BUTTON_RESOLUTION_VGA"), QString(kHighlight));
        // Its grab thread runs all the same, and the next press replaces it, without the stop and
        // the rest that a stream is given.
        QVERIFY(waitForPaints(2));
        clearConsoles();
        const auto paused_us = camera().counters().paused_us;
        click("BUTTON_RESOLUTION_VGA");
        QVERIFY(!messages().contains("stopCamera"));
        QVERIFY(camera().counters().paused_us - paused_us < 500000);
        QVERIFY(waitForPaints(2));
        camera().faults().clear();
        click("BUTTON_RESOLUTION_VGA");
        QVERIFY(programCamera()->isStreaming());
        QVERIFY(waitForFrames(2));
    }

    void aStreamThatCannotBeStoppedIsToldAndTheSwitchGoesOn()
    {
        const auto paused_us = camera().counters().paused_us;
        QVERIFY(camera().faults().enable("ioctl:VIDIOC_STREAMOFF"));
        clearConsoles();
        click("BUTTON_RESOLUTION_VGA");
        camera().faults().clear();
        const QString text = messages();
        const int told = text.indexOf("bool OV5642Camera::close()() [Error] VIDIOC_STREAMOFF \n");
        QVERIFY(told > text.indexOf("stopCamera"));
        QVERIFY(told < text.indexOf("OV5642Camera::open"));
        QVERIFY(camera().counters().paused_us - paused_us >= 500000);
        QVERIFY(window().isEnabled());
        QVERIFY(programCamera()->isStreaming());
        QVERIFY(waitForFrames(2));
    }

    void manySwitchesLeaveNothingBehind()
    {
        switchTo(1);
        const auto descriptors = camera().openDescriptors();
        const auto mappings = camera().openMappings();
        for (int i = 0; i < 30; ++i)
            switchTo(i % 3);
        switchTo(1);
        QCOMPARE(camera().openDescriptors(), descriptors);
        QCOMPARE(camera().openMappings(), mappings);
    }

private:
    /// Some places of the view, none of them on the navigator.
    static QVector<QPoint> probes()
    {
        QVector<QPoint> points;
        for (int y = 3; y < 480; y += 37)
            for (int x = 5; x < 640; x += 41)
                if (!QRect(0, 0, 81, 61).contains(x, y))
                    points.append({x, y});
        return points;
    }

    void switchTo(int mode)
    {
        if (programCamera()->isStreaming() && programCamera()->mode() == mode)
            return;
        click(kResolutions[mode]);
        QVERIFY(waitForFrames(3));
    }

    void setChecked(const char* box, bool checked)
    {
        if (find<QCheckBox>(box)->isChecked() != checked)
            click(box);
        QCOMPARE(find<QCheckBox>(box)->isChecked(), checked);
    }

    QRect navigator()
    {
        QRect rectangle;
        window().SetNavigatorRect(rectangle);
        return rectangle;
    }

    QImage grabView()
    {
        waitForFrames(2);
        return view().convertToFormat(QImage::Format_RGB32);
    }

    /// What the camera shows now. Nothing moves on this instrument, so that every frame of
    /// a mode is the same.
    QImage currentFrame()
    {
        const int width = static_cast<int>(programCamera()->width());
        const QImage frame(programCamera()->getFrame(), width, static_cast<int>(programCamera()->height()),
                           width * 3, QImage::Format_RGB888);
        return frame.convertToFormat(QImage::Format_RGB32);
    }

    /// What stands on the panel: the window's own picture, painted over frame by frame.
    QImage viewOnScreen()
    {
        waitForFrames(2);
        return window().screen()->grabWindow(window().winId(), 0, 0, 640, 480).toImage();
    }

    void send(QEvent::Type type, const QPointF& point)
    {
        const auto buttons = type == QEvent::MouseButtonRelease ? Qt::NoButton : Qt::LeftButton;
        QMouseEvent event(type, point, Qt::LeftButton, buttons, Qt::NoModifier);
        QCoreApplication::sendEvent(&window(), &event);
    }

    void drag(const QPointF& from, const QPointF& to)
    {
        send(QEvent::MouseButtonPress, from);
        send(QEvent::MouseMove, to);
        send(QEvent::MouseButtonRelease, to);
    }
};

QTEST_MAIN(TestWindowLiveView)
#include "test_window_live_view.moc"
