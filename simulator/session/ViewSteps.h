#pragma once

#include <QImage>

#include "simulator/session/SessionContext.h"

/// The live view in the three resolutions.
class ViewSteps : public StepGroup
{
public:
    explicit ViewSteps(SessionContext& context) : StepGroup(context) {}

private:
    friend class Session; // whose table names the steps

    StepResult viewVga();
    StepResult view1280();
    StepResult view5M();

    struct View;
    StepResult lookAt(const View& view);
    double countFrames(double& delivered_hz);

    QImage m_lastUnscaledView;
};
