#pragma once

#include "simulator/session/SessionContext.h"

/// The USB disk, and the autofocus with its log, its finish and its graph.
class AutofocusSteps : public StepGroup
{
public:
    explicit AutofocusSteps(SessionContext& context) : StepGroup(context) {}

private:
    friend class Session; // whose table names the steps

    StepResult disk();
    StepResult autofocus();
    StepResult graph();

    QString newestLog() const;
    bool readFocusCurve(const QString& directory);
    bool logHolds(QString& text);
};
