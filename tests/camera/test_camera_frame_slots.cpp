#include <algorithm>
#include <atomic>
#include <thread>
#include <vector>

#include <malloc.h>

#include <QtTest>

#include "camera/FrameSlots.h"

namespace {

constexpr std::size_t kSize = 64;

std::vector<uchar> frameOf(uchar value, std::size_t size = kSize)
{
    return std::vector<uchar>(size, value);
}

bool isUniform(const uchar* bytes, std::size_t size)
{
    return std::all_of(
        bytes, bytes + size, [bytes](uchar byte) { return byte == bytes[0]; });
}

} // namespace

class TestCameraFrameSlots : public QObject
{
    Q_OBJECT

private slots:
    void beforeAnyFrameTheFirstSlotIsReadAndZero()
    {
        FrameSlots frames;
        // Also after a second allocation.
        for (const std::size_t size : {kSize, 2 * kSize}) {
            frames.allocate(size);
            {
                const FrameSlots::Reader reader = frames.readNewest();
                QCOMPARE(reader.bufferIndex(), 0u);
                QCOMPARE(reader.bytes()[0], uchar(0));
                QVERIFY(isUniform(reader.bytes(), size));
            }
            for (const unsigned int index : {4U, 7U})
                QVERIFY(frames.write(index, frameOf(9, size).data(), size));
        }
    }

    void noMoreMemoryIsTakenThanAskedFor()
    {
        constexpr std::size_t kFrame = std::size_t{2592} * 1944 * 2;
        constexpr std::size_t kRounding = 65536; // to whole pages
        const ZeroedBytes bytes = allocateZeroed(kFrame);
        const std::size_t usable = ::malloc_usable_size(bytes.get());
        QVERIFY(usable >= kFrame && usable < kFrame + kRounding);
    }

    void withoutMemoryThereIsNothingToReadOrWrite()
    {
        FrameSlots frames;
        QCOMPARE(frames.readNewest().bytes(), nullptr);
        QVERIFY(!frames.write(0, frameOf(1).data(), kSize));
        frames.allocate(kSize);
        QVERIFY(frames.write(2, frameOf(1).data(), kSize));
        frames.release();
        QCOMPARE(frames.readNewest().bytes(), nullptr);
        QVERIFY(!frames.write(0, frameOf(1).data(), kSize));
    }

    void theNewestFrameIsReadWithItsBufferIndex()
    {
        FrameSlots frames;
        frames.allocate(kSize);
        for (unsigned int index : {0u, 1u, 2u, 3u, 4u, 7u, 31u}) {
            QVERIFY(frames.write(index, frameOf(uchar(index + 1)).data(), kSize));
            const FrameSlots::Reader reader = frames.readNewest();
            QCOMPARE(reader.bufferIndex(), index);
            QCOMPARE(reader.bytes()[0], uchar(index + 1));
            QVERIFY(isUniform(reader.bytes(), kSize));
        }
    }

    void anOversizedFrameIsCutOff()
    {
        FrameSlots frames;
        frames.allocate(kSize);
        QVERIFY(frames.write(0, frameOf(5, 10 * kSize).data(), 10 * kSize));
        QVERIFY(isUniform(frames.readNewest().bytes(), kSize));
    }

    void aShortFrameLeavesTheRestOfItsSlot()
    {
        FrameSlots frames;
        frames.allocate(kSize);
        QVERIFY(frames.write(1, frameOf(5).data(), kSize));
        QVERIFY(frames.write(1, frameOf(6, 10).data(), 10));
        const FrameSlots::Reader reader = frames.readNewest();
        QCOMPARE(reader.bytes()[9], uchar(6));
        QCOMPARE(reader.bytes()[10], uchar(5));
        QVERIFY(frames.write(2, frameOf(6).data(), 0));
        QCOMPARE(frames.readNewest().bufferIndex(), 2u);
    }

    void aSlotThatIsBeingReadIsNotWritten()
    {
        FrameSlots frames;
        frames.allocate(kSize);
        QVERIFY(frames.write(1, frameOf(5).data(), kSize));
        {
            const FrameSlots::Reader first = frames.readNewest();
            {
                const FrameSlots::Reader second = frames.readNewest();
                QVERIFY(!frames.write(1, frameOf(6).data(), kSize));
                QVERIFY(!frames.write(5, frameOf(6).data(), kSize));
            }
            QVERIFY(!frames.write(1, frameOf(6).data(), kSize));
            QCOMPARE(first.bytes()[0], uchar(5));
            QVERIFY(frames.write(2, frameOf(7).data(), kSize));
            QCOMPARE(frames.readNewest().bytes()[0], uchar(7));
            QCOMPARE(first.bytes()[0], uchar(5));
        }
        QVERIFY(frames.write(1, frameOf(6).data(), kSize));
        QCOMPARE(frames.readNewest().bytes()[0], uchar(6));
    }

    void noReaderEverSeesAFrameThatIsBeingWritten_data()
    {
        QTest::addColumn<int>("buffers");
        QTest::newRow("one buffer") << 1;
        QTest::newRow("two buffers") << 2;
        QTest::newRow("four buffers") << 4;
        QTest::newRow("eight buffers") << 8;
    }

    void noReaderEverSeesAFrameThatIsBeingWritten()
    {
        QFETCH(int, buffers);
        constexpr std::size_t kBig = 16384;
        constexpr int kReads = 3000;
        FrameSlots frames;
        frames.allocate(kBig);
        std::atomic<bool> done{false};
        std::thread writer([&] {
            unsigned int count = 0;
            while (!done.load()) {
                ++count;
                frames.write(count % unsigned(buffers), frameOf(uchar(count), kBig).data(), kBig);
            }
        });
        std::atomic<int> torn{0};
        auto read = [&] {
            for (int i = 0; i < kReads; ++i) {
                const FrameSlots::Reader reader = frames.readNewest();
                if (!isUniform(reader.bytes(), kBig) || reader.bufferIndex() >= unsigned(buffers))
                    ++torn;
            }
        };
        std::thread other(read);
        read();
        other.join();
        done.store(true);
        writer.join();
        QCOMPARE(torn.load(), 0);
    }
};

QTEST_GUILESS_MAIN(TestCameraFrameSlots)
#include "test_camera_frame_slots.moc"
