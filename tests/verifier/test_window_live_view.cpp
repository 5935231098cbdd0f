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
#include "support/WindowFixture.h"

namespace {

constexpr const char* kHighlight = "background-color: rgb(0, 170, 255);";
constexpr const char* kPlain = "background-color: none;";

/// Gathers what is painted of the widgets that it is installed on.
struct PaintWatcher : QObject
{
    bool eventFilter(QObject*, QEvent* event) override
    {
        if (event->type() == QEvent::Paint)
            painted |= static_cast<QPaintEvent*>(event)->region();
        return false;
    }

    QRegion painted;
};

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

WindowFixture::Options watchedStart()
{
    WindowFixture::Options options;
    options.prepare = [](const QString&) {
        messageHandlerBefore = qInstallMessageHandler(lookBeforeTheCameraStarts);
    };
    return options;
}

} // namespace

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

    void aFrameIsPaintedOverAndOver() { QVERIFY(waitForFrames(5)); }

    void onlyTheLiveViewIsRepaintedPerFrame()
    {
        PaintWatcher watcher;
        QVERIFY(waitForFrames(3));
        window().installEventFilter(&watcher);
        QVERIFY(waitForFrames(3));
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
        QCOMPARE(grabView().convertToFormat(QImage::Format_RGB32), expected);
        setChecked("CHECK_CROSS_LINE", true);
        painter.setPen(QColor(255, 0, 0));
        painter.drawLine(0, 240, 640, 240);
        painter.drawLine(320, 0, 320, 480);
        painter.end();
        QCOMPARE(grabView().convertToFormat(QImage::Format_RGB32), expected);
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
            if (QRect(0, 0, 81, 61).contains(point))
                continue;
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
        window().SetNavigatorRect(rectangle);
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
            if (!QRect(0, 0, 81, 61).contains(point))
                QCOMPARE(view.pixel(point), frame.pixel(point + offset));
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

    void aDragThatComesBackGoesOnFromWhereItLeft()
    {
        send(QEvent::MouseButtonPress, {160, 240});
        send(QEvent::MouseMove, {-50, 240});
        send(QEvent::MouseMove, {0, 240});
        send(QEvent::MouseButtonRelease, {0, 240});
        QCOMPARE(navigator().left(), 10);
    }

    void eachMoveOfADragCountsFromTheOneBefore()
    {
        send(QEvent::MouseButtonPress, {400, 300});
        for (int moves = 1; moves <= 4; ++moves)
            send(QEvent::MouseMove, {400.0 - 40 * moves, 300.0 - 32 * moves});
        send(QEvent::MouseButtonRelease, {240, 172});
        // 160 and 128 of 1280 x 960 pixels, on a navigator of 80 x 60.
        QCOMPARE(navigator().topLeft(), QPoint(10, 8));
    }

    void aDragRepaintsTheLiveViewOnlyAndAtOnce()
    {
        // No frame comes that would repaint it anyway.
        window().stopCamera();
        QTest::qWait(100);
        PaintWatcher watcher;
        window().installEventFilter(&watcher);
        send(QEvent::MouseButtonPress, {400, 300});
        QTest::qWait(50);
        QVERIFY(watcher.painted.isEmpty());
        send(QEvent::MouseMove, {360, 260});
        QTest::qWait(50);
        QCOMPARE(watcher.painted.boundingRect(), QRect(0, 0, 640, 480));
        send(QEvent::MouseButtonRelease, {360, 260});
        click("BUTTON_RESOLUTION_1280");
        QVERIFY(waitForFrames(2));
    }

    void aPressOutsideEndsADragThatWasNotReleased()
    {
        drag({400, 300}, {360, 260});
        const QRect before = navigator();
        send(QEvent::MouseButtonPress, {400, 300});
        send(QEvent::MouseButtonPress, {0, 240});
        send(QEvent::MouseMove, {100, 100});
        QCOMPARE(navigator(), before);
        send(QEvent::MouseButtonRelease, {100, 100});
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

    // It paints all of its ground itself, and only what is not covered.
    void nobodyFillsTheWindowBeforeItPaints() { QVERIFY(window().testAttribute(Qt::WA_OpaquePaintEvent)); }

    void theWindowBringsItsPicturesAlong()
    {
        for (const char* picture : {"Graph", "Shade", "Veil"})
            QVERIFY2(!QImage(QString(":/GUI/%1.png").arg(picture)).isNull(), picture);
    }

    void theGraphTakesTheScaleOfTheMode_data() { modes(); }

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
        const QImage view = window().grab(QRect(0, 0, 640, 480)).toImage();
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
        QCOMPARE(view.convertToFormat(QImage::Format_RGB32), expected);
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
        QObject* before = programCamera();
        clearConsoles();
        click(qPrintable(button));
        QCOMPARE(programCamera(), before);
        for (const char* name : {"BUTTON_RESOLUTION_VGA", "BUTTON_RESOLUTION_1280", "BUTTON_RESOLUTION_5M"})
            QCOMPARE(style(name), QString(button == name ? kHighlight : kPlain));
        QVERIFY(window().isEnabled());
        QCOMPARE(programCamera()->mode(), mode);
        QVERIFY(programCamera()->isStreaming());
        const QString text = messages();
        QVERIFY(text.indexOf("stopCamera") < text.indexOf("OV5642Camera::open"));
        QVERIFY(text.indexOf("OV5642Camera::open") < text.indexOf("startCamera"));
        QVERIFY(waitForFrames(2));
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
        clearConsoles();
        click(qPrintable(button));
        QCOMPARE(style(qPrintable(button)), QString(kHighlight));
        QCOMPARE(style(qPrintable(other)), QString(kPlain));
        QCOMPARE(style("BUTTON_RESOLUTION_VGA"), QString(kHighlight));
        QVERIFY(messages().contains("camera_mode: 0 , ini_file " + file));
        QCOMPARE(programCamera()->mode(), 0);
        // The choice holds for the next resolution too.
        clearConsoles();
        click("BUTTON_RESOLUTION_1280");
        QVERIFY(messages().contains("camera_mode: 1 , ini_file " + file));
        QCOMPARE(style(qPrintable(button)), QString(kHighlight));
        QCOMPARE(style(qPrintable(other)), QString(kPlain));
    }

    void aSwitchLocksTheWindowAndSaysItsSteps_data()
    {
        QTest::addColumn<QString>("button");
        QTest::addColumn<int>("mode");
        QTest::newRow("VGA") << "BUTTON_RESOLUTION_VGA" << 0;
        QTest::newRow("1280") << "BUTTON_RESOLUTION_1280" << 1;
        QTest::newRow("5M") << "BUTTON_RESOLUTION_5M" << 2;
        QTest::newRow("NTB") << "BUTTON_STAINING_NTB" << 1;
        QTest::newRow("TB") << "BUTTON_STAINING_TB" << 1;
        QTest::newRow("back to NTB") << "BUTTON_STAINING_NTB" << 1;
    }

    void aSwitchLocksTheWindowAndSaysItsSteps()
    {
        QFETCH(QString, button);
        QFETCH(int, mode);
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
        const QString file = button.endsWith("_TB") ? "CUS" : "BFN";
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
        QVERIFY(window().isEnabled());
    }

    void aStoppedCameraLeavesItsLastFrameAndAsksForNone()
    {
        QVERIFY(waitForFrames(2));
        const QImage before = grabView();
        window().stopCamera();
        QSignalSpy answers(&window(), &ORLA_II_Plus_Verifier::updateFrameDone);
        window().repaint();
        QCOMPARE(window().grab(QRect(0, 0, 640, 480)).toImage(), before);
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
        for (int y = 3; y < 480; y += 37)
            for (int x = 5; x < 640; x += 41)
                points.append({x, y});
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

    void switchTo(int mode)
    {
        static const char* const kButtons[] = {"BUTTON_RESOLUTION_VGA", "BUTTON_RESOLUTION_1280",
                                               "BUTTON_RESOLUTION_5M"};
        if (programCamera()->isStreaming() && programCamera()->mode() == mode)
            return;
        click(kButtons[mode]);
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
        return window().grab(QRect(0, 0, 640, 480)).toImage();
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
