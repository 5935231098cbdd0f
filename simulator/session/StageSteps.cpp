#include "simulator/session/StageSteps.h"

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

} // namespace

StepResult StageSteps::jog()
{
    m_operator.type("SPIN_Z_STEP", QString::number(kJogStep));
    m_operator.click("BUTTON_Z_POSITION");
    const int start = m_operator.text("EDIT_Z_POSITION").toInt();
    bool holds = start == m_instrument.stagePosition_steps();
    QStringList seen{QString::number(start)};
    QStringList truth{QString::number(m_instrument.stagePosition_steps())};
    int expected = start;
    for (const int direction : {1, 1, -1}) {
        m_operator.click(direction > 0 ? "BUTTON_Z_MOVE_PLUS" : "BUTTON_Z_MOVE_MINUS");
        expected += direction * kJogStep;
        seen.append(m_operator.text("EDIT_Z_POSITION"));
        truth.append(QString::number(m_instrument.stagePosition_steps()));
        holds = holds && seen.last() == QString::number(expected) && seen.last() == truth.last();
    }
    m_operator.takePicture("jog");
    return {holds, seen.join(", "), truth.join(", ")};
}

double StageSteps::sharpnessNow()
{
    m_context.settle();
    return measurePicture(m_operator.liveView()).sharpness;
}

StepResult StageSteps::focus()
{
    m_operator.click("BUTTON_RESOLUTION_VGA");
    m_operator.waitForFrames(1, kFrames_ms);
    std::map<double, int> positionBySharpness;
    m_context.moveTo(kSweepStart);
    positionBySharpness[sharpnessNow()] = kSweepStart;
    m_operator.takePicture("far-from-focus");
    m_operator.type("SPIN_Z_STEP", QString::number(kJogStep));
    for (int move = 1; move < kSweepMoves && !m_operator.hasGivenUp(); ++move) {
        m_operator.click("BUTTON_Z_MOVE_PLUS");
        positionBySharpness[sharpnessNow()] = m_operator.text("EDIT_Z_POSITION").toInt();
    }
    const auto [sharpest, position] = *positionBySharpness.rbegin();
    const double dullest = positionBySharpness.begin()->first;
    m_context.moveTo(position);
    sharpnessNow();
    m_operator.takePicture("in-focus");
    const double truth = m_instrument.bestFocus_steps();
    return {sharpest > 2.0 * dullest && std::abs(position - truth) <= kJogStep,
            QStringLiteral("sharpest at %1, %2 times the dullest")
                .arg(position)
                .arg(number(sharpest / dullest, 1)),
            QStringLiteral("focus at ") + number(truth)};
}

int StageSteps::positionAtRest()
{
    m_operator.waitUntil([this] { return !m_instrument.stageIsMoving(); }, kAnswer_ms,
                         QStringLiteral("the stage does not come to rest"));
    m_operator.click("BUTTON_Z_POSITION");
    return m_operator.text("EDIT_Z_POSITION").toInt();
}

StepResult StageSteps::rotate()
{
    const int start = positionAtRest();
    m_operator.press("BUTTON_Z_ROTATE_PLUS");
    m_operator.wait(kRotation_ms);
    const bool movedUp = m_instrument.stageIsMoving();
    m_operator.release("BUTTON_Z_ROTATE_PLUS");
    const int up = positionAtRest();
    const int trueUp = m_instrument.stagePosition_steps();
    m_operator.press("BUTTON_Z_ROTATE_MINUS");
    m_operator.wait(kRotation_ms);
    const bool movedDown = m_instrument.stageIsMoving();
    m_operator.release("BUTTON_Z_ROTATE_MINUS");
    m_operator.click("BUTTON_Z_STOP");
    const int down = positionAtRest();
    const int trueDown = m_instrument.stagePosition_steps();
    return {movedUp && up > start && up == trueUp && movedDown && down < up && down == trueDown,
            QStringLiteral("%1, held plus to %2, held minus to %3").arg(start).arg(up).arg(down),
            QStringLiteral("%1, %2, each at rest").arg(trueUp).arg(trueDown)};
}

StepResult StageSteps::home()
{
    m_operator.click("BUTTON_Z_ORIGIN");
    m_operator.click("BUTTON_Z_POSITION");
    const QString position = m_operator.text("EDIT_Z_POSITION");
    const int truth = m_instrument.stagePosition_steps();
    m_operator.takePicture("home");
    return {position == "0" && truth == 0, QStringLiteral("position ") + position,
            QStringLiteral("stage at %1").arg(truth)};
}

StepResult StageSteps::centre()
{
    m_operator.click("BUTTON_Z_MOVE_REFERENCE");
    m_operator.click("BUTTON_Z_POSITION");
    const QString position = m_operator.text("EDIT_Z_POSITION");
    const QString reference = m_operator.text("EDIT_Z_REFERENCE");
    const int truth = m_instrument.stagePosition_steps();
    return {position == reference && position == QString::number(truth),
            QStringLiteral("position %1, reference %2").arg(position, reference),
            QStringLiteral("stage at %1").arg(truth)};
}

StepResult StageSteps::reference()
{
    m_operator.click("BUTTON_Z_POSITION");
    const QString position = m_operator.text("EDIT_Z_POSITION");
    m_operator.click("BUTTON_Z_SET_REFERENCE");
    const QString reference = m_operator.text("EDIT_Z_REFERENCE");
    m_operator.takePicture("reference-set");
    m_context.moveTo(kAwayFromReference);
    const int away = m_instrument.stagePosition_steps();
    m_operator.click("BUTTON_Z_MOVE_REFERENCE");
    m_operator.click("BUTTON_Z_POSITION");
    const QString back = m_operator.text("EDIT_Z_POSITION");
    const int truth = m_instrument.stagePosition_steps();
    m_context.settle();
    m_operator.takePicture("reference-revisited");
    return {reference == position && away == kAwayFromReference && back == reference &&
                back == QString::number(truth),
            QStringLiteral("reference %1, away to %2, back at %3").arg(reference).arg(away).arg(back),
            QStringLiteral("stage at %1").arg(truth)};
}
