#pragma once

#include "simulator/session/SessionBench.h"

/// The stage: moves, focus by eye, origin and Z reference.
class StageSteps : public StepGroup
{
public:
    explicit StageSteps(SessionBench& bench) : StepGroup(bench) {}

    std::vector<SessionStep> steps() override;

private:
    static const StepRow<StageSteps> kSteps[];

    StepResult jog();
    StepResult focus();
    StepResult rotate();
    StepResult home();
    StepResult centre();
    StepResult reference();

    double sharpnessNow();
    int positionAtRest();
};
