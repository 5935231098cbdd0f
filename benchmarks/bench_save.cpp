// What a save costs on each tab: time, file synchronisations, bytes written.

#include <array>
#include <cstdio>
#include <string>
#include <vector>

#include <dlfcn.h>
#include <unistd.h>

#include <QApplication>
#include <QFile>
#include <QLoggingCategory>

#include "benchmarks/Measure.h"
#include "settings/SafeSettingsFile.h"
#include "settings/SettingsFiles.h"
#include "tests/support/WindowFixture.h"

namespace {

constexpr std::array<const char*, 3> kTabs{"stage", "camera", "qc"};

/// What this thread has had forced out: paths of files and folders, a line each.
thread_local std::string g_synchronised;

void noteSynchronisation(int fd)
{
    std::array<char, 64> link{};
    std::array<char, 4096> path{};
    std::snprintf(link.data(), link.size(), "/proc/self/fd/%d", fd);
    const ssize_t size = ::readlink(link.data(), path.data(), path.size());
    g_synchronised += std::string(path.data(), size > 0 ? static_cast<std::size_t>(size) : 0) + '\n';
}

int callOriginal(const char* name, int fd)
{
    return reinterpret_cast<int (*)(int)>(::dlsym(RTLD_NEXT, name))(fd);
}

/// Bytes that this thread has handed to the system so far.
double written_bytes()
{
    QFile account(QStringLiteral("/proc/thread-self/io"));
    account.open(QIODevice::ReadOnly);
    const QList<QByteArray> lines = account.readAll().split('\n');
    for (const QByteArray& line : lines)
        if (line.startsWith("wchar:"))
            return line.mid(6).trimmed().toDouble();
    return 0.0;
}

/// What the button Save does before its box.
void save(ORLA_II_Plus_Verifier& window)
{
    SafeSettingsFile file(kMainSettingsFile);
    window.set_INI_value(file.settings());
    if (!file.commit())
        giveUp("A save failed.");
}

void tellTab(WindowFixture& fixture, int tab, int saves)
{
    fixture.openTab(tab);
    save(fixture.window());
    std::vector<double> times_ms;
    times_ms.reserve(static_cast<std::size_t>(saves));
    std::vector<double> works_ms;
    works_ms.reserve(static_cast<std::size_t>(saves));
    for (int i = 0; i < saves; ++i) {
        const double work_ms = timeOf_ms(processTime_ms, [&] {
            times_ms.push_back(timeOf_ms(wallTime_ms, [&] { save(fixture.window()); }));
        });
        works_ms.push_back(work_ms);
    }

    const double before_bytes = written_bytes();
    g_synchronised.clear();
    save(fixture.window());
    const double bytes = written_bytes() - before_bytes;
    // What lies elsewhere is in memory.
    QStringList names;
    const QStringList paths = QString::fromStdString(g_synchronised).split('\n', Qt::SkipEmptyParts);
    for (const QString& path : paths)
        if (path.startsWith(fixture.machinePath("/")))
            names.append(path.section('/', -1));
    const std::string name = std::string("save_") + kTabs[static_cast<std::size_t>(tab)];
    tell(name + "_time", median(times_ms));
    tell(name + "_work", median(works_ms));
    tell(name + "_syncs", names.size(), names.join(", "));
    tell(name + "_bytes", bytes);
}

} // namespace

// In the place of the C library's, for Qt as well.
extern "C" int fsync(int fd)
{
    noteSynchronisation(fd);
    return callOriginal("fsync", fd);
}

extern "C" int fdatasync(int fd)
{
    noteSynchronisation(fd);
    return callOriginal("fdatasync", fd);
}

int main(int argc, char** argv)
{
    const bool shortRun = isShort(argc, argv);
    const QApplication application(argc, argv);
    QLoggingCategory::setFilterRules("default.debug=false");
    WindowFixture fixture;
    for (int tab = 0; tab < static_cast<int>(kTabs.size()); ++tab)
        tellTab(fixture, tab, shortRun ? 1 : 30);
    return 0;
}
