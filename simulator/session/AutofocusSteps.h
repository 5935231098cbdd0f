#pragma once

#include "simulator/session/SessionBench.h"

/// The USB disk, and the autofocus with its log, its finish and its graph.
class AutofocusSteps : public StepGroup
{
public:
    explicit AutofocusSteps(SessionBench& bench) : StepGroup(bench) {}

private:
    friend class Session; // whose table names the steps

    StepResult disk();
    StepResult autofocus();
    StepResult graph();

    QString newestLog() const;
    bool readFocusCurve(const QString& directory);
    bool logHolds(QString& text);
};
