#include "simulator/session/SettingsFiles.h"

#include <algorithm>
#include <cstddef>

#include <QFile>
#include <QFileInfo>
#include <QUrl>

namespace {

QString decoded(const QString& name)
{
    return QUrl::fromPercentEncoding(name.toLatin1());
}

QStringList linesOf(const QByteArray& content)
{
    QStringList lines = QString::fromUtf8(content).split('\n');
    if (lines.last().isEmpty())
        lines.removeLast();
    return lines;
}

// The longest common subsequence of lines, by the usual table; settings files are short.
std::vector<DifferenceLine> compare(const QStringList& before, const QStringList& after)
{
    const int rows = before.size();
    const int columns = after.size();
    std::vector<std::vector<int>> common(static_cast<std::size_t>(rows) + 1,
                                         std::vector<int>(static_cast<std::size_t>(columns) + 1));
    const auto at = [&](int row, int column) -> int& {
        return common[static_cast<std::size_t>(row)][static_cast<std::size_t>(column)];
    };
    for (int row = rows - 1; row >= 0; --row)
        for (int column = columns - 1; column >= 0; --column)
            at(row, column) = before[row] == after[column]
                                  ? at(row + 1, column + 1) + 1
                                  : std::max(at(row + 1, column), at(row, column + 1));
    std::vector<DifferenceLine> lines;
    int row = 0;
    int column = 0;
    while (row < rows || column < columns) {
        if (row < rows && column < columns && before[row] == after[column]) {
            lines.push_back({DifferenceLine::Same, before[row]});
            ++row;
            ++column;
        } else if (row < rows && (column == columns || at(row + 1, column) >= at(row, column + 1))) {
            lines.push_back({DifferenceLine::Removed, before[row++]});
        } else {
            lines.push_back({DifferenceLine::Added, after[column++]});
        }
    }
    return lines;
}

} // namespace

bool FileDifference::isSame() const
{
    return std::all_of(
        lines.begin(), lines.end(),
        [](const DifferenceLine& line) { return line.kind == DifferenceLine::Same; });
}

SettingsFiles SettingsFiles::read(const QString& root, const QStringList& fixedPaths)
{
    SettingsFiles files;
    for (const QString& path : fixedPaths) {
        QFile file(root + path);
        File read{path, file.open(QIODevice::ReadOnly), {}};
        if (read.isThere)
            read.content = file.readAll();
        files.m_files.push_back(read);
    }
    return files;
}

std::map<QString, QString> SettingsFiles::entriesOf(const File& file)
{
    std::map<QString, QString> entries;
    const QString name = QFileInfo(file.fixedPath).fileName();
    QString section;
    const QStringList lines = linesOf(file.content);
    for (const QString& line : lines) {
        const int sign = line.indexOf('=');
        if (line.startsWith('[') && line.endsWith(']'))
            section = decoded(line.mid(1, line.size() - 2));
        else if (sign > 0)
            entries[name + ": " + section + '/' + decoded(line.left(sign).trimmed())] =
                line.mid(sign + 1).trimmed();
    }
    return entries;
}

std::map<QString, QString> SettingsFiles::entries() const
{
    std::map<QString, QString> all;
    for (const File& file : m_files)
        all.merge(entriesOf(file));
    return all;
}

QStringList SettingsFiles::harm(const SettingsFiles& before, const SettingsFiles& after)
{
    QStringList harm;
    for (std::size_t i = 0; i < before.m_files.size(); ++i) {
        const File& was = before.m_files[i];
        const File& is = after.m_files[i];
        if (was.isThere && !is.isThere)
            harm.append(was.fixedPath + " is gone");
        else if (is.isThere && is.content.isEmpty() && !(was.isThere && was.content.isEmpty()))
            harm.append(is.fixedPath + " is empty");
        else if (!is.content.isEmpty() && !is.content.endsWith('\n') && is.content != was.content)
            harm.append(is.fixedPath + " is cut off");
        if (!was.isThere || !is.isThere)
            continue;
        const auto kept = entriesOf(is);
        for (const auto& entry : entriesOf(was))
            if (const auto now = kept.find(entry.first); now == kept.end())
                harm.append(entry.first + " is lost");
            else if (now->second.isEmpty() && !entry.second.isEmpty())
                harm.append(entry.first + " has lost its value");
    }
    return harm;
}

std::vector<FileDifference> SettingsFiles::differences(const SettingsFiles& before,
                                                       const SettingsFiles& after)
{
    std::vector<FileDifference> differences;
    for (std::size_t i = 0; i < before.m_files.size(); ++i) {
        const File& was = before.m_files[i];
        const File& is = after.m_files[i];
        if (was.isThere || is.isThere)
            differences.push_back({is.fixedPath, compare(linesOf(was.content), linesOf(is.content))});
    }
    return differences;
}
