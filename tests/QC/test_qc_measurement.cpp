#include <cmath>

#include "QcWidgetTools.h"

class TestQcMeasurement : public QObject
{
    Q_OBJECT

private slots:
    void theMeasurementOfFoundPointsIsTold()
    {
        FrozenWidget widget(CalibrationFrame(kFrame), {{{500, 500}, 8}, {{1500, 500}, 8}});
        widget.mark(0, {500, 500});
        widget.mark(1, {1500, 500});
        const MeasureInfo_t info = measured(widget);
        QCOMPARE(info.length_pixel, 1000.0F);
        QCOMPARE(info.length_mm, 1.0F);
        QCOMPARE(info.pixel_size, 1.0F);
        QCOMPARE(info.Magnification, 1.4F);
        QCOMPARE(info.area_mm, 5.038848F);
        QCOMPARE(info.Volume_factor, 0.50388F);

        // The area is that of the image size, whatever frame the points were found on.
        widget.setImageSize(1280, 960);
        const MeasureInfo_t smaller = measured(widget);
        QCOMPARE(smaller.length_pixel, 1000.0F);
        QCOMPARE(smaller.area_mm, 1.2288F);
        QCOMPARE(smaller.Volume_factor, 0.12288F);
    }

    void aMeasurementWithoutPointsIsNotRefused()
    {
        QC_measure widget;
        const MeasureInfo_t info = measured(widget);
        QCOMPARE(info.length_pixel, 0.0F);
        QVERIFY(std::isnan(info.Magnification));
        QVERIFY(std::isnan(info.Volume_factor));
    }

    void resultsAndErrorsCanBeQueued()
    {
        QC_measure widget;
        int results = 0;
        int errors = 0;
        connect(
            &widget, &QC_measure::sig_measure_result, this, [&](MeasureInfo_t) { ++results; },
            Qt::QueuedConnection);
        connect(&widget, SIGNAL(sig_measure_error(TargetingError_e)), this,
                SLOT(slot_measure_error(TargetingError_e)), Qt::QueuedConnection);
        connect(&widget, &QC_measure::sig_measure_error, this, [&](TargetingError_e) { ++errors; });
        widget.measure2Point();
        widget.setPoint(0);
        QCOMPARE(results, 0);
        QCOMPARE(errors, 1);
        m_queuedErrors = 0;
        QCoreApplication::processEvents();
        QCOMPARE(results, 1);
        QCOMPARE(m_queuedErrors, 1);
    }

    void theMeasurementIsLoggedLineByLine()
    {
        FrozenWidget widget(CalibrationFrame(kFrame), {{{500, 500}, 8}, {{1549, 500}, 8}});
        widget.mark(0, {500, 500});
        widget.mark(1, {1549, 500});
        bool loggedBeforeTheSignal = false;
        const LogRecorder log;
        connect(&widget, &QC_measure::sig_measure_result, this,
                [&] { loggedBeforeTheSignal = log.messages().size() == 10; });
        widget.measure2Point();
        const QStringList loggedLines = log.messages();
        QVERIFY(loggedBeforeTheSignal);
        const QStringList expected = {
            "----->Before Magnification : 1.4686",
            "----->after Magnification : 1.469",
            "----->length_pixel : 1049",
            "----->length_mm : 1",
            "----->pixel_size : 0.953289",
            "----->Magnification : 1.469",
            "----->m_MeasureInfo.area_mm : 4.5791",
            "----->area_mm : 4.57661",
            "----->m_MeasureInfo.Volume_factor : 0.45791",
            "----->Volume_factor : 0.45791",
        };
        QCOMPARE(loggedLines.size(), expected.size());
        int line = 0;
        for (int i = 0; i < expected.size(); ++i) {
            const QRegularExpression form("^void QC_measure::measure2Point\\(\\) (\\d+) " +
                                          QRegularExpression::escape(expected[i]) + "$");
            const QRegularExpressionMatch match = form.match(loggedLines[i]);
            QVERIFY2(match.hasMatch(), qPrintable(loggedLines[i]));
            QVERIFY2(match.captured(1).toInt() > line, "each with its own source line");
            line = match.captured(1).toInt();
        }
    }

    void theSmallHelpersCompute()
    {
        const QC_measure widget;
        QCOMPARE(widget.diameter(cv::Point(0, 0), cv::Point(3, -4)), 5.0F);
        QCOMPARE(widget.round2(2.345F, 100.0F), 2.35F);
        QCOMPARE(widget.round2(-2.345F, 100.0F), -2.35F);
    }

    void theMeanIntensityOfEachChannelIsTold()
    {
        const QC_measure widget;
        float red = 0;
        float green = 0;
        float blue = 0;
        CalibrationFrame plain(kFrame, QColor(10, 20, 30));
        widget.getIntensityMean(plain.data(), 2592, 1944, red, green, blue);
        QCOMPARE(red, 10.0F);
        QCOMPARE(green, 20.0F);
        QCOMPARE(blue, 30.0F);

        // Rows have no padding: 3 x 2 pixels are 18 bytes.
        CalibrationFrame mixed(QSize(3, 2), QColor(0, 100, 255));
        mixed.set(2, 1, QColor(60, 40, 3));
        widget.getIntensityMean(mixed.data(), 3, 2, red, green, blue);
        QCOMPARE(red, 10.0F);
        QCOMPARE(green, 90.0F);
        QCOMPARE(blue, 213.0F);
    }

    void aMissingFrameHasNoMeanIntensity()
    {
        const QC_measure widget;
        const LogRecorder silence;
        float red = 1;
        float green = 2;
        float blue = 3;
        QVERIFY_EXCEPTION_THROWN(widget.getIntensityMean(nullptr, 640, 480, red, green, blue), cv::Exception);
        QCOMPARE(red, 1.0F);
        QCOMPARE(green, 2.0F);
        QCOMPARE(blue, 3.0F);
    }

public slots:
    void slot_measure_error(TargetingError_e) { ++m_queuedErrors; }

private:
    int m_queuedErrors = 0;
};

QTEST_MAIN(TestQcMeasurement)
#include "test_qc_measurement.moc"
