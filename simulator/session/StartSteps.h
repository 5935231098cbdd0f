#pragma once

#include "simulator/session/SessionContext.h"

/// The window comes up, and the board answers.
class StartSteps : public StepGroup
{
public:
    explicit StartSteps(SessionContext& context) : StepGroup(context) {}

private:
    friend class Session; // whose table names the steps

    StepResult window();
    StepResult tabs();
    StepResult handshake();
};
