#include "simulator/session/SessionRecord.h"

#include <algorithm>

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QSaveFile>

namespace {

QJsonObject toJson(const StepReport& step);
QJsonObject toJson(const FileDifference& file);

QJsonArray toJson(const QStringList& texts)
{
    return QJsonArray::fromStringList(texts);
}

QJsonObject toJson(const Figure& figure)
{
    return {{"name", figure.name},    {"unit", figure.unit},     {"found", figure.found},
            {"truth", figure.truth},  {"error", figure.error()}, {"tolerance", figure.tolerance},
            {"holds", figure.holds()}};
}

QJsonObject toJson(const SeenBox& box)
{
    return {{"title", box.title},
            {"text", box.text},
            {"buttons", toJson(box.buttons)},
            {"answer", box.answer},
            {"expected", box.expected}};
}

template <class Container>
QJsonArray listOf(const Container& items)
{
    QJsonArray list;
    for (const auto& item : items)
        list.append(toJson(item));
    return list;
}

QJsonObject toJson(const StepReport& step)
{
    return {{"name", step.name},           {"text", step.text},
            {"seconds", step.elapsed_s},   {"holds", step.holds()},
            {"seen", step.result.seen},    {"truth", step.result.truth},
            {"trouble", step.trouble},     {"figures", listOf(step.result.figures)},
            {"boxes", listOf(step.boxes)}, {"pictures", toJson(step.pictures)}};
}

QJsonObject toJson(const FileDifference& file)
{
    QStringList lines;
    for (const DifferenceLine& line : file.lines)
        if (line.kind != DifferenceLine::Same)
            lines.append((line.kind == DifferenceLine::Added ? "+" : "-") + line.text);
    return {{"file", file.fixedPath}, {"changed", !file.isSame()}, {"difference", toJson(lines)}};
}

QJsonObject focusCurve(const SessionFindings& findings)
{
    QJsonArray samples;
    for (const QPointF& sample : findings.focusCurve)
        samples.append(QJsonArray{sample.x(), sample.y()});
    return {
        {"samples", samples}, {"best", findings.bestFocusSample}, {"trueFocus", findings.trueFocus_steps}};
}

} // namespace

std::size_t SessionRecord::stepsThatHold() const
{
    return static_cast<std::size_t>(
        std::count_if(steps.begin(), steps.end(), [](const StepReport& step) { return step.holds(); }));
}

bool SessionRecord::holds() const
{
    return stopped.isEmpty() && harm.isEmpty() && plannedSteps > 0 && stepsThatHold() == plannedSteps;
}

QJsonObject SessionRecord::toJson() const
{
    return {{"begun", begun},
            {"seconds", elapsed_s},
            {"seed", static_cast<qint64>(seed)},
            {"faults", ::toJson(faults)},
            {"holds", holds()},
            {"stopped", stopped},
            {"plannedSteps", static_cast<int>(plannedSteps)},
            {"stepsThatHold", static_cast<int>(stepsThatHold())},
            {"steps", listOf(steps)},
            {"focusCurve", focusCurve(findings)},
            {"lockedControls", ::toJson(findings.lockedControls)},
            {"errorLines", ::toJson(errorLines)},
            {"settingsHarm", ::toJson(harm)},
            {"settings", listOf(settings)}};
}

QStringList errorLinesOf(const QString& logFile)
{
    constexpr int kMostLines = 100;
    QStringList errors;
    QFile file(logFile);
    if (!file.open(QIODevice::ReadOnly))
        return errors;
    while (!file.atEnd() && errors.size() < kMostLines) {
        const QString line = QString::fromLocal8Bit(file.readLine()).trimmed();
        if (line.contains("[Error]") && !errors.contains(line))
            errors.append(line);
    }
    return errors;
}

bool writeSessionJson(const SessionRecord& record, const QString& directory)
{
    QSaveFile file(QDir(directory).filePath("session.json"));
    const QByteArray text = QJsonDocument(record.toJson()).toJson();
    return file.open(QIODevice::WriteOnly) && file.write(text) == text.size() && file.commit();
}
