#include "platform/ChildProcess.h"

#include <QProcess>

void runChildProcess(const QString& program, const QStringList& arguments)
{
    QProcess process;
    process.start(program, arguments, QIODevice::ReadWrite);
    process.waitForFinished(kChildProcessTimeout_ms);
    process.close();
}
