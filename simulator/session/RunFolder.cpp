#include "simulator/session/RunFolder.h"

#include <cstdio>

#include <unistd.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>

namespace {

constexpr int kMostRunsASecond = 1000;

bool leadsToARun(const QByteArray& link)
{
    char target[4096];
    const ssize_t length = ::readlink(link.constData(), target, sizeof target);
    static const QRegularExpression run(
        QRegularExpression::anchoredPattern(QStringLiteral("\\d{4}-\\d\\d-\\d\\d_\\d{6}(_\\d+)?(/.*)?")));
    return length > 0 &&
           run.match(QFile::decodeName(QByteArray(target, static_cast<int>(length)))).hasMatch();
}

} // namespace

QString makeRunFolder(const QString& outDirectory, const QDateTime& begun)
{
    QDir out(outDirectory);
    if (!out.mkpath(QStringLiteral(".")))
        return {};
    const QString time = begun.toString(QStringLiteral("yyyy-MM-dd_hhmmss"));
    QString name = time;
    // Only making the folder shows whether another run has taken the name.
    for (int run = 2; run <= kMostRunsASecond; ++run) {
        if (out.mkdir(name))
            return out.filePath(name);
        if (!QFileInfo::exists(out.filePath(name)))
            return {};
        name = QStringLiteral("%1_%2").arg(time).arg(run);
    }
    return {};
}

bool linkToRun(const QString& outDirectory, const QString& name, const QString& target)
{
    const QDir out(outDirectory);
    const QByteArray link = QFile::encodeName(out.filePath(name));
    const QFileInfo there(out.filePath(name));
    if ((there.exists() || there.isSymLink()) && !leadsToARun(link))
        return false;
    // Renaming replaces the link in one step: there is always one, the old or the new.
    const QByteArray made = link + '.' + QByteArray::number(QDateTime::currentMSecsSinceEpoch()) + '.' +
                            QByteArray::number(static_cast<qlonglong>(::getpid()));
    if (::symlink(QFile::encodeName(target).constData(), made.constData()) != 0)
        return false;
    if (std::rename(made.constData(), link.constData()) == 0)
        return true;
    ::unlink(made.constData());
    return false;
}

QString showResults(const QString& outDirectory, const QString& runFolder, const QStringList& files)
{
    const QString run = QFileInfo(runFolder).fileName();
    linkToRun(outDirectory, QStringLiteral("latest"), run);
    QString first;
    for (const QString& file : files) {
        const QString& place =
            linkToRun(outDirectory, file, run + QLatin1Char('/') + file) ? outDirectory : runFolder;
        if (first.isEmpty())
            first = QDir(place).filePath(file);
    }
    return first;
}
