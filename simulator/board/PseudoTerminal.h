#pragma once

#include <string>

#include "platform/FileDescriptor.h"

/// A serial line without a wire: a pseudo-terminal pair in raw mode. The far end is a device
/// that a serial port class can open, close and open again; it stays alive meanwhile. One thread
/// at a time.
class PseudoTerminal
{
public:
    /// Creates the pair; isOpen() tells whether the system had one to give.
    PseudoTerminal();

    bool isOpen() const { return m_far.isOpen(); }
    /// The near end: what the host sends is read here, and the other way round. Non-blocking.
    int descriptor() const { return m_near.get(); }
    /// The device that the host opens, such as "/dev/pts/7".
    const std::string& devicePath() const { return m_devicePath; }

private:
    FileDescriptor m_near;
    // Held open so that the near end sees no hang-up while the host has the device closed.
    FileDescriptor m_far;
    std::string m_devicePath;
};
