#pragma once

#include <QTemporaryDir>

#include "Controller/Controller.h"
#include "platform/InstrumentPath.h"
#include "simulator/board/BoardPort.h"
#include "support/LogRecorder.h"

/// A controller that is not the process's one, so that every test begins with a fresh one.
class FreshController : public Controller
{
public:
    FreshController() = default;
};

/// A root directory that stands in for the machine as long as the fixture lives.
class TemporaryRoot
{
public:
    TemporaryRoot() { setInstrumentRoot(m_directory.path()); }
    ~TemporaryRoot() { setInstrumentRoot(QStringLiteral("/")); }
    TemporaryRoot(const TemporaryRoot&) = delete;
    TemporaryRoot& operator=(const TemporaryRoot&) = delete;

    QString path() const { return m_directory.path(); }

private:
    QTemporaryDir m_directory;
};

/// A board that is told what to say, at the other end of "/dev/ttyS2" below a root directory.
class ScriptedPeer
{
public:
    explicit ScriptedPeer(const QString& rootDirectory) : m_port(rootDirectory.toStdString())
    {
        m_port.withBoard([](Board& board, InstrumentTime) { board.followScript(); });
    }

    /// Queues the answer to a line to come. A line without one is not answered.
    void answer(const QByteArray& bytes) { answer(ScriptedAnswer{{bytes.toStdString()}}); }
    void answer(const ScriptedAnswer& pieces)
    {
        m_port.withBoard([&](Board& board, InstrumentTime) { board.queueAnswer(pieces); });
    }
    /// Sends bytes now, asked or not.
    void send(const QByteArray& bytes)
    {
        m_port.withBoard(
            [&](Board& board, InstrumentTime now) { board.sendUnasked(bytes.toStdString(), now); });
    }
    /// The lines received so far, with their ends.
    QList<QByteArray> received()
    {
        QList<QByteArray> lines;
        m_port.withBoard([&](Board& board, InstrumentTime) {
            for (const std::string& line : board.receivedLines())
                lines << QByteArray::fromStdString(line) + "\r\n";
        });
        return lines;
    }

private:
    BoardPort m_port;
};

constexpr int kLong_ms = 5000; // far beyond what an answer takes here

/// A controller on a serial line with a scripted peer, and what it logs.
struct ControllerFixture
{
    TemporaryRoot root;
    ScriptedPeer peer{root.path()};
    LogRecorder log;
    FreshController controller;

    /// Opens the line without asking the peer anything.
    void open()
    {
        controller.m_skipProbe = true;
        controller.openSerialPort();
        controller.m_skipProbe = false;
        log.clear();
    }

    /// A blocking exchange that the peer answers.
    void exchange(const char* command, const QByteArray& answer)
    {
        peer.answer(answer);
        controller.writeAndRead_Blocking(command, kLong_ms, kLong_ms);
    }

    /// The fields of the last reply that could be parsed.
    QStringList fields() const
    {
        const responseInfo_t& info = controller.responseInfo();
        return {info.result, info.target, info.command, info.value};
    }
};

/// The same with an open line.
struct OpenFixture : ControllerFixture
{
    OpenFixture() { open(); }
};

/// The same with a listener to what comes unasked.
struct ListeningFixture : OpenFixture
{
    ListeningFixture() { controller.setPortListener(true); }
};
