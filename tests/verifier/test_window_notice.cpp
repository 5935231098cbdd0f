#include <QCheckBox>
#include <QElapsedTimer>
#include <QLabel>
#include <QSpinBox>
#include <QWindow>
#include <QtTest>

#include "Controller/Controller.h"
#include "LiveViewNotice.h"
#include "camera/OV5642Camera.h"
#include "support/LayoutChecks.h"
#include "support/PaintWatch.h"
#include "support/PixelBounds.h"
#include "support/WindowFixture.h"
#include "verifier/WithoutGrabThread.h"

namespace {

const QRect kView(0, 0, 640, 480);
/// Black on white is 21.
constexpr double kReadable = 7.0;
constexpr int kOverdue_ms = 3000;
/// In place of the controller's own time-out.
constexpr int kSilence_ms = 100;
/// The window looks once a second.
constexpr int kLooks_ms = 2500;

enum class Cause { NotOpened, Unplugged, NoFrames, SilentSensor, SilentBoard, No5M };

} // namespace
Q_DECLARE_METATYPE(Cause)

/// The band over the live view.
class TestWindowNotice : public QObject, protected WindowFixture
{
    Q_OBJECT

private slots:
    /// Every test begins at 1280 x 960, live, with all being well and no notice.
    void init()
    {
        clearFaults();
        if (find<QPushButton>("BUTTON_QC_CAPTURE")->text() == "Live")
            click("BUTTON_QC_CAPTURE");
        click("BUTTON_RESOLUTION_1280");
        click("BUTTON_Z_POSITION");
        find<QCheckBox>("CHECK_SCALED_TO_FIT")->setChecked(true);
        openTab(0);
        QVERIFY(waitForFrames(2));
        QVERIFY(waitUntil([this] { return notice()->isHidden(); }));
        boxes().clear();
    }

    void whenAllIsWellNothingIsSaid()
    {
        QVERIFY(notice()->isHidden());
        QTest::qWait(kLooks_ms);
        QVERIFY(notice()->isHidden());
        QCOMPARE(notice()->text(), QString());
    }

    void aCauseIsToldAndTheNoticeGoesWithIt_data() { causes(); }

    void aCauseIsToldAndTheNoticeGoesWithIt()
    {
        QFETCH(Cause, cause);
        QFETCH(QString, text);
        bring(cause);
        QVERIFY(waitUntil([this] { return notice()->isVisible(); }));
        QVERIFY2(notice()->text().startsWith(text), qPrintable(notice()->text()));
        QCOMPARE(notice()->text().count('\n'), 0);
        take(cause);
        QVERIFY(waitUntil([this] { return notice()->isHidden(); }));
        QCOMPARE(notice()->text(), QString());
    }

    void theNoticeIsReadAtAGlance_data() { causes(); }

    void theNoticeIsReadAtAGlance()
    {
        QFETCH(Cause, cause);
        bring(cause);
        QVERIFY(waitUntil([this] { return notice()->isVisible(); }));
        QCOMPARE(notice()->geometry().topLeft(), QPoint(0, 0));
        QCOMPARE(notice()->width(), kView.width());
        QVERIFY(notice()->testAttribute(Qt::WA_TransparentForMouseEvents));
        QVERIFY(notice()->height() <= 30);
        QCOMPARE(layout::clippedTexts(&window()).filter("LABEL_NOTICE").join("; "), QString());
        QCOMPARE(layout::faintTexts(&window(), kReadable).filter("LABEL_NOTICE").join("; "), QString());
        QCOMPARE(window().childAt(0, notice()->height()) == notice(), false);
        // An edge of one pixel sets it off from the picture.
        const QImage band = notice()->grab().toImage();
        const int last = band.height() - 1;
        QVERIFY(band.pixel(0, last) != band.pixel(0, last - 1));
        QCOMPARE(band.pixel(band.width() - 1, last), band.pixel(0, last));
        QCOMPARE(band.pixel(0, last - 1), band.pixel(0, 0));
        theBandIsDrawnToThePixel(band);
        keepPicture(QString("notice ") + QTest::currentDataTag());
    }

    void theLettersAreDrawnInTheirWholeHeight()
    {
        LiveViewNotice own(kView.width(), nullptr);
        // A stroke from the top of its line to the bottom.
        own.showLines({QString(QChar(0x2502)), QString(QChar(0x2502))});
        const QImage band = own.grab().toImage();
        const QRect ink = inkOf(band);
        // It may go beyond its line, but does not end before it.
        QVERIFY2(ink.top() <= 3, QByteArray::number(ink.top()));
        QVERIFY2(ink.bottom() >= band.height() - 5, QByteArray::number(band.height() - ink.bottom()));
    }

