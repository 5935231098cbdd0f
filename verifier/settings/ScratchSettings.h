#pragma once

#include <memory>

#include <QByteArray>
#include <QSettings>
#include <QString>
#include <QTemporaryDir>

/// A QSettings over a scratch copy of an INI file's content: QSettings turns old content and
/// new values into the new content, and what becomes of that is somebody else's decision.
/// Nothing but the scratch file is touched: it lies in memory, where there is such a folder.
/// GUI thread.
class ScratchSettings
{
public:
    /// path: a file that does not exist yet, in a directory that can be written, for where there
    /// is no folder in memory; no other scratch file has its name. Empty for none.
    ScratchSettings(const QString& path, const QByteArray& content, QSettings::Format format);
    ~ScratchSettings();

    /// Works in memory even where the scratch file could not be written; finish() tells.
    QSettings& settings() { return *m_settings; }

    /// Puts the whole new content into content. Call it once, with no group open. False, with
    /// the reason, if it could not be written. A line of the old content that is no INI line
    /// is left out; that is no failure.
    bool finish(QByteArray& content, QString& reason);

private:
    void makeCopy(const QString& path, const QByteArray& content, QSettings::Format format);

    QTemporaryDir m_memory; ///< goes last, with what QSettings leaves there
    QString m_path;
    QString m_reason; ///< why there is no copy; empty if there is
    std::unique_ptr<QSettings> m_settings;
};
