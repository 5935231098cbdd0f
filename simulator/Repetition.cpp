#include "simulator/Repetition.h"

#include <cstdio>

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>

#include "simulator/SimulatorOptions.h"
#include "simulator/session/RepeatabilityTable.h"

namespace {

constexpr int kFailure = 1;
// A run that does not end is stopped by its own watchdog long before.
constexpr int kRunLimit_ms = 900000;

/// What a used instrument has: before the user's own options, which win.
const QStringList kUsedInstrument{"--parameter",       "noise=2",     "--parameter",
                                  "stage-backlash=40", "--parameter", "stage-vibration=25"};

/// Runs one seed; false if the process did not end as it should.
bool runSeed(const SimulatorOptions& options, std::uint32_t seed, const QString& directory)
{
    QProcess program;
    program.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    // Nobody watches these runs.
    environment.insert("QT_QPA_PLATFORM", "offscreen");
    program.setProcessEnvironment(environment);
    program.start(QCoreApplication::applicationFilePath(),
                  QStringList{"--calibration", "--seed", QString::number(seed), "--out", directory} +
                      kUsedInstrument + options.ofInstrument);
    if (!program.waitForFinished(kRunLimit_ms)) {
        program.kill();
        program.waitForFinished();
        return false;
    }
    return program.exitStatus() == QProcess::NormalExit && program.exitCode() == 0;
}

QJsonObject sessionOf(const QString& directory)
{
    QFile file(QDir(directory).filePath("session.json"));
    return file.open(QIODevice::ReadOnly) ? QJsonDocument::fromJson(file.readAll()).object() : QJsonObject();
}

bool writeText(const QString& path, const QString& text)
{
    QFile file(path);
    const QByteArray bytes = text.toUtf8();
    return file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size() && file.flush();
}

} // namespace

int runRepetition(const SimulatorOptions& options)
{
    const QDir out(options.outDirectory);
    RepeatabilityTable table;
    int good = 0;
    for (int i = 0; i < options.repeat; ++i) {
        const std::uint32_t seed = options.seed + static_cast<std::uint32_t>(i);
        const QString directory = out.filePath(QStringLiteral("seed-%1").arg(seed));
        QDir(directory).mkpath(QStringLiteral("."));
        QFile::remove(QDir(directory).filePath("session.json"));
        const bool ended = runSeed(options, seed, directory);
        table.add(seed, ended, sessionOf(directory));
        good += ended ? 1 : 0;
        std::printf("[%d/%d] %s\n", i + 1, options.repeat, qPrintable(table.lastRunText()));
        std::fflush(stdout);
    }
    std::printf("%s%d of %d runs as they should be\n", qPrintable(table.summary()), good, options.repeat);
    if (!writeText(out.filePath("repeatability.csv"), table.csv()) ||
        !writeText(out.filePath("repeatability.svg"), table.svg())) {
        std::fprintf(stderr, "The results cannot be written to %s.\n", qPrintable(options.outDirectory));
        return kFailure;
    }
    return good == options.repeat ? 0 : kFailure;
}