    void whatHappensAtOnceIsToldAtOnce_data()
    {
        QTest::addColumn<Cause>("cause");
        QTest::addColumn<bool>("whenItIsOver");
        QTest::newRow("not opened") << Cause::NotOpened << false;
        QTest::newRow("silent sensor") << Cause::SilentSensor << false;
        QTest::newRow("exchange with the board") << Cause::SilentBoard << true;
    }

    void whatHappensAtOnceIsToldAtOnce()
    {
        QFETCH(Cause, cause);
        QFETCH(bool, whenItIsOver);
        bring(cause);
        if (whenItIsOver)
            QCoreApplication::processEvents();
        QVERIFY(notice()->isVisible());
        take(cause);
        if (whenItIsOver)
            QCoreApplication::processEvents();
        QVERIFY(notice()->isHidden());
    }

    void aSettingThatTheSensorDoesNotTakeIsToldUntilItIsSetAgain_data()
    {
        QTest::addColumn<QString>("fault");
        QTest::addColumn<QString>("text");
        QTest::newRow("silent sensor") << "i2c-nack"
                                       << "Image sensor does not answer:";
        // The low byte, which comes after it, is taken.
        QTest::newRow("high byte missed")
            << "i2c-nack:1"
            << "Image sensor missed a setting: what is shown may not be in force. Set it again.";
    }

    void aSettingThatTheSensorDoesNotTakeIsToldUntilItIsSetAgain()
    {
        QFETCH(QString, fault);
        QFETCH(QString, text);
        QVERIFY(camera().faults().enable(fault.toStdString()));
        click("BUTTON_EXPOSURE_FINE_UP");
        QVERIFY(notice()->isVisible());
        QVERIFY2(notice()->text().startsWith(text), qPrintable(notice()->text()));
        clearFaults();
        click("BUTTON_EXPOSURE_FINE_DOWN");
        QVERIFY(notice()->isHidden());
    }

    void whatTheBoardLeavesUnclearIsNamed()
    {
        for (const char* command : {"BRT", "OFF", "SELF_DIAG", "GET_POS"})
            addFault({LineFault::Failure, command, 1});
        const auto askAndSet = [this](const char* level) {
            click(level);
            click("BUTTON_LED");
            click("BUTTON_Z_DIAGNOSIS");
            click("BUTTON_Z_POSITION");
            QCoreApplication::processEvents();
        };
        openTab(1);
        askAndSet("BUTTON_LED_FINE_UP");
        QCOMPARE(notice()->text(), QString("An answer of the board was unclear. Ask or set again: "
                                           "Z position, diagnosis, LED level, LED."));
        // Its steps are locked while the LED is off.
        click("BUTTON_LED");
        askAndSet("BUTTON_LED_FINE_DOWN");
        QVERIFY(notice()->isHidden());
        click("BUTTON_LED");
    }

    void aStallIsToldAfterThreeSeconds()
    {
        QElapsedTimer time;
        time.start();
        bring(Cause::NoFrames);
        QVERIFY(waitUntil([this] { return notice()->isVisible(); }));
        QVERIFY2(time.elapsed() >= kOverdue_ms - 100, qPrintable(QString::number(time.elapsed())));
    }

    void twoCausesHaveTwoLines()
    {
        bring(Cause::SilentBoard);
        bring(Cause::NotOpened);
        QVERIFY(waitUntil([this] { return notice()->text().contains('\n'); }));
        QVERIFY(notice()->text().startsWith("Camera could not be opened"));
        QVERIFY(notice()->text().contains("\nController board does not answer"));
        for (const QString& line : notice()->text().split('\n'))
            QVERIFY2(notice()->fontMetrics().horizontalAdvance(line) < kView.width() - 16, qPrintable(line));
        QVERIFY(notice()->height() >= 2 * notice()->fontMetrics().height());
        QVERIFY(notice()->height() <= 50);
        keepPicture("notice camera and board");
        take(Cause::NotOpened);
        QVERIFY(notice()->text().startsWith("Controller board does not answer"));
        QVERIFY(notice()->height() <= 30);
    }

