#include <random>

#include <QPainter>
#include <QtTest>

#include <opencv2/imgproc.hpp>

#include "CalibrationFrame.h"
#include "QC/PointMarkers.h"

class TestPointMarkers : public QObject
{
    Q_OBJECT

private:
    static constexpr QSize kSize = QSize(120, 90);

    static CalibrationFrame patterned()
    {
        CalibrationFrame frame(kSize);
        for (int y = 0; y < kSize.height(); ++y)
            for (int x = 0; x < kSize.width(); ++x)
                frame.set(x, y, QColor(x, 100 + x % 7 + y % 11, y));
        return frame;
    }

    static QImage pictureOf(const cv::Mat& image)
    {
        return QImage(image.data, image.cols, image.rows, int(image.step), QImage::Format_RGB888)
            .convertToFormat(QImage::Format_RGB32);
    }

    static cv::Mat matrixOf(CalibrationFrame& frame)
    {
        return {kSize.height(), kSize.width(), CV_8UC3, frame.data()};
    }

private slots:
    void aMarkerIsARedCrossWithACyanLabel()
    {
        CalibrationFrame frame(kSize, Qt::black);
        cv::Mat image = matrixOf(frame);
        drawPointMarker(image, {{60, 45}, "1"});
        const QImage picture = pictureOf(image);
        const QColor red(255, 0, 0);
        for (int i = -15; i <= 15; ++i) {
            QCOMPARE(picture.pixelColor(60 + i, 45), red);
            QCOMPARE(picture.pixelColor(60, 45 + i), red);
        }
        for (const QPoint& end : {QPoint(44, 45), QPoint(76, 45), QPoint(60, 29), QPoint(60, 61)})
            QCOMPARE(picture.pixelColor(end), QColor(Qt::black));
        int label = 0;
        for (int y = 0; y < kSize.height(); ++y)
            for (int x = 0; x < kSize.width(); ++x)
                if (picture.pixelColor(x, y) == QColor(0, 255, 255)) {
                    QVERIFY(QRect(QPoint(66, 27), QPoint(77, 39)).contains(x, y));
                    ++label;
                }
        QVERIFY(label > 5);
    }

    void nothingIsDrawnOutsideTheMarkedArea()
    {
        const QPoint position(60, 45);
        for (const char* label : {"1", "2"}) {
            CalibrationFrame frame = patterned();
            const QImage before = pictureOf(matrixOf(frame));
            cv::Mat image = matrixOf(frame);
            drawPointMarker(image, {position, label});
            const QImage after = pictureOf(image);
            for (int y = 0; y < kSize.height(); ++y)
                for (int x = 0; x < kSize.width(); ++x)
                    if (!markedArea(position).contains(x, y))
                        QCOMPARE(after.pixel(x, y), before.pixel(x, y));
        }
    }

    void paintedAreasEqualTheMarkedImageAsAWhole()
    {
        std::mt19937 random(3);
        CalibrationFrame frame = patterned();
        const cv::Mat image = matrixOf(frame);
        const QImage clean = pictureOf(image);
        for (int round = 0; round < 500; ++round) {
            const QPoint first(int(random() % 120), int(random() % 90));
            const QPoint second(first.x() + int(random() % 81) - 40, first.y() + int(random() % 81) - 40);
            const std::vector<PointMarker> markers = {{first, "1"}, {second, "2"}};

            cv::Mat marked = image.clone();
            for (const PointMarker& marker : markers)
                drawPointMarker(marked, marker);
            QImage picture = clean;
            {
                QPainter painter(&picture);
                paintMarkedArea(painter, image, markedArea(first), markers);
                paintMarkedArea(painter, image, markedArea(second), markers);
            }
            QCOMPARE(picture, pictureOf(marked));

            // Without the markers, the same areas give the clean picture back.
            {
                QPainter painter(&picture);
                paintMarkedArea(painter, image, markedArea(first), {});
                paintMarkedArea(painter, image, markedArea(second), {});
            }
            QCOMPARE(picture, clean);
        }
    }
};

QTEST_GUILESS_MAIN(TestPointMarkers)
#include "test_point_markers.moc"
