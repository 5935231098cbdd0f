#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <QApplication>

#include "ORLA_II_Plus_Verifier.h"
#include "ProgramStart.h"
#include "platform/DebugLog.h"
#include "platform/TerminationSignal.h"

namespace {

constexpr const char* kProgram = "orla-verifier";

constexpr const char* kHelp =
    "Usage: orla-verifier [options]\n\n"
    "Verifies and calibrates an image-based cell-counting instrument, full screen on its\n"
    "panel. Without an option the window opens and the instrument's hardware is driven: LED,\n"
    "stage, camera. The window's button Exit ends the program in order, and so does SIGTERM.\n\n"
    "Options:\n"
    "  -h, --help, --help-all  shows this text and ends\n"
    "  -v, --version           shows name and version and ends\n\n"
    "The options of every Qt program are taken as well, such as -platform NAME.\n";

bool isOneOf(const char* argument, std::initializer_list<const char*> names)
{
    for (const char* name : names)
        if (std::strcmp(argument, name) == 0)
            return true;
    return false;
}

/// Answers what can be told without a screen and without the instrument; false: nothing was asked.
bool answered(int argumentCount, char* arguments[])
{
    for (int i = 1; i < argumentCount; ++i) {
        if (isOneOf(arguments[i], {"-h", "--help", "--help-all"})) {
            std::fputs(kHelp, stdout);
            return true;
        }
        if (isOneOf(arguments[i], {"-v", "--version"})) {
            std::puts(qPrintable(programAndVersion(kProgram)));
            return true;
        }
    }
    return false;
}

// While its event loop runs; a function that is called at the end takes no argument.
ORLA_II_Plus_Verifier* g_window = nullptr;

/// A screen that goes away (its server has crashed, the line to it is cut) has Qt end the process on
/// the spot, and no event loop hears of it.
void parkAtExit()
{
    if (g_window != nullptr)
        g_window->parkUnseen();
}

} // namespace

int main(int argc, char* argv[])
{
    if (answered(argc, argv))
        return 0;
    const std::unique_ptr<QApplication> application = startApplication(kProgram, argc, argv);
    if (!application)
        return kProgramFailed;
    // What Qt has left is nobody's.
    if (argc > 1) {
        std::fprintf(stderr, "%s does not understand \"%s\"; --help lists its options.\n", kProgram, argv[1]);
        return kCommandLineWrong;
    }
    logProgramVersion(kProgram);
    // Before the window: its start takes seconds, and a signal is not to leave the LED on.
    const TerminationSignal termination(TerminationSignal::Second::IsAbsorbed);
    ORLA_II_Plus_Verifier window;
    if (!termination.isWatching())
        logMessage(&window, {Q_FUNC_INFO, "[Error] signals are not watched: one that ends the program "
                                          "leaves LED and stage as they are"});
    QObject::connect(&termination, &TerminationSignal::received, &window,
                     &ORLA_II_Plus_Verifier::slot_terminate);
    window.show();
    std::atexit(parkAtExit);
    g_window = &window;
    const int status = application->exec();
    // Exit has done it; but Qt's platforms may end the loop as well.
    window.parkUnseen();
    g_window = nullptr;
    return status;
}
