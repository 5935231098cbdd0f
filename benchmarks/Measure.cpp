#include "benchmarks/Measure.h"

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <limits>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

constexpr double kMsPerSecond = 1e3;
constexpr double kNsPerMs = 1e6;

double read_ms(clockid_t clock)
{
    timespec time{};
    clock_gettime(clock, &time);
    return static_cast<double>(time.tv_sec) * kMsPerSecond + static_cast<double>(time.tv_nsec) / kNsPerMs;
}

/// What the emulator writes for each thread (instruction_counter.c); one without a number ends them.
struct Counted
{
    std::atomic<std::uint64_t> thread;
    std::atomic<std::uint64_t> executed;
};
constexpr std::size_t kMostThreads = 4096;

const Counted* mapCounts()
{
    const char* folder = std::getenv("ORLA_INSTRUCTIONS");
    if (folder == nullptr)
        return nullptr;
    const std::string path = std::string(folder) + "/" + std::to_string(::getpid());
    const int file = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    void* counts = ::mmap(nullptr, kMostThreads * sizeof(Counted), PROT_READ, MAP_SHARED, file, 0);
    if (counts == MAP_FAILED)
        giveUp("No instructions are counted in " + path + ".");
    ::close(file);
    return static_cast<const Counted*>(counts);
}

/// Null where processor time is measured.
const Counted* counts()
{
    static const Counted* const mapped = mapCounts();
    return mapped;
}

/// Of a processor that needs a nanosecond for each: of that thread, or of all.
double instructions_ms(std::uint64_t thread)
{
    std::uint64_t executed = 0;
    for (std::size_t i = 0; i < kMostThreads && counts()[i].thread.load() != 0; ++i)
        if (thread == 0 || counts()[i].thread.load() == thread)
            executed += counts()[i].executed.load();
    return static_cast<double>(executed) / kNsPerMs;
}

} // namespace

double threadTime_ms()
{
    if (counts() == nullptr)
        return read_ms(CLOCK_THREAD_CPUTIME_ID);
    return instructions_ms(static_cast<std::uint64_t>(::syscall(SYS_gettid)));
}

double processTime_ms()
{
    return counts() == nullptr ? read_ms(CLOCK_PROCESS_CPUTIME_ID) : instructions_ms(0);
}

double wallTime_ms()
{
    return read_ms(CLOCK_MONOTONIC);
}

double median(std::vector<double> values)
{
    if (values.empty())
        return std::numeric_limits<double>::quiet_NaN();
    std::sort(values.begin(), values.end());
    const std::size_t middle = values.size() / 2;
    return values.size() % 2 != 0 ? values[middle] : (values[middle - 1] + values[middle]) / 2.0;
}

double timeOf_ms(Clock clock, const Work& work)
{
    const double start = clock();
    work();
    return clock() - start;
}

PairedTimes measurePairs(Clock clock, int pairs, const Work& first, const Work& second)
{
    first();
    second();
    std::vector<double> ratios;
    std::vector<double> firsts;
    std::vector<double> seconds;
    for (int pair = 0; pair < pairs; ++pair) {
        const bool turned = pair % 2 != 0;
        const double early = timeOf_ms(clock, turned ? second : first);
        const double late = timeOf_ms(clock, turned ? first : second);
        firsts.push_back(turned ? late : early);
        seconds.push_back(turned ? early : late);
        ratios.push_back(firsts.back() / seconds.back());
    }
    return {median(ratios), median(firsts), median(seconds)};
}

double growthOf(Clock clock, int rounds, const std::array<Work, 3>& works)
{
    for (const Work& work : works)
        work();
    std::array<std::vector<double>, 2> steps;
    for (int round = 0; round < rounds; ++round) {
        std::array<double, 3> times{};
        for (std::size_t i = 0; i < works.size(); ++i)
            times[i] = timeOf_ms(clock, works[i]);
        for (std::size_t i = 0; i < steps.size(); ++i)
            steps[i].push_back(times[i + 1] / times[i] / 2.0);
    }
    return std::max(median(steps[0]), median(steps[1]));
}

void tell(const std::string& name, double value, const QString& parts)
{
    std::printf("%s\t%.6g\t%s\n", name.c_str(), value, qPrintable(parts));
    std::fflush(stdout);
}

bool isShort(int argc, char** argv)
{
    if (argc == 1)
        return false;
    if (argc == 2 && std::strcmp(argv[1], "--short") == 0)
        return true;
    std::fprintf(stderr, "%s takes nothing but --short; benchmarks/run runs it.\n", argv[0]);
    std::exit(2);
}

void giveUp(const std::string& sentence)
{
    std::fprintf(stderr, "%s\n", sentence.c_str());
    std::exit(1);
}
