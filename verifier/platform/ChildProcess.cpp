#include "platform/ChildProcess.h"

#include <QProcess>

namespace {

/// QProcess itself makes processes with clone(), and does not notice when that fails: it takes
/// -1 for the process, waits for it, and ends it by a signal to -1, which for root is every
/// process of the machine. For a class derived from it, it uses fork(), whose failure it knows.
class ForkedProcess : public QProcess
{
};

} // namespace

void runChildProcess(const QString& program, const QStringList& arguments, int timeout_ms)
{
    ForkedProcess process;
    process.start(program, arguments, QIODevice::ReadWrite);
    process.waitForFinished(timeout_ms);
    process.close();
}
