#pragma once

#include "simulator/session/SessionBench.h"

/// The window comes up, and the board answers.
class StartSteps : public StepGroup
{
public:
    explicit StartSteps(SessionBench& bench) : StepGroup(bench) {}

private:
    friend class Session; // whose table names the steps

    StepResult window();
    StepResult tabs();
    StepResult handshake();
};