    void framesThatNobodyTakesAreMissed()
    {
        clearConsoles();
        QVERIFY(clickWithoutAGrabThread(*this, "BUTTON_RESOLUTION_VGA"));
        QVERIFY(messages().contains("startCamera(int)() [Error] the grab thread could not be started"));
        QVERIFY(waitUntil([this] { return notice()->isVisible(); }));
        QVERIFY2(notice()->text().startsWith("No picture from the camera"), qPrintable(notice()->text()));
        // The camera itself delivers, and what is told to press brings the picture back.
        const quint64 captured = programCamera()->framesCaptured();
        QVERIFY(waitUntil([&] { return programCamera()->framesCaptured() > captured; }));
        click("BUTTON_RESOLUTION_VGA");
        QVERIFY(waitForFrames(2));
        QVERIFY(waitUntil([this] { return notice()->isHidden(); }));
        QVERIFY(!messages().section("[Error]", 1).contains("[Error]"));
    }

    void framesThatNobodySeesAreNotMissed_data()
    {
        QTest::addColumn<bool>("frozen");
        QTest::newRow("frozen frame") << true;
        QTest::newRow("graph") << false;
    }

    void framesThatNobodySeesAreNotMissed()
    {
        QFETCH(bool, frozen);
        if (frozen) {
            click("BUTTON_RESOLUTION_5M");
            QVERIFY(waitForFrames(2));
            click("BUTTON_QC_CAPTURE");
            // The camera runs below the frozen frame.
            click("BUTTON_RESOLUTION_1280");
            QVERIFY(find<QWidget>("QC_MEASURE")->isVisible());
        } else {
            find<QSpinBox>("SPIN_DEBUG")->setValue(3);
            click("BUTTON_DEBUG");
        }
        bring(Cause::NoFrames);
        QTest::qWait(kOverdue_ms + kLooks_ms);
        const bool told = notice()->isVisible();
        click(frozen ? "BUTTON_QC_CAPTURE" : "BUTTON_DEBUG");
        QVERIFY(!told);
        // Seen again, they are.
        QVERIFY(waitUntil([this] { return notice()->isVisible(); }));
    }

    void thePictureBelowTheBandStaysAsItIs()
    {
        QVERIFY(waitForFrames(3));
        const QImage without = window().grab().toImage();
        bring(Cause::SilentSensor);
        // The button that was pressed to ask the sensor is on another page.
        openTab(0);
        QVERIFY(waitForFrames(3));
        QVERIFY(notice()->isVisible());
        const QImage with = window().grab().toImage();
        const QRect below(0, notice()->height(), 640, 480 - notice()->height());
        QCOMPARE(with.copy(below), without.copy(below));
        QVERIFY(with.copy(notice()->geometry()) != without.copy(notice()->geometry()));
    }

    void aFramePaintsNeitherTheBandNorMore()
    {
        bring(Cause::SilentSensor);
        QVERIFY(notice()->isVisible());
        QVERIFY(waitForFrames(3));
        const PaintWatch ofNotice(*notice());
        const PaintWatch ofWindow(window());
        // More than two looks of the window at its instrument.
        QTest::qWait(kLooks_ms);
        QVERIFY(waitUntil([&ofWindow] { return ofWindow.paints() > 10; }));
        QCOMPARE(ofNotice.paints(), 0);
        QCOMPARE(ofNotice.layouts(), 0);
        QCOMPARE(ofWindow.layouts(), 0);
        QCOMPARE(ofWindow.painted(), QRect(0, notice()->height(), 640, 480 - notice()->height()));
    }

    void theViewIsDraggedThroughTheBand()
    {
        click("CHECK_SCALED_TO_FIT");
        bring(Cause::SilentSensor);
        QVERIFY(notice()->isVisible());
        QRect before;
        window().SetNavigatorRect(before);
        QWindow* panel = window().windowHandle();
        QTest::mousePress(panel, Qt::LeftButton, Qt::NoModifier, QPoint(400, 8));
        QTest::mouseMove(panel, QPoint(240, 8));
        QTest::mouseRelease(panel, Qt::LeftButton, Qt::NoModifier, QPoint(240, 8));
        QRect after;
        window().SetNavigatorRect(after);
        // 160 of 1280 pixels, on a navigator of 80.
        QCOMPARE(after.left() - before.left(), 10);
        click("CHECK_SCALED_TO_FIT");
    }

