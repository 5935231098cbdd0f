#include "ProgramStart.h"

#include <cstdio>
#include <cstdlib>

#include <QApplication>
#include <QLocale>
#include <QScreen>

#include "PanelSetup.h"
#include "Version.h"
#include "platform/DebugLog.h"
#include "platform/ProcessSetup.h"

namespace {

// A message handler takes no argument of its own.
const char* g_program = nullptr;
QtMessageHandler g_handlerBefore = nullptr;

void tellNoScreen(const QString& reason)
{
    std::fprintf(stderr,
                 "%s: no screen can be used; QT_QPA_PLATFORM, and for an X server DISPLAY, name one (%s)\n",
                 g_program, qPrintable(reason));
}

/// Ends the process in order where Qt would have it abort, with a core dump in the worst case.
void endWithoutScreen(QtMsgType type, const QMessageLogContext& context, const QString& message)
{
    if (type != QtFatalMsg)
        return g_handlerBefore(type, context, message);
    // The first sentence is the cause; what follows is advice for a desktop.
    const QString firstLine = message.section(QLatin1Char('\n'), 0, 0, QString::SectionSkipEmpty);
    tellNoScreen(firstLine.section(QStringLiteral(". "), 0, 0).simplified());
    std::_Exit(kProgramFailed);
}

/// Names the machine's zone to the C library, which else looks whether it is still the same before
/// each time that Qt converts: 450 times in a start. Whoever named another keeps it.
void setUpTimeZone()
{
    if (!qEnvironmentVariableIsSet("TZ"))
        qputenv("TZ", ":/etc/localtime");
}

} // namespace

QString programAndVersion(const char* program)
{
    return QStringLiteral("%1 %2").arg(program, kProgramVersion);
}

void logProgramVersion(const char* program)
{
    writeDebugStream({programAndVersion(program)});
}

std::unique_ptr<QApplication> startApplication(const char* program, int& argumentCount, char* arguments[])
{
    setUpProcess();
    setUpPanel();
    setUpTimeZone();
    // Some languages have digits of their own. Half of the fields would show them, and none take them.
    QLocale::setDefault(QLocale::c());

    g_program = program;
    g_handlerBefore = qInstallMessageHandler(endWithoutScreen);
    auto application = std::make_unique<QApplication>(argumentCount, arguments);
    qInstallMessageHandler(g_handlerBefore);
    // A frame buffer that is missing leaves an application without any screen.
    if (QGuiApplication::primaryScreen() == nullptr) {
        tellNoScreen(QGuiApplication::platformName());
        return nullptr;
    }
    return application;
}
