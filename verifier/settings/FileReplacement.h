#pragma once

#include <QByteArray>
#include <QString>

/// One file's way from its old content to its new one, without a moment at which it is
/// empty, half written or gone: the new content is completed in a scratch directory beside
/// the file, forced to the disk, and then takes the old one's place in a single step. A
/// power cut at any time leaves the old content or the new one.
///
/// Owner, group and mode are those of the old file; a process that may write it but not give
/// files away becomes the owner. A file that the process may not write stays. Where the path
/// is a symbolic link, the file it leads to is replaced and the link stays; a chain of more
/// links than the system follows is a failure. The scratch directory, ".NAME.saving", goes with
/// this object; one that a power cut left behind goes with the next save.
///
/// Neither QSaveFile nor QSettings' own atomic save, which uses it, promises as much: the file
/// gets another owner, a flush to the disk that fails is ignored, and what a power cut leaves
/// behind has a random name, so that no later save finds and removes it.
///
/// One thread at a time, and one object for each file at a time.
class FileReplacement
{
public:
    /// path: machine path of the file, which need not exist.
    explicit FileReplacement(const QString& path);
    /// Removes the scratch directory.
    ~FileReplacement();

    FileReplacement(const FileReplacement&) = delete;
    FileReplacement& operator=(const FileReplacement&) = delete;

    /// Creates the scratch directory, and the file's own directory if it is missing.
    bool begin();

    /// The file's present content; empty if there is no file. False if there is one that
    /// cannot be read, and that therefore must not be replaced.
    bool read(QByteArray& content);

    /// Path of a file in the scratch directory. No two calls in this process return the same
    /// one, so that nothing remembered under a path can be taken for another file's content.
    QString scratchFile() const;

    /// Puts content in the file's place. On failure the file is as it was; content that holds an
    /// unsafe object, and could not be read again, is one.
    bool commit(const QByteArray& content);

    /// Why the last call failed, in the system's words but for an unsafe object and a special file.
    QString reason() const { return m_reason; }

private:
    bool fail(const char* step);

    QString m_path;    ///< of the file itself, links resolved
    QString m_scratch; ///< directory; empty until begin() made it
    QString m_reason;
};
