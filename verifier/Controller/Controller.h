#pragma once

#include <optional>

#include <QElapsedTimer>
#include <QObject>
#include <QString>

class QSerialPort;

/// How a stage command is sent.
enum SerialPort_Mode_e {
    SERIAL_BLOCKING = 0,     ///< send, then wait for the reply in the calling thread
    SERIAL_NON_BLOCKING = 1, ///< send and return; slot_readyRead() takes the reply
};

/// The fields of one reply line "$result,target,command,value,\r\n"; all start empty.
struct responseInfo_t
{
    QString result;  ///< "OK" on success, any other text is a failure
    QString target;  ///< the addressed unit: "DEVICE", "LED4" or "STM1"
    QString command; ///< the command word, echoed
    QString value;   ///< the returned value or the echoed argument, decimal text
};

/// What the board has not confirmed as it should: the answer was missing, could not be read, was
/// another command's or a refusal. What is shown of it may be wrong; so it stays until the board
/// has been told or asked again and has answered.
struct BoardDoubts
{
    bool position = false;  ///< of the Z stage
    bool ledLevel = false;  ///< the LED's level
    bool ledSwitch = false; ///< whether the LED is on
    bool diagnosis = false; ///< the result of the self-diagnosis
};

/// How long the blocking exchanges wait, in milliseconds: with the defaults, as long as the
/// board may take.
struct ControllerTimeouts
{
    int write_ms = 1000;          ///< until a line has been written, whatever the command
    int read_ms = 5000;           ///< until a reply's next piece has come
    int diagnosisRead_ms = 25000; ///< the same after the self-diagnosis, which moves the stage
};

/// The link to the controller board, which drives the LED and the Z stage, over the serial
/// line "/dev/ttyS2" (115200 baud, 8N1): a line out, a line back.
///
/// GUI thread. A blocking exchange freezes the event loop for up to its write time-out
/// plus its read time-out (ControllerTimeouts).
///
/// A read time-out leaves the record of the previous reply in place, so a command that got
/// no answer reports the previous command's success; a caller that must know asks answers().
/// Commands on a port that is not open fail the same way, but without the wait. The probe
/// alone does not believe an old reply: a board that stays silent is not connected.
class Controller : public QObject
{
    Q_OBJECT

public:
    /// The one controller of the process: created by the first call, without a parent, and
    /// never destroyed.
    static Controller* getInstance();

    /// Opens the serial line, configures it if it never was, and probes the board
    /// (trySerialPort()) unless m_skipProbe is set. Nothing happens when it is open already.
    /// Nothing reports a line that cannot be opened; sig_connected_controller() is then not
    /// emitted.
    void openSerialPort();

    /// Asks the board whether it is ready. True, with sig_connected_controller() emitted and
    /// the listener on, when it answered and the last reply that could be parsed said "OK";
    /// false, with the port closed, otherwise.
    /// A port that an earlier failure closed, or whose device has gone, is opened again first; if
    /// that is not possible, returns false at once instead of waiting out the time-outs.
    bool trySerialPort();

    /// Closes the line: its lock file is removed, its settings are what they were before.
    /// Unread and unsent bytes are lost. trySerialPort() opens it again.
    void closeSerialPort();

    /// Connects or disconnects slot_readyRead(); connecting twice changes nothing.
    void setPortListener(bool on);

    /// Discards unread input and sends one line, "\r\n" included. The reply comes to
    /// slot_readyRead().
    void write_nonBlocking(const QString& command);
    /// Discards unread input, sends one line and waits up to msecs until it has been written.
    void write_Blocking(const QString& command, int msecs);
    /// Waits for one reply line and parses it. Every piece of a line restarts the full msecs,
    /// so a board that trickles bytes can hold the caller longer.
    void readAvailableData_Blocking(int msecs);
    /// One exchange, as every blocking command uses it: listener off, both buffers cleared,
    /// write, read, listener on.
    void writeAndRead_Blocking(const QString& command, int writeMsecs, int readMsecs);
    /// Takes the text after the last "$" apart into the reply record. A line that does not
    /// have exactly four fields and the trailing comma leaves the record as it was.
    void parsing_responseReceived(const QString& line);

    /// The board's firmware version and build texts; empty on failure.
    QString device_fw_version();
    QString device_fw_build();

    /// Switches the LED. True when the board said "OK", as for every bool below.
    bool led_on();
    bool led_off();
    /// Sets the LED's level, in the board's units, unchecked.
    bool led_brightness(int level);

