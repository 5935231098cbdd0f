#pragma once

#include "settings/GlobalIni.h"

/// Loads step and speed of the stage; 256 and 250 where the file does not say, 0 for a text
/// that is no decimal integer.
void loadStageFile(global_ini_t& record);

/// Saves both as one replacement of the file. Returns whether it succeeded; the debug stream
/// tells why not.
bool saveStageFile(const global_ini_t& record);
