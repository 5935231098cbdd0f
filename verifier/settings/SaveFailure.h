#pragma once

#include <QString>

/// Writes the one line of a save that failed to the debug stream: the file, by its fixed
/// path, and the reason. Returns false, the caller's answer.
bool saveFailed(const QString& fixedPath, const QString& reason);
