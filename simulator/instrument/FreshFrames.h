#pragma once

#include "simulator/board/BoardPort.h"
#include "simulator/camera/SimulatedDeviceCalls.h"

/// From now on the board answers a move only when the program has taken in frames of the place
/// where it ended, or two seconds later. On a machine that keeps up with the camera it has
/// taken them in by then anyway; a busy one may not. Ends with board.setArrivalWatcher({}),
/// before the camera goes. Any thread.
void answerMovesWithFreshFrames(BoardPort& board, SimulatedDeviceCalls& camera);
