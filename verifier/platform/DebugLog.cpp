#include "platform/DebugLog.h"

#include <QDebug>

void writeDebugStream(const QStringList& parts)
{
    qDebug().noquote() << parts.join(QLatin1Char(' '));
}
