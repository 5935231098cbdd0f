#pragma once

#include <QObject>
#include <QString>
#include <QVector>

#include "simulator/disk/UsbPort.h"

/// A USB disk that the command line asks for.
struct PlannedDisk
{
    UsbDiskCondition condition = UsbDiskCondition::Good;
    bool pluggedAtStart = true;
};

/// Reads "CONDITION" or "CONDITION,out"; what is wrong with it in a sentence, or an empty
/// text and the disk.
QString readPlannedDisk(const QString& text, PlannedDisk& disk);

/// The two sockets of the USB port as a run's user reaches them: disks from the command line,
/// plugged in and pulled from outside by SIGUSR1 (first socket) and SIGUSR2 (second). A
/// socket without a planned disk takes a good one. GUI thread.
class UsbSockets : public QObject
{
    Q_OBJECT

public:
    static constexpr int kCount = 2;

    /// Keeps the two signals for the sockets; called before any thread starts, so that none
    /// of them takes a signal in its default way.
    static void holdSignals();

    /// port outlives the sockets. disks: at most kCount.
    UsbSockets(UsbPort& port, const QVector<PlannedDisk>& disks);
    ~UsbSockets() override;

    /// Plugs in what belongs in from the start. What went wrong in a sentence, or empty.
    QString plugAtStart();
    /// Acts on the signals, including those that came since holdSignals(). Needs the application.
    void listen();

private:
    UsbDisk diskOf(int socket) const;
    void obeySignal();
    void toggle(int socket);

    UsbPort& m_port;
    QVector<PlannedDisk> m_disks;
    int m_signals = -1;
};
