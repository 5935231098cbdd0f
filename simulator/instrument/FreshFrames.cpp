#include "simulator/instrument/FreshFrames.h"

#include <chrono>

namespace {

// The first frame may have been exposed before the arrival. The wait stays below the five
// seconds after which the program gives an answer up.
constexpr unsigned kFreshFrames = 2;
constexpr std::chrono::milliseconds kLongestWait(2000);

} // namespace

void answerMovesWithFreshFrames(BoardPort& board, SimulatedDeviceCalls& camera)
{
    board.setArrivalWatcher(
        [&camera](InstrumentTime) { camera.waitForFreshFrames(kFreshFrames, kLongestWait); });
}
