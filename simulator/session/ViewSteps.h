#pragma once

#include <QImage>

#include "simulator/session/SessionBench.h"

/// The live view in the three resolutions.
class ViewSteps : public StepGroup
{
public:
    explicit ViewSteps(SessionBench& bench) : StepGroup(bench) {}

    std::vector<SessionStep> steps() override;

private:
    static const StepRow<ViewSteps> kSteps[];

    StepResult viewVga();
    StepResult view1280();
    StepResult view5M();

    struct View;
    StepResult lookAt(const View& view);
    double countFrames(double& delivered_hz);

    QImage m_lastUnscaledView;
};
