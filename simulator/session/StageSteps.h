#pragma once

#include "simulator/session/SessionContext.h"

/// The stage: moves, focus by eye, origin and Z reference.
class StageSteps : public StepGroup
{
public:
    explicit StageSteps(SessionContext& context) : StepGroup(context) {}

private:
    friend class Session; // whose table names the steps

    StepResult jog();
    StepResult focus();
    StepResult rotate();
    StepResult home();
    StepResult centre();
    StepResult reference();

    double sharpnessNow();
    int positionAtRest();
};
