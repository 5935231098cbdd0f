#include "simulator/session/FocusCurve.h"

#include <algorithm>

#include "simulator/session/SessionBench.h"

namespace {

constexpr double kWidth = 860.0;
constexpr double kHeight = 320.0;
constexpr double kLeft = 64.0;
constexpr double kRight = 24.0;
constexpr double kTop = 28.0;
constexpr double kBottom = 48.0;
constexpr int kValueLines = 4;

QString text(double x, double y, const char* anchor, const QString& content)
{
    return QStringLiteral("<text x=\"%1\" y=\"%2\" text-anchor=\"%3\">%4</text>")
        .arg(number(x, 1), number(y, 1), anchor, content);
}

/// Turns positions and values into places of the drawing.
struct Scale
{
    double firstPosition;
    double lastPosition;
    double largestValue;

    double x(double position) const
    {
        return kLeft +
               (position - firstPosition) / (lastPosition - firstPosition) * (kWidth - kLeft - kRight);
    }
    double y(double value) const
    {
        return kHeight - kBottom - value / largestValue * (kHeight - kTop - kBottom);
    }
};

QString valueLines(const Scale& scale)
{
    QString svg;
    for (int line = 0; line <= kValueLines; ++line) {
        const double value = scale.largestValue * line / kValueLines;
        svg += QStringLiteral("<line class=\"grid\" x1=\"%1\" x2=\"%2\" y1=\"%3\" y2=\"%3\"/>")
                   .arg(number(kLeft), number(kWidth - kRight), number(scale.y(value), 1));
        svg += text(kLeft - 8, scale.y(value) + 4, "end", number(value));
    }
    return svg;
}

} // namespace

QString focusCurveSvg(const SessionFindings& findings)
{
    const std::vector<QPointF>& curve = findings.focusCurve;
    if (curve.size() < 2)
        return {};
    const auto largest = std::max_element(curve.begin(), curve.end(),
                                          [](const QPointF& a, const QPointF& b) { return a.y() < b.y(); });
    const Scale scale{curve.front().x(), curve.back().x(), std::max(1.0, largest->y())};
    QString svg = QStringLiteral("<svg class=\"curve\" viewBox=\"0 0 %1 %2\" role=\"img\">")
                      .arg(number(kWidth), number(kHeight)) +
                  valueLines(scale);
    const double truth_x = scale.x(findings.trueFocus_steps);
    svg += QStringLiteral("<line class=\"truth\" x1=\"%1\" x2=\"%1\" y1=\"%2\" y2=\"%3\"/>")
               .arg(number(truth_x, 1), number(kTop), number(kHeight - kBottom));
    svg += text(truth_x, kTop - 10, "middle",
                QStringLiteral("true focus %1").arg(number(findings.trueFocus_steps)));
    QString points;
    QString dots;
    for (std::size_t i = 0; i < curve.size(); ++i) {
        const bool best = static_cast<int>(i) == findings.bestFocusSample;
        const QString x = number(scale.x(curve[i].x()), 1);
        const QString y = number(scale.y(curve[i].y()), 1);
        points += x + ',' + y + ' ';
        dots += QStringLiteral(
                    "<circle class=\"%1\" cx=\"%2\" cy=\"%3\" r=\"%4\"><title>Z %5, %6</title></circle>")
                    .arg(best ? "best" : "sample", x, y, best ? "6" : "4", number(curve[i].x()),
                         number(curve[i].y(), 1));
        if (i % 2 == 0)
            dots += text(scale.x(curve[i].x()), kHeight - kBottom + 20, "middle", number(curve[i].x()));
    }
    return svg + QStringLiteral("<polyline points=\"%1\"/>").arg(points.trimmed()) + dots +
           text(kWidth / 2, kHeight - 8, "middle", "stage position in steps; the chosen sample is red") +
           "</svg>";
}
