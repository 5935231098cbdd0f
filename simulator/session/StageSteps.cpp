#include "simulator/session/SessionSteps.h"

#include <cstdlib>
#include <map>

#include "simulator/instrument/SimulatedInstrument.h"
#include "simulator/session/PictureMeasures.h"

namespace {

constexpr int kJogStep = 640;
constexpr int kRotation_ms = 500;
// The focus lies at most 2000 steps from here; the sweep covers that.
constexpr int kSweepStart = 29440;
constexpr int kSweepMoves = 9;
// Away from the reference, so that going back to it can be seen.
constexpr int kAwayFromReference = 20000;

double sharpnessNow(SessionContext& session)
{
    session.settle();
    return measurePicture(session.user.liveView()).sharpness;
}

/// Has the window ask the board for the position.
QString positionShown(SessionContext& session)
{
    session.user.click("BUTTON_Z_POSITION");
    return session.user.text("EDIT_Z_POSITION");
}

int positionAtRest(SessionContext& session)
{
    session.user.waitUntil([&] { return !session.instrument.stageIsMoving(); }, session.patience * kAnswer_ms,
                           QStringLiteral("the stage does not come to rest"));
    return positionShown(session).toInt();
}

} // namespace

StepResult steps::jog(SessionContext& session)
{
    session.user.type("SPIN_Z_STEP", QString::number(kJogStep));
    const int start = positionShown(session).toInt();
    bool holds = start == session.instrument.stagePosition_steps();
    QStringList seen{QString::number(start)};
    QStringList truth{QString::number(session.instrument.stagePosition_steps())};
    int expected = start;
    for (const int direction : {1, 1, -1}) {
        session.user.click(direction > 0 ? "BUTTON_Z_MOVE_PLUS" : "BUTTON_Z_MOVE_MINUS");
        expected += direction * kJogStep;
        seen.append(session.user.text("EDIT_Z_POSITION"));
        truth.append(QString::number(session.instrument.stagePosition_steps()));
        holds = holds && seen.last() == QString::number(expected) && seen.last() == truth.last();
    }
    session.user.takePicture("jog");
    return {holds, seen.join(", "), truth.join(", ")};
}

StepResult steps::focus(SessionContext& session)
{
    session.user.click("BUTTON_RESOLUTION_VGA");
    session.user.waitForFrames(1, session.patience * kFrames_ms);
    std::map<double, int> positionBySharpness;
    session.moveTo(kSweepStart);
    positionBySharpness[sharpnessNow(session)] = kSweepStart;
    session.user.takePicture("far-from-focus");
    session.user.type("SPIN_Z_STEP", QString::number(kJogStep));
    for (int move = 1; move < kSweepMoves && !session.user.hasGivenUp(); ++move) {
        session.user.click("BUTTON_Z_MOVE_PLUS");
        positionBySharpness[sharpnessNow(session)] = session.user.text("EDIT_Z_POSITION").toInt();
    }
    const auto [sharpest, position] = *positionBySharpness.rbegin();
    const double dullest = positionBySharpness.begin()->first;
    session.moveTo(position);
    sharpnessNow(session);
    session.user.takePicture("in-focus");
    const double truth = session.instrument.bestFocus_steps();
    return {sharpest > 2.0 * dullest && std::abs(position - truth) <= kJogStep,
            QStringLiteral("sharpest at %1, %2 times the dullest")
                .arg(position)
                .arg(number(sharpest / dullest, 1)),
            QStringLiteral("focus at ") + number(truth)};
}

StepResult steps::rotate(SessionContext& session)
{
    const int start = positionAtRest(session);
    session.user.press("BUTTON_Z_ROTATE_PLUS");
    session.user.wait(kRotation_ms);
    const bool movedUp = session.instrument.stageIsMoving();
    session.user.release("BUTTON_Z_ROTATE_PLUS");
    const int up = positionAtRest(session);
    const int trueUp = session.instrument.stagePosition_steps();
    session.user.press("BUTTON_Z_ROTATE_MINUS");
    session.user.wait(kRotation_ms);
    const bool movedDown = session.instrument.stageIsMoving();
    session.user.release("BUTTON_Z_ROTATE_MINUS");
    session.user.click("BUTTON_Z_STOP");
    const int down = positionAtRest(session);
    const int trueDown = session.instrument.stagePosition_steps();
    return {movedUp && up > start && up == trueUp && movedDown && down < up && down == trueDown,
            QStringLiteral("%1, held plus to %2, held minus to %3").arg(start).arg(up).arg(down),
            QStringLiteral("%1, %2, each at rest").arg(trueUp).arg(trueDown)};
}

StepResult steps::home(SessionContext& session)
{
    session.user.click("BUTTON_Z_ORIGIN");
    const QString position = positionShown(session);
    const int truth = session.instrument.stagePosition_steps();
    session.user.takePicture("home");
    return {position == "0" && truth == 0, QStringLiteral("position ") + position,
            QStringLiteral("stage at %1").arg(truth)};
}

StepResult steps::centre(SessionContext& session)
{
    session.user.click("BUTTON_Z_MOVE_REFERENCE");
    const QString position = positionShown(session);
    const QString reference = session.user.text("EDIT_Z_REFERENCE");
    const int truth = session.instrument.stagePosition_steps();
    return {position == reference && position == QString::number(truth),
            QStringLiteral("position %1, reference %2").arg(position, reference),
            QStringLiteral("stage at %1").arg(truth)};
}

StepResult steps::reference(SessionContext& session)
{
    const QString position = positionShown(session);
    session.user.click("BUTTON_Z_SET_REFERENCE");
    const QString reference = session.user.text("EDIT_Z_REFERENCE");
    session.user.takePicture("reference-set");
    session.moveTo(kAwayFromReference);
    const int away = session.instrument.stagePosition_steps();
    session.user.click("BUTTON_Z_MOVE_REFERENCE");
    const QString back = positionShown(session);
    const int truth = session.instrument.stagePosition_steps();
    session.settle();
    session.user.takePicture("reference-revisited");
    return {reference == position && away == kAwayFromReference && back == reference &&
                back == QString::number(truth),
            QStringLiteral("reference %1, away to %2, back at %3").arg(reference).arg(away).arg(back),
            QStringLiteral("stage at %1").arg(truth)};
}
