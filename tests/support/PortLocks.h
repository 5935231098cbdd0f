#pragma once

#include <QDir>

/// The lock files of the serial port of this path, wherever the system keeps them.
inline QStringList portLocks(QString port)
{
    const QString name = "LCK.." + port.replace('/', '_');
    QStringList locks;
    for (const char* folder : {"/var/lock", "/etc/locks", "/var/spool/locks", "/var/spool/uucp", "/tmp"})
        locks += QDir(folder).entryList({name}, QDir::Files | QDir::Hidden);
    return locks;
}
