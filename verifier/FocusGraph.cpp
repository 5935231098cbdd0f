#include "FocusGraph.h"

#include <QPainter>
#include <QPixmap>

#include "camera/CalibrationRegisters.h"

namespace {

constexpr int kSamples = 15;
constexpr int kValueLabels = 11;
constexpr int kNumberFont_pt = 9;
constexpr int kPositionFont_pt = 8;
constexpr int kSpacing_px = 40;
constexpr int kCurveLeft_px = 50;
constexpr int kBaseLine_px = 351;
constexpr int kCurvePen_px = 2;
constexpr QRect kAxesRect(50, 100, 561, 251);

constexpr QColor kCurveColour(0, 170, 255);
constexpr QColor kSampleColour(0, 0, 255);
constexpr QColor kBestColour(255, 0, 0);
constexpr QColor kTextColour(0, 0, 0);

/// How focus values are labelled and drawn in a capture mode.
struct ValueScale
{
    int labelStep;
    double divisor;
};

ValueScale valueScale(int mode)
{
    return mode == kModeVga ? ValueScale{100, 4.0} : ValueScale{50, 2.0};
}

QRect corners(int x1, int y1, int x2, int y2)
{
    return {QPoint(x1, y1), QPoint(x2, y2)};
}

void drawText(QPainter& painter, const QRect& box, int number)
{
    painter.drawText(box, Qt::AlignHCenter | Qt::AlignVCenter, QString::number(number));
}

void setFontSize(QPainter& painter, int size_pt)
{
    QFont font = painter.font();
    font.setPointSize(size_pt);
    painter.setFont(font);
}

/// The graph of one sweep; samples are counted from 0.
class Graph
{
public:
    Graph(QPainter& painter, int mode, const std::vector<AutoFocusingData_t>& samples, int best)
        : m_painter(painter), m_scale(valueScale(mode)), m_samples(samples), m_best(best)
    {
    }

    void drawAxes(const QRect& view)
    {
        m_painter.fillRect(view, Qt::white);
        m_painter.drawPixmap(kAxesRect, QPixmap(":/GUI/Graph.png"));
        setFontSize(m_painter, kNumberFont_pt);
        m_painter.setPen(kTextColour);
        for (int sample = 0; sample < kSamples; ++sample)
            if (sample != m_best)
                drawNumber(sample);
        for (int k = 0; k < kValueLabels; ++k)
            drawText(m_painter, corners(15, 341 - 25 * k, 44, 360 - 25 * k), k * m_scale.labelStep);
    }

    void drawCurve()
    {
        m_painter.setPen(QPen(kCurveColour, kCurvePen_px, Qt::SolidLine, Qt::SquareCap, Qt::BevelJoin));
        for (int sample = 1; sample < kSamples; ++sample)
            m_painter.drawLine(kCurveLeft_px + kSpacing_px * (sample - 1), y(sample - 1),
                               kCurveLeft_px + kSpacing_px * sample, y(sample));
    }

    void drawOthers()
    {
        m_painter.setPen(kSampleColour);
        m_painter.setBrush(kSampleColour);
        for (int sample = 0; sample < kSamples; ++sample)
            if (sample != m_best)
                drawDot(sample);
        setFontSize(m_painter, kPositionFont_pt);
        m_painter.setPen(kTextColour);
        for (int sample = 0; sample < kSamples; ++sample)
            if (sample != m_best)
                drawPosition(sample);
    }

    void drawBest()
    {
        m_painter.setPen(kBestColour);
        setFontSize(m_painter, kNumberFont_pt);
        drawNumber(m_best);
        setFontSize(m_painter, kPositionFont_pt);
        drawPosition(m_best);
        m_painter.setBrush(kBestColour);
        drawDot(m_best);
    }

private:
    const AutoFocusingData_t& at(int sample) const { return m_samples.at(static_cast<std::size_t>(sample)); }

    int y(int sample) const
    {
        return static_cast<int>(kBaseLine_px - at(sample).focusValue / m_scale.divisor);
    }

    void drawNumber(int sample)
    {
        const int left = kSpacing_px * (sample + 1);
        drawText(m_painter, corners(left, 360, left + 19, 379), sample + 1);
    }

    void drawPosition(int sample)
    {
        const int left = 30 + kSpacing_px * sample;
        drawText(m_painter, corners(left, 385, left + 39, 404), at(sample).zPosition);
    }

    void drawDot(int sample)
    {
        const int left = 47 + kSpacing_px * sample;
        m_painter.drawEllipse(corners(left, y(sample) - 3, left + 5, y(sample) + 2));
    }

    QPainter& m_painter;
    const ValueScale m_scale;
    const std::vector<AutoFocusingData_t>& m_samples;
    const int m_best;
};

} // namespace

void drawFocusGraph(QPainter& painter, const QRect& view, int mode,
                    const std::vector<AutoFocusingData_t>& samples, int bestIndex)
{
    Graph graph(painter, mode, samples, bestIndex);
    graph.drawAxes(view);
    if (samples.empty())
        return;
    graph.drawCurve();
    graph.drawOthers();
    graph.drawBest();
}
