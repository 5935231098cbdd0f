#include <algorithm>

#include <QtTest>

#include "LiveViewGeometry.h"
#include "WindowStyle.h"
#include "settings/CaptureModes.h"

class TestLiveViewGeometry : public QObject
{
    Q_OBJECT

private slots:
    void theNavigatorShowsWhereTheViewStands_data()
    {
        QTest::addColumn<int>("mode");
        QTest::addColumn<QPoint>("offset");
        QTest::addColumn<QRect>("expected");
        const auto corners = [](int x1, int y1, int x2, int y2) {
            return QRect(QPoint(x1, y1), QPoint(x2, y2));
        };
        QTest::newRow("VGA fills it") << 0 << QPoint(0, 0) << corners(0, 0, 79, 59);
        QTest::newRow("VGA ignores an offset") << 0 << QPoint(300, 200) << corners(0, 0, 79, 59);
        QTest::newRow("1280 top left") << 1 << QPoint(0, 0) << corners(0, 0, 39, 29);
        QTest::newRow("1280 bottom right") << 1 << QPoint(640, 480) << corners(40, 30, 79, 59);
        QTest::newRow("1280 truncates") << 1 << QPoint(15, 15) << corners(0, 0, 39, 29);
        QTest::newRow("1280 one step") << 1 << QPoint(16, 16) << corners(1, 1, 40, 30);
        QTest::newRow("5M top left") << 2 << QPoint(0, 0) << corners(0, 0, 19, 14);
        QTest::newRow("5M bottom right") << 2 << QPoint(1952, 1464) << corners(60, 45, 79, 59);
        QTest::newRow("5M truncates") << 2 << QPoint(1951, 1463) << corners(60, 45, 79, 59);
        QTest::newRow("negative is raised to 0") << 2 << QPoint(-100, -100) << corners(0, 0, 19, 14);
        QTest::newRow("no mode") << -1 << QPoint(5, 5) << corners(0, 0, -1, -1);
        QTest::newRow("beyond the modes") << 3 << QPoint(5, 5) << corners(0, 0, -1, -1);
    }

    void theNavigatorShowsWhereTheViewStands()
    {
        QFETCH(int, mode);
        QFETCH(QPoint, offset);
        QFETCH(QRect, expected);
        QCOMPARE(navigatorPosition(mode, offset), expected);
    }

    void draggingPullsTheFrameAlong()
    {
        const QSize frame = modeFrameSize(2);
        QCOMPARE(pannedOffset({100, 100}, {320, 240}, {310, 250}, frame), QPoint(110, 90));
        QCOMPARE(pannedOffset({100, 100}, {320, 240}, {320, 240}, frame), QPoint(100, 100));
    }

    void theViewNeverLeavesTheFrame_data()
    {
        QTest::addColumn<int>("mode");
        QTest::addColumn<QPoint>("largest");
        QTest::newRow("VGA") << 0 << QPoint(0, 0);
        QTest::newRow("1280") << 1 << QPoint(640, 480);
        QTest::newRow("5M") << 2 << QPoint(1952, 1464);
    }

    void theViewNeverLeavesTheFrame()
    {
        QFETCH(int, mode);
        QFETCH(QPoint, largest);
        const QSize frame = modeFrameSize(mode);
        QCOMPARE(pannedOffset(largest, {600, 400}, {1, 1}, frame), largest);
        QCOMPARE(pannedOffset({0, 0}, {1, 1}, {600, 400}, frame), QPoint(0, 0));
        // One pixel at a time the edge is reached and held.
        QPoint offset;
        for (int i = 1; i < 3000; ++i) {
            offset = pannedOffset(offset, {2, 2}, {1, 1}, frame);
            QCOMPARE(offset, QPoint(std::min(i, largest.x()), std::min(i, largest.y())));
        }
    }

    void anOffsetOfALargerModeIsClampedByTheNextDrag()
    {
        QCOMPARE(pannedOffset({1952, 1464}, {100, 100}, {100, 100}, modeFrameSize(1)), QPoint(640, 480));
        QCOMPARE(pannedOffset({1952, 1464}, {100, 100}, {100, 100}, modeFrameSize(0)), QPoint(0, 0));
    }

    // The same rule, on a frame without a pixel.
    void theFrameOfNoModeLeavesTheViewBeforeIt()
    {
        QCOMPARE(pannedOffset({0, 0}, {100, 100}, {100, 100}, modeFrameSize(-1)), QPoint(-640, -480));
        QCOMPARE(pannedOffset({0, 0}, {100, 100}, {101, 101}, modeFrameSize(-1)), QPoint(0, 0));
    }

    void frameSizesFollowTheModes_data()
    {
        QTest::addColumn<int>("mode");
        QTest::addColumn<QSize>("size");
        QTest::newRow("VGA") << 0 << QSize(640, 480);
        QTest::newRow("1280") << 1 << QSize(1280, 960);
        QTest::newRow("5M") << 2 << QSize(2592, 1944);
        QTest::newRow("none") << -1 << QSize(0, 0);
        QTest::newRow("beyond") << 3 << QSize(0, 0);
    }

    void frameSizesFollowTheModes()
    {
        QFETCH(int, mode);
        QFETCH(QSize, size);
        QCOMPARE(modeFrameSize(mode), size);
    }

    void frameBuffersHoldPackedRgb()
    {
        QCOMPARE(kCaptureModes[0].rgbBytes(), std::size_t(921600));
        QCOMPARE(kCaptureModes[1].rgbBytes(), std::size_t(3686400));
        QCOMPARE(kCaptureModes[2].rgbBytes(), std::size_t(15116544));
        QCOMPARE(kLiveViewRect.bottomRight(), QPoint(639, 479));
    }
};

QTEST_GUILESS_MAIN(TestLiveViewGeometry)
#include "test_live_view_geometry.moc"
