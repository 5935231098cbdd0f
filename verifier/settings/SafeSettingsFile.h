#pragma once

#include <memory>

#include <QSettings>
#include <QString>

#include "settings/FileReplacement.h"
#include "settings/ScratchSettings.h"

/// A settings file opened for a save through QSettings that either happens as a whole or
/// not at all: the QSettings works on a scratch copy, which takes the file's place at
/// commit() (FileReplacement). The bytes are those that QSettings writes in its INI format.
/// GUI thread.
class SafeSettingsFile
{
public:
    /// fixedPath: fixed path of an INI file, which need not exist.
    explicit SafeSettingsFile(const QString& fixedPath);

    /// Holds the file's present keys. Usable in any case: where no scratch copy could be made
    /// it keeps its values in memory, and commit() fails.
    QSettings& settings() { return m_scratch->settings(); }

    /// Replaces the file. On failure the file is as it was, one line in the debug stream says
    /// why, and false is returned. Call it once, after the last setValue().
    bool commit();

private:
    QString m_fixedPath;
    FileReplacement m_file; ///< outlives m_scratch, which lives in its directory
    QString m_reason;       ///< why there can be no save
    bool m_ready;           ///< the scratch directory exists and the old content was read
    std::unique_ptr<ScratchSettings> m_scratch;
};
