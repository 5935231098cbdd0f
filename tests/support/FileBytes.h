#pragma once

#include <QByteArray>
#include <QFile>

/// Everything in a file; a text that no file of ours holds when it cannot be read.
inline QByteArray bytesOf(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("(cannot be read)");
}
