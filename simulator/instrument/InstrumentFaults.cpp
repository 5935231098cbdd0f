#include "simulator/instrument/InstrumentFaults.h"

#include "simulator/board/BoardLine.h"

namespace {

using F = InstrumentFaults;

/// All that comes with age, none of it so often that the instrument could not be used.
void wearOut(F& faults)
{
    constexpr double kPlay_steps = 60.0;
    constexpr const char* kFaults[] = {"late::1/20", "noisy::1/20", "lost-frames:1/20", "i2c-nack:1/1000"};
    faults.stagePlay_steps = kPlay_steps;
    for (const char* fault : kFaults)
        addFault(faults, fault);
}

/// A fault without arguments.
struct PlainFault
{
    const char* name;
    const char* text;
    void (*enable)(F&);
};

constexpr PlainFault kPlainFaults[] = {
    {"no-serial", "/dev/ttyS2 is missing", [](F& f) { f.noSerialDevice = true; }},
    {"no-power", "the board has no power: it neither moves nor answers", [](F& f) { f.noBoardPower = true; }},
    {"no-settings", "the settings files are missing", [](F& f) { f.noSettingsFiles = true; }},
    {"unreadable-settings", "the settings files cannot be read or written",
     [](F& f) { f.unreadableSettingsFiles = true; }},
    {"no-display-parameter", "the display driver's parameter file is missing",
     [](F& f) { f.noDisplayParameter = true; }},
    {"unmountable-disk", "a USB disk cannot be mounted",
     [](F& f) { f.disk = UsbDiskCondition::Unmountable; }},
    {"full-disk", "nothing fits on a USB disk", [](F& f) { f.disk = UsbDiskCondition::Full; }},
    {"read-only-disk", "a USB disk cannot be written", [](F& f) { f.disk = UsbDiskCondition::ReadOnly; }},
    {"pulled-disk", "a USB disk is pulled some seconds after it was plugged in",
     [](F& f) { f.disk = UsbDiskCondition::Pulled; }},
    {"worn-out",
     "play in the stage, and now and then a late or a disturbed answer, a lost frame, a register access "
     "that is not acknowledged",
     wearOut},
};

/// "N", or "1/N" for one of N at random.
bool takeNumber(const std::string& text, LineFaultRule& rule)
{
    const bool atRandom = text.compare(0, 2, "1/") == 0;
    const std::optional<int> number = parseInteger(text.substr(atRandom ? 2 : 0));
    if (!number || *number < 1)
        return false;
    (atRandom ? rule.oneIn : rule.nth) = *number;
    return true;
}

/// Adds "name[:COMMAND[:N]]"; false where it is no fault of the line.
bool addLineFault(InstrumentFaults& faults, const std::string& text)
{
    const std::size_t first = text.find(':');
    const std::optional<LineFault> fault = lineFaultNamed(text.substr(0, first));
    if (!fault)
        return false;
    LineFaultRule rule{*fault, {}, 0};
    if (first != std::string::npos) {
        const std::size_t second = text.find(':', first + 1);
        rule.command = text.substr(first + 1, second - first - 1);
        if (second != std::string::npos && !takeNumber(text.substr(second + 1), rule))
            return false;
    }
    faults.line.push_back(rule);
    return true;
}

} // namespace

std::vector<InstrumentFaultText> instrumentFaultTexts()
{
    std::vector<InstrumentFaultText> texts;
    for (const PlainFault& fault : kPlainFaults)
        texts.push_back({fault.name, "", fault.text});
    for (const LineFaultText& fault : kLineFaults)
        texts.push_back({fault.name, "[:COMMAND[:N]]", fault.text});
    for (const CameraFaultText& fault : kCameraFaults)
        texts.push_back({fault.name, fault.arguments, fault.text});
    return texts;
}

std::string addFault(InstrumentFaults& faults, const std::string& text)
{
    for (const PlainFault& fault : kPlainFaults)
        if (text == fault.name) {
            fault.enable(faults);
            return {};
        }
    if (addLineFault(faults, text))
        return {};
    if (CameraFaults trial; trial.enable(text)) {
        faults.camera.push_back(text);
        return {};
    }
    return "There is no fault \"" + text + "\"; --faults lists them.";
}
