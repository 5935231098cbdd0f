#include "simulator/session/SessionSteps.h"

#include "simulator/instrument/SimulatedInstrument.h"

namespace {

QString showConsole(SessionContext& session, const QString& number, const QString& name,
                    const QString& textArea)
{
    session.user.type("SPIN_DEBUG", number);
    session.user.setChecked("BUTTON_DEBUG", true);
    QString text = session.user.isShown(textArea) ? session.user.text(textArea) : QString();
    session.user.takePicture(name + QStringLiteral("-console"));
    session.user.setChecked("BUTTON_DEBUG", false);
    if (session.user.isShown(textArea))
        session.user.noteProblem(QStringLiteral("the console does not go away"));
    return text;
}

bool wasAsked(SessionContext& session)
{
    return session.boxWas("ORLA-III", "Are you sure quit ?") &&
           session.user.boxSinceExpected()->buttons.size() == 2;
}

QStringList newlyDisabled(SessionContext& session)
{
    QStringList names = session.user.disabledControls();
    for (const QString& name : qAsConst(session.findings.disabledAtStart))
        names.removeAll(name);
    return names;
}

} // namespace

StepResult steps::consoles(SessionContext& session)
{
    const QString messages = showConsole(session, "1", "message", "PLAIN_DEBUG_MESSAGE");
    const QString traffic = showConsole(session, "2", "controller", "PLAIN_DEBUG_CONTROLLER");
    session.user.type("SPIN_DEBUG", "1");
    QStringList missing;
    for (const char* expected : {"startCamera", "slot_connected_controller()"})
        if (!messages.contains(expected))
            missing.append(expected);
    for (const char* expected : {"$,DEVICE,READY,,\r\n", "$,STM1,ORIGIN,,\r\n", "$OK,STM1,ORIGIN,"})
        if (!traffic.contains(QString(expected).remove('\r')))
            missing.append(QString(expected).trimmed());
    return {missing.isEmpty(),
            QStringLiteral("%1 lines of messages, %2 of traffic%3")
                .arg(messages.count('\n'))
                .arg(traffic.count('\n'))
                .arg(missing.isEmpty() ? QString() : QStringLiteral(", without ") + missing.join(" and ")),
            QStringLiteral("%1 lines received").arg(session.instrument.boardLines().size())};
}

StepResult steps::stay(SessionContext& session)
{
    const int linesBefore = session.instrument.boardLines().size();
    const BoardLight before = session.instrument.light();
    session.user.expectBox("No");
    session.user.click("BUTTON_EXIT");
    const bool asked = wasAsked(session);
    const bool running = session.user.waitForFrames(kFramesUnderWay, session.patience * kFrames_ms) &&
                         session.user.windowIsEnabled();
    session.findings.lockedControls = newlyDisabled(session);
    const int newLines = session.instrument.boardLines().size() - linesBefore;
    const BoardLight after = session.instrument.light();
    return {asked && running && newLines == 0 && after.ledOn == before.ledOn,
            QStringLiteral("%1, live view %2")
                .arg(asked ? "asked" : "not asked as it should", running ? "goes on" : "stands still"),
            QStringLiteral("%1 lines received, %2").arg(newLines).arg(lightText(after))};
}

StepResult steps::exit(SessionContext& session)
{
    session.findings.linesBeforeExit = session.instrument.boardLines().size();
    session.user.expectBox("Yes");
    session.user.click("BUTTON_EXIT");
    const bool asked = wasAsked(session);
    return {asked, asked ? "asked" : "not asked as it should", {}};
}

StepResult steps::ended(SessionContext& session)
{
    const auto descriptors = session.instrument.camera().openDescriptors();
    const auto mappings = session.instrument.camera().openMappings();
    return {!session.findings.forcedEnd && descriptors == 0 && mappings == 0,
            session.findings.forcedEnd ? "the program had to be stopped" : "the program left by itself",
            QStringLiteral("%1 devices open, %2 buffers mapped").arg(descriptors).arg(mappings)};
}

StepResult steps::parked(SessionContext& session)
{
    const QStringList lines = session.instrument.boardLines().mid(session.findings.linesBeforeExit);
    const BoardLight light = session.instrument.light();
    const int position = session.instrument.stagePosition_steps();
    const bool parked =
        lines == QStringList{"$,LED4,OFF,,", "$,STM1,ORIGIN,,"} && !light.ledOn && position == 0;
    return {session.instrument.zigMode() ? lines.isEmpty() : parked,
            session.instrument.zigMode() ? "Zig mode, nothing to park"
            : parked                     ? "instrument parked"
                                         : "instrument not parked",
            QStringLiteral("received %1, %2, stage at %3")
                .arg(lines.isEmpty() ? QStringLiteral("nothing") : lines.join(" "), lightText(light))
                .arg(position)};
}
