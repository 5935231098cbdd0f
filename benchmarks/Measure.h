#pragma once

#include <array>
#include <functional>
#include <string>
#include <vector>

#include <QString>

/// What the benchmark programs measure with, and how they tell it to benchmarks/table.py: one
/// line for each figure. Ratios come from pairs that are measured one right after the other.

using Clock = double (*)();

/// Processor time of the calling thread, and of the process, in ms. What else the machine does
/// falsifies neither. Where an emulator counts instructions (benchmarks/run --instructions), the time
/// of a processor that carries out a billion of them in a second.
double threadTime_ms();
double processTime_ms();
/// Time that goes by, in ms.
double wallTime_ms();

/// The middle one of some values, or the mean of the two; not a number for none.
double median(std::vector<double> values);

using Work = std::function<void()>;

/// Time of one piece of work.
double timeOf_ms(Clock clock, const Work& work);

/// Medians over pairs.
struct PairedTimes
{
    double ratio;
    double first_ms;
    double second_ms;
};

/// Runs both pieces of work once for nothing, then in pairs, each time in the other order.
PairedTimes measurePairs(Clock clock, int pairs, const Work& first, const Work& second);

/// How much faster than its pixels a cost grows, where the three do the same to half as many
/// pixels, to the usual number and to twice as many: the larger of the two steps' medians,
/// 1 where the cost is in proportion.
double growthOf(Clock clock, int rounds, const std::array<Work, 3>& works);

/// Tells one figure of the table by its name there, with what it is made of.
void tell(const std::string& name, double value, const QString& parts = {});

/// Whether the program is to show only that it works ("--short"). Ends it with status 2, and a
/// word on stderr, for any other argument.
bool isShort(int argc, char** argv);

/// Ends the program with status 1 and a sentence on stderr.
[[noreturn]] void giveUp(const std::string& sentence);
