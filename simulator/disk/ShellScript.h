#pragma once

#include <QByteArray>
#include <QString>

/// Writes an executable shell script of the simulated instrument. lines follow a line that
/// sets $root to the root directory. root: machine path; fixedPath: below it. False if it
/// cannot be written.
bool writeShellScript(const QString& root, const QString& fixedPath, const QByteArray& lines);
