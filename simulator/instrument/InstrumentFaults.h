#pragma once

#include <optional>
#include <string>
#include <vector>

#include "simulator/board/LineFault.h"
#include "simulator/camera/CameraFaults.h"
#include "simulator/disk/UsbPort.h"

/// What is wrong with a simulated instrument from its power-on.
struct InstrumentFaults
{
    std::vector<LineFaultRule> line;
    std::vector<std::string> camera; ///< as CameraFaults::enable() takes them
    bool noSerialDevice = false;
    bool noBoardPower = false;
    bool noSettingsFiles = false;
    bool unreadableSettingsFiles = false;
    bool noDisplayParameter = false;
    std::optional<UsbDiskCondition> disk; ///< what is wrong with every USB disk
    double stagePlay_steps = 0.0;         ///< at least so much between motor and carriage
};

/// A fault's form on the command line and what it does.
struct InstrumentFaultText
{
    std::string name;
    std::string arguments; ///< what may follow the name
    std::string text;
};

/// Every fault there is, in the order of a listing.
std::vector<InstrumentFaultText> instrumentFaultTexts();

/// Adds a fault by its command line form. Returns what is wrong with it in a sentence;
/// empty when it was added.
std::string addFault(InstrumentFaults& faults, const std::string& text);
