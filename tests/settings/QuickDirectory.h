#pragma once

#include <QDir>
#include <QFileInfo>
#include <QTemporaryDir>

/// A temporary directory in memory where the machine has one: hundreds of saves, each forced
/// to the disk, would wait for the disk otherwise.
class QuickDirectory : public QTemporaryDir
{
public:
    QuickDirectory() : QTemporaryDir(parent() + QStringLiteral("/orla-settings-XXXXXX")) {}

private:
    static QString parent()
    {
        const QString memory = QStringLiteral("/dev/shm");
        return QFileInfo(memory).isWritable() ? memory : QDir::tempPath();
    }
};
