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
QJsonObject toJson(const ChangedParameter& parameter);

QJsonArray toJson(const QStringList& texts)
{
    return QJsonArray::fromStringList(texts);
}

QString passOrFail(bool holds)
{
    return holds ? QStringLiteral("pass") : QStringLiteral("fail");
}

QJsonObject toJson(const Measurement& measurement)
{
    return {{"name", measurement.name},
            {"unit", measurement.unit},
            {"found", measurement.found},
            {"truth", measurement.truth},
            {"error", measurement.error()},
            {"tolerance", measurement.tolerance},
            {"lowest", measurement.truth - measurement.tolerance},
            {"highest", measurement.truth + measurement.tolerance},
            {"holds", measurement.holds()},
            {"verdict", passOrFail(measurement.holds())}};
}

QJsonObject toJson(const SeenBox& box)
{
    return boxToJson(box);
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
    return {{"name", step.name},
            {"text", step.text},
            {"seconds", step.elapsed_s},
            {"holds", step.holds()},
            {"verdict", step.interrupted ? QStringLiteral("interrupted") : passOrFail(step.holds())},
            {"seen", step.result.seen},
            {"truth", step.result.truth},
            {"problems", step.problems},
            {"figures", listOf(step.result.measurements)},
            {"boxes", listOf(step.boxes)},
            {"pictures", toJson(step.pictures)}};
}

QJsonObject toJson(const FileDifference& file)
{
    constexpr char kMarks[] = {' ', '-', '+'};
    QStringList lines;
    for (const DifferenceLine& line : file.lines)
        lines.append(QLatin1Char(kMarks[line.kind]) + line.text);
    return {{"file", file.fixedPath}, {"changed", !file.isSame()}, {"difference", toJson(lines)}};
}

QJsonObject toJson(const ChangedParameter& parameter)
{
    return {{"name", parameter.name},
            {"unit", parameter.unit},
            {"value", parameter.value},
            {"default", parameter.byDefault}};
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

QJsonObject RunFacts::toJson() const
{
    return {{"simulated", true},
            {"version", version},
            {"host", host},
            {"begun", begun.toOffsetFromUtc(begun.offsetFromUtc()).toString(Qt::ISODate)},
            {"timeZone", begun.timeZoneAbbreviation()},
            {"seed", static_cast<qint64>(seed)},
            {"faults", ::toJson(faults)},
            {"options", ::toJson(options)},
            {"parameters", listOf(parameters)},
            {"answersHeldBack", answersHeldBack},
            // To be filled in by whoever files it.
            {"signedBy", QJsonObject{{"name", ""}, {"date", ""}, {"signature", ""}}}};
}

std::vector<ChangedParameter> changedParameters(const InstrumentParameters& parameters)
{
    InstrumentParameters given = parameters;
    InstrumentParameters plain;
    const std::vector<InstrumentParameter> all = instrumentParameters(given);
    const std::vector<InstrumentParameter> defaults = instrumentParameters(plain);
    std::vector<ChangedParameter> changed;
    for (std::size_t i = 0; i < all.size(); ++i) {
        const std::string value = parameterValue(all[i]);
        const std::string byDefault = parameterValue(defaults[i]);
        if (value != byDefault)
            changed.push_back(
                {all[i].name, all[i].unit, QString::fromStdString(value), QString::fromStdString(byDefault)});
    }
    return changed;
}

std::size_t SessionRecord::stepsThatHold() const
{
    return static_cast<std::size_t>(std::count_if(
        steps.begin(), steps.end(), [](const StepReport& step) { return step.holds(); }));
}

bool SessionRecord::holds() const
{
    return stopped.isEmpty() && harm.isEmpty() && !plannedSteps.isEmpty() &&
           stepsThatHold() == static_cast<std::size_t>(plannedSteps.size());
}

QStringList SessionRecord::stepsNotMade() const
{
    QStringList names = plannedSteps;
    for (const StepReport& step : steps)
        names.removeAll(step.name);
    return names;
}

QString SessionRecord::logVerdict() const
{
    if (!errorLines)
        return QStringLiteral("The log cannot be read.");
    if (!errorLines->isEmpty())
        return QStringLiteral("Lines that tell an error: %1.").arg(errorLines->size());
    return findings.failedSaves.isEmpty() ? QStringLiteral("No line tells an error.")
                                          : QStringLiteral("A save failed, and no line tells it.");
}

QString SessionRecord::settingsVerdict() const
{
    if (!harm.isEmpty())
        return QStringLiteral("Settings files suffered.");
    return findings.failedSaves.isEmpty()
               ? QStringLiteral("Every file is as it was, or was changed as it should be.")
               : QStringLiteral("No settings file was lost or cut off, but not all was saved.");
}

QJsonObject SessionRecord::toJson() const
{
    QJsonObject json = facts.toJson();
    const QJsonObject found{{"kind", "session"},
                            {"seconds", elapsed_s},
                            {"serialBefore", serialBefore},
                            {"serialAfter", serialAfter},
                            {"holds", holds()},
                            {"stopped", stopped},
                            {"plannedSteps", plannedSteps.size()},
                            {"stepsThatHold", static_cast<int>(stepsThatHold())},
                            {"stepsNotMade", ::toJson(stepsNotMade())},
                            {"steps", listOf(steps)},
                            {"focusCurve", focusCurve(findings)},
                            {"lockedControls", ::toJson(findings.lockedControls)},
                            {"failedSaves", ::toJson(findings.failedSaves)},
                            {"errorLines", ::toJson(errorLines.value_or(QStringList()))},
                            {"logVerdict", logVerdict()},
                            {"settingsHarm", ::toJson(harm)},
                            {"settingsVerdict", settingsVerdict()},
                            {"settings", listOf(settings)}};
    for (auto entry = found.begin(); entry != found.end(); ++entry)
        json[entry.key()] = entry.value();
    return json;
}

std::optional<QStringList> errorLinesOf(const QString& logFile)
{
    constexpr int kMostLines = 100;
    QFile file(logFile);
    if (!file.open(QIODevice::ReadOnly))
        return std::nullopt;
    QStringList errors;
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
