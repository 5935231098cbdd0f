#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <vector>

#include <QJsonObject>
#include <QString>

/// What sessions with different seeds found, beside the truth: spread and bias of the best Z,
/// the target's length, magnification and volume factor. Any thread.
class RepeatabilityTable
{
public:
    static constexpr std::size_t kQuantities = 4;

    /// A found value and its truth.
    struct Value
    {
        double found;
        double truth;
        double tolerance;

        double error() const { return found - truth; }
    };

    /// Mean and standard deviation (of a sample; 0 for a single one) of a quantity's errors.
    struct Statistics
    {
        std::size_t count = 0;
        double bias = 0.0;
        double spread = 0.0;
    };

    /// Takes a run's record as "session.json" holds it; a quantity that it does not have stays
    /// empty.
    void add(std::uint32_t seed, bool holds, const QJsonObject& session);

    /// Over the runs so far that have the quantity.
    Statistics statistics(std::size_t quantity) const;
    /// The run added last, in a line for people.
    QString lastRunText() const;
    /// A line for each quantity, with bias and spread.
    QString summary() const;
    /// A line of names, then one for each run: seed, "ok" or "failed", and found, true and
    /// error of each quantity, empty where there is none.
    QString csv() const;
    /// The errors of all runs with bias, spread and what is allowed, as an SVG document.
    QString svg() const;

private:
    struct Run
    {
        std::uint32_t seed;
        bool holds;
        std::array<std::optional<Value>, kQuantities> values;
    };

    QString panel(std::size_t quantity) const;

    std::vector<Run> m_runs;
};
