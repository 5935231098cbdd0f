#pragma once

#include <vector>

#include <QString>
#include <QStringList>

/// What this process holds of the machine.
struct Resources
{
    qint64 resident_bytes = 0;
    qint64 heap_bytes = 0; ///< given out by malloc and not taken back, of all arenas
    qint64 arenas = 0;     ///< of malloc
    qint64 descriptors = 0;
    qint64 mappings = 0;
    qint64 threads = 0;
};

/// What it holds now, looked up in the kernel's and malloc's own books, once malloc has given
/// back what it can. Any thread.
Resources resourcesNow();

/// Samples of what a process holds while it does the same thing again and again, and the
/// verdict whether that grows. The first half counts as warming up: caches fill, records that
/// keep the last so many entries reach their length. Of the second half, the least of its
/// first part is held against the least of its last: what is only under way when a sample is
/// taken, such as the conversion of a frame, adds to some of the samples, and what is left
/// behind to all of them. One thread at a time.
class ResourceRecord
{
public:
    /// what: the thing that is done, in a word that can stand in a file's name.
    explicit ResourceRecord(QString what) : m_what(std::move(what)) {}

    /// Looks up what is held now, after so many times: the least of some looks within a fiftieth
    /// of a second, for a conversion may be under way at most samples of a machine that is busy.
    void take(int times);
    /// The same with figures from elsewhere.
    void add(int times, const Resources& held);

    /// What has grown, a sentence for each; empty when nothing has. At least eight samples.
    QStringList growth() const;
    /// First, median and last of each figure, growth for each time, and a line of bars.
    QString table() const;
    /// Leaves all samples as NAME.csv and drawn as NAME.svg; false if they cannot be written.
    bool write(const QString& folder) const;

private:
    struct Sample
    {
        int times;
        Resources held;
    };
    struct Figure;
    static const Figure kFigures[];

    std::vector<qint64> valuesOf(const Figure& figure) const;
    qint64 growthOf(const Figure& figure) const;
    double growthEachTime(const Figure& figure) const;
    QString svg() const;

    QString m_what;
    std::vector<Sample> m_samples;
};
