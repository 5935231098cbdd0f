#pragma once

#include <optional>

#include <QCoreApplication>
#include <QProcess>
#include <QtTest>

#include "AccuracySeeds.h"

/// A test program that runs itself once more for each seed: what a process keeps for good, such as
/// the controller's first serial line, begins anew. GUI thread.
namespace seed_process {

constexpr const char* kVariable = "ORLA_TEST_PROCESS_SEED";

/// The seed that this process was started for; none in the test itself.
inline std::optional<int> ownSeed()
{
    if (!qEnvironmentVariableIsSet(kVariable))
        return std::nullopt;
    return qEnvironmentVariableIntValue(kVariable);
}

/// One row for each seed from 1 on, in the column "seed".
inline void addRows(int few)
{
    QTest::addColumn<int>("seed");
    for (int seed = 1; seed <= accuracySeeds(few); ++seed)
        QTest::addRow("seed %d", seed) << seed;
}

/// Starts the process for a seed and waits for its end. said: what it wrote to its standard
/// output. True when it ended in time, by itself, with status 0.
inline bool run(int seed, int limit_ms, QByteArray& said)
{
    QProcess child;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(kVariable, QString::number(seed));
    child.setProcessEnvironment(environment);
    child.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    child.start(QCoreApplication::applicationFilePath(), QStringList());
    const bool ended = child.waitForFinished(limit_ms);
    said = child.readAllStandardOutput();
    return ended && child.exitStatus() == QProcess::NormalExit && child.exitCode() == 0;
}

} // namespace seed_process
