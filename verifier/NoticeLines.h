#pragma once

#include <cstdint>

#include <QStringList>

/// What the program knows of the instrument behind the live view. By default all is well.
struct InstrumentCondition
{
    QString cameraOpenFailure; ///< the call that the camera's last opening failed with, or empty
    bool cameraGone = false;   ///< unplugged since it was opened
    bool framesOverdue = false;
    bool sensorAnswers = true;
    bool sensorSettingsInForce = true; ///< as far as the last access to each of them tells
    bool boardAnswers = true;
    QStringList boardDoubts;           ///< what is shown of the board and may be wrong, in words
    bool fullSizeFrameMissing = false; ///< a frame was to be frozen for QC, and there was none
};

/// What the technician has to be told, in plain words: one short line for each cause, empty
/// when all is well. What only follows from another cause is left out: a camera that is not
/// open delivers no frames. Pure; any thread.
QStringList noticeLines(const InstrumentCondition& condition);

/// Notices that frames no longer come. The time is an argument: milliseconds of any clock
/// that never goes back. One thread at a time.
class FrameWatch
{
public:
    /// How long no frame may come before they count as overdue.
    static constexpr std::int64_t kPatience_ms = 3000;

    /// Takes whether frames should come, and how many have come so far. True when they should
    /// have come for kPatience_ms, and none has. To be called about once a second.
    bool isOverdue(bool expected, std::uint64_t frames, std::int64_t now_ms);

private:
    bool m_expected = false;
    std::uint64_t m_frames = 0;
    std::int64_t m_quietSince_ms = 0;
};
