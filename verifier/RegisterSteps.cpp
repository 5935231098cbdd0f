#include "RegisterSteps.h"

namespace {

constexpr int kHexDigits = 4;
constexpr int kHexBase = 16;

} // namespace

std::optional<unsigned int> steppedValue(unsigned int value, SettingStep step, unsigned int coarseStep,
                                         unsigned int maximum)
{
    switch (step) {
    case SettingStep::FineDown:
        return value > 0 ? std::optional(value - kFineStep) : std::nullopt;
    case SettingStep::CoarseDown:
        return value >= coarseStep ? value - coarseStep : 0;
    case SettingStep::FineUp:
        return value < maximum ? std::optional(value + kFineStep) : std::nullopt;
    case SettingStep::CoarseUp:
        if (value >= maximum)
            return std::nullopt;
        return value + coarseStep < maximum ? value + coarseStep : maximum;
    }
    return std::nullopt;
}

StepsEnabled stepsEnabledAfterClick(unsigned int value, unsigned int maximum)
{
    const bool down = value != 0;
    const bool up = value < maximum;
    return {down, down, up, up};
}

StepsEnabled stepsEnabledAfterRead(unsigned int value, unsigned int maximum)
{
    return {value != 0, value >= kSensorCoarseStep, value < maximum, value + kSensorCoarseStep < maximum};
}

unsigned int shownRegisterValue(const QString& text)
{
    return text.right(kHexDigits).toUInt(nullptr, kHexBase);
}
