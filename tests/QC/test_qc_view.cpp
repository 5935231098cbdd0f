#include <atomic>
#include <functional>
#include <utility>

#include "QcWidgetTools.h"

namespace {

constexpr std::size_t kFrameBytes = std::size_t(2592) * 1944 * 3;

std::atomic<int> g_framesAllocated{0}; // the image library allocates on threads of its own

/// Counts how often it is painted.
class PaintedMeasure : public QC_measure
{
public:
    int takePaints()
    {
        QCoreApplication::processEvents();
        return std::exchange(m_paints, 0);
    }

protected:
    void paintEvent(QPaintEvent* event) override
    {
        ++m_paints;
        QC_measure::paintEvent(event);
    }

private:
    int m_paints = 0;
};

/// What lies below the widget, in a colour of its own that no window has.
struct Below : QWidget
{
    Below()
    {
        resize(kView);
        QPalette colours;
        colours.setColor(QPalette::Window, QColor(1, 2, 3));
        setPalette(colours);
        above->resize(kView);
    }
    void paintEvent(QPaintEvent*) override
    {
        ++paints;
        QPainter(this).fillRect(rect(), Qt::magenta);
    }
    bool showsNothing()
    {
        QImage plain(kView, QImage::Format_RGB32);
        plain.fill(QColor(1, 2, 3));
        return shown(*this) == plain;
    }

    QC_measure* above = new QC_measure(this);
    int paints = 0;
};

} // namespace

/// In the place of the library's, for the whole program.
void* operator new[](std::size_t size)
{
    g_framesAllocated += size == kFrameBytes ? 1 : 0;
    return operator new(size);
}

void operator delete[](void* memory) noexcept
{
    operator delete(memory);
}

void operator delete[](void* memory, std::size_t) noexcept
{
    operator delete(memory);
}

class TestQcView : public QObject
{
    Q_OBJECT

private slots:
    void withoutAFrameOnlyTheWindowsColourIsShown()
    {
        QC_measure widget;
        widget.resize(kView);
        QWidget plain;
        plain.resize(kView);
        widget.setTargetingMode(true);
        press(widget, {100, 100});
        QCOMPARE(shown(widget), shown(plain));
    }

    void theFrameIsShownFromItsTopLeftCorner()
    {
        FrozenWidget widget;
        const QImage expected = expectedView(widget.frame, {0, 0});
        QCOMPARE(shown(widget), expected);
        // The frame was copied.
        widget.frame.fill(QRect(QPoint(0, 0), kFrame), Qt::white);
        QCOMPARE(shown(widget), expected);
    }

    void aNewFrameIsShownFromItsCornerAgain()
    {
        FrozenWidget widget;
        drag(widget, {600, 400}, {100, 100});
        widget.frame.fill(QRect(100, 100, 50, 50), Qt::white);
        widget.setImageData(widget.frame.data());
        QCOMPARE(shown(widget), expectedView(widget.frame, {0, 0}));
    }

    void memoryForTheFrameIsTakenOnce()
    {
        CalibrationFrame frame = patternedFrame();
        QC_measure widget;
        g_framesAllocated = 0;
        for (int i = 0; i < 3; ++i)
            widget.setImageData(frame.data());
        QCOMPARE(g_framesAllocated.load(), 1);
        // It is given back with the frame.
        widget.setImageData(nullptr);
        widget.setImageData(frame.data());
        QCOMPARE(g_framesAllocated.load(), 2);
    }

    void aMissingFrameTakesTheOldOneAway()
    {
        CalibrationFrame frame = patternedFrame();
        frame.fill(QRect(300, 200, 20, 20), Qt::black);
        Below below;
        auto* widget = below.above;
        QSignalSpy errors(widget, &QC_measure::sig_measure_error);
        QSignalSpy points(widget, &QC_measure::sig_measure_point);
        widget->setImageData(frame.data());
        aimAt(*widget, {310, 210});
        widget->setImageData(nullptr);
        QVERIFY(below.showsNothing());
        widget->setPoint(0);
        QVERIFY(noCellWasTold(errors));
        QCOMPARE(points.count(), 0);

        widget->setImageData(frame.data());
        widget->setPoint(0);
        QCOMPARE(points.count(), 1);
    }

    void whatLiesBelowIsHiddenWithAndWithoutAFrame_data()
    {
        QTest::addColumn<bool>("hadFrame");
        QTest::addColumn<bool>("hasFrame");
        QTest::newRow("a frame") << true << true;
        QTest::newRow("a frame that was taken away") << true << false;
        QTest::newRow("never a frame") << false << false;
    }

    void whatLiesBelowIsHiddenWithAndWithoutAFrame()
    {
        QFETCH(bool, hadFrame);
        QFETCH(bool, hasFrame);
        Below below;
        auto* widget = below.above;
        CalibrationFrame frame = patternedFrame();
        if (hadFrame)
            widget->setImageData(frame.data());
        if (!hasFrame)
            widget->setImageData(nullptr);
        if (hasFrame)
            QCOMPARE(shown(below), expectedView(frame, {0, 0}));
        else
            QVERIFY(below.showsNothing());

        below.show();
        QVERIFY(QTest::qWaitForWindowExposed(&below));
        QTest::qWait(20);
        below.paints = 0;
        press(*widget, {300, 300});
        for (int x = 290; x > 200; x -= 10) {
            move(*widget, {double(x), 300});
            QCoreApplication::processEvents();
        }
        QCOMPARE(below.paints, 0);
    }

