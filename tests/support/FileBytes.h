#pragma once

#include <QByteArray>
#include <QDir>
#include <QFile>
#include <QFileInfo>

/// Everything in a file; a text that no file of ours holds when it cannot be read.
inline QByteArray bytesOf(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("(cannot be read)");
}

/// Makes a file of these bytes, and the folders to it; ends the test program where it cannot.
inline void putBytes(const QString& path, const QByteArray& bytes)
{
    QFile file(path);
    if (!QDir().mkpath(QFileInfo(path).path()) || !file.open(QIODevice::WriteOnly) ||
        file.write(bytes) != bytes.size())
        qFatal("%s cannot be written", qPrintable(path));
}
