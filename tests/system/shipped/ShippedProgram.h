#pragma once

#include <functional>
#include <memory>

#include <QImage>
#include <QJsonObject>
#include <QPoint>
#include <QProcess>
#include <QTemporaryDir>

#include "DeviceScene.h"
#include "simulator/board/BoardPort.h"
#include "simulator/operator/BoxRecord.h"
#include "tests/support/FileBytes.h"

/// The program as it is shipped, in a process of its own on a private instrument: files below
/// a temporary directory that a mount namespace lays over the real paths, stand-ins for the
/// capture device and the sensor's bus, the simulated board on its serial line.
class ShippedProgram
{
public:
    /// Makes the instrument, with settings files of known values, and starts nothing.
    ShippedProgram();
    ~ShippedProgram();

    /// Why it cannot run here; empty when it can.
    static QString hindrance();

    /// The file behind a path of the instrument, such as "opt/ORLA3/conf/ORLA3.ini".
    QString file(const QString& path) const { return m_root.filePath(path); }
    QByteArray content(const QString& path) const;
    void write(const QString& path, const QByteArray& text) const { putBytes(file(path), text); }
    void plugDisk() const;
    void pullDisk() const;

    DeviceScene& scene() { return *m_scene; }
    /// Gives the simulated camera these faults, by their names, and no other.
    void setCameraFaults(const QStringList& faults);
    BoardPort& board() { return *m_board; }
    /// The lines that the board has received, without "$," and line end, from this one on.
    QStringList boardLines(int from = 0);
    /// Makes the board carry nothing out and answer nothing, or be itself again.
    void silenceBoard(bool silent);
    /// Pulls the serial line's adapter out and plugs it in again, with a board that has just
    /// been switched on.
    void replugBoard();
    /// Sends a line that nobody has asked for.
    void sayUnasked(const QByteArray& line);
    /// Whether anybody but the program can open its port, of which it takes sole possession.
    bool portCanBeSeen() const;
    /// How the port is set: 8 data bits, no parity, one stop bit, no flow control, 115200 baud.
    bool portIsSetAsTheBoardExpects() const;

    /// Variables of the program's environment beside its usual ones, or in their place.
    void setVariables(const QMap<QString, QString>& variables) { m_variables = variables; }
    /// A command that begins the program, in the same process, with what it leaves it.
    void setStarter(const QStringList& words) { m_starter = words; }
    /// Starts the program and waits for its window.
    bool start(const QStringList& arguments = {});
    /// Runs a program that has no window to wait for; its exit status, -1 when it does not come
    /// to an end by itself.
    int run(const QStringList& arguments);
    /// What the program has written to standard output and standard error.
    QByteArray output() const { return content("debug.log"); }
    /// Presses Exit, then Yes; the exit status, -1 when it does not come to an end.
    int exit();
    /// Waits for its end; the exit status, -1 when it does not come or is a crash.
    int waitForEnd();
    qint64 processId() const { return m_program.processId(); }
    bool isRunning() const { return m_program.state() != QProcess::NotRunning; }
    /// What its descriptors lead to, without folders and numbers, sorted.
    QStringList descriptors() const;
    int threads() const;

    /// Calls on the devices and files so far, from this one on, without their times.
    QStringList calls(int from = 0) const;
    /// Of the calls that begin so: the shortest time between one and the next call.
    double shortestPause_s(const QString& start, int from = 0) const;
    /// What mount, umount and the password script were called with, one a line.
    QByteArray commands() const { return content("commands.log"); }

    QJsonObject ask(const QJsonObject& request);
    QJsonObject look(const QString& name) { return ask({{"do", "look"}, {"name", name}}); }
    QString text(const QString& name) { return look(name)["text"].toString(); }
    QString style(const QString& name) { return look(name)["style"].toString(); }
    bool enabled(const QString& name) { return look(name)["enabled"].toBool(); }
    void click(const QString& name) { ask({{"do", "click"}, {"name", name}}); }
    void type(const QString& name, const QString& text, bool enter = false);
    void setValue(const QString& name, int value) { type(name, QString::number(value), true); }
    void chooseTab(int index) { ask({{"do", "tab"}, {"name", "TAB_MENU"}, {"value", index}}); }
    void mouse(const char* action, int x, int y) { ask({{"do", action}, {"x", x}, {"y", y}}); }
    /// A finger at a place of the window, and one that moves with the button down.
    void touch(int x, int y);
    void drag(const QPoint& start, const QPoint& end);
    /// The window's picture on the screen.
    QImage picture();

    /// The box that a click brings up; it stays open.
    SeenBox boxOf(const QString& button);
    SeenBox waitForBox(int limit_ms = 10000);
    bool isBoxOpen() { return !ask({{"do", "box"}}).isEmpty(); }
    void answer(const QString& button) { ask({{"do", "answer"}, {"button", button}}); }
    /// Whether the window takes presses again within the time.
    bool waitEnabled(int limit_ms);
    /// Looks again and again; false where the condition has not come within the time.
    static bool waitUntil(const std::function<bool()>& condition, int limit_ms);

private:
    std::unique_ptr<BoardPort> makeBoard() const;
    void linkBoard() const;
    void makeTree();
    void makeScene();
    void launch(const QStringList& arguments);

    QTemporaryDir m_root;
    std::unique_ptr<BoardPort> m_board;
    DeviceScene* m_scene = nullptr; // of the mapping
    int m_requests = -1;
    int m_answers = -1;
    QByteArray m_pending;
    QMap<QString, QString> m_variables;
    QStringList m_starter;
    QProcess m_program;
};