    void everyChangeIsOnTheScreenAtOnce()
    {
        CalibrationFrame frame = patternedFrame();
        frame.fill(QRect(300, 200, 20, 20), Qt::black);
        PaintedMeasure widget;
        widget.resize(kView);
        widget.show();
        QVERIFY(QTest::qWaitForWindowExposed(&widget));
        widget.takePaints();
        const std::pair<const char*, std::function<void()>> changes[] = {
            {"frame", [&] { widget.setImageData(frame.data()); }},
            {"targeting on", [&] { widget.setTargetingMode(true); }},
            {"target placed",
             [&] {
                 press(widget, {320, 205});
             }},
            {"target moved",
             [&] {
                 move(widget, {310, 210});
             }},
            {"point found", [&] { widget.setPoint(0); }},
            {"targeting off", [&] { widget.setTargetingMode(false); }},
            {"panned",
             [&] {
                 move(widget, {250, 150});
             }},
            {"zoomed", [&] { widget.setScale(2.0); }},
            {"frame taken away", [&] { widget.setImageData(nullptr); }},
        };
        for (const auto& change : changes) {
            change.second();
            QVERIFY2(widget.takePaints() > 0, change.first);
            QCOMPARE(widget.takePaints(), 0);
        }
    }

    void aDragThatPlacedTheTargetGoesOnAsAPan()
    {
        FrozenWidget widget;
        widget.setTargetingMode(true);
        press(widget, {300, 200});
        move(widget, {400, 250});
        widget.setTargetingMode(false);
        move(widget, {360, 230}); // from where the mouse was last, not from the press
        QCOMPARE(shown(widget), expectedView(widget.frame, {40, 20}));
    }

    void aZoomedPictureMovesImagePixelByMousePixel()
    {
        FrozenWidget widget;
        widget.setScale(2.0);
        drag(widget, {600, 400}, {500, 330});
        const QImage image = shown(widget);
        const QImage plain = expectedView(widget.frame, {100, 70}, QRect(3, 2, 10, 8));
        for (int y = 130; y < 480; y += 7)
            for (int x = 170; x < 640; x += 7)
                QCOMPARE(image.pixel(x, y), plain.pixel(x / 2, y / 2));
    }

    void aNewFrameTakesUpTheSizeOfTheWidget()
    {
        CalibrationFrame frame = patternedFrame();
        QC_measure widget;
        widget.resize(320, 240);
        widget.setImageData(frame.data());
        // 80 - 80 * (2592 - 320) / 2592 = 10, and not yet the 20 of the view.
        QCOMPARE(shown(widget).pixelColor(10, 4), kNavigatorColor);
        QVERIFY(shown(widget).pixelColor(20, 4) != kNavigatorColor);
        widget.resize(kView);
        widget.setImageData(frame.data());
        QCOMPARE(shown(widget), expectedView(frame, {0, 0}, QRect(0, 0, 20, 15)));
    }

    void aFrameRestoresTheSizeOfTheImage()
    {
        CalibrationFrame frame = patternedFrame();
        QC_measure widget;
        widget.resize(kView);
        widget.setImageSize(1280, 960);
        widget.setImageData(frame.data());
        QCOMPARE(shown(widget), expectedView(frame, {0, 0}, QRect(0, 0, 20, 15)));
        widget.setImageSize(640, 480);
        widget.setImageData(frame.data());
        QCOMPARE(shown(widget), expectedView(frame, {0, 0}, QRect(0, 0, 20, 15)));
    }

    void draggingPansAndTheNavigatorFollows_data()
    {
        QTest::addColumn<QPointF>("from");
        QTest::addColumn<QPointF>("to");
        QTest::addColumn<QPoint>("offset");
        QTest::newRow("pull to the left and up")
            << QPointF(300, 300) << QPointF(200, 150) << QPoint(100, 150);
        QTest::newRow("before the first pixel") << QPointF(100, 100) << QPointF(300, 250) << QPoint(0, 0);
        QTest::newRow("one axis only") << QPointF(100, 100) << QPointF(60, 250) << QPoint(40, 0);
        QTest::newRow("beyond the last pixel")
            << QPointF(600, 400) << QPointF(-3000, -3000) << QPoint(1952, 1464);
        // Positions are rounded before they are subtracted: 10.5 -> 11, 4.4 -> 4, 9.49 -> 9, 3.5 -> 4.
        QTest::newRow("fractions") << QPointF(10.5, 9.49) << QPointF(4.4, 3.5) << QPoint(7, 5);
    }

    void draggingPansAndTheNavigatorFollows()
    {
        QFETCH(QPointF, from);
        QFETCH(QPointF, to);
        QFETCH(QPoint, offset);
        FrozenWidget widget;
        drag(widget, from, to);
        QCOMPARE(shown(widget), expectedView(widget.frame, offset));
        // Without a pressed button the picture stays.
        move(widget, {0, 0});
        QCOMPARE(shown(widget), expectedView(widget.frame, offset));
    }

