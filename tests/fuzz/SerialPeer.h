#pragma once

#include <cstdio>
#include <cstdlib>

#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>

#include <QByteArray>
#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QSerialPort>
#include <QTemporaryDir>

#include "Controller/Controller.h"
#include "FuzzInput.h"
#include "platform/InstrumentPath.h"

/// A controller that is not the process's one.
class FuzzedController : public Controller
{
public:
    FuzzedController() = default;
};

/// A controller on the serial line of a private root, whose other end this holds. Without a
/// thread: what the peer says is said between two steps of the controller. Lives to the end
/// of the process.
class SerialPeer
{
public:
    SerialPeer()
    {
        m_end = ::posix_openpt(O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
        const QString device = m_root.path() + "/dev/ttyS2";
        if (m_end < 0 || ::grantpt(m_end) != 0 || ::unlockpt(m_end) != 0 ||
            !QDir().mkpath(m_root.path() + "/dev") || !QFile::link(::ptsname(m_end), device))
            qFatal("no serial line");
        setInstrumentRoot(m_root.path());
        m_controller.m_skipProbe = true;
        m_controller.openSerialPort();
        m_port = m_controller.findChild<QSerialPort*>();
        if (m_port == nullptr || !m_port->isOpen())
            qFatal("the serial line cannot be opened");
        // Opening took the lock file; a process that is ended by a finding leaves none.
        QFile::remove("/var/lock/LCK.." + QString(device).replace('/', '_'));
    }

    FuzzedController& controller() { return m_controller; }
    QSerialPort& port() { return *m_port; }

    /// Sends bytes through the line.
    void send(const QByteArray& bytes) const
    {
        require(::write(m_end, bytes.constData(), static_cast<std::size_t>(bytes.size())) == bytes.size(),
                "the line takes a short text");
    }

    /// All that the controller has sent and nobody has taken yet.
    QByteArray received() const
    {
        char bytes[4096];
        const ssize_t count = ::read(m_end, bytes, sizeof bytes);
        return {bytes, static_cast<int>(count < 0 ? 0 : count)};
    }

private:
    FuzzedProgram<QCoreApplication> m_program;
    QTemporaryDir m_root;
    int m_end = -1;
    FuzzedController m_controller;
    QSerialPort* m_port = nullptr;
};

/// What a reply says, told apart from the controller's way: bytes, one after the other.
struct PlainReply
{
    bool good = false; ///< has the five pieces
    QByteArray fields[4];

    /// line: as it came, terminator included.
    explicit PlainReply(QByteArray line)
    {
        const int nul = line.indexOf('\0');
        if (nul >= 0)
            line.truncate(nul);
        const int end = line.indexOf("\r\n");
        if (end >= 0)
            line.truncate(end);
        const QByteArray words = line.mid(line.lastIndexOf('$') + 1);
        good = words.count(',') == 4;
        for (int i = 0, begin = 0; good && i < 4; ++i) {
            const int comma = words.indexOf(',', begin);
            fields[i] = words.mid(begin, comma - begin);
            begin = comma + 1;
        }
    }
};
