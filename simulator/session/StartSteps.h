#pragma once

#include "simulator/session/SessionBench.h"

/// The window comes up, and the board answers.
class StartSteps : public StepGroup
{
public:
    explicit StartSteps(SessionBench& bench) : StepGroup(bench) {}

    std::vector<SessionStep> steps() override;

private:
    static const StepRow<StartSteps> kSteps[];

    StepResult window();
    StepResult tabs();
    StepResult handshake();
};
