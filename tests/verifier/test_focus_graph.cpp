#include <stdexcept>

#include <QGuiApplication>
#include <QImage>
#include <QPainter>
#include <QPixmap>
#include <QtTest>

#include "FocusGraph.h"
#include "support/PixelBounds.h"

namespace {

constexpr QRect kView(0, 0, 640, 480);
constexpr QRect kWindow(0, 0, 800, 480);
constexpr int kDotsPerInch = 96;
constexpr int kVga = 0;
constexpr int k1280 = 1;
const QRgb kWhite = qRgb(255, 255, 255);
const QRgb kCurve = qRgb(0, 170, 255);
const QRgb kBlue = qRgb(0, 0, 255);
const QRgb kRed = qRgb(255, 0, 0);

using Samples = std::vector<AutoFocusingData_t>;

/// A peak over fifteen positions that lie as they do in a run.
Samples sweep(double peak, int at = 7)
{
    Samples samples;
    for (int i = 0; i < 15; ++i)
        samples.push_back({peak / (1.0 + std::abs(i - at)), 28160 + 640 * i});
    return samples;
}

QImage blank(const QSize& size, int dotsPerInch)
{
    QImage image(size, QImage::Format_RGB32);
    image.fill(Qt::magenta);
    const int dotsPerMetre = qRound(dotsPerInch / 0.0254);
    image.setDotsPerMeterX(dotsPerMetre);
    image.setDotsPerMeterY(dotsPerMetre);
    return image;
}

/// The graph on the whole window's ground, by a painter that has drawn something else before.
QImage drawnOnWindow(int mode, const Samples& samples, int best, int dotsPerInch = kDotsPerInch)
{
    QImage image = blank(kWindow.size(), dotsPerInch);
    QPainter painter(&image);
    painter.setPen(Qt::green);
    painter.setBrush(Qt::green);
    drawFocusGraph(painter, kView, mode, samples, best);
    return image;
}

QImage drawn(int mode, const Samples& samples, int best, int dotsPerInch = kDotsPerInch)
{
    return drawnOnWindow(mode, samples, best, dotsPerInch).copy(kView);
}

QRect box(int x1, int y1, int x2, int y2)
{
    return QRect(QPoint(x1, y1), QPoint(x2, y2));
}

/// Draws the same graph the plain way, number by number.
class PlainGraph
{
public:
    explicit PlainGraph(int dotsPerInch) : m_image(blank(kView.size(), dotsPerInch)), m_painter(&m_image)
    {
        m_painter.fillRect(0, 0, 640, 480, QColor(255, 255, 255, 255));
        m_painter.drawPixmap(50, 100, 561, 251, QPixmap(":/GUI/Graph.png"));
    }

    void text(const QRect& rect, const QString& text, int size_pt, QRgb colour)
    {
        QFont font = m_painter.font();
        font.setPointSize(size_pt);
        m_painter.setFont(font);
        m_painter.setPen(QColor(colour));
        m_painter.drawText(rect, Qt::AlignHCenter | Qt::AlignVCenter, text);
    }

    void number(int i, QRgb colour = qRgb(0, 0, 0))
    {
        text(box(40 * i, 360, 40 * i + 19, 379), QString::number(i), 9, colour);
    }

    void position(int j, int z, QRgb colour = qRgb(0, 0, 0))
    {
        text(box(30 + 40 * j, 385, 69 + 40 * j, 404), QString::number(z), 8, colour);
    }

    void valueLabels(int step)
    {
        for (int k = 0; k <= 10; ++k)
            text(box(15, 341 - 25 * k, 44, 360 - 25 * k), QString::number(k * step), 9, qRgb(0, 0, 0));
    }

    void curve(const std::vector<int>& ys)
    {
        m_painter.setPen(QPen(QColor(0, 170, 255), 2, Qt::SolidLine, Qt::SquareCap, Qt::BevelJoin));
        for (int i = 1; i <= 14; ++i)
            m_painter.drawLine(50 + 40 * (i - 1), ys[std::size_t(i - 1)], 50 + 40 * i, ys[std::size_t(i)]);
    }

    void dot(int j, int y, QRgb colour)
    {
        m_painter.setPen(QColor(colour));
        m_painter.setBrush(QColor(colour));
        m_painter.drawEllipse(box(47 + 40 * j, y - 3, 52 + 40 * j, y + 2));
    }

