#include "platform/ChildProcess.h"

#include <QProcess>

void runChildProcess(const QString& program, const QStringList& arguments, int timeout_ms)
{
    QProcess process;
    process.start(program, arguments, QIODevice::ReadWrite);
    process.waitForFinished(timeout_ms);
    process.close();
}
