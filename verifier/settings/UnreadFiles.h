#pragma once

#include <QSettings>
#include <QString>

/// Settings files that hold values which the last load did not get, because a reading failed:
/// QSettings tells no difference between such a file and an empty one. The record then holds
/// defaults, and a save would put them in the place of the instrument's own values. GUI thread.

/// Whether the load got what the file holds; `loaded` is what it was loaded from. A missing
/// file, an empty one and one without a key were loaded whole, unless it cannot be found out
/// that there is none. Until a later load gets it, the file is not to be saved.
bool noteLoad(const QString& fixedPath, const QSettings& loaded);

/// Whether the file's last load failed. A file that was never noted was not.
bool isUnread(const QString& fixedPath);
