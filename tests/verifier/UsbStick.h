#pragma once

#include "support/WindowFixture.h"

/// The runs of a command so far, "mount" or "umount".
inline int runsOf(WindowFixture& fixture, const QString& command)
{
    int runs = 0;
    for (const QString& line : fixture.usb().commands())
        runs += line.startsWith(command + ' ') ? 1 : 0;
    return runs;
}

/// Plugs a disk in and waits until the program has tried to mount it. False where this
/// machine cannot make a disk of that condition.
inline bool plugAndMount(WindowFixture& fixture, UsbDiskCondition condition = UsbDiskCondition::Good)
{
    UsbDisk disk;
    disk.condition = condition;
    const int before = runsOf(fixture, "mount");
    return fixture.usb().plug(disk) && fixture.waitUntil([&] { return runsOf(fixture, "mount") > before; });
}

/// Pulls the disk, if one is plugged in, and waits until the program has noticed.
inline void pullAndUnmount(WindowFixture& fixture)
{
    const int before = runsOf(fixture, "umount");
    if (fixture.usb().pull() && !fixture.waitUntil([&] { return runsOf(fixture, "umount") > before; }))
        qFatal("the program does not notice the pulled disk");
}
