#pragma once

#include "simulator/session/SessionContext.h"

/// The camera tab: the picture is brought to a stated brightness, and its colours are trimmed.
class CameraSteps : public StepGroup
{
public:
    explicit CameraSteps(SessionContext& context) : StepGroup(context) {}

private:
    friend class Session; // whose table names the steps

    StepResult led();
    StepResult gain();
    StepResult exposure();
    StepResult colours();
    StepResult staining();

    struct Control;
    bool matches(const Control& control);
    QString registersText(const Control& control);
    int shownRegisters(const QString& edit);
    int trueRegisters(const Control& control);
    Figure brightnessFigure(double brightness);
};