    QImage image()
    {
        m_painter.end();
        return m_image;
    }

private:
    QImage m_image;
    QPainter m_painter;
};

QImage plainGraph(int mode, const Samples& samples, int best, int dotsPerInch = kDotsPerInch)
{
    PlainGraph graph(dotsPerInch);
    for (int i = 1; i <= 15; ++i)
        if (i != best + 1)
            graph.number(i);
    graph.valueLabels(mode == 0 ? 100 : 50);
    if (samples.empty())
        return graph.image();
    std::vector<int> ys;
    for (const AutoFocusingData_t& sample : samples)
        ys.push_back(int(351 - sample.focusValue / (mode == 0 ? 4 : 2)));
    graph.curve(ys);
    for (int j = 0; j < 15; ++j)
        if (j != best)
            graph.dot(j, ys[std::size_t(j)], kBlue);
    for (int j = 0; j < 15; ++j)
        if (j != best)
            graph.position(j, samples[std::size_t(j)].zPosition);
    graph.number(best + 1, kRed);
    graph.position(best, samples[std::size_t(best)].zPosition, kRed);
    graph.dot(best, ys[std::size_t(best)], kRed);
    return graph.image();
}

QRect boundsOf(const QImage& image, QRgb colour, const QRect& within)
{
    return boundsOf(
        image, within, [=](QRgb pixel) { return pixel == colour; });
}

/// What is mostly red: the strokes of small letters do not reach the full colour.
QRect reddishIn(const QImage& image, const QRect& within)
{
    return boundsOf(
        image, within,
        [](QRgb pixel) { return qRed(pixel) > 200 && qGreen(pixel) < 160 && qBlue(pixel) < 160; });
}

/// What is not white.
QRect inkIn(const QImage& image, const QRect& within)
{
    return boundsOf(
        image, within, [](QRgb pixel) { return pixel != kWhite; });
}

} // namespace

