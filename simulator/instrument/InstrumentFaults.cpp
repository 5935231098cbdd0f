#include "simulator/instrument/InstrumentFaults.h"

#include "simulator/board/BoardLine.h"

namespace {

using F = InstrumentFaults;

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
};

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
        if (second != std::string::npos) {
            const std::optional<int> nth = parseInteger(text.substr(second + 1));
            if (!nth || *nth < 1)
                return false;
            rule.nth = *nth;
        }
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
