#pragma once

#include "simulator/session/SessionBench.h"

/// The USB disk, and the autofocus with its log, its finish and its graph.
class AutofocusSteps : public StepGroup
{
public:
    explicit AutofocusSteps(SessionBench& bench) : StepGroup(bench) {}

    std::vector<SessionStep> steps() override;

private:
    static const StepRow<AutofocusSteps> kSteps[];

    StepResult disk();
    StepResult autofocus();
    StepResult graph();

    QString newestLog() const;
    bool readFocusCurve(const QString& directory);
    bool logHolds(QString& text);
};
