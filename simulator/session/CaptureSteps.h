#pragma once

#include "simulator/session/SessionContext.h"

/// What is kept of the picture on the USB disk.
class CaptureSteps : public StepGroup
{
public:
    explicit CaptureSteps(SessionContext& context) : StepGroup(context) {}

private:
    friend class Session; // whose table names the steps

    StepResult capture();
    StepResult screenshot();
};
