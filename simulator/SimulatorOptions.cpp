#include "simulator/SimulatorOptions.h"

#include <functional>

#include <QCommandLineParser>

namespace {

constexpr int kNameColumn = 40;

const QString kSignalHelp =
    QStringLiteral("\nSignals during a run:\n"
                   "  USR1 plugs the disk of the first USB socket in, or pulls it; USR2 that of the second.\n"
                   "  The disks are those of --disk in order, and otherwise good ones.\n");

using Apply = std::function<void(SimulatorOptions&, const QString& value)>;

/// One option: how it is written, what the help says, and what it does.
struct OptionRow
{
    const char* name;
    const char* value; ///< name of its value; empty: none
    const char* text;
    Apply apply;
};

void noteError(SimulatorOptions& options, const std::string& error)
{
    if (options.error.isEmpty())
        options.error = QString::fromStdString(error);
}

void readSeed(SimulatorOptions& options, const QString& value)
{
    bool ok = false;
    const std::uint32_t seed = value.toUInt(&ok);
    if (ok)
        options.parameters.setSeed(seed);
    else
        noteError(options,
                  "The seed is a whole number from 0 to 4294967295, not \"" + value.toStdString() + "\".");
}

void readSlide(SimulatorOptions& options, const QString& value)
{
    if (const std::optional<SlideKind> kind = slideKindNamed(value.toStdString()))
        options.parameters.camera.slide.kind = *kind;
    else
        noteError(options, "The slide is cells, target or empty, not \"" + value.toStdString() + "\".");
}

void readDisk(SimulatorOptions& options, const QString& value)
{
    PlannedDisk disk;
    noteError(options, readPlannedDisk(value, disk).toStdString());
    if (options.disks.size() == UsbSockets::kCount)
        noteError(options, "The instrument has two USB sockets.");
    options.disks.append(disk);
}

const std::vector<OptionRow>& optionRows()
{
    static const std::vector<OptionRow> rows = {
        {"slide", "cells|target|empty", "what lies under the microscope (default cells)", readSlide},
        {"seed", "N", "chooses slide, focus and noise (default 1)", readSeed},
        {"parameter", "NAME=VALUE", "changes one of the parameters below; may be given often",
         [](SimulatorOptions& options, const QString& value) {
             noteError(options, setParameter(options.parameters, value.toStdString()));
         }},
        {"fault", "NAME", "switches a fault on; may be given often",
         [](SimulatorOptions& options, const QString& value) {
             noteError(options, addFault(options.faults, value.toStdString()));
         }},
        {"settings", "DIR", "starts with the settings files of this folder, which is only read",
         [](SimulatorOptions& options, const QString& value) { options.place.settingsFolder = value; }},
        {"root", "DIR", "keeps the instrument's files in this directory, instead of a temporary one",
         [](SimulatorOptions& options, const QString& value) { options.place.root = value; }},
        {"disk", "CONDITION[,out]",
         "a USB disk, good, unmountable, full or read-only; \"out\": not yet plugged in; once or twice",
         readDisk},
        {"instant", "", "stage motion and pauses take no time",
         [](SimulatorOptions& options, const QString&) { options.parameters.instant = true; }},
        {"visit", "", "drives the window through a short visit, and judges what it sees",
         [](SimulatorOptions& options, const QString&) { options.visit = true; }},
        {"steps", "NAME,...", "only these steps of the visit",
         [](SimulatorOptions& options, const QString& value) { options.steps = value.split(','); }},
        {"out", "DIR", "where the visit puts its pictures and the log (default out)",
         [](SimulatorOptions& options, const QString& value) { options.outDirectory = value; }},
        {"faults", "", "lists the faults and ends", nullptr},
        {"help", "", "shows this text and ends", nullptr},
    };
    return rows;
}

QString row(const QString& name, const QString& text)
{
    return QStringLiteral("  %1 %2\n").arg(name, -kNameColumn).arg(text);
}

QString faultList()
{
    QString list = QStringLiteral(
        "Faults, for --fault; N counts calls or commands from 1, without it each is struck:\n");
    for (const InstrumentFaultText& fault : instrumentFaultTexts())
        list += row(QString::fromStdString(fault.name + fault.arguments), QString::fromStdString(fault.text));
    return list;
}

QString parameterList()
{
    InstrumentParameters defaults;
    QString list = QStringLiteral("Parameters, for --parameter NAME=VALUE, with their defaults:\n");
    for (const InstrumentParameter& parameter : instrumentParameters()) {
        QString value = QString::fromStdString(parameterValue(parameter, defaults));
        if (*parameter.unit != '\0')
            value += QStringLiteral(" ") + parameter.unit;
        list += row(QStringLiteral("%1 = %2").arg(parameter.name, value), parameter.text);
    }
    return list;
}

QString helpText(const QStringList& stepNames)
{
    QString text = QStringLiteral("Usage: orla-verifier-simulator [options]\n\n"
                                  "The verifier's window on a simulated instrument: controller board, stage, "
                                  "LED, camera\nand files, none of which touches this machine's devices.\n\n"
                                  "Options:\n");
    for (const OptionRow& option : optionRows())
        text += row(QStringLiteral("--%1 %2").arg(option.name, option.value), option.text);
    return text + kSignalHelp + QStringLiteral("\nSteps of the visit, for --steps:\n  ") +
           stepNames.join(QStringLiteral(", ")) + QStringLiteral("\n\n") + parameterList() +
           QStringLiteral("\n") + faultList();
}

void checkSteps(SimulatorOptions& options, const QStringList& stepNames)
{
    for (const QString& step : qAsConst(options.steps))
        if (!stepNames.contains(step))
            noteError(options, "The visit has no step \"" + step.toStdString() + "\"; --help lists them.");
}

} // namespace

SimulatorOptions parseSimulatorOptions(const QStringList& arguments, const QStringList& stepNames)
{
    QCommandLineParser parser;
    for (const OptionRow& option : optionRows())
        parser.addOption({option.name, option.text, option.value});
    SimulatorOptions options;
    if (!parser.parse(arguments)) {
        noteError(options, parser.errorText().toStdString());
        return options;
    }
    if (!parser.positionalArguments().isEmpty())
        noteError(options, "Only options are understood, not \"" +
                               parser.positionalArguments().first().toStdString() + "\"; --help lists them.");
    if (parser.isSet("help"))
        options.textToPrint = helpText(stepNames);
    else if (parser.isSet("faults"))
        options.textToPrint = faultList();
    for (const OptionRow& option : optionRows()) {
        if (!option.apply || !parser.isSet(option.name))
            continue;
        if (*option.value == '\0')
            option.apply(options, {});
        const QStringList values = parser.values(option.name);
        for (const QString& value : values)
            option.apply(options, value);
    }
    checkSteps(options, stepNames);
    return options;
}
