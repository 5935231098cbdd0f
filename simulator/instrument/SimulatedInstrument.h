#pragma once

#include <array>
#include <functional>
#include <memory>

#include <QString>
#include <QStringList>
#include <QTemporaryDir>

#include "simulator/board/BoardPort.h"
#include "simulator/camera/SimulatedDeviceCalls.h"
#include "simulator/disk/UsbPort.h"
#include "simulator/instrument/InstrumentFaults.h"
#include "simulator/instrument/InstrumentParameters.h"
#include "simulator/instrument/InstrumentTree.h"

/// Where a simulated instrument keeps its files.
struct InstrumentPlace
{
    QString root;           ///< directory that stands in for "/"; empty: a private one that goes with it
    QString settingsFolder; ///< the user's own settings files to start with; empty: none
};

/// Parts that a test replaces by its own.
struct InstrumentAssembly
{
    /// A board that outlives the instrument, which makes none of its own then. The program's
    /// controller keeps its port open, so only the first board of a process can be reached.
    BoardPort* sharedBoard = nullptr;
    /// Runs when the files are made and nothing is powered yet; root: machine path for "/".
    std::function<void(const QString& root)> beforePowerOn;
    /// Where the carriage stands and how the LED shines for a frame; empty: as on the board now.
    LightPathSource lightPath;
    /// What the camera's frames are counted by; empty: the time since it was made.
    InstrumentClock frameClock;
};

/// A whole instrument below the program's own device code: files, board, stage, LED,
/// camera, sensor, optics and USB port, connected by light. While it lives, the process's
/// device calls, fixed paths and PATH lead to it; afterwards they are as before.
///
/// There may be one at a time, made before the window and gone after it. GUI thread.
class SimulatedInstrument
{
public:
    explicit SimulatedInstrument(const InstrumentParameters& parameters, const InstrumentPlace& place = {},
                                 const InstrumentFaults& faults = {}, InstrumentAssembly assembly = {});
    ~SimulatedInstrument();
    SimulatedInstrument(const SimulatedInstrument&) = delete;
    SimulatedInstrument& operator=(const SimulatedInstrument&) = delete;

    /// Why the instrument could not be built, in a sentence; empty when it was.
    const QString& error() const { return m_error; }
    /// The directory that stands in for "/".
    const QString& root() const { return m_root; }

    /// Whether motion takes its time from now on, as it does unless the parameters say instant.
    void setRealTimeMotion(bool on);
    bool isInstant() const { return m_instant; }
    /// Whether a move is answered only when the program has taken in frames of where it ended,
    /// or two seconds later. On a machine that keeps up with the camera it has taken them in by
    /// then anyway; a busy one may not.
    void answerMovesWithFreshFrames(bool on);

    /// The truth, to judge results by, at this moment.
    int stagePosition_steps();
    bool stageIsMoving();
    BoardLight light() const { return m_board->light(); }
    double bestFocus_steps() const { return m_camera->bestFocus_steps(); }
    const Slide& slide() const { return m_camera->slide(); }
    /// Red, green and blue, 0..255, of the clear field.
    std::array<double, 3> fieldColour() const;
    SensorSettings sensor() const { return m_camera->sensorSettings(); }
    /// The command lines that the board received, oldest first, without their ends.
    QStringList boardLines();
    /// A value of the main settings file as it is now, by "group/key"; byDefault where the
    /// file does not have it.
    QString setting(const QString& key, const QString& byDefault) const;
    /// Whether the main settings file turns Zig mode on.
    bool zigMode() const;

    /// Puts a slide of that kind under the microscope, made by the parameters' seed and values.
    void putSlide(SlideKind kind);

    /// Replaces the camera by a new one. The program must have closed the old one.
    void changeCamera(const SimulatedCameraParameters& parameters);

    /// The parts, for their faults and for more of the truth. Only of an instrument without error().
    BoardPort& board() { return *m_board; }
    SimulatedDeviceCalls& camera() { return *m_camera; }
    InstrumentTree& tree() { return *m_tree; }
    UsbPort& usb() { return *m_usb; }

private:
    bool createRoot(const QString& root);
    bool createFiles(const InstrumentParameters& parameters, const InstrumentPlace& place,
                     const InstrumentFaults& faults);
    bool createBoard(const InstrumentParameters& parameters, const InstrumentFaults& faults);
    bool linkSharedBoard();

    bool m_instant = false;
    QString m_error;
    QString m_root;
    SlideParameters m_slide;
    std::unique_ptr<QTemporaryDir> m_privateRoot;
    std::unique_ptr<InstrumentTree> m_tree;
    std::unique_ptr<UsbPort> m_usb;
    const InstrumentAssembly m_assembly;
    std::unique_ptr<BoardPort> m_ownBoard;
    BoardPort* m_board = nullptr; ///< its own or the shared one
    std::unique_ptr<SimulatedDeviceCalls> m_camera;
    DeviceCalls* m_callsBefore = nullptr;
};
