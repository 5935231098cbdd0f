#include "debug/DebugFormat.h"

namespace {

const QLatin1String kLineEnd("\r\n");
const QLatin1String kCall("()");
constexpr int kShortestCleaned = 3;

QString withoutLineEnds(QString part)
{
    if (part.size() >= kShortestCleaned && part.contains(kLineEnd)) {
        part.remove(QLatin1Char('\r'));
        part.remove(QLatin1Char('\n'));
    }
    return part;
}

} // namespace

QString formatDebugMessage(const QStringList& parts)
{
    QString line;
    for (int i = 0; i < parts.size(); ++i) {
        line += withoutLineEnds(parts.at(i));
        if (i == 0)
            line += kCall;
        line += QLatin1Char(' ');
    }
    return line + kLineEnd;
}
