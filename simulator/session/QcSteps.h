#pragma once

#include <QPoint>
#include <QPointF>

#include "simulator/session/SessionBench.h"

/// The calibration target: frozen frame, two points, measurement, intensity.
class QcSteps : public StepGroup
{
public:
    explicit QcSteps(SessionBench& bench) : StepGroup(bench) {}

private:
    friend class Session; // whose table names the steps

    StepResult slide();
    StepResult freeze();
    StepResult miss();
    StepResult points();
    StepResult measure();
    StepResult live();
    StepResult intensity();

    void panTo(const QPoint& place);
    void aimAt(const QPoint& place);
    bool pressWithoutBox(const QString& button);
    QPointF pointShown(const QString& edit);

    QPoint m_offset; ///< top left pixel of the frozen frame's part on the screen
    double m_foundLength_px = kNotTaken;
};
