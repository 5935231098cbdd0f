#pragma once

#include <QByteArray>
#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QStringList>

#include "FuzzInput.h"
#include "platform/InstrumentPath.h"
#include "tests/settings/QuickDirectory.h"

/// A root with the folders of the settings files. Lives to the end of the process.
class SettingsRoot
{
public:
    SettingsRoot()
    {
        muteDebugStream();
        setInstrumentRoot(m_root.path());
        for (const char* folder : {"/opt/ORLA3/conf", "/root/Orla2"})
            QDir().mkpath(instrumentPath(QString(folder)));
    }

    static void put(const QString& fixedPath, const QByteArray& bytes)
    {
        QFile file(instrumentPath(fixedPath));
        require(file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size(), "room for a file");
    }
    static QByteArray bytesOf(const QString& fixedPath)
    {
        QFile file(instrumentPath(fixedPath));
        file.open(QIODevice::ReadOnly);
        return file.readAll();
    }

    /// Whether a text in the content may begin as an object does, in whatever way it is written.
    static bool mayHoldObject(const QByteArray& content)
    {
        return content.contains('@') || content.contains('\\');
    }

    /// All files below the root, hidden ones too, as fixed paths in alphabetical order.
    QStringList files() const
    {
        QStringList found;
        QDirIterator files(m_root.path(),
                           QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
                           QDirIterator::Subdirectories);
        while (files.hasNext()) {
            files.next();
            if (!files.fileInfo().isDir() || files.fileInfo().isSymLink() ||
                files.fileName().endsWith(".saving"))
                found << fixedPathOf(files.filePath());
        }
        found.sort();
        return found;
    }

private:
    QuickDirectory m_root;
};
