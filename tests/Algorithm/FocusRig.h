#pragma once

#include <functional>
#include <memory>
#include <utility>

#include <QObject>
#include <QStringList>
#include <QTemporaryDir>
#include <QVector>
#include <QtTest>

#include "Algorithm/alg_Autofocus.h"
#include "camera/OV5642Camera.h"
#include "simulator/board/BoardPort.h"
#include "simulator/camera/CameraDevices.h"
#include "simulator/camera/ScriptedFrames.h"

/// Size of the frames that the rig's camera delivers.
constexpr int kWidth = 640;
constexpr int kHeight = 480;
/// By when a run has ended, one read time-out included.
constexpr int kEnd_ms = 20000;

/// What a run says, in the order in which it says it.
struct Run
{
    explicit Run(alg_Autofocus& autofocus)
    {
        QObject::connect(
            &autofocus, &alg_Autofocus::sig_move_z_position, &receiver, [this](int z) { positions << z; });
        QObject::connect(&autofocus, &alg_Autofocus::sig_progress_AutoFocusing, &receiver,
                         [this](int step) { steps << step; });
        QObject::connect(
            &autofocus, &alg_Autofocus::sig_review_AutoFocusing, &receiver,
            [this](int step, const std::vector<AutoFocusingData_t>& taken, int best) {
                reviewedSteps << step;
                samples = taken;
                bestIndex = best;
            });
        QObject::connect(
            &autofocus, &alg_Autofocus::sig_endAutoFocusing, &receiver, [this](int z) { ends << z; });
        QObject::connect(&autofocus, &alg_Autofocus::sig_debug_Message, &receiver,
                         [this](const QStringList& parts) { log << parts.join(QLatin1Char('|')); });
    }

    /// Of a sequencer of its own.
    explicit Run(std::unique_ptr<alg_Autofocus> owned) : Run(*owned) { sequencer = std::move(owned); }

    QStringList logOf(const QString& part) const { return log.filter(part); }

    /// Waits until the run has ended so many times; false if that takes too long.
    bool hasEnded(int times = 1) const
    {
        return QTest::qWaitFor([this, times] { return ends.size() >= times; }, kEnd_ms) &&
               ends.size() == times;
    }
    /// Begins one, and waits for its end.
    bool toEnd(int times = 1)
    {
        sequencer->process();
        return hasEnded(times);
    }

    std::unique_ptr<alg_Autofocus> sequencer;
    QObject receiver;
    QVector<int> positions;
    QVector<int> steps;
    QVector<int> reviewedSteps;
    std::vector<AutoFocusingData_t> samples;
    int bestIndex = -1;
    QVector<int> ends;
    QStringList log;
};

/// Contrast that falls off by one step per 100 motor steps on both sides of a peak.
std::function<int(int)> peakAt(int peak);

QStringList repeated(const QString& line, int times);

/// A connected controller with a board behind it, and a camera that delivers the
/// picture of wherever that board's stage stands. One per process: the controller is one.
class FocusRig
{
public:
    FocusRig();
    ~FocusRig();

    /// Whether the board answered and the camera streams.
    bool isUp() const { return m_up; }
    OV5642Camera* camera() { return m_camera.get(); }
    /// Where a fixed path lies while the rig stands.
    QString diskPath(const QString& fixedPath) const { return m_root.path() + fixedPath; }

    /// An empty disk.
    void reset();
    /// Puts the stage somewhere, known to the controller, and gives the board faults; its
    /// commands count from here. False if the controller did not follow.
    bool putStage(int position, const std::vector<LineFaultRule>& faults = {});
    /// Where the board's stage stands.
    int stage();
    /// "<command>,<argument>" of every command line since putStage().
    QStringList lines();
    /// Sends the answers held back.
    void release();
    /// The pictures' contrast at each position.
    void show(const std::function<int(int)>& contrastAt);
    std::unique_ptr<alg_Autofocus> autofocus(int centre, bool save = false);

private:
    QTemporaryDir m_root;
    ScriptedFrames m_frames;
    CameraDevices m_devices;
    std::unique_ptr<BoardPort> m_board;
    std::size_t m_linesBefore = 0;
    std::unique_ptr<OV5642Camera> m_camera;
    bool m_up = false;
};
