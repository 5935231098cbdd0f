#pragma once

#include <QPointF>

#include "simulator/operator/QcView.h"
#include "simulator/session/SessionContext.h"

/// The calibration target: frozen frame, two points, measurement, intensity.
class QcSteps : public StepGroup
{
public:
    explicit QcSteps(SessionContext& context) : StepGroup(context) {}

private:
    friend class Session; // whose table names the steps

    StepResult slide();
    StepResult freeze();
    StepResult miss();
    StepResult points();
    StepResult measure();
    StepResult live();
    StepResult intensity();

    bool pressWithoutBox(const QString& button);
    QPointF pointShown(const QString& edit);

    QcView m_view{m_operator};
    double m_foundLength_px = kNotTaken;
};
