#include "Controller/Controller.h"

#include <QDebug>
#include <QSerialPort>

#include <poll.h>

#include "platform/InstrumentPath.h"

namespace {

const QString kPortName = QStringLiteral("/dev/ttyS2");
const QString kProbeLine = QStringLiteral("$,DEVICE,READY,,\r\n");
constexpr int kReplyPieces = 5; // four fields and the empty text after the trailing comma

// The board may send any number: a sum beyond the range of int wraps.
int wrappingSum(int a, int b)
{
    return static_cast<int>(static_cast<unsigned>(a) + static_cast<unsigned>(b));
}

int wrappingDifference(int a, int b)
{
    return static_cast<int>(static_cast<unsigned>(a) - static_cast<unsigned>(b));
}

/// Whether the device behind an open port has gone, as an adapter that was pulled out. What the port
/// says of itself is the outcome of its last call.
bool hasHungUp(const QSerialPort& port)
{
    pollfd line = {static_cast<int>(port.handle()), 0, 0};
    return ::poll(&line, 1, 0) == 1 && (line.revents & POLLHUP) != 0;
}

} // namespace

// What a stage command's word does to the tracked position, and the signal of its completion.
struct Controller::StageMove
{
    const char* word;
    int (*positionAfter)(int position, int value);
    void (Controller::*completed)();
};

Controller* Controller::instance = nullptr;

Controller* Controller::getInstance()
{
    if (!instance)
        instance = new Controller;
    return instance;
}

Controller::Controller(QObject* parent) : QObject(parent), m_serialPort(new QSerialPort(this))
{
    qDebug() << "Controller";
    connect(m_serialPort, &QSerialPort::errorOccurred, this, &Controller::giveUpUnsent);
}

// The port would try without end, and without a pause, to send to a device that has gone. To discard
// it fails in the same way, when nothing is left. A line that is there and takes nothing now, which is
// the same error, will take it at the port's next try.
void Controller::giveUpUnsent()
{
    if (m_serialPort->bytesToWrite() > 0 && hasHungUp(*m_serialPort))
        m_serialPort->clear(QSerialPort::Output);
}

bool Controller::isSerialPortOpen() const
{
    return m_serialPort->isOpen();
}

bool Controller::answers() const
{
    const bool overdue = m_awaited && m_awaitedSince.hasExpired(m_timeouts.diagnosisRead_ms);
    return m_answered && m_serialPort->isOpen() && !hasHungUp(*m_serialPort) && !overdue;
}

void Controller::openSerialPort()
{
    qDebug() << "openSerialPort";
    if (m_serialPort->isOpen()) {
        qDebug() << "the serial port" << kPortName << "is already open";
        return;
    }
    // A port that was configured before is not probed again. Without a name it cannot be opened: all
    // that an attempt leaves is a wait for the disk, for a lock of no device's.
    if (!m_serialPort->portName().isEmpty() && m_serialPort->open(QIODevice::ReadWrite)) {
        qDebug() << "opened serial port" << kPortName;
        return;
    }
    configureSerialPort();
    if (m_serialPort->open(QIODevice::ReadWrite) && !m_skipProbe)
        trySerialPort();
}

void Controller::configureSerialPort()
{
    m_serialPort->setPortName(instrumentPath(kPortName));
    qDebug() << kPortName;
    m_serialPort->setBaudRate(QSerialPort::Baud115200, QSerialPort::AllDirections);
    m_serialPort->setDataBits(QSerialPort::Data8);
    m_serialPort->setParity(QSerialPort::NoParity);
    m_serialPort->setStopBits(QSerialPort::OneStop);
    m_serialPort->setFlowControl(QSerialPort::NoFlowControl);
}

void Controller::closeSerialPort()
{
    m_serialPort->close();
    m_answered = false;
    m_awaited.reset();
}

bool Controller::reopenSerialPort()
{
    if (m_serialPort->isOpen()) {
        if (!hasHungUp(*m_serialPort))
            return true;
        closeSerialPort();
    }
    if (m_serialPort->portName().isEmpty())
        configureSerialPort();
    return m_serialPort->open(QIODevice::ReadWrite);
}

bool Controller::trySerialPort()
{
    qDebug() << "trySerialPort";
    if (!reopenSerialPort()) {
        qDebug() << "trySerialPort"
                 << "the serial port" << kPortName << "cannot be opened";
        return false;
    }
    writeAndRead_Blocking(kProbeLine, m_timeouts.write_ms, m_timeouts.read_ms);
    // The record may hold the "OK" of a board that has died since.
    if (!m_answered || !isOk()) {
        closeSerialPort();
        return false;
    }
    qDebug() << "opened serial port" << kPortName;
    emit sig_connected_controller();
    setPortListener(true);
    return true;
}