class TestFocusGraph : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { Q_INIT_RESOURCE(GUI); }

    void theGraphIsDrawnToThePixel_data()
    {
        QTest::addColumn<int>("mode");
        QTest::addColumn<int>("best");
        QTest::addColumn<double>("peak");
        for (int mode : {-1, 0, 1, 2}) {
            for (int best : {0, 7, 14})
                for (double peak : {0.0, 3.7, 421.9})
                    QTest::addRow("mode %d, best %d, %g", mode, best, peak) << mode << best << peak;
        }
    }

    void theGraphIsDrawnToThePixel()
    {
        QFETCH(int, mode);
        QFETCH(int, best);
        QFETCH(double, peak);
        const Samples samples = sweep(peak, best);
        QCOMPARE(drawn(mode, samples, best), plainGraph(mode, samples, best));
    }

    // What is left over of a box is halved: letters of an even and of an odd height.
    void lettersOfEveryHeightStandInTheMiddle()
    {
        for (int dotsPerInch = 80; dotsPerInch <= 120; dotsPerInch += 5)
            QCOMPARE(drawn(k1280, sweep(421.9), 7, dotsPerInch),
                     plainGraph(k1280, sweep(421.9), 7, dotsPerInch));
    }

    void nothingIsDrawnBesideTheView()
    {
        const QRect beside(640, 0, 160, 480);
        QCOMPARE(drawnOnWindow(k1280, sweep(421.9), 7).copy(beside), blank(beside.size(), kDotsPerInch));
    }

    void withoutSamplesThereAreAxesAndLabelsOnly()
    {
        for (int best : {0, 5})
            QCOMPARE(drawn(k1280, {}, best), plainGraph(k1280, {}, best));
        const QImage graph = drawn(k1280, {}, 0);
        for (QRgb colour : {kCurve, kBlue, kRed})
            QVERIFY(boundsOf(graph, colour, kView).isNull());
        QVERIFY(inkIn(graph, QRect(0, 385, 640, 20)).isNull());
        // The best sample's number is left to the samples; before a run that is the first.
        QVERIFY(inkIn(graph, box(40, 360, 59, 379)).isNull());
        QVERIFY(!inkIn(graph, box(80, 360, 99, 379)).isNull());
    }

    void theViewIsWhiteAroundTheAxes()
    {
        const QImage graph = drawn(k1280, {}, 0);
        for (const QPoint& point : {QPoint(0, 0), QPoint(639, 0), QPoint(0, 479), QPoint(639, 479),
                                    QPoint(320, 50), QPoint(320, 440), QPoint(625, 200), QPoint(48, 200)})
            QCOMPARE(graph.pixel(point), kWhite);
    }

    void theAxesPictureLiesUnscaledInItsPlace()
    {
        const QImage axes = QImage(":/GUI/Graph.png").convertToFormat(QImage::Format_RGB32);
        QCOMPARE(axes.size(), QSize(561, 251));
        QCOMPARE(drawn(k1280, {}, 0).copy(50, 100, 561, 251), axes);
    }

    void theAxesHaveATickAtEverySampleAndAtEveryValue()
    {
        const QImage axes(":/GUI/Graph.png");
        const QRgb axis = axes.pixel(0, 250);
        QVERIFY(qGray(axis) < 128);
        for (int x = 0; x < 561; ++x)
            QCOMPARE(axes.pixel(x, 246) == axis, x % 40 == 0);
        for (int y = 0; y < 250; ++y)
            QCOMPARE(axes.pixel(4, y) == axis, (250 - y) % 25 == 0);
    }

    void aGraphUnitIsTwoValuesAndFourInVga_data()
    {
        QTest::addColumn<int>("mode");
        QTest::addColumn<double>("value");
        QTest::addColumn<int>("y");
        QTest::newRow("VGA, 0") << kVga << 0.0 << 351;
        QTest::newRow("VGA, 400") << kVga << 400.0 << 251;
        QTest::newRow("VGA, 1000") << kVga << 1000.0 << 101;
        QTest::newRow("1280, 0") << k1280 << 0.0 << 351;
        QTest::newRow("1280, 200") << k1280 << 200.0 << 251;
        QTest::newRow("1280, 500") << k1280 << 500.0 << 101;
        QTest::newRow("5M, 500") << 2 << 500.0 << 101;
        QTest::newRow("a part of a unit goes up") << k1280 << 0.1 << 350;
        QTest::newRow("the whole part counts") << k1280 << 201.9 << 250;
    }

    void aGraphUnitIsTwoValuesAndFourInVga()
    {
        QFETCH(int, mode);
        QFETCH(double, value);
        QFETCH(int, y);
        const Samples samples(15, AutoFocusingData_t{value, 0});
        const QImage graph = drawn(mode, samples, 3);
        const QRect curve = boundsOf(graph, kCurve, QRect(60, 0, 20, 480));
        QCOMPARE(curve, QRect(60, y - 1, 20, 2));
        // 6 x 6 filled, and the pen's own pixel to the right and below.
        QCOMPARE(boundsOf(graph, kRed, QRect(160, 0, 21, 380)), QRect(47 + 120, y - 3, 7, 7));
        QCOMPARE(boundsOf(graph, kBlue, QRect(80, 0, 21, 380)), QRect(47 + 40, y - 3, 7, 7));
    }

    void onlyTheBestSampleIsRed_data()
    {
        QTest::addColumn<int>("best");
        for (int best = 0; best < 15; ++best)
            QTest::addRow("%d", best) << best;
    }

    void onlyTheBestSampleIsRed()
    {
        QFETCH(int, best);
        const QImage graph = drawn(k1280, sweep(300.0, best), best);
        const QRect column(30 + 40 * best, 0, 40, 480);
        // Dot, number and position, and nothing outside the sample's own column.
        for (const QRect& part : {QRect(0, 0, 640, 352), QRect(0, 360, 640, 20), QRect(0, 385, 640, 20)}) {
            const QRect red = reddishIn(graph, part);
            QVERIFY(!red.isNull());
            QVERIFY(column.contains(red));
        }
        // The number is not drawn in black beneath: nothing in its box is darker than red.
        QCOMPARE(boundsOf(graph, QRect(40 * (best + 1), 360, 20, 20),
                          [](QRgb pixel) { return qRed(pixel) < 255; }),
                 QRect());
    }

    void labelsKeepApart_data()
    {
        QTest::addColumn<int>("mode");
        QTest::newRow("VGA") << kVga;
        QTest::newRow("1280") << k1280;
    }

    void labelsKeepApart()
    {
        QFETCH(int, mode);
        const QImage graph = drawn(mode, sweep(300.0), 7);
        // At least one white column between neighbouring positions, and left of every number.
        for (int j = 0; j <= 15; ++j)
            QVERIFY(inkIn(graph, box(29 + 40 * j, 385, 30 + 40 * j, 404)).isNull());
        for (int i = 1; i <= 15; ++i)
            QVERIFY(inkIn(graph, box(40 * i - 2, 360, 40 * i - 1, 379)).isNull());
        // The value labels end before the axis begins, and rows of labels do not touch.
        QVERIFY(inkIn(graph, box(45, 80, 46, 359)).isNull());
        for (int k = 0; k < 10; ++k)
            QVERIFY(inkIn(graph, box(0, 339 - 25 * k, 44, 339 - 25 * k)).isNull());
        QVERIFY(inkIn(graph, box(0, 381, 639, 384)).isNull());
    }

    void fewerThanFifteenSamplesAreOutOfRange_data()
    {
        QTest::addColumn<int>("count");
        for (int count = 1; count < 15; ++count)
            QTest::addRow("%d", count) << count;
    }

    void fewerThanFifteenSamplesAreOutOfRange()
    {
        QFETCH(int, count);
        Samples samples = sweep(100.0);
        samples.resize(std::size_t(count));
        QString text;
        try {
            drawn(k1280, samples, 0);
        } catch (const std::out_of_range& error) {
            text = error.what();
        }
        QCOMPARE(
            text,
            QString("vector::_M_range_check: __n (which is %1) >= this->size() (which is %1)").arg(count));
    }

    void aBestSampleThatDoesNotExistIsOutOfRange()
    {
        QVERIFY_EXCEPTION_THROWN(drawn(k1280, sweep(100.0), 15), std::out_of_range);
        QVERIFY_EXCEPTION_THROWN(drawn(k1280, sweep(100.0), -1), std::out_of_range);
    }
};

QTEST_MAIN(TestFocusGraph)
#include "test_focus_graph.moc"
