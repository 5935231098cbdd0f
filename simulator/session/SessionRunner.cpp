#include "simulator/session/SessionRunner.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <utility>

#include <unistd.h>

namespace {

// Twice the longest that a step waits anywhere, with the blocking exchanges in between.
constexpr std::chrono::seconds kStepLimit(180);
constexpr std::chrono::seconds kEndLimit(60);
constexpr int kFailure = 1;
constexpr double kMsPerSecond = 1000.0;

} // namespace

SessionRunner::SessionRunner(Operator& user, std::vector<SessionStep> steps, QTextStream& output)
    : m_operator(user), m_steps(std::move(steps)), m_output(output), m_watchdog(kFailure)
{
    m_clock.start();
}

void SessionRunner::runInEventLoop()
{
    runSteps(false);
}

void SessionRunner::expectEnd()
{
    m_watchdog.watch("The program's end", kEndLimit);
}

void SessionRunner::runAfterEventLoop()
{
    runSteps(true);
    const auto held = std::count_if(m_reports.begin(), m_reports.end(),
                                    [](const StepReport& report) { return report.holds(); });
    m_output << held << " of " << m_steps.size() << " steps as they should be\n";
    m_output.flush();
}

int SessionRunner::exitStatus() const
{
    const bool allHold = std::all_of(m_reports.begin(), m_reports.end(),
                                     [](const StepReport& report) { return report.holds(); });
    return allHold && m_reports.size() == m_steps.size() ? 0 : kFailure;
}

void SessionRunner::runSteps(bool afterEventLoop)
{
    for (const SessionStep& step : m_steps)
        if (step.afterEventLoop == afterEventLoop && !m_operator.hasGivenUp())
            run(step);
    m_watchdog.rest();
}

void SessionRunner::run(const SessionStep& step)
{
    m_watchdog.watch(std::string("Step ") + step.name, kStepLimit);
    StepReport report;
    report.name = step.name;
    report.text = step.text;
    printProgress(
        QStringLiteral("[%1/%2] %3 ...").arg(m_reports.size() + 1).arg(m_steps.size()).arg(step.text));
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_underWay = report;
        m_underWay->interrupted = true;
    }
    const qint64 start = m_clock.elapsed();
    report.result = step.run();
    report.interrupted = m_operator.hasGivenUp();
    report.elapsed_s = static_cast<double>(m_clock.elapsed() - start) / kMsPerSecond;
    report.problems = m_operator.takeProblems();
    report.pictures = m_operator.takePictures();
    report.boxes = m_operator.boxes().mid(m_reportedBoxes);
    m_reportedBoxes = m_operator.boxes().size();
    if (report.interrupted)
        m_output << "stopped in step " << step.name << '\n';
    else
        print(report);
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_reports.push_back(std::move(report));
    m_underWay.reset();
}

std::vector<StepReport> SessionRunner::reports() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    std::vector<StepReport> reports = m_reports;
    if (m_underWay)
        reports.push_back(*m_underWay);
    return reports;
}

QStringList SessionRunner::stepNames() const
{
    QStringList names;
    for (const SessionStep& step : m_steps)
        names.append(step.name);
    return names;
}

void SessionRunner::printProgress(const QString& text) const
{
    // A file or a pipe keeps every line; there the finished steps are enough.
    if (!m_showProgress || ::isatty(STDERR_FILENO) == 0)
        return;
    constexpr const char* kOverwriteLine = "\r\033[K";
    std::fprintf(stderr, "%s%s", kOverwriteLine, qPrintable(text));
    std::fflush(stderr);
}

void SessionRunner::print(const StepReport& report)
{
    printProgress({});
    constexpr int kNameWidth = 13;
    constexpr int kTimeWidth = 6;
    m_output << QStringLiteral("[%1/%2] %3 s  %4 %5  %6")
                    .arg(m_reports.size() + 1, 2)
                    .arg(m_steps.size())
                    .arg(report.elapsed_s, kTimeWidth, 'f', 2)
                    .arg(report.holds() ? "ok    " : "FAILED", report.name.leftJustified(kNameWidth),
                         report.result.seen);
    if (!report.result.truth.isEmpty())
        m_output << " | true: " << report.result.truth;
    if (!report.problems.isEmpty())
        m_output << " | problems: " << report.problems;
    m_output << '\n';
    m_output.flush();
}
