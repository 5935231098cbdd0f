#pragma once

#include <map>
#include <vector>

#include <QByteArray>
#include <QString>
#include <QStringList>

/// A line of a file's two states.
struct DifferenceLine
{
    /// Where the line stands: in both states, only before, only after.
    enum Kind { Same, Removed, Added };

    Kind kind;
    QString text;
};

/// A file's two states, line by line.
struct FileDifference
{
    QString fixedPath;
    std::vector<DifferenceLine> lines;

    bool isSame() const;
};

/// The settings files as they are at one moment.
class SettingsFiles
{
public:
    /// Reads the files with these fixed paths below a root directory; one that cannot be read
    /// counts as missing. Any thread.
    static SettingsFiles read(const QString& root, const QStringList& fixedPaths);

    /// All values by "file name: section/key", names decoded.
    std::map<QString, QString> entries() const;

    /// What a file has suffered between two moments, in sentences: gone, empty, cut off, or a
    /// key lost. None where it is as before, or has changed as files change.
    static QStringList harm(const SettingsFiles& before, const SettingsFiles& after);
    /// All files that are there at either moment.
    static std::vector<FileDifference> differences(const SettingsFiles& before, const SettingsFiles& after);

private:
    struct File
    {
        QString fixedPath;
        bool isThere = false;
        QByteArray content;
    };

    static std::map<QString, QString> entriesOf(const File& file);

    std::vector<File> m_files;
};
