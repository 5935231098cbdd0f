#pragma once

#include <QtGlobal>

/// How many seeds an accuracy test tries: those that ORLA_TEST_SEEDS asks for, else a few.
inline int accuracySeeds(int few)
{
    const int asked = qEnvironmentVariableIntValue("ORLA_TEST_SEEDS");
    return asked > 0 ? asked : few;
}
