#include "simulator/session/RepeatabilityTable.h"

#include <algorithm>
#include <cmath>

#include <QJsonArray>
#include <QStringList>

namespace {

struct Quantity
{
    const char* figure; ///< its name among a session's figures
    const char* column;
    const char* unit;
    int decimals;
};

constexpr Quantity kTable[RepeatabilityTable::kQuantities] = {
    {"best Z", "best_z", "steps", 1},
    {"length", "length", "px", 2},
    {"magnification", "magnification", "", 5},
    {"volume factor", "volume_factor", "mm\u00B3", 6},
};

constexpr double kPanelWidth = 460.0;
constexpr double kPanelHeight = 250.0;
constexpr double kLeft = 16.0;
constexpr double kTop = 52.0;
constexpr double kBottom = 30.0;
constexpr double kMargin = 1.15;

constexpr const char* kSvgHead =
    R"(<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 960 %1" width="960" height="%1">
<style>text{font:13px system-ui,"DejaVu Sans",sans-serif;fill:#5c6b7a}.h{font-weight:600;fill:#1c2733;font-size:15px}
.box{fill:#fff;stroke:#dde3ea}.zero{stroke:#14794a}.limit{stroke:#b3261e;stroke-dasharray:5 4}
.band{fill:#0077b6;opacity:.14}.bias{stroke:#0077b6;stroke-width:2}circle{fill:#0077b6}.no{fill:#b3261e}</style>
<rect width="960" height="%1" fill="#f4f6f9"/>
)";

QString number(double value, int decimals)
{
    return QString::number(value, 'f', decimals);
}

QString line(const char* style, double x1, double x2, double y)
{
    return QStringLiteral("<line class=\"%1\" x1=\"%2\" x2=\"%3\" y1=\"%4\" y2=\"%4\"/>")
        .arg(style, number(x1, 1), number(x2, 1), number(y, 1));
}

QString text(const char* style, double x, double y, const QString& content)
{
    return QStringLiteral("<text class=\"%1\" x=\"%2\" y=\"%3\">%4</text>")
        .arg(style, number(x, 1), number(y, 1), content);
}

} // namespace

void RepeatabilityTable::add(std::uint32_t seed, bool holds, const QJsonObject& session)
{
    Run run{seed, holds, {}};
    const QJsonArray steps = session["steps"].toArray();
    for (const QJsonValue& step : steps) {
        const QJsonArray figures = step.toObject()["figures"].toArray();
        for (const QJsonValue& each : figures) {
            const QJsonObject figure = each.toObject();
            for (std::size_t i = 0; i < kQuantities; ++i)
                if (figure["name"].toString() == kTable[i].figure && figure["found"].isDouble())
                    run.values[i] = Value{figure["found"].toDouble(), figure["truth"].toDouble(),
                                          figure["tolerance"].toDouble()};
        }
    }
    m_runs.push_back(run);
}

RepeatabilityTable::Statistics RepeatabilityTable::statistics(std::size_t quantity) const
{
    Statistics statistics;
    double sum = 0.0;
    double squares = 0.0;
    for (const Run& run : m_runs)
        if (const auto& value = run.values[quantity]) {
            ++statistics.count;
            sum += value->error();
        }
    if (statistics.count == 0)
        return statistics;
    const auto count = static_cast<double>(statistics.count);
    statistics.bias = sum / count;
    for (const Run& run : m_runs)
        if (const auto& value = run.values[quantity])
            squares += std::pow(value->error() - statistics.bias, 2);
    if (statistics.count > 1)
        statistics.spread = std::sqrt(squares / (count - 1.0));
    return statistics;
}

QString RepeatabilityTable::lastRunText() const
{
    const Run& run = m_runs.back();
    QString text = QStringLiteral("seed %1 %2").arg(run.seed).arg(run.holds ? "ok    " : "FAILED");
    for (std::size_t i = 0; i < kQuantities; ++i) {
        const auto& value = run.values[i];
        text += QStringLiteral("  %1 %2").arg(
            kTable[i].figure, value ? QStringLiteral("%1 (%2%3)")
                                          .arg(number(value->found, kTable[i].decimals),
                                               value->error() < 0.0 ? QString() : QStringLiteral("+"),
                                               number(value->error(), kTable[i].decimals))
                                    : QStringLiteral("none"));
    }
    return text;
}

QString RepeatabilityTable::summary() const
{
    QString text;
    for (std::size_t i = 0; i < kQuantities; ++i) {
        const Statistics found = statistics(i);
        text += QStringLiteral("%1 bias %2, spread %3 %4 over %5 runs\n")
                    .arg(QString(kTable[i].figure).leftJustified(14), number(found.bias, kTable[i].decimals),
                         number(found.spread, kTable[i].decimals), QString::fromUtf8(kTable[i].unit))
                    .arg(found.count);
    }
    return text;
}

QString RepeatabilityTable::csv() const
{
    QStringList names{"seed", "verdict"};
    for (const Quantity& quantity : kTable)
        for (const char* part : {"_found", "_true", "_error"})
            names.append(QString(quantity.column) + part);
    QString text = names.join(',') + '\n';
    for (const Run& run : m_runs) {
        QStringList fields{QString::number(run.seed), run.holds ? "ok" : "failed"};
        for (std::size_t i = 0; i < kQuantities; ++i) {
            const int decimals = kTable[i].decimals + 1;
            const auto& value = run.values[i];
            for (const double part : value ? std::vector<double>{value->found, value->truth, value->error()}
                                           : std::vector<double>{})
                fields.append(number(part, decimals));
            if (!value)
                fields.append({QString(), QString(), QString()});
        }
        text += fields.join(',') + '\n';
    }
    return text;
}

QString RepeatabilityTable::panel(std::size_t quantity) const
{
    const Quantity& what = kTable[quantity];
    const Statistics found = statistics(quantity);
    double limit = 0.0;
    double reach = 0.0;
    for (const Run& run : m_runs)
        if (const auto& value = run.values[quantity]) {
            limit = std::max(limit, value->tolerance);
            reach = std::max({reach, value->tolerance, std::abs(value->error())});
        }
    const double half = (kPanelHeight - kTop - kBottom) / 2.0;
    const double middle = kTop + half;
    const double right = kPanelWidth - kLeft;
    const auto y = [&](double error) {
        return middle - (reach > 0.0 ? error / (reach * kMargin) : 0.0) * half;
    };
    QString svg = QStringLiteral("<rect class=\"box\" width=\"%1\" height=\"%2\" rx=\"8\"/>")
                      .arg(number(kPanelWidth, 0), number(kPanelHeight, 0)) +
                  text("h", kLeft, 22, QString::fromUtf8(what.figure) + ": found minus true");
    svg += text("", kLeft, 42,
                QStringLiteral("bias %1, spread %2, allowed &#177;%3 %4")
                    .arg(number(found.bias, what.decimals), number(found.spread, what.decimals),
                         number(limit, what.decimals), QString::fromUtf8(what.unit)));
    svg += QStringLiteral("<rect class=\"band\" x=\"%1\" width=\"%2\" y=\"%3\" height=\"%4\"/>")
               .arg(number(kLeft, 1), number(right - kLeft, 1), number(y(found.bias + found.spread), 1),
                    number(y(found.bias - found.spread) - y(found.bias + found.spread), 1));
    svg += line("zero", kLeft, right, y(0.0)) + line("limit", kLeft, right, y(limit)) +
           line("limit", kLeft, right, y(-limit)) + line("bias", kLeft, right, y(found.bias));
    const double spacing = (right - kLeft) / static_cast<double>(m_runs.size());
    for (std::size_t i = 0; i < m_runs.size(); ++i)
        if (const auto& value = m_runs[i].values[quantity])
            svg += QStringLiteral(
                       "<circle class=\"%1\" cx=\"%2\" cy=\"%3\" r=\"3.5\"><title>seed %4</title></circle>")
                       .arg(m_runs[i].holds ? "" : "no",
                            number(kLeft + (static_cast<double>(i) + 0.5) * spacing, 1),
                            number(y(value->error()), 1))
                       .arg(m_runs[i].seed);
    return svg + text("", kLeft, kPanelHeight - 10,
                      QStringLiteral("%1 of %2 runs, seed %3 to %4")
                          .arg(found.count)
                          .arg(m_runs.size())
                          .arg(m_runs.front().seed)
                          .arg(m_runs.back().seed));
}

QString RepeatabilityTable::svg() const
{
    constexpr double kGap = 15.0;
    constexpr std::size_t kColumns = 2;
    QString svg = QString::fromUtf8(kSvgHead).replace("%1", number(2.0 * kPanelHeight + 3.0 * kGap, 0));
    for (std::size_t i = 0; i < kQuantities && !m_runs.empty(); ++i) {
        const std::size_t row = i / kColumns;
        const std::size_t column = i % kColumns;
        svg += QStringLiteral("<g transform=\"translate(%1 %2)\">%3</g>\n")
                   .arg(number(kGap + static_cast<double>(column) * (kPanelWidth + kGap), 0),
                        number(kGap + static_cast<double>(row) * (kPanelHeight + kGap), 0), panel(i));
    }
    return svg + "</svg>\n";
}