    /// Moves of the Z stage in motor steps; the board limits them. A blocking move returns
    /// after the reply and emits no stage signal; the tracked position follows whatever the
    /// reply said. A non-blocking move returns the outcome of the previous exchange, and
    /// slot_readyRead() moves the tracked position and emits the stage signal.
    bool z_stage_origin(SerialPort_Mode_e mode);
    bool z_stage_mvn(SerialPort_Mode_e mode, int steps);
    bool z_stage_mvp(SerialPort_Mode_e mode, int steps);
    bool z_stage_abs(SerialPort_Mode_e mode, int position);

    /// Continuous motion towards negative (ron) or positive (rop) positions until
    /// z_stage_stop(); the tracked position does not follow. run is the board's speed value.
    bool z_stage_ron(int run);
    bool z_stage_rop(int run);
    bool z_stage_stop();

    /// The stage's position in steps, which becomes the tracked one; -1 on failure.
    int z_stage_pos();
    /// Runs the self-diagnosis (up to 25 s) and returns the board's number; -1 on failure.
    int z_stage_diagnosis();

    /// The motor driver's amplitudes for acceleration, deceleration, constant speed and
    /// standstill, in the board's units, unchecked.
    bool stage_kval_acc(int amplitude);
    bool stage_kval_dec(int amplitude);
    bool stage_kval_run(int amplitude);
    bool stage_kval_hold(int amplitude);

    /// The last line read by a blocking exchange, without its terminator; empty after a read
    /// time-out.
    const QString& commandResponse() const { return m_commandResponse; }
    /// The fields of the last reply that could be parsed.
    const responseInfo_t& responseInfo() const { return m_responseInfo; }
    /// Whether the board answered the last exchange that was waited for, with whatever line.
    /// False before the first one, after a read time-out, while the port is closed or its device
    /// has gone, and when a non-blocking command has had no answer for as long as a self-diagnosis
    /// may take.
    bool answers() const;
    /// What is shown of the board and may be wrong. The results of the commands above do not
    /// know: they go by the record, whichever command's reply it holds. A reply in which noise
    /// has made one number another is taken as it is, for the line has no checksum.
    const BoardDoubts& doubts() const { return m_doubts; }
    /// How often a command to the stage has not been confirmed since construction.
    int unconfirmedStageCommands() const { return m_unconfirmedStageCommands; }
    /// Whether the serial line is open, probed or not.
    bool isSerialPortOpen() const;

public slots:
    /// Handles one reply line of a non-blocking command per notification: moves the tracked
    /// position and emits the stage signal that the command word asks for. The reply's result
    /// is not consulted, and a line that cannot be parsed repeats the previous reply's effect.
    void slot_readyRead();

signals:
    /// A command line as sent, or a reply line as read by a blocking exchange; with its "\r\n".
    void sig_debug_Controller(QString line);
    /// The board answered the probe.
    void sig_connected_controller();
    /// A non-blocking stage command was answered; the tracked position is up to date.
    void sig_z_stage_origin();
    void sig_z_stage_mvn();
    void sig_z_stage_mvp();
    void sig_z_stage_abs();

protected:
    explicit Controller(QObject* parent = nullptr);

private:
    static Controller* instance;

    enum class Command : int; // a row of the command table
    struct StageMove;         // what a stage command does to the tracked position

    void giveUpUnsent();
    void configureSerialPort();
    bool reopenSerialPort();
    QString readLine();
    const StageMove* trackStage(const QString& words, int value);
    void followStageReply();
    bool isOk() const;
    bool confirms(const QString& word) const;
    void noteOutcome(Command command, bool confirmed);
    void noteAwaited();
    bool exchange(Command command, int argument = 0);
    QString queryText(Command command);
    bool sendMove(Command command, SerialPort_Mode_e mode, int argument = 0);

    QSerialPort* m_serialPort; // owned as a child
    QString m_startMark = QStringLiteral("$");
    QString m_lineEnd = QStringLiteral("\r\n");
    QString m_commandResponse;
    bool m_answered = false; ///< whether the last wait brought a line
    bool m_parsed = false;   ///< whether the last line filled the record
    BoardDoubts m_doubts;
    int m_unconfirmedStageCommands = 0;
    std::optional<Command> m_awaited; ///< the non-blocking command without an answer yet
    QElapsedTimer m_awaitedSince;     ///< its sending
    responseInfo_t m_responseInfo;

public:
    /// When set, openSerialPort() opens the line without probing the board. Nothing in the
    /// program sets it: it is not the Zig mode, in which the board is probed as usual.
    bool m_skipProbe = false;
    /// How long the exchanges wait. The program leaves it as it is; tests shorten it.
    ControllerTimeouts m_timeouts;
    /// The stage's position in motor steps, as tracked on this side of the line.
    int m_zStagePosition = 0;
    /// The instrument's Zig mode, as the main window read it from the settings; kept here for
    /// whoever holds the controller, and without effect on the link.
    bool m_bZigMode = false;
};
