#pragma once

#include <functional>
#include <vector>

#include <QElapsedTimer>
#include <QString>
#include <QStringList>
#include <QTextStream>

#include "simulator/session/BoxWatcher.h"
#include "simulator/session/Operator.h"
#include "simulator/session/Watchdog.h"

/// What a step found.
struct StepResult
{
    bool holds = false;
    QString seen;  ///< what the window showed
    QString truth; ///< what the instrument knows to be true; empty where it has no say
};

/// One step of a session.
struct SessionStep
{
    const char* name;    ///< one word, for pictures and for choosing steps
    const char* text;    ///< what the operator does, for the report
    bool afterEventLoop; ///< runs when the program has left its event loop
    std::function<StepResult()> run;
};

/// A step that was made.
struct StepReport
{
    QString name;
    QString text;
    double elapsed_s = 0.0;
    StepResult result;
    QString trouble; ///< what could not be done; empty when all could
    QStringList pictures;
    QVector<SeenBox> boxes;

    bool holds() const { return result.holds && trouble.isEmpty(); }
};

/// Makes the steps of a session one after the other, prints a line for each and keeps the
/// reports. A step that does not end stops the process with status 1, without which the
/// session could not end either. GUI thread.
class SessionRunner
{
public:
    /// The steps to make, in order, are kept. output: where the lines go.
    SessionRunner(Operator& hand, std::vector<SessionStep> steps, QTextStream& output);

    /// Makes the steps that belong into the event loop.
    void runInEventLoop();
    /// Gives the program this long to leave its event loop and tear itself down.
    void expectEnd();
    /// Makes the other steps, and prints the closing line.
    void runAfterEventLoop();

    /// 0 when every step was made and held, 1 otherwise.
    int exitStatus() const;
    const std::vector<StepReport>& reports() const { return m_reports; }

private:
    void runSteps(bool afterEventLoop);
    void run(const SessionStep& step);
    void print(const StepReport& report);

    Operator& m_hand;
    const std::vector<SessionStep> m_steps;
    QTextStream& m_output;
    QElapsedTimer m_clock;
    int m_reportedBoxes = 0;
    std::vector<StepReport> m_reports;
    Watchdog m_watchdog;
};
