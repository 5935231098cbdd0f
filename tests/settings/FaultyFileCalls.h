#pragma once

#include <QByteArray>
#include <QByteArrayList>

/// Takes the place of the C library's file calls in the test program that links it, the ones
/// of the libraries included, and can cut or break them. Counted are the calls that can
/// change a file system; for the rest of the program they work as ever.
///
/// Only the calls of the thread that armed it count; one thread at a time.
namespace FaultyFileCalls {

enum class Fault {
    None,
    Cut,     ///< the process ends before the call, and its memory goes, as if the power failed
    CutHalf, ///< a write stores half of its bytes first, then as Cut
    Error,   ///< the call fails with the given error number
    Half,    ///< a write stores half of its bytes and says so; other calls work
};

/// From now on the calls are counted and recorded, and the one with this number (the first
/// is 1) has the fault. With lasting, all calls from this one on have it; with a kind, such as
/// "fsync", only calls of that kind are counted; the kind "read" is of those that open a file and
/// change nothing, the kind "take" of those that read.
void arm(Fault fault, int number, int errorNumber = 0, bool lasting = false, const QByteArray& kind = {});

/// Ends the counting, and clears what is left in memory. Returns how many calls were counted.
int disarm();

/// The calls since the last arm(), as "rename /from /to" or "fsync /path".
QByteArrayList calls();

/// Exit status of a process that was cut.
constexpr int kCutStatus = 77;

} // namespace FaultyFileCalls
