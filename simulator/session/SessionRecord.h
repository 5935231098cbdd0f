#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include <QDateTime>
#include <QJsonObject>
#include <QString>
#include <QStringList>

#include "simulator/instrument/InstrumentParameters.h"
#include "simulator/session/SessionContext.h"
#include "simulator/session/SessionStep.h"
#include "simulator/session/SettingsFiles.h"

/// A parameter of the instrument that is not as it is by default.
struct ChangedParameter
{
    QString name;
    QString unit; ///< empty for a plain number or a text
    QString value;
    QString byDefault;
};

/// What a run was made with: enough to file its record, and to make it again.
struct RunFacts
{
    QString version; ///< of the program
    QString host;
    QDateTime begun;
    std::uint32_t seed = 0;
    QStringList faults;
    QStringList options; ///< as they were given, seed, faults and parameters left out
    std::vector<ChangedParameter> parameters;
    bool answersHeldBack = true; ///< the board's, until fresh frames are in

    QJsonObject toJson() const;
};

/// The parameters that differ from their defaults. Any thread.
std::vector<ChangedParameter> changedParameters(const InstrumentParameters& parameters);

/// All that is known of a session when it is over, or when it was stopped.
struct SessionRecord
{
    RunFacts facts;
    double elapsed_s = 0.0;
    QString serialBefore; ///< the instrument's serial number in the settings file, then and now
    QString serialAfter;
    QString stopped; ///< in a sentence, what ended the session before its end; else empty
    QStringList plannedSteps;
    std::vector<StepReport> steps;
    SessionFindings findings;
    /// Lines of the log that tell an error, each once; nothing where the log cannot be read.
    std::optional<QStringList> errorLines;
    QStringList harm; ///< what the settings files have suffered
    std::vector<FileDifference> settings;

    /// Whether every step was made and was as it should be, and no settings file suffered.
    bool holds() const;
    std::size_t stepsThatHold() const;
    QStringList stepsNotMade() const;
    /// What the log tells of errors, in a sentence, where it has no line to quote; never that
    /// all is well beside a save that failed.
    QString logVerdict() const;
    /// The same for the settings files and what they have suffered.
    QString settingsVerdict() const;
    /// The record for machines; numbers that are none are null.
    QJsonObject toJson() const;
};

/// The lines of a log with "[Error]" in them, each once, oldest first, at most a hundred;
/// nothing where it cannot be read. Any thread.
std::optional<QStringList> errorLinesOf(const QString& logFile);

/// Writes "session.json" into a directory; false if it cannot be written. Any thread.
bool writeSessionJson(const SessionRecord& record, const QString& directory);
