#include <memory>

#include <opencv2/core/parallel/parallel_backend.hpp>

#include "QcWidgetTools.h"

namespace {

/// Threads for the image library that cannot be had.
class NoThreads : public cv::parallel::ParallelForAPI
{
public:
    void parallel_for(int, FN_parallel_for_body_cb_t, void*) override
    {
        CV_Error(cv::Error::StsInternal, "no threads left");
    }
    int getThreadNum() const override { return 0; }
    int getNumThreads() const override { return 2; }
    int setNumThreads(int) override { return 2; }
    const char* getName() const override { return "none"; }
};

/// Length from (0, 0) that a new widget measures for the dot at place.
float measuredLengthOf(QPoint place, CalibrationFrame& frame)
{
    QC_measure widget;
    widget.resize(kView);
    widget.setImageData(frame.data());
    aimAt(widget, place);
    widget.setPoint(0);
    return measured(widget).length_pixel;
}

} // namespace

class TestQcPoints : public QObject
{
    Q_OBJECT

private slots:
    void bothPointsAreFoundToldAndMarked()
    {
        FrozenWidget widget(patternedFrame(), {{{700, 500}, 8}, {{730, 520}, 5}});

        const QPoint offset1 = widget.mark(0, {698, 502});
        QCOMPARE(widget.points.count(), 1);
        QCOMPARE(widget.points.at(0).at(0).toInt(), 0);
        const QPoint point1 = widget.toldPoint(0);
        QVERIFY((point1 - QPoint(700, 500)).manhattanLength() <= 2);
        QCOMPARE(shown(widget), expectedView(widget.frame, offset1, {{point1, "1"}}, {698, 502}));

        const QPoint offset2 = widget.mark(1, {733, 521});
        QCOMPARE(widget.points.count(), 2);
        QCOMPARE(widget.points.at(1).at(0).toInt(), 1);
        const QPoint point2 = widget.toldPoint(1);
        QVERIFY((point2 - QPoint(730, 520)).manhattanLength() <= 2);
        QCOMPARE(shown(widget),
                 expectedView(widget.frame, offset2, {{point1, "1"}, {point2, "2"}}, {733, 521}));
        QCOMPARE(widget.errors.count(), 0);
    }

    void aMeasurementMarksNoFurtherPoint()
    {
        FrozenWidget widget(patternedFrame(), {{{700, 500}, 8}, {{730, 520}, 5}});
        widget.mark(0, {700, 500});
        const QPoint offset = widget.mark(1, {730, 520});
        QVERIFY(measured(widget).length_pixel > 0);
        widget.setPoint(1);
        QCOMPARE(shown(widget),
                 expectedView(widget.frame, offset, {{widget.toldPoint(0), "1"}, {widget.toldPoint(2), "2"}},
                              {730, 520}));
    }

    void aPointThatMovesLeavesNoMarkBehind()
    {
        FrozenWidget widget(patternedFrame(), {{{700, 500}, 8}, {{760, 520}, 8}});
        widget.mark(0, {700, 500});
        const QPoint offset = widget.mark(0, {760, 520});
        QCOMPARE(widget.points.count(), 2);
        const QPoint point = widget.toldPoint(1);
        QCOMPARE(shown(widget), expectedView(widget.frame, offset, {{point, "1"}}, {760, 520}));
    }

    void marksAtTheBordersAreCutOff_data()
    {
        QTest::addColumn<QPoint>("dot");
        QTest::newRow("top left") << QPoint(4, 3);
        QTest::newRow("top right") << QPoint(2588, 4);
        QTest::newRow("bottom left") << QPoint(3, 1940);
        QTest::newRow("bottom right") << QPoint(2589, 1941);
        QTest::newRow("right") << QPoint(2580, 900);
    }

