// Blocking commands and their replies, which arrive on a real line in pieces of any size.
#include <algorithm>

#include <QByteArray>

#include "FuzzInput.h"
#include "PlainNumber.h"
#include "SerialPeer.h"

namespace {

// A line of this length passes a terminal in one piece.
constexpr int kLongestReply = 200;
constexpr int kMostExchanges = 8;

// Answers each line with a reply, a piece at each step: the next one only when the one before
// has been read.
class Board
{
public:
    Board()
    {
        QSerialPort& port = m_peer.port();
        QObject::connect(
            &port, &QSerialPort::bytesWritten, [this] { sendPiece(); });
        QObject::connect(
            &port, &QSerialPort::readyRead, [this] { sendPiece(); });
        QObject::connect(&m_peer.controller(), &Controller::sig_debug_Controller,
                         [this](const QString& line) { m_echo = line; });
        // The port tells of the first bytes that it has written when it writes the next ones.
        const ControllerTimeouts timeouts = m_peer.controller().m_timeouts;
        m_peer.controller().m_timeouts.read_ms = 1;
        m_peer.controller().led_off();
        m_peer.controller().m_timeouts = timeouts;
    }

    Controller& controller() { return m_peer.controller(); }
    QByteArray received() const { return m_peer.received(); }
    // The line that the console was told of last.
    QString echo() const { return m_echo; }

    void prepare(const QByteArray& reply, int pieceSize)
    {
        m_reply = reply;
        m_pieceSize = pieceSize;
    }

private:
    void sendPiece()
    {
        const QByteArray piece = m_reply.left(m_pieceSize);
        m_reply.remove(0, piece.size());
        if (!piece.isEmpty())
            m_peer.send(piece);
    }

    SerialPeer m_peer;
    QByteArray m_reply;
    int m_pieceSize = 0;
    QString m_echo;
};

// The reply record and the tracked position as they have to be.
struct Expected
{
    QByteArray fields[4];
    int position = 0;
};

void command(Board& board, Expected& state, std::uint8_t choice, int argument)
{
    Controller& controller = board.controller();
    const bool good = state.fields[0] == "OK";
    const int value = plainNumber(state.fields[3]);
    QByteArray line;
    const QByteArray number = QByteArray::number(argument);
    switch (choice % 8) {
    case 0:
        require(controller.device_fw_version() == (good ? QString::fromLatin1(state.fields[3]) : QString()),
                "a text is the reply's value");
        line = "$,DEVICE,FW VERSION,,\r\n";
        break;
    case 1:
        require(controller.led_on() == good, "OK alone is success");
        line = "$,LED4,ON,,\r\n";
        break;
    case 2:
        require(controller.led_brightness(argument) == good, "OK alone is success");
        line = "$,LED4,BRT," + number + ",\r\n";
        break;
    case 3:
        require(controller.z_stage_origin(SERIAL_BLOCKING) == good, "OK alone is success");
        state.position = 0;
        line = "$,STM1,ORIGIN,,\r\n";
        break;
    case 4:
        require(controller.z_stage_mvn(SERIAL_BLOCKING, argument) == good, "OK alone is success");
        state.position = wrapped(static_cast<long long>(state.position) - argument);
        line = "$,STM1,MVN," + number + ",\r\n";
        break;
    case 5:
        require(controller.z_stage_abs(SERIAL_BLOCKING, argument) == good, "OK alone is success");
        state.position = argument;
        line = "$,STM1,ABS," + number + ",\r\n";
        break;
    case 6:
        require(controller.z_stage_diagnosis() == (good ? value : -1), "a number is the reply's value");
        line = "$,STM1,SELF_DIAG,,\r\n";
        break;
    default:
        require(controller.z_stage_pos() == (good ? value : -1), "a number is the reply's value");
        state.position = good ? value : state.position;
        line = "$,STM1,GET_POS,,\r\n";
        break;
    }
    require(board.received() == line, "one command is one line");
    require(controller.m_zStagePosition == state.position, "the tracked position follows");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static Board board;
    FuzzInput input(data, size);
    Controller& controller = board.controller();
    Expected state;
    state.position = controller.m_zStagePosition = static_cast<int>(input.word());
    board.prepare("$,,,,\r\n", kLongestReply);
    controller.led_off(); // leaves a record of empty fields, as at the start
    board.received();

    for (int count = 0; count < kMostExchanges && !input.isEmpty(); ++count) {
        const std::uint8_t choice = input.byte();
        const int pieceSize = 1 + input.byte() % 32;
        const int argument = static_cast<int>(input.word());
        // What follows the line's end stands in for the reply's: it always has one.
        const QByteArray line = input.upTo('\n').left(kLongestReply) + '\n';
        board.prepare(line, pieceSize);
        const PlainReply reply(line);
        if (reply.good)
            std::copy(std::begin(reply.fields), std::end(reply.fields), state.fields);
        command(board, state, choice, argument);
        require(controller.answers(), "a line is an answer, whatever it says");
        const QByteArray text = line.mid(0, line.indexOf('\0'));
        require(board.echo() == QString::fromLatin1(text), "the console shows the line as it came");
        require(controller.commandResponse() == QString::fromLatin1(text).section("\r\n", 0, 0),
                "the last reply is kept without its end");
    }
    return 0;
}
