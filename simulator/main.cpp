#include <cstdio>
#include <memory>

#include <QApplication>
#include <QDir>
#include <QFile>
#include <QTextStream>
#include <QTimer>

#include "ORLA_II_Plus_Verifier.h"
#include "simulator/QuitOnSignal.h"
#include "simulator/SimulatedInstrument.h"
#include "simulator/SimulatorOptions.h"
#include "simulator/session/Operator.h"
#include "simulator/session/SessionRunner.h"
#include "simulator/session/ShortVisit.h"

namespace {

constexpr int kUsageError = 2;
constexpr int kFailure = 1;
/// How long the program may take to leave its event loop after the last step in it.
constexpr int kEndPatience_ms = 3000;

QFile& logFile()
{
    static QFile file;
    return file;
}

void writeToLogFile(QtMsgType, const QMessageLogContext&, const QString& message)
{
    // The capture and grab threads log as well; one write is one line.
    logFile().write((message + QLatin1Char('\n')).toLocal8Bit());
}

/// Makes the directory ready: no pictures of an earlier visit, the debug stream in a file.
bool prepareOutDirectory(const QString& path)
{
    QDir directory(path);
    if (!directory.mkpath(QStringLiteral(".")))
        return false;
    const QStringList old = directory.entryList({QStringLiteral("[0-9][0-9]-*.png")}, QDir::Files);
    for (const QString& name : old)
        directory.remove(name);
    logFile().setFileName(directory.filePath(QStringLiteral("verifier.log")));
    if (!logFile().open(QIODevice::WriteOnly | QIODevice::Unbuffered))
        return false;
    qInstallMessageHandler(writeToLogFile);
    return true;
}

int runWindow(const QuitOnSignal& signalled)
{
    ORLA_II_Plus_Verifier window;
    window.show();
    const int status = QApplication::exec();
    return signalled.received() ? signalled.exitStatus() : status;
}

int runVisit(const SimulatorOptions& options, SimulatedInstrument& instrument, const QuitOnSignal& signalled)
{
    if (!prepareOutDirectory(options.outDirectory)) {
        std::fprintf(stderr, "The directory %s cannot be written.\n", qPrintable(options.outDirectory));
        return kFailure;
    }
    QTextStream output(stdout);
    auto window = std::make_unique<ORLA_II_Plus_Verifier>();
    window->show();
    Operator hand(*window, options.outDirectory);
    ShortVisit visit(hand, instrument);
    SessionRunner runner(hand, visit.steps(options.steps), output);
    QObject::connect(&signalled, &QuitOnSignal::quitting, &hand, &Operator::giveUp);
    QTimer::singleShot(0, &hand, [&] {
        runner.runInEventLoop();
        runner.expectEnd();
        QTimer::singleShot(kEndPatience_ms, &hand, [&] {
            visit.noteForcedEnd();
            QCoreApplication::quit();
        });
    });
    QApplication::exec();
    window.reset();
    runner.runAfterEventLoop();
    qInstallMessageHandler(nullptr);
    return signalled.received() ? signalled.exitStatus() : runner.exitStatus();
}

} // namespace

int main(int argc, char* argv[])
{
    QStringList arguments;
    for (int i = 0; i < argc; ++i)
        arguments.append(QString::fromLocal8Bit(argv[i]));
    const SimulatorOptions options = parseSimulatorOptions(arguments, ShortVisit::stepNames());
    if (!options.error.isEmpty()) {
        std::fprintf(stderr, "%s\n", qPrintable(options.error));
        return kUsageError;
    }
    if (!options.textToPrint.isEmpty()) {
        std::fputs(qPrintable(options.textToPrint), stdout);
        return 0;
    }

    UsbSockets::holdSignals();
    SimulatedInstrument instrument(options.parameters, options.place, options.faults);
    if (!instrument.error().isEmpty()) {
        std::fprintf(stderr, "%s\n", qPrintable(instrument.error()));
        return kFailure;
    }
    UsbSockets sockets(instrument.usb(), options.disks);
    if (const QString error = sockets.plugAtStart(); !error.isEmpty()) {
        std::fprintf(stderr, "%s\n", qPrintable(error));
        return kFailure;
    }
    // The options are all this program's own; none is left for Qt.
    int argumentCount = 1;
    QApplication application(argumentCount, argv);
    const QuitOnSignal signalled;
    sockets.listen();
    return options.visit ? runVisit(options, instrument, signalled) : runWindow(signalled);
}
