#pragma once

#include <functional>
#include <memory>
#include <string>

#include <QImage>
#include <QMessageBox>
#include <QPushButton>
#include <QStringList>

#include "ORLA_II_Plus_Verifier.h"
#include "simulator/instrument/SimulatedInstrument.h"
#include "simulator/operator/Operator.h"

class OV5642Camera;

/// The real main window on a simulated instrument of its own: instant moves and pauses, an
/// instrument tree in a private directory. One window at a time; the controller is the
/// process's, so only the first window of a test program sees the start-up handshake. A test
/// program on one window inherits it.
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
        bool withBoard = true;
        /// Used in place of a board of the fixture's own, which its window would not reach
        /// if it is not the first one: the controller keeps its port. Outlives the fixture.
        BoardPort* sharedBoard = nullptr;
        /// A move is answered when the camera has delivered pictures of where it ended, as it
        /// has in real time; otherwise at once, with the picture of some earlier place.
        bool freshFrames = false;
    };

    /// The styles of a button that is chosen or at work, and of one that is so no more.
    static constexpr const char* kHighlight = "background-color: rgb(0, 170, 255);";
    static constexpr const char* kPlain = "background-color: none;";
    /// The resolution's buttons, by mode.
    static constexpr const char* kResolutions[] = {"BUTTON_RESOLUTION_VGA", "BUTTON_RESOLUTION_1280",
                                                   "BUTTON_RESOLUTION_5M"};
    /// For what comes at once on an idle machine, but not on a busy one under a sanitizer.
    static constexpr int kPatience_ms = 20000;

    WindowFixture();
    explicit WindowFixture(const Options& options);
    ~WindowFixture();

    ORLA_II_Plus_Verifier& window() const { return *m_window; }
    /// Takes the window away from an instrument that stays.
    void destroyWindow();
    bool hasWindow() const { return m_window != nullptr; }
    Operator& user() { return *m_operator; }
    BoardPort& board() { return m_instrument.board(); }
    SimulatedDeviceCalls& camera() { return m_instrument.camera(); }
    UsbPort& usb() { return m_instrument.usb(); }
    InstrumentTree& tree() { return m_instrument.tree(); }
    /// Answers boxes at once, and keeps what they said.
    BoxWatcher& boxes() { return m_operator->boxWatcher(); }
    /// The program's own object over that camera.
    OV5642Camera* programCamera() const;
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
    /// The window's part that shows the live view, with what lies over it.
    QImage view() const;
    /// Saves the window for the eye, when a directory for pictures is named.
    void keepPicture(const QString& name) const;
    /// Expects that one box has come up since they were cleared, and that it said and offered this.
    void expectBox(const QString& title, const QString& text, QMessageBox::Icon icon,
                   const QStringList& buttons = {QStringLiteral("OK")});

    /// Expects that these parts of lines come one after the other, whatever is between them.
    static void expectInOrder(const QStringList& lines, const QStringList& parts);

    /// Makes the board misbehave.
    void addFault(const LineFaultRule& fault);
    /// Lets the board send a line that nobody asked for.
    void sayUnasked(const std::string& bytes);
    /// Board and camera work again, and the controller waits for as long as it does.
    void clearFaults();
    /// Lines that the board has received since the last call.
    QStringList takeBoardLines();
    /// Waits for so many of them; fewer after the time-out.
    QStringList waitForBoardLines(int count);
    /// Calls a function at the moment when a line that begins so goes to the board, as long as
    /// what is returned lives.
    std::unique_ptr<QObject> atBoardLine(const QString& start, std::function<void(const QString&)> function);
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
    void expectPressed(const char* button, bool (Operator::*way)(const QString&));

    SimulatedInstrument m_instrument;
    std::unique_ptr<ORLA_II_Plus_Verifier> m_window;
    std::unique_ptr<Operator> m_operator;
    std::size_t m_seenLines = 0;
};
