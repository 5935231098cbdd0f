#pragma once

#include <map>

#include "simulator/session/SessionBench.h"

/// Serial number, skip frame, password, and what each tab saves into the settings files.
class SettingsSteps : public StepGroup
{
public:
    explicit SettingsSteps(SessionBench& bench) : StepGroup(bench) {}

    std::vector<SessionStep> steps() override;

private:
    static const StepRow<SettingsSteps> kSteps[];

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
