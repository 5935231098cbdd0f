#pragma once

#include <QtGlobal>

/// A limit of time that holds for shipped programs, as long as it has to be here: longer where an
/// emulator or a sanitizer runs them (cmake/OrlaTargets.cmake). For limits alone, which a test that
/// passes does not wait for.
inline int patient_ms(int limit_ms) noexcept
{
    return limit_ms * qMax(1, qEnvironmentVariableIntValue("ORLA_TEST_PATIENCE"));
}
