#include "simulator/program/SimulatorOptions.h"

#include <functional>

#include <QCommandLineParser>
#include <QFile>

#include "simulator/optics/SlidePicture.h"

#include "ProgramStart.h"

namespace {

constexpr int kNameColumn = 40;
constexpr int kMostRepetitions = 10000;

const QString kSignalHelp =
    QStringLiteral("\nSignals during a run:\n"
                   "  USR1 plugs the disk of the first USB socket in, or pulls it; USR2 that of the second.\n"
                   "  The disks are those of --disk in order, and otherwise good ones.\n");

/// Options that the record lists by their effect instead.
const QStringList kToldApart{"seed", "fault", "parameter"};

using Apply = std::function<void(SimulatorOptions&, const QString& value)>;

/// One option: how it is written, what the help says, and what it does.
struct OptionRow
{
    const char* name;
    const char* value; ///< name of its value; empty: none
    const char* text;
    Apply apply;
    bool ofInstrument = false; ///< describes the instrument, so that a repetition's runs get it too
    QStringList otherNames = {};
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
    options.seed = seed;
    if (ok)
        options.parameters.setSeed(seed);
    else
        noteError(options,
                  "The seed is a whole number from 0 to 4294967295, not \"" + value.toStdString() + "\".");
}

void readRepeat(SimulatorOptions& options, const QString& value)
{
    bool ok = false;
    options.repeat = value.toInt(&ok);
    if (!ok || options.repeat < 1 || options.repeat > kMostRepetitions)
        noteError(options, "The repetitions are a number from 1 to " + std::to_string(kMostRepetitions) +
                               ", not \"" + value.toStdString() + "\".");
}

void readFault(SimulatorOptions& options, const QString& value)
{
    options.faultNames.append(value);
    noteError(options, addFault(options.faults, value.toStdString()));
}

void readSlidePicture(SimulatorOptions& options, const QString& value)
{
    SlideParameters& slide = options.parameters.camera.slide;
    std::string error;
    slide.picture = SlidePicture::read(QFile::encodeName(value).toStdString(), error);
    if (slide.picture)
        slide.kind = SlideKind::Picture;
    else
        noteError(options, "The slide is cells, target, empty or a picture's file. " + error);
}

void readSlide(SimulatorOptions& options, const QString& value)
{
    if (const std::optional<SlideKind> kind = slideKindNamed(value.toStdString()))
        options.parameters.camera.slide.kind = *kind;
    else
        readSlidePicture(options, value);
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
        {"slide", "cells|target|empty|FILE",
         "what lies under the microscope (default cells); a file is a picture, PNG, TIFF or JPEG", readSlide,
         true},
        {"seed", "N", "chooses slide, focus and noise (default 1)", readSeed},
        {"parameter", "NAME=VALUE", "changes one of the parameters below; may be given often",
         [](SimulatorOptions& options, const QString& value) {
             noteError(options, setParameter(options.parameters, value.toStdString()));
         },
         true},
        {"fault", "NAME", "switches a fault on; may be given often", readFault, true},
        {"settings", "DIR", "starts with the settings files of this folder, which is only read",
         [](SimulatorOptions& options, const QString& value) { options.place.settingsFolder = value; }, true},
        {"root", "DIR", "keeps the instrument's files in this directory, instead of a temporary one",
         [](SimulatorOptions& options, const QString& value) { options.place.root = value; }},
        {"disk", "CONDITION[,out]",
         "a USB disk, good, unmountable, full, read-only or pulled; \"out\": not yet plugged in; once or "
         "twice",
         readDisk, true},
        {"instant", "", "stage motion and pauses take no time",
         [](SimulatorOptions& options, const QString&) { options.parameters.instant = true; }, true},
        {"session", "", "drives the window through a technician's whole day, and writes a report",
         [](SimulatorOptions& options, const QString&) { options.session = true; }},
        {"repeat", "N", "makes the session's calibration with N seeds, on a stage with play and ringing",
         readRepeat},
        {"plain-answers", "",
         "the session does not hold the board's answers back until fresh frames are in; a repetition makes "
         "each seed both ways",
         [](SimulatorOptions& options, const QString&) { options.plainAnswers = true; }},
        {"calibration", "", "of the session only the autofocus and the calibration",
         [](SimulatorOptions& options, const QString&) { options.session = options.calibration = true; }},
        {"steps", "NAME,...", "a session of these steps only",
         [](SimulatorOptions& options, const QString& value) {
             options.session = true;
             options.steps = value.split(',');
         }},
        {"out", "DIR", "where pictures, log and report go (default out)",
         [](SimulatorOptions& options, const QString& value) { options.outDirectory = value; }},
        {"faults", "", "lists the faults and ends", nullptr},
        {"check-screen", "", "tells by the exit status whether a screen can be used, and ends",
         [](SimulatorOptions& options, const QString&) { options.screenCheck = true; }},
        {"help", "", "shows this text and ends; -h, --help-all", nullptr, false, {"h", "help-all"}},
        {"version", "", "shows name and version and ends; -v", nullptr, false, {"v"}},
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
    for (const InstrumentParameter& parameter : instrumentParameters(defaults)) {
        QString value = QString::fromStdString(parameterValue(parameter));
        if (*parameter.unit != '\0')
            value += QStringLiteral(" ") + parameter.unit;
        list += row(QStringLiteral("%1 = %2").arg(parameter.name, value), parameter.text);
    }
    return list;
}

QString stepList(const QStringList& names)
{
    constexpr int kNamesPerLine = 10;
    QString text = QStringLiteral("\nSteps of the session, for --steps:\n");
    for (int first = 0; first < names.size(); first += kNamesPerLine)
        text += "  " + names.mid(first, kNamesPerLine).join(QStringLiteral(", ")) + "\n";
    return text;
}

constexpr const char* kReportText = R"(
Each run has a folder of its own below the directory of --out, named by date and time;
"latest" there leads to the newest. A session writes report.html, the report for people
with all pictures in it, and session.json, the same for machines; a repetition writes
report.html, repeatability.csv and repeatability.json. The names of the newest lead there
from the directory of --out as well. With a fault, the report tells what the operator saw
and whether a settings file suffered. The exit status is 0 only when every step was as it
should be; a run that Ctrl-C ended says so, and has 130.
)";

