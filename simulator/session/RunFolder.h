#pragma once

#include <QDateTime>
#include <QString>
#include <QStringList>

/// Makes a folder for one run below the directory for all of them, made as well if need be,
/// and named by date and time: "2026-11-21_193000", with a number behind it where another run
/// has begun in the same second. Returns its path; empty if it cannot be made.
QString makeRunFolder(const QString& outDirectory, const QDateTime& begun);

/// Links a run's folder as "latest", and some of its files by their names, into the directory for
/// all runs. Returns the first file's path: in that directory, or in the run's folder where the
/// name is taken by something else. Empty without files.
QString showResults(const QString& outDirectory, const QString& runFolder, const QStringList& files);

/// Makes outDirectory/name a symbolic link to outDirectory/target, a run's folder or a file in
/// it. Something that has the name already is replaced only if it is a link to a run, for
/// anything else belongs to the user. False, and nothing has changed, where it is not replaced.
bool linkToRun(const QString& outDirectory, const QString& name, const QString& target);
