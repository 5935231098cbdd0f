#pragma once

#include <functional>
#include <memory>

#include <QMessageBox>
#include <QPushButton>
#include <QStringList>
#include <QTemporaryDir>
#include <QTimer>
#include <QVector>

#include "ORLA_II_Plus_Verifier.h"
#include "simulator/board/BoardPort.h"
#include "simulator/camera/SimulatedDeviceCalls.h"
#include "simulator/disk/UsbPort.h"
#include "simulator/instrument/InstrumentTree.h"

/// A message box as it was met: what stood on it, and that it was answered.
struct MetBox
{
    QString title;
    QString text;
    QMessageBox::Icon icon = QMessageBox::NoIcon;
    QMessageBox::StandardButtons buttons = QMessageBox::NoButton;
    bool hadDefaultButton = false;
    bool windowWasEnabled = false;
    bool controlsWereEnabled = false; ///< TAB_MENU
};

/// Answers message boxes the way a person at the panel does, and keeps what they said.
/// Boxes block the handler that shows them, so the answer is given by a timer.
class BoxAnswers : public QObject
{
public:
    explicit BoxAnswers(QWidget* window);

    /// Queues the answer to the next box; a box without a queued answer gets its Ok or No.
    void next(QMessageBox::StandardButton button) { m_answers.append(button); }
    /// From now on boxes stay open, and are not met.
    void stop() { m_timer.stop(); }
    /// Forgets the boxes met so far.
    void clear() { m_met.clear(); }
    const QVector<MetBox>& met() const { return m_met; }
    /// Texts of the boxes met so far.
    QStringList texts() const;

private:
    void look();

    QWidget* m_window;
    QTimer m_timer;
    QVector<QMessageBox::StandardButton> m_answers;
    QVector<MetBox> m_met;
};

/// The real main window on a simulated instrument of its own: instant moves and pauses, an
/// instrument tree in a private directory. One window at a time; the controller is the
/// process's, so only the first window of a test program sees the start-up handshake.
class WindowFixture
{
public:
    struct Options
    {
        bool zigMode = false;
        /// Runs when the tree stands and before anything is powered.
        std::function<void(const QString& root)> prepare;
        SimulatedCameraParameters camera;
        BoardParameters board;
        BoardPace pace = BoardPace::Instant;
        bool withBoard = true;
        /// Used in place of a board of the fixture's own, which its window would not reach
        /// if it is not the first one: the controller keeps its port. Outlives the fixture.
        BoardPort* sharedBoard = nullptr;
        /// A move is answered when the camera has delivered pictures of where it ended, as it
        /// has in real time; otherwise at once, with the picture of some earlier place.
        bool freshFrames = false;
    };

    /// For what comes at once on an idle machine, but not on a busy one under a sanitizer.
    static constexpr int kPatience_ms = 20000;

    WindowFixture();
    explicit WindowFixture(const Options& options);
    ~WindowFixture();

    ORLA_II_Plus_Verifier& window() { return *m_window; }
    BoardPort& board() { return *m_boardInUse; }
    SimulatedDeviceCalls& camera() { return *m_camera; }
    UsbPort& usb() { return m_usb; }
    InstrumentTree& tree() { return m_tree; }
    BoxAnswers& boxes() { return *m_boxes; }
    /// Machine path of a fixed path.
    QString machinePath(const QString& fixedPath) const;

    /// The widget of that object name; ends the test program if there is none.
    template <class Widget>
    Widget* find(const char* name) const
    {
        auto* widget = m_window->findChild<Widget*>(QString::fromLatin1(name));
        if (widget == nullptr)
            qFatal("the window has no %s of that kind", name);
        return widget;
    }

    QString text(const char* edit) const;
    void setText(const char* edit, const QString& text);
    /// Opens the tab that the widget lies on and clicks it with the mouse.
    void click(const char* button);
    void press(const char* button);
    void release(const char* button);
    void openTab(int index);
    bool isEnabled(const char* widget) const;
    QString style(const char* button) const;

    /// Lines that the board has received since the last call.
    QStringList takeBoardLines();
    /// Everything that stands in the message console and in the controller console.
    QString messages() const;
    QString traffic() const;
    void clearConsoles();
    /// Lets events run until the condition holds; false after the time-out.
    bool waitUntil(const std::function<bool()>& condition, int timeout_ms = kPatience_ms);
    /// Waits for repaints of the live view, whatever they show.
    bool waitForPaints(int count = 1);
    /// Waits until the device has delivered frames since the call, and for repaints after that.
    bool waitForFrames(int count = 1);

private:
    void setFreshFrames(bool on);

    QTemporaryDir m_root;
    InstrumentTree m_tree;
    UsbPort m_usb;
    std::unique_ptr<BoardPort> m_board;
    BoardPort* m_boardInUse = nullptr; ///< its own or the shared one; null without a board
    std::unique_ptr<SimulatedDeviceCalls> m_camera;
    std::unique_ptr<ORLA_II_Plus_Verifier> m_window;
    std::unique_ptr<BoxAnswers> m_boxes;
    std::size_t m_seenLines = 0;
};
