#pragma once

#include <mutex>
#include <optional>
#include <utility>
#include <vector>

#include <QElapsedTimer>
#include <QString>
#include <QTextStream>

#include "simulator/operator/Operator.h"
#include "simulator/session/SessionStep.h"
#include "simulator/session/Watchdog.h"

/// Makes the steps of a session one after the other, prints a line for each and keeps the
/// reports. If a step does not end, the process is stopped with status 1, for the session could
/// not end either. GUI thread, unless a function says otherwise.
class SessionRunner
{
public:
    /// The steps to make, in order, are kept. output: where the lines go.
    SessionRunner(Operator& user, std::vector<SessionStep> steps, QTextStream& output);

    /// Names the step under way on standard error, on a line that is overwritten.
    void showProgress() { m_showProgress = true; }
    /// What is done on the watchdog's thread before it stops a process that hangs.
    void setLastWords(Watchdog::LastWords lastWords) { m_watchdog.setLastWords(std::move(lastWords)); }

    /// Makes the steps that run inside the event loop.
    void runInEventLoop();
    /// Gives the program this long to leave its event loop and tear itself down.
    void expectEnd();
    /// Makes the other steps, and prints the closing line.
    void runAfterEventLoop();

    /// 0 when every step was made and held, 1 otherwise.
    int exitStatus() const;
    /// The steps made so far, and as interrupted the one that is under way. Any thread.
    std::vector<StepReport> reports() const;
    /// The names of all steps that are to be made, in order. Any thread.
    QStringList stepNames() const;

private:
    void runSteps(bool afterEventLoop);
    void run(const SessionStep& step);
    void print(const StepReport& report);
    void printProgress(const QString& text) const;

    Operator& m_operator;
    const std::vector<SessionStep> m_steps;
    QTextStream& m_output;
    QElapsedTimer m_clock;
    int m_reportedBoxes = 0;
    bool m_showProgress = false;
    mutable std::mutex m_mutex;        // guards the reports and the step under way
    std::vector<StepReport> m_reports; // written by the GUI thread only
    std::optional<StepReport> m_underWay;
    Watchdog m_watchdog;
};
