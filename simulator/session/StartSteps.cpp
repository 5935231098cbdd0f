#include "simulator/session/StartSteps.h"

#include "simulator/instrument/SimulatedInstrument.h"

namespace {

// Until a window that has just come up is painted, with or without a camera.
constexpr int kFirstPaint_ms = 500;
// What the label shows when the settings file has no version.
const QString kVersionWithoutSettings = QStringLiteral("0.0.1");

} // namespace

StepResult StartSteps::window()
{
    m_operator.waitUntil([this] { return m_operator.windowIsEnabled(); }, kAnswer_ms,
                         QStringLiteral("the window does not take presses"));
    m_operator.wait(kFirstPaint_ms);
    const QString title = m_operator.windowTitle();
    const QString version = m_operator.text("LABEL_VERSION");
    const QString saved = m_instrument.setting("Software/Version QC", kVersionWithoutSettings);
    m_context.findings.disabledAtStart = m_operator.disabledControls();
    m_operator.takePicture("window");
    return {title == "ORLA-II Plus Verifier" && version == saved,
            QStringLiteral("\"%1\", version %2").arg(title, version),
            QStringLiteral("settings of version ") + saved};
}

StepResult StartSteps::tabs()
{
    int opened = 0;
    for (const char* page : {"TAB_CAMERA", "TAB_QC", "TAB_STAGE"}) {
        opened += m_operator.openTab(page) ? 1 : 0;
        m_operator.takePicture(QString(page).toLower().replace('_', '-'));
    }
    return {opened == 3, QStringLiteral("%1 of 3 tabs open").arg(opened), {}};
}

StepResult StartSteps::handshake()
{
    const QStringList lines = m_instrument.boardLines();
    const bool homed = lines.indexOf("$,DEVICE,READY,,") >= 0 &&
                       lines.indexOf("$,STM1,ORIGIN,,") > lines.indexOf("$,DEVICE,READY,,");
    const QString reference = m_operator.text("EDIT_Z_REFERENCE");
    const QString level = m_operator.text("EDIT_LED");
    const int position = m_instrument.stagePosition_steps();
    const BoardLight light = m_instrument.light();
    return {homed && reference == QString::number(position) && light.ledOn &&
                level == QString::number(light.ledLevel),
            QStringLiteral("reference %1, LED level %2").arg(reference, level),
            QStringLiteral("ready and origin %1, stage at %2, %3")
                .arg(homed ? "received" : "missing", QString::number(position), lightText(light))};
}
