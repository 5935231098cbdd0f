#include "simulator/session/SessionSteps.h"

#include "simulator/instrument/SimulatedInstrument.h"

namespace {

// Time for a new window to be painted, with or without a camera.
constexpr int kFirstPaint_ms = 500;
// What the label shows when the settings file has no version.
const QString kVersionWithoutSettings = QStringLiteral("0.0.1");

} // namespace

StepResult steps::window(SessionContext& session)
{
    session.user.waitUntil([&] { return session.user.windowIsEnabled(); }, session.patience * kAnswer_ms,
                           QStringLiteral("the window does not take presses"));
    session.user.wait(kFirstPaint_ms);
    const QString title = session.user.windowTitle();
    const QString version = session.user.text("LABEL_VERSION");
    const QString saved = session.instrument.setting("Software/Version QC", kVersionWithoutSettings);
    session.findings.disabledAtStart = session.user.disabledControls();
    session.user.takePicture("window");
    return {title == "ORLA-II Plus Verifier" && version == saved,
            QStringLiteral("\"%1\", version %2").arg(title, version),
            QStringLiteral("settings of version ") + saved};
}

StepResult steps::tabs(SessionContext& session)
{
    int opened = 0;
    for (const char* page : {"TAB_CAMERA", "TAB_QC", "TAB_STAGE"}) {
        opened += session.user.openTab(page) ? 1 : 0;
        session.user.takePicture(QString(page).toLower().replace('_', '-'));
    }
    return {opened == 3, QStringLiteral("%1 of 3 tabs open").arg(opened), {}};
}

StepResult steps::handshake(SessionContext& session)
{
    const QStringList lines = session.instrument.boardLines();
    const bool homed = lines.indexOf("$,DEVICE,READY,,") >= 0 &&
                       lines.indexOf("$,STM1,ORIGIN,,") > lines.indexOf("$,DEVICE,READY,,");
    const QString reference = session.user.text("EDIT_Z_REFERENCE");
    const QString level = session.user.text("EDIT_LED");
    const int position = session.instrument.stagePosition_steps();
    const BoardLight light = session.instrument.light();
    return {homed && reference == QString::number(position) && light.ledOn &&
                level == QString::number(light.ledLevel),
            QStringLiteral("reference %1, LED level %2").arg(reference, level),
            QStringLiteral("ready and origin %1, stage at %2, %3")
                .arg(homed ? "received" : "missing", QString::number(position), lightText(light))};
}