QString helpText(const QStringList& stepNames)
{
    QString text = QStringLiteral("Usage: orla-verifier-simulator [options]\n\n"
                                  "The verifier's window on a simulated instrument: controller board, stage, "
                                  "LED, camera\nand files, none of which touches this machine's devices.\n\n"
                                  "Options:\n");
    for (const OptionRow& option : optionRows())
        text += row(QStringLiteral("--%1 %2").arg(option.name, option.value), option.text);
    return text + kReportText + kSignalHelp + stepList(stepNames) + '\n' + parameterList() + '\n' +
           faultList();
}

void checkSteps(SimulatorOptions& options, const QStringList& stepNames)
{
    for (const QString& step : qAsConst(options.steps))
        if (!stepNames.contains(step))
            noteError(options, "There is no step \"" + step.toStdString() + "\"; --help lists them.");
}

} // namespace

SimulatorOptions parseSimulatorOptions(const QStringList& arguments, const QStringList& stepNames)
{
    QCommandLineParser parser;
    for (const OptionRow& option : optionRows())
        parser.addOption({QStringList(option.name) + option.otherNames, option.text, option.value});
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
    else if (parser.isSet("version"))
        options.textToPrint = programAndVersion(kSimulatorProgram) + '\n';
    else if (parser.isSet("faults"))
        options.textToPrint = faultList();
    for (const OptionRow& option : optionRows()) {
        if (!option.apply || !parser.isSet(option.name))
            continue;
        const QString written = QStringLiteral("--") + option.name;
        if (*option.value == '\0') {
            option.apply(options, {});
            options.given.append(written);
            if (option.ofInstrument)
                options.ofInstrument.append(written);
        }
        const QStringList values = parser.values(option.name);
        for (const QString& value : values) {
            option.apply(options, value);
            if (!kToldApart.contains(option.name))
                options.given.append(written + QLatin1Char(' ') + value);
            if (option.ofInstrument)
                options.ofInstrument.append({written, value});
        }
    }
    checkSteps(options, stepNames);
    return options;
}
