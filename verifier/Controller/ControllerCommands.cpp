#include "Controller/Controller.h"

#include <iterator>

#include <QDebug>

enum class Controller::Command : int {
    FirmwareVersion,
    FirmwareBuild,
    LedOn,
    LedOff,
    LedBrightness,
    Origin,
    RunNegative,
    RunPositive,
    MoveNegative,
    MovePositive,
    MoveAbsolute,
    SelfDiagnosis,
    Stop,
    GetPosition,
    AmplitudeAcceleration,
    AmplitudeDeceleration,
    AmplitudeRun,
    AmplitudeHold,
    Count
};

namespace {

constexpr int kNoNumber = -1;

// What becomes of what is shown when a command is confirmed, and when it is not.
enum class Effect { None, LedSwitch, LedLevel, Motion, Position, Diagnosis };

struct CommandRow
{
    const char* function; // traced under this name
    const char* line;     // "%1" stands for the integer argument
    Effect effect = Effect::None;
    int ControllerTimeouts::*readTimeout = &ControllerTimeouts::read_ms;
};

// In the order of Controller::Command.
constexpr CommandRow kCommandRows[] = {
    {"device_fw_version", "$,DEVICE,FW VERSION,,\r\n"},
    {"device_fw_build", "$,DEVICE,FW BUILD,,\r\n"},
    {"led_on", "$,LED4,ON,,\r\n", Effect::LedSwitch},
    {"led_off", "$,LED4,OFF,,\r\n", Effect::LedSwitch},
    {"led_brightness", "$,LED4,BRT,%1,\r\n", Effect::LedLevel},
    {"z_stage_origin", "$,STM1,ORIGIN,,\r\n", Effect::Motion},
    {"z_stage_ron", "$,STM1,RON,%1,\r\n", Effect::Motion},
    {"z_stage_rop", "$,STM1,ROP,%1,\r\n", Effect::Motion},
    {"z_stage_mvn", "$,STM1,MVN,%1,\r\n", Effect::Motion},
    {"z_stage_mvp", "$,STM1,MVP,%1,\r\n", Effect::Motion},
    {"z_stage_abs", "$,STM1,ABS,%1,\r\n", Effect::Motion},
    {"z_stage_diagnosis", "$,STM1,SELF_DIAG,,\r\n", Effect::Diagnosis, &ControllerTimeouts::diagnosisRead_ms},
    {"z_stage_stop", "$,STM1,STOP,,\r\n", Effect::Motion},
    {"z_stage_pos", "$,STM1,GET_POS,,\r\n", Effect::Position},
    {"stage_kval_acc", "$,STM1,ACC,%1,\r\n"},
    {"stage_kval_dec", "$,STM1,DEC,%1,\r\n"},
    {"stage_kval_run", "$,STM1,RUN,%1,\r\n"},
    {"stage_kval_hold", "$,STM1,HOLD,%1,\r\n"},
};

template <class Command>
const CommandRow& rowOf(Command command)
{
    static_assert(std::size(kCommandRows) == static_cast<std::size_t>(Command::Count));
    return kCommandRows[static_cast<std::size_t>(command)];
}

QString lineOf(const CommandRow& row, int argument)
{
    const QString line = QString::fromLatin1(row.line);
    return line.contains(QLatin1String("%1")) ? line.arg(argument) : line;
}

// The command word, which the board's reply repeats.
QString wordOf(const CommandRow& row)
{
    return QString::fromLatin1(row.line).section(QLatin1Char(','), 2, 2);
}

bool isNumber(const QString& text)
{
    return QString::number(text.toInt()) == text;
}

} // namespace

bool Controller::exchange(Command command, int argument)
{
    const CommandRow& row = rowOf(command);
    qDebug() << row.function;
    m_awaited.reset();
    m_parsed = false;
    writeAndRead_Blocking(lineOf(row, argument), m_timeouts.write_ms, m_timeouts.*row.readTimeout);
    const bool asksForNumber = command == Command::GetPosition || command == Command::SelfDiagnosis;
    noteOutcome(command, confirms(wordOf(row)) && (!asksForNumber || isNumber(m_responseInfo.value)));
    return isOk();
}

