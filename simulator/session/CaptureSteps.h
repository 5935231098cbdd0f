#pragma once

#include "simulator/session/SessionBench.h"

/// What is kept of the picture on the USB disk.
class CaptureSteps : public StepGroup
{
public:
    explicit CaptureSteps(SessionBench& bench) : StepGroup(bench) {}

private:
    friend class Session; // whose table names the steps

    StepResult capture();
    StepResult screenshot();
};
