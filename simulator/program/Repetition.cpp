#include "simulator/program/Repetition.h"

#include <csignal>
#include <cstdio>

#include <sys/prctl.h>

#include <QCoreApplication>
#include <QDateTime>
#include <QDir>
#include <QEventLoop>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTimer>

#include "ProgramStart.h"
#include "platform/TerminationSignal.h"
#include "simulator/program/SimulatorOptions.h"
#include "simulator/session/RepeatabilityTable.h"
#include "simulator/session/RunFolder.h"
#include "simulator/session/SessionRecord.h"
#include "simulator/session/SessionReport.h"

namespace {

constexpr int kFailure = 1;
// A run that does not end is stopped by its own watchdog long before.
constexpr int kRunLimit_ms = 900000;
// The longest that a handler of the window blocks, and the time to leave after it.
constexpr int kEndPatience_ms = 60000;

/// A used instrument. The user's own options come after these and override them.
const QStringList kUsedInstrument{"--parameter",       "noise=2",     "--parameter",
                                  "stage-backlash=40", "--parameter", "stage-vibration=25"};

/// A run of this program as a child process, which is ended whenever this process ends.
class ChildRun : public QProcess
{
protected:
    void setupChildProcess() override { ::prctl(PR_SET_PDEATHSIG, SIGTERM); }
};

/// Runs one seed; false if the process did not end as it should.
bool runSeed(const SimulatorOptions& options, std::uint32_t seed, Answers answers, const QString& directory)
{
    ChildRun program;
    program.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    // Nobody watches these runs.
    environment.insert("QT_QPA_PLATFORM", "offscreen");
    program.setProcessEnvironment(environment);
    QEventLoop untilItEnds;
    QObject::connect(&program, &QProcess::stateChanged, &untilItEnds, [&](QProcess::ProcessState state) {
        if (state == QProcess::NotRunning)
            untilItEnds.quit();
    });
    QTimer::singleShot(kRunLimit_ms, &program, &QProcess::kill);
    QStringList arguments{"--calibration", "--seed", QString::number(seed), "--out", directory};
    if (answers == Answers::Plain)
        arguments.append("--plain-answers");
    program.start(QCoreApplication::applicationFilePath(),
                  arguments + kUsedInstrument + options.ofInstrument);
    if (program.state() != QProcess::NotRunning)
        untilItEnds.exec();
    // A signal ended the loop, not the end of the run.
    if (program.state() != QProcess::NotRunning) {
        program.terminate();
        if (!program.waitForFinished(kEndPatience_ms)) {
            program.kill();
            program.waitForFinished();
        }
        return false;
    }
    return program.exitStatus() == QProcess::NormalExit && program.exitCode() == 0;
}

QJsonObject sessionOf(const QString& directory)
{
    QFile file(QDir(directory).filePath("session.json"));
    return file.open(QIODevice::ReadOnly) ? QJsonDocument::fromJson(file.readAll()).object() : QJsonObject();
}

bool writeText(const QString& path, const QByteArray& bytes)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size() && file.flush();
}

/// All runs, one after the other, and what is written about them.
class Repetition
{
public:
    Repetition(const SimulatorOptions& options, const QDateTime& begun, const QString& folder)
        : m_options(options), m_folder(folder), m_planned(options.repeat * (options.plainAnswers ? 2 : 1))
    {
        m_facts.version = programAndVersion(kSimulatorProgram);
        // Ends the loop that a run is waited for in.
        QObject::connect(&m_signalled, &TerminationSignal::received, qApp, &QCoreApplication::quit);
        m_facts.host = QSysInfo::machineHostName();
        m_facts.begun = begun;
        m_facts.seed = options.seed;
        m_facts.faults = options.faultNames;
        m_facts.options = options.given;
        showResults(options.outDirectory, folder, {});
    }

    int run()
    {
        for (int i = 0; i < m_options.repeat && !m_signalled.isReceived(); ++i) {
            const std::uint32_t seed = m_options.seed + static_cast<std::uint32_t>(i);
            make(seed, Answers::HeldBack, QStringLiteral("seed-%1").arg(seed));
            if (m_options.plainAnswers)
                make(seed, Answers::Plain, QStringLiteral("seed-%1-plain").arg(seed));
        }
        std::printf("%s%d of %d runs as they should be\n", qPrintable(m_table.summary()), m_good, m_planned);
        if (!write())
            return kFailure;
        if (m_signalled.isReceived())
            return m_signalled.exitStatus();
        return m_good == m_planned ? 0 : kFailure;
    }

private:
    void make(std::uint32_t seed, Answers answers, const QString& name)
    {
        if (m_signalled.isReceived())
            return;
        const QString directory = m_folder.filePath(name);
        const bool good = runSeed(m_options, seed, answers, directory);
        // An interrupted run has not found what it would have found.
        if (m_signalled.isReceived()) {
            std::printf("%s ended the repetition with seed %u\n", qPrintable(m_signalled.name()), seed);
            return;
        }
        const QJsonObject session = sessionOf(directory);
        if (session.contains("parameters"))
            m_parameters = session["parameters"];
        m_table.add(seed, answers, good, session);
        m_good += good ? 1 : 0;
        std::printf("[%d/%d] %s\n", ++m_made, m_planned, qPrintable(m_table.lastRunText()));
        std::fflush(stdout);
    }

    bool write() const
    {
        QJsonObject record = m_facts.toJson();
        const QJsonObject table = m_table.toJson();
        for (auto entry = table.begin(); entry != table.end(); ++entry)
            record[entry.key()] = entry.value();
        record["parameters"] = m_parameters;
        record["plannedRuns"] = m_planned;
        record["runsThatHold"] = m_good;
        record["holds"] = m_good == m_planned;
        record["stopped"] = m_signalled.isReceived()
                                ? m_signalled.name() + " ended the repetition before its time."
                                : QString();
        if (!writeText(m_folder.filePath("repeatability.csv"), m_table.csv().toUtf8()) ||
            !writeText(m_folder.filePath("repeatability.json"), QJsonDocument(record).toJson()) ||
            !writeRepetitionReport(record, m_folder.path())) {
            std::fprintf(stderr, "The results cannot be written to %s.\n", qPrintable(m_folder.path()));
            return false;
        }
        std::printf("report: %s\n",
                    qPrintable(showResults(m_options.outDirectory, m_folder.path(),
                                           {"report.html", "repeatability.csv", "repeatability.json"})));
        return true;
    }

    const SimulatorOptions& m_options;
    const QDir m_folder;
    const int m_planned;
    const TerminationSignal m_signalled{TerminationSignal::Second::EndsTheProcess};
    RunFacts m_facts;
    RepeatabilityTable m_table;
    QJsonValue m_parameters;
    int m_made = 0;
    int m_good = 0;
};

} // namespace

int runRepetition(const SimulatorOptions& options)
{
    const QDateTime begun = QDateTime::currentDateTime();
    const QString folder = makeRunFolder(options.outDirectory, begun);
    if (folder.isEmpty()) {
        std::fprintf(stderr, "The directory %s cannot be written.\n", qPrintable(options.outDirectory));
        return kFailure;
    }
    return Repetition(options, begun, folder).run();
}
