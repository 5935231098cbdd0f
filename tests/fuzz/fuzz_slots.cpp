// The copies of captured frames: rows, lengths and buffer numbers as a driver may tell them.
#include <algorithm>
#include <vector>

#include "FuzzInput.h"
#include "camera/FrameSlots.h"

namespace {

constexpr unsigned int kMostRows = 6;
constexpr unsigned int kLongestRow = 24;
constexpr unsigned int kWidestGap = 9;
constexpr std::size_t kLongestFrame = 256;

using Bytes = std::vector<uchar>;

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    FuzzInput input(data, size);
    FrameSlots::Rows rows{};
    rows.count = input.byte() % kMostRows;
    rows.size_bytes = input.byte() % kLongestRow;
    rows.distance_bytes = rows.size_bytes + input.byte() % kWidestGap;

    FrameSlots slots;
    slots.allocate(rows);
    std::vector<Bytes> plain(FrameSlots::kCount, Bytes(rows.count * rows.size_bytes));
    std::size_t newest = 0;
    unsigned int newestIndex = 0;
    std::uint64_t written = 0;
    std::uint64_t lastNumber = 0;
    while (!input.isEmpty()) {
        const unsigned int index = input.word();
        const std::size_t length = input.byte();
        const uchar value = input.byte();
        // Exactly as long as the driver says, so that a byte read behind it is found.
        Bytes frame(std::min(length, kLongestFrame));
        frame.reserve(1); // the memory of an empty one is mapped too
        for (std::size_t i = 0; i < frame.size(); ++i)
            frame[i] = static_cast<uchar>(value + i);

        const bool read = (value & 1U) != 0;
        if (read && index % FrameSlots::kCount == newest) {
            const FrameSlots::Reader reader = slots.readNewest();
            require(!slots.write(index, frame.data(), frame.size()), "a slot that is read is not written");
        } else {
            require(slots.write(index, frame.data(), frame.size()), "a slot that nobody reads is written");
            newest = index % FrameSlots::kCount;
            newestIndex = index;
            ++written;
            for (std::size_t i = 0; i < frame.size(); ++i) {
                const std::size_t row = rows.distance_bytes == 0 ? rows.count : i / rows.distance_bytes;
                const std::size_t column = rows.distance_bytes == 0 ? 0 : i % rows.distance_bytes;
                if (row < rows.count && column < rows.size_bytes)
                    plain[newest][row * rows.size_bytes + column] = frame[i];
            }
        }
        const FrameSlots::Reader reader = slots.readNewest();
        require(reader.bufferIndex() == newestIndex, "the newest frame bears the driver's number");
        require(std::equal(plain[newest].begin(), plain[newest].end(), reader.bytes()),
                "rows follow one another, and what did not come stays");
        require(slots.framesWritten() == written, "frames are counted");
        require(written == 0 || (read ? reader.number() >= lastNumber : reader.number() > lastNumber),
                "no two contents bear the same number");
        lastNumber = reader.number();
    }
    slots.release();
    require(slots.readNewest().bytes() == nullptr, "released slots are empty");
    return 0;
}
