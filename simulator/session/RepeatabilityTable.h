#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <vector>

#include <QJsonObject>
#include <QString>

#include "simulator/session/SessionStep.h"

/// How the board answered the autofocus's moves: when fresh frames were in, or as it does by itself.
enum class Answers { HeldBack, Plain };

/// What sessions with different seeds found, beside the truth: spread and bias of the best Z,
/// the target's length, magnification and volume factor, in a column for each way in which the
/// board answered. Any thread.
class RepeatabilityTable
{
public:
    static constexpr std::size_t kQuantities = 4;

    /// Mean and standard deviation (of a sample; 0 for a single one) of a quantity's errors,
    /// and the largest error that is allowed.
    struct Statistics
    {
        std::size_t count = 0;
        double bias = 0.0;
        double spread = 0.0;
        double allowed = 0.0;
    };

    /// Takes a run's record as "session.json" holds it; a quantity that it does not have stays
    /// empty.
    void add(std::uint32_t seed, Answers answers, bool holds, const QJsonObject& session);

    /// Over the runs so far that have the quantity; nothing where none has.
    std::optional<Statistics> statistics(std::size_t quantity, Answers answers) const;
    /// The run added last, in a line for people.
    QString lastRunText() const;
    /// A line for each quantity and column, with bias and spread, or "none".
    QString summary() const;
    /// A line of names, then one for each run: seed, "ok" or "failed", found, true and error of
    /// each quantity, empty where there is none, and how the board answered.
    QString csv() const;
    /// All of it for the report.
    QJsonObject toJson() const;

private:
    struct Run
    {
        std::uint32_t seed;
        Answers answers;
        bool holds;
        std::array<std::optional<Measurement>, kQuantities> values;
    };

    std::vector<Measurement> valuesOf(std::size_t quantity, Answers answers) const;
    std::vector<Answers> columns() const;

    std::vector<Run> m_runs;
};
