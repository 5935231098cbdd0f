#pragma once

#include <QDir>
#include <QFileInfo>
#include <QTemporaryDir>

#include "platform/InstrumentPath.h"

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

/// Such a directory in the place of the machine as long as it lives.
class QuickRoot : public QuickDirectory
{
public:
    QuickRoot()
    {
        if (!isValid())
            qFatal("no temporary directory: %s", qPrintable(errorString()));
        setInstrumentRoot(path());
    }
    ~QuickRoot() { setInstrumentRoot("/"); }
};