    void thePictureFollowsEachMoveFromTheLastOne()
    {
        FrozenWidget widget;
        press(widget, {300, 300});
        move(widget, {400, 400}); // stops at the border
        move(widget, {350, 380}); // and comes along at once on the way back
        QCOMPARE(shown(widget), expectedView(widget.frame, {50, 20}));
    }

    void theZoomEnlargesThePictureButNotTheRest()
    {
        FrozenWidget widget;
        widget.setScale(2.0);
        const QImage image = shown(widget);
        const QImage plain = expectedView(widget.frame, {0, 0}, QRect(0, 0, 10, 8));
        for (int y = 130; y < 480; y += 7)
            for (int x = 170; x < 640; x += 7)
                QCOMPARE(image.pixel(x, y), plain.pixel(x / 2, y / 2) | 0xFF000000U);
        QCOMPARE(image.pixelColor(80, 30), kNavigatorColor);
        QCOMPARE(image.pixelColor(10, 4), kNavigatorColor);
    }

    void theZoomedViewGoesFurtherAndComesBack()
    {
        FrozenWidget widget;
        widget.setScale(2.0);
        drag(widget, {0, 0}, {-5000, -5000});
        // 2592 - 640 / 2 = 2272, 1944 - 480 / 2 = 1704.
        const QPoint last(2272, 1704);
        QImage image = shown(widget);
        for (int y = 1; y < 480; y += 13)
            for (int x = 1; x < 640; x += 13)
                if (x > 90 || y > 70) {
                    const auto index = std::size_t(last.y() + y / 2) * 2592 + std::size_t(last.x() + x / 2);
                    const unsigned char* pixel = &widget.frame.bytes()[3 * index];
                    QCOMPARE(image.pixelColor(x, y), QColor(pixel[0], pixel[1], pixel[2]));
                }
        widget.setScale(0.5); // does not change the zoom
        QCOMPARE(shown(widget), image);
        widget.setScale(1.0);
        QCOMPARE(shown(widget), expectedView(widget.frame, {1952, 1464}));
    }

    void aNewFrameKeepsTheZoom()
    {
        CalibrationFrame frame = patternedFrame();
        QC_measure widget;
        widget.resize(kView);
        widget.setScale(2.0);
        widget.setImageData(frame.data());
        const QImage zoomed = shown(widget);
        drag(widget, {600, 400}, {300, 200});
        QVERIFY(shown(widget) != zoomed);
        widget.setImageData(frame.data());
        QCOMPARE(shown(widget), zoomed);
    }

    void aPressPlacesTheTarget()
    {
        FrozenWidget widget;
        drag(widget, {600, 400}, {500, 350});
        widget.setTargetingMode(true);
        QCOMPARE(shown(widget), expectedView(widget.frame, {100, 50}));
        press(widget, {299.5, 200.4});
        QCOMPARE(shown(widget), expectedView(widget.frame, {100, 50}, {}, {400, 250}));
    }

    void theTargetFollowsTheMouseAndTheViewStays()
    {
        FrozenWidget widget;
        drag(widget, {600, 400}, {500, 350});
        widget.setTargetingMode(true);
        press(widget, {300, 200});
        for (const QPoint& mouse : {QPoint(310, 190), QPoint(5, 5), QPoint(639, 479), QPoint(-10, -15)}) {
            move(widget, mouse);
            QCOMPARE(shown(widget), expectedView(widget.frame, {100, 50}, {}, mouse + QPoint(100, 50)));
        }
        release(widget, {-10, -15});
        move(widget, {320, 240});
        QCOMPARE(shown(widget), expectedView(widget.frame, {100, 50}, {}, {90, 35}));
    }

    void switchingTargetingHidesTheSquareUntilTheNextPress()
    {
        FrozenWidget widget;
        widget.setTargetingMode(true);
        press(widget, {300, 200});
        release(widget, {300, 200});
        const QImage without = expectedView(widget.frame, {0, 0});
        QVERIFY(shown(widget) != without);
        widget.setTargetingMode(false);
        QCOMPARE(shown(widget), without);
        widget.setTargetingMode(true);
        QCOMPARE(shown(widget), without);
        press(widget, {301, 201});
        QCOMPARE(shown(widget), expectedView(widget.frame, {0, 0}, {}, {301, 201}));
    }

    void theSquareIsNotZoomed()
    {
        FrozenWidget widget(CalibrationFrame{kFrame});
        widget.setScale(2.0);
        widget.setTargetingMode(true);
        press(widget, {300, 200});
        const QImage image = shown(widget);
        for (const QPoint& corner : {QPoint(280, 180), QPoint(320, 180), QPoint(280, 220), QPoint(320, 220)})
            QCOMPARE(image.pixelColor(corner), QColor(Qt::green));
        QCOMPARE(image.pixelColor(300, 200), QColor(200, 200, 200));
    }
};

QTEST_MAIN(TestQcView)
#include "test_qc_view.moc"
