#include "simulator/session/RepeatabilityTable.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include <QJsonArray>
#include <QStringList>

#include "simulator/session/SessionContext.h"

namespace {

struct Quantity
{
    const char* name; ///< among a session's measurements
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

const char* textOf(Answers answers)
{
    return answers == Answers::HeldBack ? "held back" : "plain";
}

} // namespace

void RepeatabilityTable::add(std::uint32_t seed, Answers answers, bool holds, const QJsonObject& session)
{
    Run run{seed, answers, holds, {}};
    const QJsonArray steps = session["steps"].toArray();
    for (const QJsonValue& step : steps) {
        const QJsonArray measurements = step.toObject()["figures"].toArray();
        for (const QJsonValue& each : measurements) {
            const auto [found, truth] = std::pair(each["found"], each["truth"]);
            for (std::size_t i = 0; i < kQuantities; ++i)
                if (each["name"].toString() == kTable[i].name && found.isDouble() && truth.isDouble())
                    run.values[i] =
                        Measurement{{}, {}, found.toDouble(), truth.toDouble(), each["tolerance"].toDouble()};
        }
    }
    m_runs.push_back(run);
}

std::vector<Measurement> RepeatabilityTable::valuesOf(std::size_t quantity, Answers answers) const
{
    std::vector<Measurement> values;
    for (const Run& run : m_runs)
        if (run.answers == answers && run.values[quantity])
            values.push_back(*run.values[quantity]);
    return values;
}

std::optional<RepeatabilityTable::Statistics> RepeatabilityTable::statistics(std::size_t quantity,
                                                                             Answers answers) const
{
    const std::vector<Measurement> values = valuesOf(quantity, answers);
    if (values.empty())
        return std::nullopt;
    Statistics statistics;
    statistics.count = values.size();
    const auto count = static_cast<double>(values.size());
    for (const Measurement& value : values) {
        statistics.bias += value.error() / count;
        statistics.allowed = std::max(statistics.allowed, value.tolerance);
    }
    double squares = 0.0;
    for (const Measurement& value : values)
        squares += std::pow(value.error() - statistics.bias, 2);
    if (values.size() > 1)
        statistics.spread = std::sqrt(squares / (count - 1.0));
    return statistics;
}

std::vector<Answers> RepeatabilityTable::columns() const
{
    const bool both = std::any_of(m_runs.begin(), m_runs.end(),
                                  [](const Run& run) { return run.answers == Answers::Plain; });
    return both ? std::vector<Answers>{Answers::HeldBack, Answers::Plain}
                : std::vector<Answers>{Answers::HeldBack};
}

QString RepeatabilityTable::lastRunText() const
{
    const Run& run = m_runs.back();
    QString text = QStringLiteral("seed %1 %2").arg(run.seed).arg(run.holds ? "ok    " : "FAILED");
    if (run.answers == Answers::Plain)
        text += QStringLiteral("  plain answers");
    for (std::size_t i = 0; i < kQuantities; ++i) {
        const auto& value = run.values[i];
        text += QStringLiteral("  %1 %2").arg(
            kTable[i].name, value ? QStringLiteral("%1 (%2%3)")
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
    for (std::size_t i = 0; i < kQuantities; ++i)
        for (const Answers answers : columns()) {
            text += QString(kTable[i].name).leftJustified(14);
            if (answers == Answers::Plain)
                text += QStringLiteral(" plain answers:");
            const auto found = statistics(i, answers);
            text +=
                found ? QStringLiteral(" bias %1, spread %2 %3 over %4 runs\n")
                            .arg(number(found->bias, kTable[i].decimals),
                                 number(found->spread, kTable[i].decimals), QString::fromUtf8(kTable[i].unit))
                            .arg(found->count)
                      : QStringLiteral(" none\n");
        }
    return text;
}

QString RepeatabilityTable::csv() const
{
    QStringList names{"seed", "verdict"};
    for (const Quantity& quantity : kTable)
        for (const char* part : {"_found", "_true", "_error"})
            names.append(QString(quantity.column) + part);
    QString text = names.join(',') + ",answers\n";
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
        text += fields.join(',') + ',' + textOf(run.answers) + '\n';
    }
    return text;
}

QJsonObject RepeatabilityTable::toJson() const
{
    QJsonArray quantities;
    for (std::size_t i = 0; i < kQuantities; ++i) {
        QJsonArray columnsOfQuantity;
        for (const Answers answers : columns()) {
            QJsonObject column{{"answers", textOf(answers)}, {"count", 0}};
            if (const auto found = statistics(i, answers))
                column = {{"answers", textOf(answers)},
                          {"count", static_cast<int>(found->count)},
                          {"bias", found->bias},
                          {"spread", found->spread},
                          {"allowed", found->allowed}};
            columnsOfQuantity.append(column);
        }
        quantities.append(QJsonObject{{"name", kTable[i].name},
                                      {"unit", QString::fromUtf8(kTable[i].unit)},
                                      {"decimals", kTable[i].decimals},
                                      {"columns", columnsOfQuantity}});
    }
    QJsonArray runs;
    for (const Run& run : m_runs) {
        QJsonArray values;
        for (const auto& value : run.values)
            values.append(value ? QJsonObject{{"found", value->found},
                                              {"truth", value->truth},
                                              {"error", value->error()},
                                              {"tolerance", value->tolerance},
                                              {"verdict", value->holds() ? "pass" : "fail"}}
                                : QJsonValue());
        runs.append(QJsonObject{{"seed", static_cast<qint64>(run.seed)},
                                {"answers", textOf(run.answers)},
                                {"verdict", run.holds ? "pass" : "fail"},
                                {"values", values}});
    }
    return {{"kind", "repetition"}, {"quantities", quantities}, {"runs", runs}};
}
