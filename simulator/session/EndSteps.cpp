#include "simulator/session/EndSteps.h"

#include "simulator/instrument/SimulatedInstrument.h"

QString EndSteps::showConsole(const QString& number, const QString& name, const QString& textArea)
{
    m_operator.type("SPIN_DEBUG", number);
    m_operator.setChecked("BUTTON_DEBUG", true);
    QString text = m_operator.isShown(textArea) ? m_operator.text(textArea) : QString();
    m_operator.takePicture(name + QStringLiteral("-console"));
    m_operator.setChecked("BUTTON_DEBUG", false);
    if (m_operator.isShown(textArea))
        m_operator.noteProblem(QStringLiteral("the console does not go away"));
    return text;
}

StepResult EndSteps::consoles()
{
    const QString messages = showConsole("1", "message", "PLAIN_DEBUG_MESSAGE");
    const QString traffic = showConsole("2", "controller", "PLAIN_DEBUG_CONTROLLER");
    m_operator.type("SPIN_DEBUG", "1");
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
            QStringLiteral("%1 lines received").arg(m_instrument.boardLines().size())};
}

bool EndSteps::wasAsked() const
{
    const SeenBox* box = m_operator.boxSinceExpected();
    return box != nullptr && box->title == "ORLA-III" && box->text == "Are you sure quit ?" &&
           box->buttons.size() == 2;
}

StepResult EndSteps::stay()
{
    const int linesBefore = m_instrument.boardLines().size();
    const BoardLight before = m_instrument.light();
    m_operator.expectBox("No");
    m_operator.click("BUTTON_EXIT");
    const bool asked = wasAsked();
    const bool running =
        m_operator.waitForFrames(kFramesUnderWay, kFrames_ms) && m_operator.windowIsEnabled();
    m_context.findings.lockedControls = newlyDisabled();
    const int newLines = m_instrument.boardLines().size() - linesBefore;
    const BoardLight after = m_instrument.light();
    return {asked && running && newLines == 0 && after.ledOn == before.ledOn,
            QStringLiteral("%1, live view %2")
                .arg(asked ? "asked" : "not asked as it should", running ? "goes on" : "stands still"),
            QStringLiteral("%1 lines received, %2").arg(newLines).arg(lightText(after))};
}

StepResult EndSteps::exit()
{
    m_context.findings.linesBeforeExit = m_instrument.boardLines().size();
    m_operator.expectBox("Yes");
    m_operator.click("BUTTON_EXIT");
    const bool asked = wasAsked();
    return {asked, asked ? "asked" : "not asked as it should", {}};
}

StepResult EndSteps::ended()
{
    const auto descriptors = m_instrument.camera().openDescriptors();
    const auto mappings = m_instrument.camera().openMappings();
    return {!m_context.findings.forcedEnd && descriptors == 0 && mappings == 0,
            m_context.findings.forcedEnd ? "the program had to be stopped" : "the program left by itself",
            QStringLiteral("%1 devices open, %2 buffers mapped").arg(descriptors).arg(mappings)};
}

StepResult EndSteps::parked()
{
    const QStringList lines = m_instrument.boardLines().mid(m_context.findings.linesBeforeExit);
    const BoardLight light = m_instrument.light();
    const int position = m_instrument.stagePosition_steps();
    const bool parked =
        lines == QStringList{"$,LED4,OFF,,", "$,STM1,ORIGIN,,"} && !light.ledOn && position == 0;
    return {m_instrument.zigMode() ? lines.isEmpty() : parked,
            m_instrument.zigMode() ? "Zig mode, nothing to park"
            : parked               ? "instrument parked"
                                   : "instrument not parked",
            QStringLiteral("received %1, %2, stage at %3")
                .arg(lines.isEmpty() ? QStringLiteral("nothing") : lines.join(" "), lightText(light))
                .arg(position)};
}

QStringList EndSteps::newlyDisabled() const
{
    QStringList names = m_operator.disabledControls();
    for (const QString& name : qAsConst(m_context.findings.disabledAtStart))
        names.removeAll(name);
    return names;
}