// By name, so that whoever disconnects the slot by name reaches this connection: one that is made
// by member pointer would stay.
void Controller::setPortListener(bool on)
{
    if (on)
        connect(m_serialPort, SIGNAL(readyRead()), this, SLOT(slot_readyRead()), Qt::UniqueConnection);
    else
        disconnect(m_serialPort, SIGNAL(readyRead()), this, SLOT(slot_readyRead()));
}

void Controller::write_nonBlocking(const QString& command)
{
    qDebug() << "write_nonBlocking"
             << "command:" << command;
    m_serialPort->clear(QSerialPort::Input);
    m_serialPort->write(command.toLocal8Bit());
    emit sig_debug_Controller(command);
}

void Controller::write_Blocking(const QString& command, int msecs)
{
    qDebug() << "write_Blocking"
             << "command:" << command;
    m_serialPort->clear(QSerialPort::Input);
    m_serialPort->write(command.toLocal8Bit());
    emit sig_debug_Controller(command);
    if (!m_serialPort->waitForBytesWritten(msecs))
        qDebug() << "write_Blocking"
                 << "errorDataWritingTimeout";
}

void Controller::readAvailableData_Blocking(int msecs)
{
    do {
        // A closed port would only wait its time out: nothing can arrive.
        if (!m_serialPort->isOpen() || !m_serialPort->waitForReadyRead(msecs)) {
            qDebug() << "readAvailableData_Blocking"
                     << "errorDataReadingTimeout";
            m_commandResponse = QString();
            m_answered = false;
            return;
        }
    } while (!m_serialPort->canReadLine());
    m_answered = true;
    m_commandResponse = readLine();
    qDebug() << "readAvailableData_Blocking"
             << "m_commandResponse:" << m_commandResponse;
    emit sig_debug_Controller(m_commandResponse);
    m_commandResponse = m_commandResponse.split(m_lineEnd).first();
    parsing_responseReceived(m_commandResponse);
}

void Controller::writeAndRead_Blocking(const QString& command, int writeMsecs, int readMsecs)
{
    setPortListener(false);
    m_serialPort->clear(QSerialPort::AllDirections);
    write_Blocking(command, writeMsecs);
    readAvailableData_Blocking(readMsecs);
    setPortListener(true);
}

// Up to the first NUL: a line with a NUL in it has lost its rest, terminator included.
QString Controller::readLine()
{
    return QString::fromLatin1(m_serialPort->readLine().constData());
}

void Controller::parsing_responseReceived(const QString& line)
{
    qDebug() << "parsing_responseReceived"
             << "response:" << line;
    const QStringList pieces = line.split(m_startMark).last().split(QLatin1Char(','));
    m_parsed = pieces.size() == kReplyPieces;
    if (m_parsed)
        m_responseInfo = {pieces[0], pieces[1], pieces[2], pieces[3]};
}

void Controller::slot_readyRead()
{
    if (!m_serialPort->canReadLine())
        return;
    // One line per notification: a second one waits for the next.
    const QString response = readLine().split(m_lineEnd).first();
    qDebug() << "slot_readyRead"
             << "response:" << response;
    parsing_responseReceived(response);
    noteAwaited();
    followStageReply();
}

// The first row whose word occurs in the text counts; null when there is none.
const Controller::StageMove* Controller::trackStage(const QString& words, int value)
{
    static constexpr StageMove kStageMoves[] = {
        {"ORIGIN", [](int, int) { return 0; }, &Controller::sig_z_stage_origin},
        {"MVN", wrappingDifference, &Controller::sig_z_stage_mvn},
        {"MVP", wrappingSum, &Controller::sig_z_stage_mvp},
        {"ABS", [](int, int position) { return position; }, &Controller::sig_z_stage_abs},
    };
    for (const StageMove& move : kStageMoves) {
        if (!words.contains(QLatin1String(move.word)))
            continue;
        m_zStagePosition = move.positionAfter(m_zStagePosition, value);
        return &move;
    }
    return nullptr;
}

// A failure reply moves the tracked position too: where the stage then stands is for GET_POS
// to tell.
void Controller::followStageReply()
{
    if (const StageMove* move = trackStage(m_responseInfo.command, m_responseInfo.value.toInt()))
        emit(this->*move->completed)();
}

bool Controller::isOk() const
{
    return m_responseInfo.result == QLatin1String("OK");
}
