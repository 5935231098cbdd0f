#pragma once

#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>
#include <vector>

#include <QString>
#include <QStringList>
#include <QVector>

#include "simulator/operator/BoxWatcher.h"

/// Stands for a number that nobody took: the press before it was refused, or no number is shown.
inline constexpr double kNotTaken = std::numeric_limits<double>::quiet_NaN();

/// A number that the window gave, beside the one that the instrument knows to be true.
struct Measurement
{
    QString name; ///< "best Z"
    QString unit; ///< empty for a plain number
    double found = kNotTaken;
    double truth = 0.0;
    double tolerance = 0.0; ///< largest difference that is still right

    double error() const { return found - truth; }
    /// Never without three finite numbers: a limit without end would let everything pass.
    bool holds() const
    {
        return std::isfinite(found) && std::isfinite(truth) && std::isfinite(tolerance) &&
               std::abs(error()) <= tolerance;
    }
};

/// What a step found.
struct StepResult
{
    bool holds = false;
    QString seen;  ///< what the window showed
    QString truth; ///< what the instrument knows to be true; empty where it has no say
    std::vector<Measurement> measurements = {};
};

/// One step of a session.
struct SessionStep
{
    const char* name;    ///< one word, for pictures and for choosing steps
    const char* text;    ///< what the operator does, for the report
    bool afterEventLoop; ///< runs when the program has left its event loop
    std::function<StepResult()> run;
};

/// A step that was made.
struct StepReport
{
    QString name;
    QString text;
    double elapsed_s = 0.0;
    StepResult result;
    QString problems; ///< what could not be done; empty when all could
    QStringList pictures;
    QVector<SeenBox> boxes;
    bool interrupted = false; ///< it was not made to its end

    /// Whether the step found what it should, and could be made to its end without a problem.
    bool holds() const
    {
        return !interrupted && result.holds && problems.isEmpty() &&
               std::all_of(
                   result.measurements.begin(), result.measurements.end(),
                   [](const Measurement& measurement) { return measurement.holds(); });
    }
};
