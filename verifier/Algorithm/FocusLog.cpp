#include "Algorithm/FocusLog.h"

#include <exception>

#include <QByteArray>
#include <QLocale>
#include <QTextStream>

#include "picture/PictureFile.h"
#include "platform/DiskFile.h"
#include "platform/InstrumentPath.h"

namespace focus_log {

QString directoryOf(const QDateTime& start)
{
    // By itself a time takes the digits of the machine's language, which not every disk has.
    return QStringLiteral("%1/ORLA-II/Autofocus/%2")
        .arg(QLatin1String(kDiskMountPoint), QLocale::c().toString(start, QStringLiteral("yyyyMMdd_hhmmss")));
}

QString stepDirectory(const QString& directory, int step)
{
    return QStringLiteral("%1/Step%2").arg(directory).arg(step);
}

QString frameFile(const QString& directory, int step, std::size_t number, int z, double score)
{
    return QStringLiteral("%1/Step%2/Autofocus_%3_%4_%5.tiff")
        .arg(directory)
        .arg(step)
        .arg(number, 2, 10, QLatin1Char('0'))
        .arg(z)
        .arg(score);
}

QString scoreFile(const QString& directory, int step)
{
    return stepDirectory(directory, step) + QStringLiteral("/best_focus_value.csv");
}

QString scoreTable(const std::vector<AutoFocusingData_s>& samples, std::size_t best)
{
    QString table;
    QTextStream stream(&table);
    const auto writeSample = [&stream](std::size_t index, const AutoFocusingData_s& sample) {
        stream << static_cast<qulonglong>(index) << ',' << sample.zPosition << ',' << sample.focusValue;
    };
    for (std::size_t i = 0; i < samples.size(); ++i) {
        writeSample(i, samples[i]);
        stream << '\n';
    }
    stream << '\n';
    // The operators read the last line: they count samples from one.
    if (best < samples.size())
        writeSample(best + 1, samples[best]);
    return table;
}

bool createDirectory(const QString& path)
{
    return disk_file::makeFolder(path);
}

bool writeFrame(const QString& path, const cv::Mat& rgbFrame)
{
    try {
        return writePicture(path, rgbFrame);
    } catch (const std::exception&) {
        return false;
    }
}

bool writeText(const QString& path, const QString& text)
{
    const QByteArray bytes = text.toLocal8Bit();
    return disk_file::write(path, bytes.constData(), static_cast<std::size_t>(bytes.size()));
}

} // namespace focus_log