    void marksAtTheBordersAreCutOff()
    {
        QFETCH(QPoint, dot);
        FrozenWidget widget(patternedFrame(), {{dot, 6}});
        const QPoint offset = widget.mark(1, dot);
        QCOMPARE(widget.points.count(), 1);
        const QPoint point = widget.toldPoint(0);
        QVERIFY((point - dot).manhattanLength() <= 6); // of what is left of the dot
        QCOMPARE(shown(widget), expectedView(widget.frame, offset, {{point, "2"}}, dot));
    }

    void theStoredFrameStaysUnmarked()
    {
        // Were the first cross in the frame, the second search would see its dark green.
        FrozenWidget widget(CalibrationFrame(kFrame), {{{700, 500}, 8}});
        widget.mark(0, {700, 500});
        widget.setPoint(0);
        widget.setPoint(1);
        QCOMPARE(widget.points.count(), 3);
        QCOMPARE(widget.points.at(1), widget.points.at(0));
        QCOMPARE(widget.points.at(2).mid(1), widget.points.at(0).mid(1));
    }

    void pointsSurviveANewFrame()
    {
        FrozenWidget widget(CalibrationFrame(kFrame), {{{700, 500}, 8}, {{900, 500}, 8}});
        widget.mark(0, {700, 500});
        const QPoint point1 = widget.toldPoint(0);

        // The picture of a new frame is clean, but the next search marks both points in it.
        widget.setImageData(widget.frame.data());
        widget.setTargetingMode(false);
        QCOMPARE(shown(widget), expectedView(widget.frame, {0, 0}));
        const QPoint offset = widget.mark(1, {900, 500});
        const QPoint point2 = widget.toldPoint(1);
        QCOMPARE(shown(widget),
                 expectedView(widget.frame, offset, {{point1, "1"}, {point2, "2"}}, {900, 500}));
    }

    void aFailedSearchStoresNothing_data()
    {
        QTest::addColumn<QPoint>("target");
        QTest::addColumn<int>("error");
        QTest::newRow("no object") << QPoint(1200, 1200) << int(TARGETING_NO_CELL);
        QTest::newRow("two objects") << QPoint(915, 500) << int(TARGETING_TOO_MANY_CELLS);
    }

    void aFailedSearchStoresNothing()
    {
        QFETCH(QPoint, target);
        FrozenWidget widget(CalibrationFrame(kFrame), {{{700, 500}, 8}, {{900, 500}, 5}, {{925, 500}, 5}});
        widget.mark(0, {700, 500});
        widget.points.clear();
        aimAt(widget, target);
        const QImage before = shown(widget);
        widget.setPoint(0);
        QCOMPARE(widget.points.count(), 0);
        QCOMPARE(widget.errors.count(), 1);
        QTEST(int(widget.errors.at(0).at(0).value<TargetingError_e>()), "error");
        QCOMPARE(shown(widget), before);
        QCOMPARE(measured(widget).length_pixel, measuredLengthOf({700, 500}, widget.frame));
    }

    void anotherIndexStoresNothing()
    {
        FrozenWidget widget(CalibrationFrame(kFrame), {{{700, 500}, 8}});
        aimAt(widget, {700, 500});
        const QImage before = shown(widget);
        for (const int index : {2, -1, 1000}) {
            widget.setPoint(index);
            QCOMPARE(shown(widget), before);
        }
        QCOMPARE(widget.points.count(), 0);
        QCOMPARE(widget.errors.count(), 0);
        QCOMPARE(measured(widget).length_pixel, 0.0F);
    }

    void withoutATargetTheCornerIsSearched()
    {
        FrozenWidget widget(CalibrationFrame(kFrame), {{{8, 9}, 4}});
        widget.setPoint(0);
        QCOMPARE(widget.points.count(), 1);
        QVERIFY(qAbs(widget.points.at(0).at(1).toInt() - 8) <= 1);
        QVERIFY(qAbs(widget.points.at(0).at(2).toInt() - 9) <= 1);
    }

    void aTargetThatWasDraggedOutOfTheImageFindsNothing_data()
    {
        QTest::addColumn<QPoint>("mouse");
        QTest::newRow("left") << QPoint(-300, 200);
        QTest::newRow("above") << QPoint(200, -20);
        QTest::newRow("right") << QPoint(4000, 200);
        QTest::newRow("below") << QPoint(200, 1964);
    }

