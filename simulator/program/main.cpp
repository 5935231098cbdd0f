#include <cstdio>

#include <QApplication>

#include "ORLA_II_Plus_Verifier.h"
#include "ProgramStart.h"
#include "platform/TerminationSignal.h"
#include "simulator/instrument/SimulatedInstrument.h"
#include "simulator/program/DrivenRun.h"
#include "simulator/program/Repetition.h"
#include "simulator/program/SimulatorOptions.h"
#include "simulator/session/Session.h"

namespace {

int runWindow(const TerminationSignal& signalled)
{
    logProgramVersion(kSimulatorProgram);
    ORLA_II_Plus_Verifier window;
    QObject::connect(&signalled, &TerminationSignal::received, &window,
                     &ORLA_II_Plus_Verifier::slot_terminate);
    window.show();
    const int status = QApplication::exec();
    return signalled.isReceived() ? signalled.exitStatus() : status;
}

} // namespace

int main(int argc, char* argv[])
{
    QStringList arguments;
    for (int i = 0; i < argc; ++i)
        arguments.append(QString::fromLocal8Bit(argv[i]));
    const SimulatorOptions options = parseSimulatorOptions(arguments, sessionStepNames(SessionPlan::Day));
    if (!options.error.isEmpty()) {
        std::fprintf(stderr, "%s\n", qPrintable(options.error));
        return kCommandLineWrong;
    }
    if (!options.textToPrint.isEmpty()) {
        std::fputs(qPrintable(options.textToPrint), stdout);
        return 0;
    }
    // The options are all this program's own; none is left for Qt.
    int argumentCount = 1;
    if (options.repeat > 0) {
        const QCoreApplication application(argumentCount, argv);
        return runRepetition(options);
    }

    UsbSockets::holdSignals();
    // A desktop's own file dialog may belong to another process, which the operator cannot reach.
    QCoreApplication::setAttribute(Qt::AA_DontUseNativeDialogs, options.session);
    // Without a screen the program ends here, before it makes files that would stay behind.
    const std::unique_ptr<QApplication> application =
        startApplication(kSimulatorProgram, argumentCount, argv);
    if (!application)
        return kProgramFailed;
    if (options.screenCheck)
        return 0;
    SimulatedInstrument instrument(options.parameters, options.place, options.faults);
    if (!instrument.error().isEmpty()) {
        std::fprintf(stderr, "%s\n", qPrintable(instrument.error()));
        return kProgramFailed;
    }
    UsbSockets sockets(instrument.usb(), options.disks);
    if (const QString error = sockets.plugAtStart(); !error.isEmpty()) {
        std::fprintf(stderr, "%s\n", qPrintable(error));
        return kProgramFailed;
    }
    const TerminationSignal signalled(TerminationSignal::Second::EndsTheProcess);
    sockets.listen();
    return options.session ? runDriven(options, instrument, signalled) : runWindow(signalled);
}
