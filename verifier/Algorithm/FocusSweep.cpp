#include "Algorithm/FocusSweep.h"

#include <algorithm>
#include <limits>

namespace focus_sweep {

Transition transitionOf(State state, std::size_t sampleCount)
{
    const bool coarseIsFull = sampleCount >= kCoarseCount;
    const bool fineIsFull = sampleCount >= kFineCount;
    switch (state) {
    case State::Start:
        return {State::Coarse, Action::PrepareCoarse};
    case State::CoarseFirstStep:
        return {State::Coarse, Action::StepCoarse};
    case State::Coarse:
        return {State::Coarse, coarseIsFull ? Action::EvaluateCoarse : Action::StepCoarseBlocking};
    case State::FineFirstStep:
        return {State::Fine, Action::StepFine};
    case State::Fine:
        return {State::Fine, fineIsFull ? Action::EvaluateFine : Action::StepFine};
    case State::ThirdFirstStep:
        return {State::Third, Action::StepFine};
    case State::Third:
        return {State::Third, fineIsFull ? Action::EvaluateThird : Action::StepFine};
    case State::MovingToResult:
        return {State::Done, Action::Finish};
    case State::Done:
        break;
    }
    return {state, Action::None};
}

bool takesSamples(State state)
{
    return state >= State::CoarseFirstStep && state <= State::Third;
}

int stepNumber(State state)
{
    if (state < State::FineFirstStep)
        return 1;
    return state < State::ThirdFirstStep ? 2 : 3;
}

int boundedSteps(std::int64_t steps)
{
    using Limits = std::numeric_limits<int>;
    return static_cast<int>(std::clamp<std::int64_t>(steps, Limits::min(), Limits::max()));
}

int sweepStart(int centre_steps, int interval_steps, int count)
{
    return boundedSteps(centre_steps - std::int64_t{interval_steps} * (count / 2));
}

BestSample bestSample(const std::vector<AutoFocusingData_s>& samples, bool checkThirdStep)
{
    if (samples.empty())
        return {AutoFocusingResult_NoSample, 0};
    double maximum = 0.0;
    double minimum = std::numeric_limits<double>::max();
    std::size_t highest = 0;
    std::size_t lowest = 0;
    for (std::size_t i = 0; i < samples.size(); ++i) {
        const double value = samples[i].focusValue;
        if (value > maximum) {
            maximum = value;
            highest = i;
        }
        if (value < minimum) {
            minimum = value;
            lowest = i;
        }
    }
    if (!checkThirdStep)
        return {AutoFocusingResult_BestPositionFound, highest};
    const std::size_t last = samples.size() - 1;
    if ((highest == 0 && lowest == last) || (highest == last && lowest == 0))
        return {AutoFocusingResult_ThirdStepNecessary, highest};
    // One sample before the peak on purpose: the instrument's results are defined this way.
    if (highest != 0 && maximum > minimum + (maximum - minimum) * 0.5)
        --highest;
    return {AutoFocusingResult_BestPositionFound, highest};
}

int resultPosition(const std::vector<AutoFocusingData_s>& samples, const BestSample& best,
                   int otherwise_steps)
{
    if (best.result == AutoFocusingResult_NoSample || best.index >= samples.size())
        return otherwise_steps;
    const int position = samples[best.index].zPosition;
    if (best.result != AutoFocusingResult_ThirdStepNecessary)
        return position;
    const int offset = best.index == 0 ? -kThirdStepOffset_steps : kThirdStepOffset_steps;
    return boundedSteps(std::int64_t{position} + offset);
}

} // namespace focus_sweep
