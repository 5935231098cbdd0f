#pragma once

#include <QString>

struct SessionFindings;

/// The focus curve of the last autofocus run as an SVG element, with the sample that was
/// chosen and the true focus; empty without a curve. Any thread.
QString focusCurveSvg(const SessionFindings& findings);
