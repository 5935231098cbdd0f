#include "NoticeLines.h"

namespace {

/// What is wrong with the camera: the most basic cause alone.
QString cameraLine(const InstrumentCondition& condition)
{
    if (!condition.cameraOpenFailure.isEmpty())
        return QString("Camera could not be opened: %1 failed. Press a resolution to retry.")
            .arg(condition.cameraOpenFailure);
    if (condition.cameraGone)
        return "Camera was unplugged. Plug it in, then press a resolution.";
    if (!condition.sensorAnswers)
        return "Image sensor does not answer: its settings are neither read nor changed.";
    if (!condition.sensorSettingsInForce)
        return "Image sensor missed a setting: what is shown may not be in force. Set it again.";
    if (condition.framesOverdue)
        return "No picture from the camera for 3 seconds. Press a resolution to restart it.";
    return {};
}

} // namespace

QStringList noticeLines(const InstrumentCondition& condition)
{
    QStringList lines(cameraLine(condition));
    // Without a camera there is no frame of any size.
    if (condition.fullSizeFrameMissing && condition.cameraOpenFailure.isEmpty() && !condition.cameraGone)
        lines += "No 5M picture to measure. Press Live, then Capture again.";
    if (!condition.boardAnswers)
        lines += "Controller board does not answer: LED and stage do not react. Check its cable.";
    else if (!condition.boardDoubts.isEmpty())
        lines += QString("An answer of the board was unclear. Ask or set again: %1.")
                     .arg(condition.boardDoubts.join(", "));
    lines.removeAll(QString());
    return lines;
}

bool FrameWatch::isOverdue(bool expected, std::uint64_t frames, std::int64_t now_ms)
{
    if (!expected || !m_expected || frames != m_frames)
        m_quietSince_ms = now_ms;
    m_expected = expected;
    m_frames = frames;
    return now_ms - m_quietSince_ms >= kPatience_ms;
}