    void aConsoleLiesOverTheBand()
    {
        bring(Cause::NotOpened);
        find<QSpinBox>("SPIN_DEBUG")->setValue(1);
        click("BUTTON_DEBUG");
        const QWidget* console = find<QWidget>("PLAIN_DEBUG_MESSAGE");
        const QWidget* top = window().childAt(100, notice()->height() / 2);
        const bool covered =
            console->window() == &window() && top != nullptr && console->parentWidget()->isAncestorOf(top);
        click("BUTTON_DEBUG");
        QVERIFY(covered);
    }

private:
    static void causes()
    {
        QTest::addColumn<Cause>("cause");
        QTest::addColumn<QString>("text");
        QTest::newRow("not opened") << Cause::NotOpened
                                    << "Camera could not be opened: VIDIOC_STREAMON failed.";
        QTest::newRow("unplugged") << Cause::Unplugged << "Camera was unplugged.";
        QTest::newRow("no frames") << Cause::NoFrames << "No picture from the camera for 3 seconds.";
        QTest::newRow("silent sensor") << Cause::SilentSensor << "Image sensor does not answer:";
        QTest::newRow("silent board") << Cause::SilentBoard << "Controller board does not answer:";
        QTest::newRow("no 5M frame") << Cause::No5M << "No 5M picture to measure.";
    }

    void bring(Cause cause)
    {
        switch (cause) {
        case Cause::NotOpened:
            QVERIFY(camera().faults().enable("ioctl:VIDIOC_STREAMON:EIO"));
            click("BUTTON_RESOLUTION_VGA");
            break;
        case Cause::Unplugged:
            QVERIFY(camera().faults().enable("ioctl:VIDIOC_DQBUF:ENODEV"));
            break;
        case Cause::NoFrames:
            QVERIFY(camera().faults().enable("stall"));
            break;
        case Cause::SilentSensor:
            QVERIFY(camera().faults().enable("i2c-nack"));
            window().getCamera_reg();
            break;
        case Cause::SilentBoard:
            addFault({LineFault::NoAnswer, "GET_POS", 0});
            Controller::getInstance()->m_timeouts.read_ms = kSilence_ms;
            click("BUTTON_Z_POSITION");
            break;
        case Cause::No5M:
            click("BUTTON_QC_CAPTURE");
            // A smaller mode while the frame is waited for.
            QMetaObject::invokeMethod(&window(), "on_BUTTON_RESOLUTION_VGA_clicked");
            break;
        }
    }

    /// Takes the cause away, with what a technician would press.
    void take(Cause cause)
    {
        clearFaults();
        switch (cause) {
        case Cause::NotOpened:
        case Cause::Unplugged:
            click("BUTTON_RESOLUTION_1280");
            break;
        case Cause::NoFrames:
            break;
        case Cause::SilentSensor:
            click("BUTTON_EXPOSURE_FINE_UP");
            break;
        case Cause::SilentBoard:
            click("BUTTON_Z_POSITION");
            break;
        case Cause::No5M:
            click("BUTTON_QC_CAPTURE");
            break;
        }
    }

    /// Where the band is not of the colour of its ground; its last row is its edge.
    static QRect inkOf(const QImage& band)
    {
        const QRgb ground = band.pixel(0, 0);
        return boundsOf(band, band.rect().adjusted(0, 0, 0, -1), [=](QRgb pixel) { return pixel != ground; });
    }

    // Black on yellow, 8 pixels from the sides and 3 from above and below, with a darker last row.
    void theBandIsDrawnToThePixel(const QImage& band)
    {
        constexpr int kFlags = Qt::AlignLeft | Qt::AlignTop | Qt::TextWordWrap;
        QCOMPARE(notice()->font().pointSize(), 10);
        const QFontMetrics metrics(notice()->font());
        const int text_px =
            metrics.boundingRect(QRect(0, 0, band.width() - 16, 1000), kFlags, notice()->text()).height();
        QCOMPARE(band.height(), text_px + 7);
        QCOMPARE(QColor(band.pixel(0, 0)), QColor(255, 216, 74));
        QCOMPARE(QColor(band.pixel(0, band.height() - 1)), QColor(138, 109, 0));
        const QRect text = inkOf(band);
        QVERIFY(!boundsOf(band, text, [](QRgb pixel) { return QColor(pixel) == Qt::black; }).isNull());
        // The first letters begin a pixel behind the margin at most.
        QVERIFY2(text.left() >= 8 && text.left() <= 9, QByteArray::number(text.left()));
        QVERIFY2(text.top() >= 3 && text.bottom() < band.height() - 4, QByteArray::number(text.top()));
    }

    QLabel* notice() { return find<QLabel>("LABEL_NOTICE"); }
};

QTEST_MAIN(TestWindowNotice)
#include "test_window_notice.moc"
