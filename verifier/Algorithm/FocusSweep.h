#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "Algorithm/AutoFocusingData.h"

/// The decisions of a focus sweep, apart from stage and camera. Positions and intervals
/// are in motor steps. Pure; any thread.
namespace focus_sweep {

/// Where a run stands. The numbers are fixed: their order decides what belongs to a sweep.
enum class State : int {
    Start = 0,
    CoarseFirstStep = 1, ///< Kept in the machine; no run enters it.
    Coarse = 2,
    FineFirstStep = 3, ///< Kept in the machine; no run enters it and so none of the next three.
    Fine = 4,
    ThirdFirstStep = 5,
    Third = 6,
    MovingToResult = 7,
    Done = 8,
};

/// What the sequencer does next.
enum class Action {
    None,
    PrepareCoarse,      ///< Begin the coarse sweep around the result position.
    StepCoarse,         ///< Non-blocking step by the coarse interval.
    StepFine,           ///< Non-blocking step by the fine interval.
    StepCoarseBlocking, ///< Blocking step by the coarse interval, then the next sample at once.
    EvaluateCoarse,     ///< Best sample without the third-step check, then go there.
    EvaluateFine,       ///< Best sample with the check: a third step, or go there.
    EvaluateThird,      ///< Best sample with the check, then go there.
    Finish,             ///< Stop listening to the stage and report the end.
};

/// Where the machine goes on, and what is to be done there.
struct Transition
{
    State next;
    Action action;
};

constexpr int kCoarseInterval_steps = 640;
constexpr int kCoarseCount = 15;
constexpr int kFineInterval_steps = 230;
constexpr int kFineCount = 7;
/// How far beyond an end of the fine sweep the third step is centred: three fine intervals.
constexpr int kThirdStepOffset_steps = 3 * kFineInterval_steps;

/// The state machine: the next state, and the action to take in it, when `sampleCount`
/// samples of the current sweep have been taken.
Transition transitionOf(State state, std::size_t sampleCount);

/// Whether reaching a position in this state takes a sample: states 1 to 6.
bool takesSamples(State state);

/// Number of the sweep that a state belongs to, as in file names and progress: 1, 2 or 3.
int stepNumber(State state);

/// A sum or difference of positions, kept inside the range of int: positions come from a
/// text field and from the board, and nobody has checked them.
int boundedSteps(std::int64_t steps);

/// First position of a sweep of `count` positions around `centre_steps`.
int sweepStart(int centre_steps, int interval_steps, int count);

/// What the search for the best sample found.
struct BestSample
{
    AutoFocusingResult_e result;
    std::size_t index; ///< Meaningless when there is no sample.
};

/// The best sample: the first of the highest scores, index 0 if no score exceeds 0.0.
///
/// With the third-step check the result asks for a third step when the maximum is the
/// first sample and the minimum the last, or the other way round; otherwise a maximum
/// beyond the first sample gives the sample before it.
BestSample bestSample(const std::vector<AutoFocusingData_s>& samples, bool checkThirdStep);

/// Position to which the search leads: the best sample's Z; 690 steps beyond it, away from the
/// other samples, when a third step is necessary; and `otherwise_steps` where there is no such
/// sample.
int resultPosition(const std::vector<AutoFocusingData_s>& samples, const BestSample& best,
                   int otherwise_steps);

} // namespace focus_sweep
