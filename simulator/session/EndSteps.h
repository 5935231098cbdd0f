#pragma once

#include "simulator/session/SessionContext.h"

/// The consoles, and the way out.
class EndSteps : public StepGroup
{
public:
    explicit EndSteps(SessionContext& context) : StepGroup(context) {}

private:
    friend class Session; // whose table names the steps

    StepResult consoles();
    StepResult stay();
    StepResult exit();
    StepResult ended();
    StepResult parked();

    QString showConsole(const QString& number, const QString& name, const QString& textArea);
    bool wasAsked() const;
    QStringList newlyDisabled() const;
};
