#pragma once

#include <QtTest>

/// Whether an emulator runs this test instead of a processor (./test --arch).
inline bool isEmulated()
{
    return qEnvironmentVariableIsSet("ORLA_TEST_EMULATOR");
}

/// Ends the test function as skipped where an emulator runs it: for what it does otherwise than a
/// kernel and a processor would. `reason` is a literal.
#define SKIP_UNDER_EMULATION(reason)                                                                         \
    do {                                                                                                     \
        if (isEmulated())                                                                                    \
            QSKIP("emulation: " reason);                                                                     \
    } while (false)
