#pragma once

#include <array>
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

/// A whole instrument below the program's own device code: files, board, stage, LED,
/// camera, sensor, optics and USB port, connected by light. While it lives, the process's
/// device calls, fixed paths and PATH lead to it; afterwards they are as before.
///
/// One at a time, on the GUI thread; made before the window and gone after it.
class SimulatedInstrument
{
public:
    explicit SimulatedInstrument(const InstrumentParameters& parameters, const InstrumentPlace& place = {},
                                 const InstrumentFaults& faults = {});
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
    /// Whether a move is answered only when the program has taken in frames of where it ended:
    /// as it has in real time, unless the machine is too busy for the camera's pace.
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
    /// The fixed paths of the settings files, the main one first.
    static const QStringList& settingsFiles();
    /// Whether the main settings file turns Zig mode on.
    bool zigMode() const;

    /// Puts a slide of that kind under the microscope, made by the parameters' seed and values.
    void putSlide(SlideKind kind);

    /// The parts, for their faults and for more of the truth. Only of an instrument without error().
    BoardPort& board() { return *m_board; }
    SimulatedDeviceCalls& camera() { return *m_camera; }
    InstrumentTree& tree() { return *m_tree; }
    UsbPort& usb() { return *m_usb; }

private:
    bool createRoot(const QString& root);
    bool createFiles(const InstrumentParameters& parameters, const InstrumentPlace& place,
                     const InstrumentFaults& faults);
    void createBoard(const InstrumentParameters& parameters, const InstrumentFaults& faults);
    void createCamera(const InstrumentParameters& parameters, const InstrumentFaults& faults);

    bool m_instant = false;
    QString m_error;
    QString m_root;
    SlideParameters m_slide;
    std::unique_ptr<QTemporaryDir> m_privateRoot;
    std::unique_ptr<InstrumentTree> m_tree;
    std::unique_ptr<UsbPort> m_usb;
    std::unique_ptr<BoardPort> m_board;
    std::unique_ptr<SimulatedDeviceCalls> m_camera;
    DeviceCalls* m_callsBefore = nullptr;
};