    void aTargetThatWasDraggedOutOfTheImageFindsNothing()
    {
        QFETCH(QPoint, mouse);
        FrozenWidget widget(CalibrationFrame(kFrame, Qt::black));
        widget.setTargetingMode(true);
        drag(widget, {200, 200}, mouse);
        widget.setPoint(0);
        QVERIFY(noCellWasTold(widget.errors));
    }

    void withoutAFrameNoPointIsFound()
    {
        QC_measure widget;
        QSignalSpy errors(&widget, &QC_measure::sig_measure_error);
        const LogRecorder log;
        widget.setPoint(0);
        QVERIFY(noCellWasTold(errors));
        QCOMPARE(log.messages(), QStringList());
    }

    void aFailureOfTheLibraryStaysInside()
    {
        FrozenWidget widget(CalibrationFrame(kFrame, Qt::black));
        QStringList logged;
        {
            const LogRecorder log;
            cv::parallel::setParallelForBackend(std::make_shared<NoThreads>(), false);
            widget.setPoint(0);
            cv::parallel::setParallelForBackend(std::shared_ptr<cv::parallel::ParallelForAPI>(), false);
            logged = log.messages();
        }
        QVERIFY(noCellWasTold(widget.errors));
        QCOMPARE(logged.filter(") [Error] OpenCV(").filter("no threads left").size(), 1);
        // The next search works again.
        widget.setPoint(0);
        QCOMPARE(widget.points.count(), 1);
        QCOMPARE(widget.errors.count(), 1);
    }

    void anImageThatTheFrameDoesNotFillIsNotSearched_data()
    {
        QTest::addColumn<uint>("width");
        QTest::addColumn<uint>("height");
        QTest::newRow("larger") << 4000U << 3000U;
        QTest::newRow("empty") << 0U << 1944U;
        QTest::newRow("beyond int") << 0xFFFFFFFFU << 0xFFFFFFFFU;
    }

    void anImageThatTheFrameDoesNotFillIsNotSearched()
    {
        QFETCH(uint, width);
        QFETCH(uint, height);
        FrozenWidget widget(CalibrationFrame(kFrame, Qt::black));
        widget.setImageSize(width, height);
        widget.setPoint(0);
        QCOMPARE(widget.errors.count(), 1);
        drag(widget, {100, 100}, {50, 50});
        QVERIFY(!shown(widget).isNull());
    }

    void anImageOfAnotherSizeIsSearchedAndShown()
    {
        CalibrationFrame small(QSize(640, 480));
        small.dot({300, 200}, 6);
        std::vector<unsigned char> bytes = small.bytes();
        bytes.resize(std::size_t(2592) * 1944 * 3);
        QC_measure widget;
        widget.resize(kView);
        widget.setImageData(bytes.data());
        widget.setImageSize(640, 480);
        widget.setTargetingMode(true);
        press(widget, {300, 200});
        QSignalSpy points(&widget, &QC_measure::sig_measure_point);
        widget.setPoint(0);
        QCOMPARE(points.count(), 1);
        const QPoint point(points.at(0).at(1).toInt(), points.at(0).at(2).toInt());
        QVERIFY((point - QPoint(300, 200)).manhattanLength() <= 2);
        QCOMPARE(shown(widget).pixelColor(point + QPoint(12, 0)), QColor(255, 0, 0));
        QCOMPARE(shown(widget).pixelColor(500, 400), QColor(200, 200, 200));
        // The navigator shows all of it, and no longer a part from 0 to 20.
        widget.setScale(1.0);
        QCOMPARE(shown(widget).pixelColor(20, 4), QColor(200, 200, 200));
        QCOMPARE(shown(widget).pixelColor(80, 4), kNavigatorColor);
    }
};

QTEST_MAIN(TestQcPoints)
#include "test_qc_points.moc"
