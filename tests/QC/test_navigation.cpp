#include <QtTest>

#include "QC/Navigation.h"
#include "QC/ViewOffset.h"

class TestNavigation : public QObject
{
    Q_OBJECT

private slots:
    void aNewNavigatorIsEmpty()
    {
        const Navigation navigation;
        QVERIFY(!navigation.color().isValid());
        QCOMPARE(navigation.navigationRect(), QRect(QPoint(0, 0), QPoint(-1, -1)));
        QCOMPARE(navigation.positionRect(), QRect(QPoint(0, 0), QPoint(-1, -1)));
    }

    void colorAndSizeAreTakenOver()
    {
        Navigation navigation;
        navigation.setNavigationColor(255, 128, 1);
        navigation.setNavigationSize(80, 60);
        QCOMPARE(navigation.color(), QColor(255, 128, 1));
        QCOMPARE(navigation.navigationRect(), QRect(QPoint(0, 0), QPoint(79, 59)));
    }

    void thePositionFollowsTheView_data()
    {
        QTest::addColumn<QSize>("image");
        QTest::addColumn<QSize>("display");
        QTest::addColumn<QPoint>("offset");
        QTest::addColumn<QRect>("position");
        const QSize frame(2592, 1944);
        const QSize view(640, 480);
        // 80 - 80 * 1952 / 2592 = 80 - 60 = 20, 60 - 60 * 1464 / 1944 = 60 - 45 = 15.
        QTest::newRow("top left") << frame << view << QPoint(0, 0) << QRect(0, 0, 20, 15);
        QTest::newRow("bottom right") << frame << view << QPoint(1952, 1464) << QRect(60, 45, 20, 15);
        QTest::newRow("one pixel before the next step")
            << frame << view << QPoint(32, 32) << QRect(0, 0, 20, 15);
        QTest::newRow("next step") << frame << view << QPoint(33, 33) << QRect(1, 1, 20, 15);
        QTest::newRow("zoomed") << frame << QSize(320, 240) << QPoint(2272, 1704) << QRect(70, 52, 10, 8);
        QTest::newRow("whole image") << view << view << QPoint(0, 0) << QRect(0, 0, 80, 60);
        // The view is larger than the image: -640 * 80 / 640 = -80, so twice the navigator.
        QTest::newRow("larger view") << view << QSize(1280, 960) << QPoint(0, 0) << QRect(0, 0, 160, 120);
        // -1 * 80 / 640 is truncated to 0, not to -1.
        QTest::newRow("truncated toward zero")
            << view << QSize(641, 481) << QPoint(0, 0) << QRect(0, 0, 80, 60);
        // 53687092 * 80 = 2^32 + 64 and 71582789 * 60 = 2^32 + 44: both wrap to below one step.
        QTest::newRow("the product wraps at thirty-two bits")
            << frame << view << QPoint(53687092, 71582789) << QRect(0, 0, 20, 15);
    }

    void thePositionFollowsTheView()
    {
        QFETCH(QSize, image);
        QFETCH(QSize, display);
        QFETCH(QPoint, offset);
        Navigation navigation;
        navigation.setNavigationSize(80, 60);
        navigation.setImageSize(unsigned(image.width()), unsigned(image.height()));
        navigation.setDisplaySize(unsigned(display.width()), unsigned(display.height()));
        navigation.setNavigationPosition(unsigned(offset.x()), unsigned(offset.y()));
        QTEST(navigation.positionRect(), "position");
    }

    void unsetSizesDoNotStopTheProgram()
    {
        Navigation navigation;
        navigation.setNavigationSize(80, 60);
        navigation.setNavigationPosition(5, 5);
        // Image and display are both 0xFFFFFFFF: 5 * 80 / 0xFFFFFFFF = 0, and nothing is hidden.
        QCOMPARE(navigation.positionRect(), QRect(0, 0, 80, 60));
    }

    void noImageGivesAnEmptyPosition_data()
    {
        QTest::addColumn<uint>("width");
        QTest::addColumn<uint>("height");
        QTest::newRow("no width") << 0U << 480U;
        QTest::newRow("no height") << 640U << 0U;
    }

    void noImageGivesAnEmptyPosition()
    {
        QFETCH(uint, width);
        QFETCH(uint, height);
        Navigation navigation;
        navigation.setNavigationSize(80, 60);
        navigation.setImageSize(2592, 1944);
        navigation.setDisplaySize(640, 480);
        navigation.setNavigationPosition(0, 0);
        QCOMPARE(navigation.positionRect(), QRect(0, 0, 20, 15));
        navigation.setImageSize(width, height);
        navigation.setNavigationPosition(0, 0);
        QCOMPARE(navigation.positionRect(), QRect());
    }

    void theViewStaysInsideItsImage_data()
    {
        QTest::addColumn<int>("offset");
        QTest::addColumn<int>("image");
        QTest::addColumn<int>("widget");
        QTest::addColumn<double>("scale");
        QTest::addColumn<int>("expected");
        QTest::newRow("inside") << 100 << 2592 << 640 << 1.0 << 100;
        QTest::newRow("before the image") << -1 << 2592 << 640 << 1.0 << 0;
        QTest::newRow("last") << 1952 << 2592 << 640 << 1.0 << 1952;
        QTest::newRow("behind the last") << 1953 << 2592 << 640 << 1.0 << 1952;
        QTest::newRow("zoom shows less, so goes further") << 2500 << 2592 << 640 << 2.0 << 2272;
        // 2592 - 640 / 1.5 = 2165.33: not above at 2165, truncated from 2166 on.
        QTest::newRow("fraction, at it") << 2165 << 2592 << 640 << 1.5 << 2165;
        QTest::newRow("fraction, above it") << 2166 << 2592 << 640 << 1.5 << 2165;
        QTest::newRow("image smaller than the view") << 5 << 320 << 640 << 1.0 << 0;
        QTest::newRow("image smaller, at 0") << 0 << 320 << 640 << 1.0 << 0;
        QTest::newRow("reduced image") << 2000 << 2592 << 640 << 0.5 << 656;
        QTest::newRow("reduced below the view") << 10 << 1000 << 640 << 0.5 << 0;
    }

    void theViewStaysInsideItsImage()
    {
        QFETCH(int, offset);
        QFETCH(int, image);
        QFETCH(int, widget);
        QFETCH(double, scale);
        QTEST(clampedViewOffset(offset, image, widget, scale), "expected");
    }
};

QTEST_GUILESS_MAIN(TestNavigation)
#include "test_navigation.moc"
