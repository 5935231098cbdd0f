#pragma once

#include <map>

#include "simulator/session/SessionContext.h"

/// Serial number, skip frame, password, and what each tab saves into the settings files.
class SettingsSteps : public StepGroup
{
public:
    explicit SettingsSteps(SessionContext& context) : StepGroup(context) {}

private:
    friend class Session; // whose table names the steps

    StepResult serial();
    StepResult skipFrame();
    StepResult saveStage();
    StepResult saveCamera();
    StepResult saveQc();
    StepResult password();

    using Entries = std::map<QString, QString>;
    StepResult save(const QString& page, const Entries& expected);
    bool boxAfter(const QString& button, const QString& title, const QString& text);
};