// Whether the last line is the reply to a command, and says that it was carried out.
bool Controller::confirms(const QString& word) const
{
    return m_parsed && isOk() && m_responseInfo.command == word;
}

// A motion that is confirmed takes no doubt away: what is shown may be from before, and only the
// board's own word replaces it.
void Controller::noteOutcome(Command command, bool confirmed)
{
    const Effect effect = rowOf(command).effect;
    if (effect == Effect::LedSwitch)
        m_doubts.ledSwitch = !confirmed;
    else if (effect == Effect::LedLevel)
        m_doubts.ledLevel = !confirmed;
    else if (effect == Effect::Diagnosis)
        m_doubts.diagnosis = !confirmed;
    else if (effect == Effect::Position)
        m_doubts.position = !confirmed;
    else if (effect == Effect::Motion)
        m_doubts.position = m_doubts.position || !confirmed;
    if ((effect == Effect::Motion || effect == Effect::Position) && !confirmed)
        ++m_unconfirmedStageCommands;
}

// The line that has just come is the reply to the non-blocking command, or stands in its place.
void Controller::noteAwaited()
{
    if (!m_awaited)
        return;
    const Command command = *m_awaited;
    m_awaited.reset();
    noteOutcome(command, confirms(wordOf(rowOf(command))));
}

bool Controller::sendMove(Command command, SerialPort_Mode_e mode, int argument)
{
    if (mode == SERIAL_BLOCKING) {
        exchange(command, argument);
        // Whatever the reply said: a failed or unanswered move is tracked as well.
        trackStage(QLatin1String(rowOf(command).line), argument);
    } else {
        qDebug() << rowOf(command).function;
        m_awaited = command;
        m_awaitedSince.start();
        write_nonBlocking(lineOf(rowOf(command), argument));
    }
    return isOk();
}

QString Controller::queryText(Command command)
{
    return exchange(command) ? m_responseInfo.value : QString();
}

QString Controller::device_fw_version()
{
    return queryText(Command::FirmwareVersion);
}

QString Controller::device_fw_build()
{
    return queryText(Command::FirmwareBuild);
}

bool Controller::led_on()
{
    return exchange(Command::LedOn);
}

bool Controller::led_off()
{
    return exchange(Command::LedOff);
}

bool Controller::led_brightness(int level)
{
    return exchange(Command::LedBrightness, level);
}

bool Controller::z_stage_origin(SerialPort_Mode_e mode)
{
    return sendMove(Command::Origin, mode);
}

bool Controller::z_stage_ron(int run)
{
    return exchange(Command::RunNegative, run);
}

bool Controller::z_stage_rop(int run)
{
    return exchange(Command::RunPositive, run);
}

bool Controller::z_stage_mvn(SerialPort_Mode_e mode, int steps)
{
    return sendMove(Command::MoveNegative, mode, steps);
}

bool Controller::z_stage_mvp(SerialPort_Mode_e mode, int steps)
{
    return sendMove(Command::MovePositive, mode, steps);
}

bool Controller::z_stage_abs(SerialPort_Mode_e mode, int position)
{
    return sendMove(Command::MoveAbsolute, mode, position);
}

int Controller::z_stage_diagnosis()
{
    return exchange(Command::SelfDiagnosis) ? m_responseInfo.value.toInt() : kNoNumber;
}

bool Controller::z_stage_stop()
{
    return exchange(Command::Stop);
}

int Controller::z_stage_pos()
{
    if (!exchange(Command::GetPosition))
        return kNoNumber;
    m_zStagePosition = m_responseInfo.value.toInt();
    return m_zStagePosition;
}

bool Controller::stage_kval_acc(int amplitude)
{
    return exchange(Command::AmplitudeAcceleration, amplitude);
}

bool Controller::stage_kval_dec(int amplitude)
{
    return exchange(Command::AmplitudeDeceleration, amplitude);
}

bool Controller::stage_kval_run(int amplitude)
{
    return exchange(Command::AmplitudeRun, amplitude);
}

bool Controller::stage_kval_hold(int amplitude)
{
    return exchange(Command::AmplitudeHold, amplitude);
}
