#pragma once

#include "simulator/session/SessionBench.h"

/// What is kept of the picture on the USB disk.
class CaptureSteps : public StepGroup
{
public:
    explicit CaptureSteps(SessionBench& bench) : StepGroup(bench) {}

    std::vector<SessionStep> steps() override;

private:
    static const StepRow<CaptureSteps> kSteps[];

    StepResult capture();
    StepResult screenshot();
};
