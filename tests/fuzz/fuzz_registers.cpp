// The texts of the sensor's settings in the camera tab, and the steps from what they say.
#include <optional>

#include <QString>

#include "FuzzInput.h"
#include "RegisterSteps.h"

namespace {

// Four characters of hexadecimal text cannot say more.
constexpr unsigned int kMostShown = 0xFFFF;
constexpr SettingStep kSteps[] = {SettingStep::FineDown, SettingStep::FineUp, SettingStep::CoarseDown,
                                  SettingStep::CoarseUp};

bool isDown(SettingStep step)
{
    return step == SettingStep::FineDown || step == SettingStep::CoarseDown;
}

void stepFrom(unsigned int value, unsigned int coarse, unsigned int maximum)
{
    for (const SettingStep step : kSteps) {
        const std::optional<unsigned int> stepped = steppedValue(value, step, coarse, maximum);
        if (isDown(step)) {
            require(!stepped || *stepped <= value, "a step down never goes up");
            require(stepped.has_value() || value == 0, "there is a step down from all but 0");
        } else {
            require(stepped.has_value() == (value < maximum), "steps up end at the maximum");
            require(!stepped || (*stepped > value && *stepped <= maximum), "a step up stays in range");
        }
        require(!stepped || *stepped - value + coarse <= 2 * coarse, "a step is never wider than coarse");
    }
    const StepsEnabled click = stepsEnabledAfterClick(value, maximum);
    require(click.fineUp == steppedValue(value, SettingStep::FineUp, coarse, maximum).has_value(),
            "the button up is locked where it would do nothing");
    const StepsEnabled read = stepsEnabledAfterRead(value, maximum);
    require((!read.coarseUp || read.fineUp) && (!read.coarseDown || read.fineDown),
            "a coarse step is open only where a fine one is");
    require(!read.coarseUp || value + kSensorCoarseStep < maximum, "a whole coarse step is left");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    FuzzInput input(data, size);
    const std::uint8_t choice = input.byte();
    const QString text = QString::fromUtf8(input.rest());

    const unsigned int value = shownRegisterValue(text);
    require(value <= kMostShown, "a register text says at most 16 bits");
    require(shownRegisterValue(QString::asprintf("0x%04X", value)) == value,
            "what the program writes it reads again");
    require(shownRegisterValue(QString('x') + text.right(4)) == value || text.size() < 4,
            "only the last four characters count");

    stepFrom(value, kSensorCoarseStep, kSensorSettings[choice % kSensorSettings.size()].maximum);
    stepFrom(value, kLedCoarseStep, kLedMaximum);
    return 0;
}
