#pragma once

#include "simulator/board/BoardPort.h"
#include "simulator/camera/SimulatedDeviceCalls.h"

/// From now on the board answers a move when the program has taken in frames of where it
/// ended, or after two seconds without them: as it has in real time, unless the machine is too
/// busy for the camera's pace. Ends with board.setArrivalWatcher({}), before the camera goes.
/// Any thread.
void answerMovesWithFreshFrames(BoardPort& board, SimulatedDeviceCalls& camera);
