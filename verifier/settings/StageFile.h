#pragma once

#include "settings/GlobalIni.h"

/// Loads step and speed of the stage; 256 and 250 where the file lacks them, 0 for a text
/// that is no decimal integer.
void loadStageFile(global_ini_t& record);

/// Saves both in one replacement of the file. Returns whether it succeeded; if not, the debug
/// stream says why.
bool saveStageFile(const global_ini_t& record);
