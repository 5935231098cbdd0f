#pragma once

#include <QString>
#include <QStringList>
#include <QTemporaryDir>

#include "tests/support/Patience.h"

/// One run of the simulator program, in a process of its own without a display.
struct ProgramRun
{
    /// Runs to the end with these arguments, pictures and log in a private directory; an
    /// end by force after limit_ms leaves exitStatus at -1.
    explicit ProgramRun(const QStringList& arguments, int limit_ms = patient_ms(240000));

    /// A file of the run's own folder.
    QString filePath(const QString& name) const { return out.filePath("latest/" + name); }
    QByteArray contentOf(const QString& name) const;
    /// The program's debug stream of a session.
    QString log() const;
    /// Names of the pictures of a session, in order.
    QStringList pictures() const;
    /// What came out, for a failed test's message.
    QByteArray all() const;

    QTemporaryDir out;
    int exitStatus = -1;
    QString output;
    QString errors;
};
