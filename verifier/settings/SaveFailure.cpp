#include "settings/SaveFailure.h"

#include "platform/DebugLog.h"

bool saveFailed(const QString& fixedPath, const QString& reason)
{
    writeDebugStream({Q_FUNC_INFO, QStringLiteral("[Error] not saved:"), fixedPath, reason});
    return false;
}
