#include <atomic>
#include <functional>
#include <memory>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <QTemporaryDir>
#include <QtTest>

#include "support/Emulation.h"
#include "support/FileBytes.h"
#include "support/ResourceRecord.h"

namespace {

constexpr int kTimes = 200;

/// What the record finds of something that is done again and again.
QStringList growthOf(const std::function<void()>& something)
{
    ResourceRecord record("something");
    for (int times = 1; times <= kTimes; ++times) {
        something();
        if (times % 5 == 0)
            record.take(times);
    }
    return record.growth();
}

} // namespace

/// The record finds what is left behind, and nothing where nothing is.
class TestResourceRecord : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        SKIP_UNDER_EMULATION("the memory is the emulator's, which keeps what it has translated");
    }

    void whatIsGivenBackDoesNotCount()
    {
        const QStringList grown = growthOf([] {
            const std::vector<char> some(300000, 'x');
            std::thread([] {}).join();
            ::close(::open("/dev/null", O_RDONLY | O_CLOEXEC));
        });
        QVERIFY2(grown.isEmpty(), qPrintable(grown.join("; ")));
    }

    void memoryThatIsKeptIsFound()
    {
        std::vector<std::unique_ptr<char[]>> kept;
        const QStringList grown = growthOf([&] { kept.push_back(std::make_unique<char[]>(8192)); });
        QCOMPARE(grown.size(), 1);
        QVERIFY2(grown.first().contains("heap bytes"), qPrintable(grown.first()));
    }

    void memoryThatIsKeptByAnotherThreadIsFound()
    {
        std::vector<std::unique_ptr<char[]>> kept;
        const QStringList grown =
            growthOf([&] { std::thread([&] { kept.push_back(std::make_unique<char[]>(8192)); }).join(); });
        QVERIFY2(grown.join("; ").contains("heap bytes"), qPrintable(grown.join("; ")));
    }

    void aDescriptorThatStaysOpenIsFound()
    {
        std::vector<int> kept;
        const QStringList grown =
            growthOf([&] { kept.push_back(::open("/dev/null", O_RDONLY | O_CLOEXEC)); });
        for (const int descriptor : kept)
            ::close(descriptor);
        QCOMPARE(grown.size(), 1);
        QVERIFY2(grown.first().contains("descriptors"), qPrintable(grown.first()));
    }

    void aMappingThatStaysIsFound()
    {
        std::vector<void*> kept;
        int protection = PROT_READ;
        const QStringList grown = growthOf([&] {
            // Neighbours of one kind would be told as one.
            protection ^= PROT_WRITE;
            kept.push_back(::mmap(nullptr, 4096, protection, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
        });
        for (void* place : kept)
            ::munmap(place, 4096);
        QCOMPARE(grown.size(), 1);
        QVERIFY2(grown.first().contains("mappings"), qPrintable(grown.first()));
    }

    void aThreadThatStaysIsFound()
    {
        std::atomic<bool> over{false};
        std::vector<std::thread> kept;
        const QStringList grown = growthOf([&] {
            kept.emplace_back([&over] {
                while (!over)
                    std::this_thread::sleep_for(std::chrono::milliseconds(50));
            });
        });
        over = true;
        for (std::thread& thread : kept)
            thread.join();
        QVERIFY2(grown.join("; ").contains("threads"), qPrintable(grown.join("; ")));
    }

    void aRiseThatEndsWithinTheFirstHalfIsWarmingUp()
    {
        ResourceRecord rising("rising");
        ResourceRecord settled("settled");
        for (int times = 1; times <= kTimes; ++times) {
            Resources held;
            held.resident_bytes = qint64(times) * 100000;
            rising.add(times, held);
            held.resident_bytes = qint64(std::min(times, kTimes / 2)) * 100000;
            settled.add(times, held);
        }
        QCOMPARE(rising.growth(),
                 QStringList("rising: 5000000 more resident bytes within a quarter of the run, "
                             "2097152 allowed"));
        QCOMPARE(settled.growth(), QStringList());
    }

    void tooFewSamplesTellNothing()
    {
        ResourceRecord record("something");
        record.take(1);
        QCOMPARE(record.growth(), QStringList("something: too few samples to tell"));
    }

    void theSamplesAreLeftAsTableAndAsPicture()
    {
        const QTemporaryDir folder;
        ResourceRecord record("something");
        Resources held;
        for (int times = 10; times <= 80; times += 10) {
            held.descriptors = times / 10;
            record.add(times, held);
        }
        QVERIFY(record.write(folder.path()));
        const QByteArray csv = bytesOf(folder.filePath("something.csv"));
        QVERIFY(csv.startsWith("times,resident bytes,heap bytes,arenas,descriptors,mappings,threads\n"
                               "10,0,0,0,1,0,0\n"));
        QCOMPARE(csv.count('\n'), 9);
        const QByteArray svg = bytesOf(folder.filePath("something.svg"));
        QVERIFY(svg.contains("something, 80 times") && svg.count("<polyline") == 6);
        // One descriptor each ten times.
        QVERIFY(record.table().contains(QRegularExpression("descriptors +1 +5 +8 +0\\.100")));
    }
};

QTEST_GUILESS_MAIN(TestResourceRecord)
#include "test_resource_record.moc"
