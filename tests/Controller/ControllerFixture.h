#pragma once

#include <functional>

#include <QSignalSpy>
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
constexpr int kShort_ms = 60;  // for an answer that never comes

const QByteArray kProbe = "$,DEVICE,READY,,\r\n";
const QByteArray kReady = "$OK,DEVICE,READY,,\r\n";

using Command = std::function<void(Controller&)>;
Q_DECLARE_METATYPE(Command)

/// A controller on a machine without a serial line, and what it logs and tells.
struct LonelyFixture
{
    LonelyFixture()
    {
        const auto note = [this](const char* move) { return [this, move] { moves << move; }; };
        QObject::connect(&controller, &Controller::sig_z_stage_origin, note("origin"));
        QObject::connect(&controller, &Controller::sig_z_stage_mvn, note("mvn"));
        QObject::connect(&controller, &Controller::sig_z_stage_mvp, note("mvp"));
        QObject::connect(&controller, &Controller::sig_z_stage_abs, note("abs"));
    }

    /// Opens the line without asking the board anything.
    void open()
    {
        controller.m_skipProbe = true;
        controller.openSerialPort();
        controller.m_skipProbe = false;
        log.clear();
    }
    /// Puts every line that is echoed from now on into the log.
    void logEchoes()
    {
        QObject::connect(
            &controller, &Controller::sig_debug_Controller,
            [](const QString& line) { qDebug() << "echo" << line; });
    }

    TemporaryRoot root;
    LogRecorder log;
    QStringList moves; ///< that were told as ended
    FreshController controller;
    QSignalSpy connected{&controller, &Controller::sig_connected_controller};
    QSignalSpy echoed{&controller, &Controller::sig_debug_Controller};
};

/// The same on a serial line with a scripted peer.
struct ControllerFixture : LonelyFixture
{
    ScriptedPeer peer{root.path()};

    /// Opens the line with a probe that the peer answers.
    void openAnswered(const QByteArray& answer = kReady)
    {
        peer.answer(answer);
        controller.openSerialPort();
    }

    /// Whether a try that the peer answers succeeds.
    bool tryAnswered(const QByteArray& answer = kReady)
    {
        peer.answer(answer);
        return controller.trySerialPort();
    }

    /// A blocking exchange that the peer answers.
    void exchange(const char* command, const QByteArray& answer)
    {
        exchange([command](Controller& board) { board.writeAndRead_Blocking(command, kLong_ms, kLong_ms); },
                 answer);
    }
    void exchange(const Command& command, const QByteArray& answer)
    {
        peer.answer(answer);
        command(controller);
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
