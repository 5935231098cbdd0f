#pragma once

#include <QMap>
#include <QProcess>
#include <QString>
#include <QStringList>

/// How a process came to its end, and what it said.
struct Ended
{
    /// Waits for the end, and brings it about after limit_ms; status is then -1, as it is after
    /// a crash.
    Ended(QProcess& process, int limit_ms)
    {
        if (!process.waitForFinished(limit_ms)) {
            process.kill();
            process.waitForFinished();
        } else if (process.exitStatus() == QProcess::NormalExit) {
            status = process.exitCode();
        }
        output = QString::fromLocal8Bit(process.readAllStandardOutput());
        errors = QString::fromLocal8Bit(process.readAllStandardError());
    }

    int status = -1;
    QString output;
    QString errors;
};

/// Starts the simulator program, without a display unless the variables name one.
inline void startSimulator(QProcess& program, const QStringList& arguments,
                           const QMap<QString, QString>& variables = {})
{
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("offscreen"));
    for (auto variable = variables.cbegin(); variable != variables.cend(); ++variable)
        environment.insert(variable.key(), variable.value());
    program.setProcessEnvironment(environment);
    program.start(QStringLiteral(SIMULATOR_PROGRAM), arguments);
}
