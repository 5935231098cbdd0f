#include "simulator/program/DrivenRun.h"

#include <cstdio>
#include <memory>
#include <utility>

#include <QApplication>
#include <QDateTime>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QTextStream>
#include <QTimer>

#include "ORLA_II_Plus_Verifier.h"
#include "ProgramStart.h"
#include "platform/TerminationSignal.h"
#include "simulator/instrument/SimulatedInstrument.h"
#include "simulator/operator/Operator.h"
#include "simulator/program/SimulatorOptions.h"
#include "simulator/session/RunFolder.h"
#include "simulator/session/Session.h"
#include "simulator/session/SessionRecord.h"
#include "simulator/session/SessionReport.h"
#include "simulator/session/SessionRunner.h"

namespace {

constexpr int kFailure = 1;
/// How long the program may take to leave its event loop after the last step in it.
constexpr int kEndPatience_ms = 3000;
constexpr double kMsPerSecond = 1000.0;
const QString kLogName = QStringLiteral("verifier.log");

QFile& logFile()
{
    static QFile file;
    return file;
}

void writeToLogFile(QtMsgType, const QMessageLogContext&, const QString& message)
{
    // The capture and grab threads log as well; one write is one line.
    logFile().write((message + QLatin1Char('\n')).toLocal8Bit());
}

/// Sends the debug stream into a file of the run's folder.
bool beginLog(const QString& folder)
{
    logFile().setFileName(QDir(folder).filePath(kLogName));
    if (!logFile().open(QIODevice::WriteOnly | QIODevice::Unbuffered))
        return false;
    qInstallMessageHandler(writeToLogFile);
    return true;
}

SessionPlan planOf(const SimulatorOptions& options)
{
    return options.calibration ? SessionPlan::Calibration : SessionPlan::Day;
}

/// One run from the window's start to its end, and what is written about it.
class DrivenRun
{
public:
    DrivenRun(const SimulatorOptions& options, SimulatedInstrument& instrument, QString folder,
              const QDateTime& begun)
        : m_options(options),
          m_folder(std::move(folder)),
          m_begun(begun),
          m_instrument(instrument),
          m_settingsBefore(readSettings()),
          m_serialBefore(serialNumber()),
          m_output(stdout),
          m_window(std::make_unique<ORLA_II_Plus_Verifier>()),
          m_operator(*m_window, m_folder),
          m_context(m_operator, instrument, !options.plainAnswers),
          m_runner(m_operator, sessionSteps(m_context, planOf(options), options.steps), m_output)
    {
        m_clock.start();
        m_runner.showProgress();
        m_runner.setLastWords([this](const std::string& what) {
            report(QString::fromStdString(what) + " did not end in time, and the program was stopped.");
        });
    }

    int run(const TerminationSignal& signalled)
    {
        m_window->show();
        QObject::connect(&signalled, &TerminationSignal::received, &m_operator, [this] {
            m_operator.giveUp();
            QCoreApplication::quit();
        });
        QTimer::singleShot(0, &m_operator, [this] {
            m_runner.runInEventLoop();
            m_runner.expectEnd();
            if (m_operator.hasGivenUp())
                QCoreApplication::quit();
            QTimer::singleShot(kEndPatience_ms, &m_operator, [this] {
                m_context.findings.forcedEnd = true;
                QCoreApplication::quit();
            });
        });
        QApplication::exec();
        m_window.reset();
        m_runner.runAfterEventLoop();
        const bool reported =
            report(signalled.isReceived() ? signalled.name() + " ended the run before its time." : QString());
        return signalled.isReceived() ? signalled.exitStatus() : reported ? m_runner.exitStatus() : kFailure;
    }

private:
    SettingsFiles readSettings() const
    {
        return SettingsFiles::read(m_instrument.root(), InstrumentTree::settingsFiles());
    }

    QString serialNumber() const
    {
        return m_instrument.setting(QStringLiteral("ORLA-III/Serial"), QStringLiteral("none"));
    }

    RunFacts facts() const
    {
        RunFacts facts;
        facts.version = programAndVersion(kSimulatorProgram);
        facts.host = QSysInfo::machineHostName();
        facts.begun = m_begun;
        facts.seed = m_options.seed;
        facts.faults = m_options.faultNames;
        facts.options = m_options.given;
        facts.parameters = changedParameters(m_options.parameters);
        facts.answersHeldBack = !m_options.plainAnswers;
        return facts;
    }

    SessionRecord record(const QString& stopped) const
    {
        const SettingsFiles settingsAfter = readSettings();
        SessionRecord record;
        record.facts = facts();
        record.elapsed_s = static_cast<double>(m_clock.elapsed()) / kMsPerSecond;
        record.serialBefore = m_serialBefore;
        record.serialAfter = serialNumber();
        record.stopped = stopped;
        record.plannedSteps = m_runner.stepNames();
        record.steps = m_runner.reports();
        record.findings = m_context.findings;
        record.errorLines = errorLinesOf(QDir(m_folder).filePath(kLogName));
        record.harm = SettingsFiles::harm(m_settingsBefore, settingsAfter);
        record.settings = SettingsFiles::differences(m_settingsBefore, settingsAfter);
        return record;
    }

    /// Writes the report; false if it cannot be written, or if it tells of files that
    /// have suffered.
    bool report(const QString& stopped) const
    {
        const SessionRecord written = record(stopped);
        if (!writeSessionJson(written, m_folder) || !writeSessionReport(written, m_folder)) {
            std::fprintf(stderr, "The report cannot be written to %s.\n", qPrintable(m_folder));
            return false;
        }
        for (const QString& harm : written.harm)
            std::printf("settings file harmed: %s\n", qPrintable(harm));
        std::printf(
            "unexpected boxes and logged errors: %d; controls left locked: %d; report: %s\n",
            unexpected(written), written.findings.lockedControls.size(),
            qPrintable(showResults(m_options.outDirectory, m_folder, {"report.html", "session.json"})));
        std::fflush(stdout);
        return written.harm.isEmpty();
    }

    static int unexpected(const SessionRecord& record)
    {
        int count = record.errorLines.value_or(QStringList()).size();
        for (const StepReport& step : record.steps)
            for (const SeenBox& box : step.boxes)
                count += box.expected ? 0 : 1;
        return count;
    }

    const SimulatorOptions& m_options;
    const QString m_folder;
    const QDateTime m_begun;
    SimulatedInstrument& m_instrument;
    const SettingsFiles m_settingsBefore;
    const QString m_serialBefore;
    QElapsedTimer m_clock;
    QTextStream m_output;
    std::unique_ptr<ORLA_II_Plus_Verifier> m_window;
    Operator m_operator;
    SessionContext m_context;
    SessionRunner m_runner;
};

} // namespace

int runDriven(const SimulatorOptions& options, SimulatedInstrument& instrument,
              const TerminationSignal& signalled)
{
    const QDateTime begun = QDateTime::currentDateTime();
    const QString folder = makeRunFolder(options.outDirectory, begun);
    if (folder.isEmpty() || !beginLog(folder)) {
        std::fprintf(stderr, "The directory %s cannot be written.\n", qPrintable(options.outDirectory));
        return kFailure;
    }
    logProgramVersion(kSimulatorProgram);
    showResults(options.outDirectory, folder, {});
    const int status = DrivenRun(options, instrument, folder, begun).run(signalled);
    qInstallMessageHandler(nullptr);
    return status;
}
