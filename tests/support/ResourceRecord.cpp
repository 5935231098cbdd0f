#include "support/ResourceRecord.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include <malloc.h>
#include <unistd.h>

#include <QDir>
#include <QFile>
#include <QRegularExpression>
#include <QThread>

#include "support/FileBytes.h"

namespace {

constexpr std::size_t kFewestSamples = 8;
constexpr qint64 kKiB = 1024;
constexpr double kPlotWidth_px = 560.0;
constexpr double kPlotHeight_px = 60.0;
constexpr double kPlotLeft_px = 150.0;
constexpr double kPlotDistance_px = 90.0;
constexpr double kPlotTop_px = 40.0;

qint64 entriesOf(const char* directory)
{
    return QDir(directory)
        .entryList(QDir::AllEntries | QDir::System | QDir::Hidden | QDir::NoDotAndDotDot)
        .size();
}

QByteArray mallocReport()
{
    char* text = nullptr;
    std::size_t length = 0;
    std::FILE* stream = ::open_memstream(&text, &length);
    if (stream == nullptr)
        return {};
    ::malloc_info(0, stream);
    std::fclose(stream);
    QByteArray report(text, static_cast<int>(length));
    std::free(text);
    return report;
}

// The sums stand behind the arenas: what is free in lists, what is mapped by itself, what the
// system has given in all.
qint64 sumOf(const QString& sums, const char* element)
{
    const QRegularExpression pattern(QStringLiteral("<%1[^>]* size=\"(\\d+)\"").arg(element));
    return pattern.match(sums).captured(1).toLongLong();
}

qint64 medianOf(std::vector<qint64> values)
{
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

// A line of eight heights, one letter for each of at most 60 groups of samples.
QString barsOf(const std::vector<qint64>& values)
{
    constexpr std::size_t kMostBars = 60;
    const QString heights = QStringLiteral("▁▂▃▄▅▆▇█");
    const auto [least, most] = std::minmax_element(values.begin(), values.end());
    QString bars;
    const std::size_t count = std::min(kMostBars, values.size());
    for (std::size_t bar = 0; bar < count; ++bar) {
        const qint64 above = values[bar * values.size() / count] - *least;
        const qint64 span = std::max<qint64>(1, *most - *least);
        bars += heights[static_cast<int>(above * (heights.size() - 1) / span)];
    }
    return bars;
}

} // namespace

/// A figure, and by how much it may grow from one quarter to the next.
struct ResourceRecord::Figure
{
    const char* name;
    qint64 Resources::*place;
    qint64 allowance;
};

// What malloc keeps for itself comes and goes in pages; a thread's stack that is kept for the
// next one, and an arena with it, are mappings.
const ResourceRecord::Figure ResourceRecord::kFigures[] = {
    {"resident bytes", &Resources::resident_bytes, 2048 * kKiB},
    {"heap bytes", &Resources::heap_bytes, 128 * kKiB},
    {"arenas", &Resources::arenas, 0},
    {"descriptors", &Resources::descriptors, 0},
    {"mappings", &Resources::mappings, 8},
    {"threads", &Resources::threads, 0},
};

Resources resourcesNow()
{
    Resources held;
    // How much of what was freed malloc keeps back is chance; what is in use is not.
    ::malloc_trim(0);
    // The figures that looking them up would change come first.
    const QString report = QString::fromLatin1(mallocReport());
    const QString sums = report.mid(report.lastIndexOf(QLatin1String("</heap>")));
    held.heap_bytes = sumOf(sums, "system type=\"current\"") - sumOf(sums, "total type=\"fast\"") -
                      sumOf(sums, "total type=\"rest\"") + sumOf(sums, "total type=\"mmap\"");
    held.arenas = report.count(QLatin1String("<heap nr="));
    held.resident_bytes =
        bytesOf("/proc/self/statm").split(' ').value(1).toLongLong() * ::sysconf(_SC_PAGESIZE);
    held.descriptors = entriesOf("/proc/self/fd");
    held.mappings = bytesOf("/proc/self/maps").count('\n');
    held.threads = entriesOf("/proc/self/task");
    return held;
}

void ResourceRecord::take(int times)
{
    constexpr int kLooks = 10;
    constexpr unsigned long kBetween_ms = 2;
    Resources least = resourcesNow();
    for (int look = 1; look < kLooks; ++look) {
        QThread::msleep(kBetween_ms);
        const Resources now = resourcesNow();
        for (const Figure& figure : kFigures)
            least.*figure.place = std::min(least.*figure.place, now.*figure.place);
    }
    add(times, least);
}

void ResourceRecord::add(int times, const Resources& held)
{
    m_samples.push_back({times, held});
}

std::vector<qint64> ResourceRecord::valuesOf(const Figure& figure) const
{
    std::vector<qint64> values;
    for (const Sample& sample : m_samples)
        values.push_back(sample.held.*figure.place);
    return values;
}

qint64 ResourceRecord::growthOf(const Figure& figure) const
{
    const std::vector<qint64> values = valuesOf(figure);
    const auto half = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    const auto last = values.begin() + static_cast<std::ptrdiff_t>(values.size() * 3 / 4);
    return *std::min_element(last, values.end()) - *std::min_element(half, last);
}

// The slope of the straight line through the samples of the second half.
double ResourceRecord::growthEachTime(const Figure& figure) const
{
    double times = 0.0;
    double value = 0.0;
    const std::size_t first = m_samples.size() / 2;
    const auto count = static_cast<double>(m_samples.size() - first);
    for (std::size_t i = first; i < m_samples.size(); ++i) {
        times += m_samples[i].times / count;
        value += static_cast<double>(m_samples[i].held.*figure.place) / count;
    }
    double together = 0.0;
    double spread = 0.0;
    for (std::size_t i = first; i < m_samples.size(); ++i) {
        const double away = m_samples[i].times - times;
        together += away * (static_cast<double>(m_samples[i].held.*figure.place) - value);
        spread += away * away;
    }
    return spread > 0.0 ? together / spread : 0.0;
}

QStringList ResourceRecord::growth() const
{
    if (m_samples.size() < kFewestSamples)
        return {QStringLiteral("%1: too few samples to tell").arg(m_what)};
    QStringList grown;
    for (const Figure& figure : kFigures)
        if (const qint64 more = growthOf(figure); more > figure.allowance)
            grown.append(QStringLiteral("%1: %2 more %3 within a quarter of the run, %4 allowed")
                             .arg(m_what)
                             .arg(more)
                             .arg(figure.name)
                             .arg(figure.allowance));
    return grown;
}

QString ResourceRecord::table() const
{
    if (m_samples.empty())
        return {};
    QString text = QStringLiteral("%1, %2 times: first, median and last of %3 samples; growth each time\n")
                       .arg(m_what)
                       .arg(m_samples.back().times)
                       .arg(m_samples.size());
    for (const Figure& figure : kFigures) {
        const std::vector<qint64> values = valuesOf(figure);
        text += QStringLiteral("  %1 %2 %3 %4 %5  %6\n")
                    .arg(figure.name, -14)
                    .arg(values.front(), 11)
                    .arg(medianOf(values), 11)
                    .arg(values.back(), 11)
                    .arg(growthEachTime(figure), 9, 'f', 3)
                    .arg(barsOf(values));
    }
    return text;
}

bool ResourceRecord::write(const QString& folder) const
{
    QString csv = QStringLiteral("times");
    for (const Figure& figure : kFigures)
        csv += QLatin1Char(',') + QString(figure.name);
    csv += QLatin1Char('\n');
    for (const Sample& sample : m_samples) {
        csv += QString::number(sample.times);
        for (const Figure& figure : kFigures)
            csv += QLatin1Char(',') + QString::number(sample.held.*figure.place);
        csv += QLatin1Char('\n');
    }
    const auto written = [&](const char* ending, const QString& text) {
        QFile file(QDir(folder).filePath(m_what + ending));
        const QByteArray bytes = text.toUtf8();
        return file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size();
    };
    return QDir().mkpath(folder) && written(".csv", csv) && written(".svg", svg());
}

// A curve for each figure below the other, from its least to its most; the warming up is grey.
QString ResourceRecord::svg() const
{
    if (m_samples.empty())
        return {};
    QString drawing;
    double top_px = kPlotTop_px;
    const int lastTimes = std::max(1, m_samples.back().times);
    for (const Figure& figure : kFigures) {
        const std::vector<qint64> values = valuesOf(figure);
        const auto [least, most] = std::minmax_element(values.begin(), values.end());
        const auto span = static_cast<double>(std::max<qint64>(1, *most - *least));
        QString points;
        for (std::size_t i = 0; i < values.size(); ++i)
            points +=
                QStringLiteral("%1,%2 ")
                    .arg(kPlotLeft_px + kPlotWidth_px * m_samples[i].times / lastTimes, 0, 'f', 1)
                    .arg(top_px + kPlotHeight_px * (1.0 - static_cast<double>(values[i] - *least) / span), 0,
                         'f', 1);
        drawing += QStringLiteral("<rect x='%1' y='%2' width='%3' height='%4' fill='#eee'/>"
                                  "<text x='8' y='%5'>%6</text><text x='8' y='%7'>%8</text>"
                                  "<text x='8' y='%9'>")
                       .arg(kPlotLeft_px)
                       .arg(top_px)
                       .arg(kPlotWidth_px / 2)
                       .arg(kPlotHeight_px)
                       .arg(top_px + 34)
                       .arg(figure.name)
                       .arg(top_px + 10)
                       .arg(*most)
                       .arg(top_px + kPlotHeight_px) +
                   QStringLiteral("%1</text><polyline points='%2' fill='none' stroke='#06c'/>\n")
                       .arg(*least)
                       .arg(points);
        top_px += kPlotDistance_px;
    }
    return QStringLiteral(
               "<svg xmlns='http://www.w3.org/2000/svg' width='730' height='%1' "
               "font-family='sans-serif' font-size='12'>"
               "<rect width='100%' height='100%' fill='white'/>"
               "<text x='8' y='20' font-size='15'>%2, %3 times; grey: warming up</text>\n%4</svg>\n")
        .arg(top_px)
        .arg(m_what)
        .arg(lastTimes)
        .arg(drawing);
}
