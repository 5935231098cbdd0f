#pragma once

#include <cstdint>
#include <vector>

#include <QJsonObject>
#include <QString>
#include <QStringList>

#include "simulator/session/SessionBench.h"
#include "simulator/session/SessionStep.h"
#include "simulator/session/SettingsFiles.h"

/// All that is known of a session when it is over, or when it was stopped.
struct SessionRecord
{
    QString begun; ///< date and time, as text
    double elapsed_s = 0.0;
    std::uint32_t seed = 0;
    QStringList faults;
    QString stopped; ///< what did not end, when the session had to be stopped; else empty
    std::size_t plannedSteps = 0;
    std::vector<StepReport> steps;
    SessionFindings findings;
    QStringList errorLines; ///< of the log, each once
    QStringList harm;       ///< what the settings files have suffered
    std::vector<FileDifference> settings;

    /// Whether every step was made and was as it should be, and no settings file suffered.
    bool holds() const;
    std::size_t stepsThatHold() const;
    /// The record for machines; numbers that are none are null.
    QJsonObject toJson() const;
};

/// The lines of a log with "[Error]" in them, each once, oldest first, at most a hundred; none
/// where it cannot be read. Any thread.
QStringList errorLinesOf(const QString& logFile);

/// Writes "session.json" into a directory; false if it cannot be written. Any thread.
bool writeSessionJson(const SessionRecord& record, const QString& directory);
