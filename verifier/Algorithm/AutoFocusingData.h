#pragma once

#include <cstdint>

#include <QMetaType>

/// One sample of a focus sweep: how sharp the picture was and where the stage stood.
struct AutoFocusingData_s
{
    double focusValue;      ///< Score of the picture's green plane, 0.0 or more; higher is sharper.
    std::int32_t zPosition; ///< Stage position in motor steps.
};
using AutoFocusingData_t = AutoFocusingData_s;

Q_DECLARE_METATYPE(AutoFocusingData_t)

/// What the evaluation of a sweep's samples found.
enum AutoFocusingResult_e : int {
    AutoFocusingResult_NoSample = 0,
    AutoFocusingResult_BestPositionFound = 1,
    /// The peak lies at one end of the sweep and the minimum at the other.
    AutoFocusingResult_ThirdStepNecessary = 2,
};
