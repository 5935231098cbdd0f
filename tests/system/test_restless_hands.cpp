#include <atomic>
#include <csignal>
#include <cstdio>
#include <memory>
#include <mutex>
#include <random>
#include <thread>

#include <QAbstractButton>
#include <QAbstractSpinBox>
#include <QApplication>
#include <QCheckBox>
#include <QFile>
#include <QFileDialog>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QTabBar>
#include <QtTest>

#include <opencv2/imgproc.hpp>

#include "Algorithm/alg_Autofocus.h"
#include "Controller/Controller.h"
#include "ORLA_II_Plus_Verifier.h"
#include "platform/TerminationSignal.h"
#include "simulator/instrument/SimulatedInstrument.h"
#include "support/Patience.h"
#include "support/TouchPanel.h"
#include "system/SeedProcess.h"

namespace {

constexpr int kFewSeeds = 2;
constexpr int kFewActions = 120;
constexpr int kManyActions = 250;
/// Where answers are lost on purpose; where none is, a short wait would lose one to a busy machine.
constexpr ControllerTimeouts kTimeouts{100, 500, 2500};
constexpr int kLongestPause_ms = 90;
/// After the last action, until everything that was begun has come to its end.
const int kCalm_ms = patient_ms(60000);
/// The same where an answer may have been lost, and the lock be for good.
const int kShortCalm_ms = patient_ms(10000);
/// In real time each Connect homes the stage, and waits for each answer that is lost. What hangs is
/// found by its standing still.
const int kDay_ms = patient_ms(400000);
const int kStuck_s = patient_ms(30);

const QStringList kOddTexts{"",       "0",   "-1",   "31500",      "99999999999",  "abc",
                            "12 3",   "1e3", "0x1F", "7,5",        "\u96f6\u4e00", "%1%n;[x]",
                            "=\"a\\", "999", "1000", "-2147483648"};
const QStringList kFileNames{"a", "a.tif", "b/c", "../over", "\u00fc \u96f6", QString(300, 'x'),
                             ".", "",      "a;b", "/mnt/d"};

/// What the hands did and the program said, for whoever has to find out.
QStringList g_said;
std::atomic<int> g_beats{0};

void say(const QString& text)
{
    static std::mutex mutex;
    const std::lock_guard<std::mutex> lock(mutex);
    g_said.append(text);
}

/// Of the run under way, by what the program writes.
bool g_running = false;
QStringList g_mixedUp;

/// Nothing else moves the stage during a run, and there is one at a time.
void follow(const QString& text)
{
    if (text.contains("alg_Autofocus::process()") && !text.contains("[Error]")) {
        if (g_running)
            g_mixedUp.append("a run begins in the middle of another");
        g_running = true;
    } else if (text.contains("slot_endAutoFocusing") || text.contains("shutdown hardware")) {
        g_running = false;
    } else if (g_running && text.startsWith("write_") &&
               text.contains(QRegularExpression("ORIGIN|ABS|RON|ROP|SELF_DIAG|STOP|BRT|LED4|READY"))) {
        g_mixedUp.append("in the middle of a run: " + text);
    }
}

/// Events that this thread is in the middle of, one inside of the other.
thread_local int g_eventsUnderWay = 0;

class CountingApplication : public QApplication
{
public:
    using QApplication::QApplication;

    bool notify(QObject* receiver, QEvent* event) override
    {
        ++g_eventsUnderWay;
        const bool result = QApplication::notify(receiver, event);
        --g_eventsUnderWay;
        return result;
    }
};

/// Qt's own complaints; what the program writes is in its debug stream.
QStringList g_complaints;

void hear(QtMsgType type, const QMessageLogContext& context, const QString& text)
{
    static std::mutex mutex;
    const std::lock_guard<std::mutex> lock(mutex);
    Q_UNUSED(context)
    say("    " + text);
    follow(text);
    // The port is closed once Connect has met a silent board; commands come to nothing then.
    if (type != QtDebugMsg && type != QtInfoMsg && !text.contains("propagateSizeHints") &&
        !text.contains("QSerialPort"))
        g_complaints.append(text);
    if (type == QtFatalMsg)
        std::abort();
}

} // namespace

/// Hands that press, hold, drag and type whatever is there, at any moment, at an instrument
/// that loses its disk, its camera and its board meanwhile, until they are tired, Exit is
/// answered with Yes, or a signal comes. By its seed's remainders, the instrument is in good
/// order or not, and takes its time or not.
class RestlessHands : public QObject
{
public:
    explicit RestlessHands(int seed)
        : m_chance(static_cast<unsigned>(seed)),
          m_withLineFaults(seed % 2 == 0),
          m_withDeviceFaults(seed % 4 >= 2),
          m_zigMode(seed % 5 == 0),
          m_realTime(seed % 8 == 5 || seed % 8 == 6),
          m_ending(seed % 3),
          m_instrument(parameters(seed))
    {
        if (!m_realTime && m_withLineFaults)
            Controller::getInstance()->m_timeouts = kTimeouts;
        m_window = std::make_unique<ORLA_II_Plus_Verifier>();
        connect(&m_termination, &TerminationSignal::received, m_window.get(),
                &ORLA_II_Plus_Verifier::slot_terminate);
        m_window->show();
        connect(&m_timer, &QTimer::timeout, this, [this] { act(); });
        m_timer.setSingleShot(true);
        m_timer.start(200);
        connect(m_window.get(), &ORLA_II_Plus_Verifier::sig_debug_Message, this, [] { ++g_beats; });
    }

    /// The program up to its end; 1 when something was wrong.
    int run()
    {
        const int status = QApplication::exec();
        say(QString("ended with %1").arg(status));
        check(status == 0, "exit status");
        afterTheEnd();
        for (const QString& mixedUp : g_mixedUp)
            wrong(mixedUp);
        for (const QString& complaint : g_complaints)
            wrong("Qt complains: " + complaint);
        return m_wrong.isEmpty() ? 0 : 1;
    }

    /// What the seed meant, and what was wrong.
    void tell() const
    {
        std::printf("  %d actions, %s%s%s%s\n", m_actions, m_withLineFaults ? "line faults " : "",
                    m_withDeviceFaults ? "device faults " : "", m_zigMode ? "Zig mode " : "",
                    m_realTime ? "real time" : "");
        for (const QString& text : m_wrong)
            std::printf("  WRONG: %s\n", qPrintable(text));
    }

private:
    InstrumentParameters parameters(int seed) const
    {
        InstrumentParameters parameters;
        parameters.setSeed(static_cast<std::uint32_t>(seed));
        parameters.instant = !m_realTime;
        parameters.board.diagnosisDuration_s = 1.0;
        parameters.zigMode = m_zigMode;
        parameters.board.lateAnswer_s = seed % 4 == 0 ? 0.3 : 0.7;
        parameters.camera.capture.framesPerSecond = 10;
        return parameters;
    }

    int pick(int count)
    {
        return count <= 0 ? 0 : static_cast<int>(m_chance() % static_cast<unsigned>(count));
    }
    template <class List>
    auto oneOf(const List& list) -> decltype(list.at(0))
    {
        return list.at(pick(list.size()));
    }

    /// What can be pressed or typed into of a kind.
    template <class Widget>
    static QVector<Widget*> usable(const QWidget& parent)
    {
        QVector<Widget*> found;
        for (Widget* widget : parent.findChildren<Widget*>())
            if (widget->isVisible() && widget->isEnabled())
                found.append(widget);
        return found;
    }

    void wrong(const QString& what)
    {
        say("WRONG: " + what);
        m_wrong.append(what);
    }
    void check(bool right, const QString& what)
    {
        if (!right)
            wrong(what);
    }

    // ---- hands ----

    void act()
    {
        ++g_beats;
        m_timer.start(pick(kLongestPause_ms));
        if (m_calm)
            return;
        if (++m_actions > m_wanted) {
            m_calm = true;
            // Whatever blocks now, in a box for instance, is not waited for inside of it.
            calmDown();
            return;
        }
        lookAtAll();
        // Mostly there is a disk.
        if (m_actions % 40 == 10 && !m_instrument.usb().isPlugged())
            m_instrument.usb().plug();
        if (m_ending == 1 && m_actions == m_wanted / 2 + pick(m_wanted / 4)) {
            say("SIGTERM");
            ::raise(SIGTERM);
            return;
        }
        QWidget* modal = QApplication::activeModalWidget();
        // A platform without a screen leaves none active when a box closes.
        if (QGuiApplication::focusWindow() == nullptr)
            (modal != nullptr ? modal : m_window.get())->windowHandle()->requestActivate();
        if (modal != nullptr)
            actAtBox(*modal);
        else
            actAtWindow();
    }

    void actAtBox(QWidget& modal)
    {
        auto* box = qobject_cast<QMessageBox*>(&modal);
        if (auto* files = qobject_cast<QFileDialog*>(&modal)) {
            switch (pick(6)) {
            case 0:
                say("cancel files");
                files->reject();
                break;
            case 1: {
                const QString name = oneOf(kFileNames);
                say("file " + name);
                if (auto* edit = files->findChild<QLineEdit*>("fileNameEdit")) {
                    edit->setText(name);
                    QTest::keyClick(edit, Qt::Key_Return);
                }
                break;
            }
            default:
                disturb();
            }
            return;
        }
        switch (pick(8)) {
        case 0:
            say("escape");
            QTest::keyClick(modal.windowHandle(), Qt::Key_Escape);
            break;
        case 1:
            disturb();
            break;
        case 2:
            key();
            break;
        case 3:
            if (box == nullptr || box->text() != "Are you sure quit ?") {
                say("return");
                QTest::keyClick(modal.windowHandle(), Qt::Key_Return);
            }
            break;
        default: {
            const QVector<QAbstractButton*> buttons = usable<QAbstractButton>(modal);
            if (buttons.isEmpty())
                break;
            QAbstractButton* button = oneOf(buttons);
            // Yes ends the day.
            if (button->text().contains("Yes") && box != nullptr && box->text() == "Are you sure quit ?" &&
                (m_ending != 2 || pick(4) != 0))
                break;
            say("box " + (box != nullptr ? box->text() : modal.windowTitle()) + ": " + button->text());
            tapAt(*button, button->rect().center());
        }
        }
    }

    void actAtWindow()
    {
        const int kind = pick(100);
        if (kind < 45)
            tapSome(1);
        else if (kind < 66)
            tapSome(2 + pick(3));
        else if (kind < 74)
            hold();
        else if (kind < 80)
            drag();
        else if (kind >= 92 || isHandlerUnderWay())
            disturb();
        else if (kind < 87)
            type();
        else if (kind < 91)
            key();
        else {
            say("close");
            m_window->close();
        }
    }

    /// Whether a handler lets events in, without a box: input waits for its end then. So do touches;
    /// a key of the test library is there at once, and lets in all that waits.
    static bool isHandlerUnderWay() { return g_eventsUnderWay > 1; }

    void tapSome(int count)
    {
        for (int i = 0; i < count; ++i) {
            const QVector<QWidget*> widgets = pressable();
            if (widgets.isEmpty())
                return;
            QWidget* widget = count > 1 && pick(3) != 0 ? oneOfTheSlow(widgets) : oneOf(widgets);
            const bool twice = pick(8) == 0;
            say("tap " + nameOf(*widget) + (twice ? " twice" : "") + (i > 0 ? " at once" : ""));
            const auto* bar = qobject_cast<QTabBar*>(widget);
            const bool mark = qobject_cast<QCheckBox*>(widget) != nullptr;
            const QPoint place = bar    ? bar->tabRect(pick(bar->count())).center()
                                 : mark ? QPoint(8, widget->height() / 2)
                                        : widget->rect().center();
            for (int taps = twice && !bar ? 2 : 1; taps > 0; --taps)
                tapAt(*widget, place);
        }
    }

    /// One of those whose handlers let events in before they are through, or leave something
    /// under way; any, where there is none.
    QWidget* oneOfTheSlow(const QVector<QWidget*>& widgets)
    {
        static const QStringList kSlow{"BUTTON_Z_ORIGIN", "BUTTON_Z_MOVE_REFERENCE", "BUTTON_Z_DIAGNOSIS",
                                       "BUTTON_Z_ABS",    "BUTTON_AUTOFOCUS",        "BUTTON_CONNECT",
                                       "BUTTON_PASSWORD", "BUTTON_QC_CAPTURE",       "BUTTON_POINT_1"};
        QVector<QWidget*> slow;
        for (QWidget* widget : widgets)
            if (kSlow.contains(widget->objectName()))
                slow.append(widget);
        return slow.isEmpty() ? oneOf(widgets) : oneOf(slow);
    }

    void tapAt(QWidget& widget, const QPoint& place)
    {
        letGo();
        m_panel.press(widget, place);
        m_panel.release();
    }

    void letGo()
    {
        if (m_panel.isPressed())
            m_panel.release();
    }

    void hold()
    {
        if (m_panel.isPressed()) {
            say("let go");
            m_panel.release();
            return;
        }
        const QVector<QWidget*> widgets = pressable();
        if (widgets.isEmpty())
            return;
        QWidget* widget = oneOf(widgets);
        if (widget->objectName() == "BUTTON_EXIT")
            return;
        say("hold " + nameOf(*widget));
        m_panel.press(*widget);
    }

    void drag()
    {
        QWidget* view = m_window->childAt(pick(640), pick(480));
        if (view == nullptr)
            view = m_window.get();
        const auto place = [&] { return view->mapFrom(m_window.get(), QPoint(pick(640), pick(480))); };
        say("drag on " + nameOf(*view));
        m_panel.press(*view, place());
        for (int i = pick(4); i > 0; --i)
            m_panel.moveTo(*view, place());
        if (pick(3) != 0)
            m_panel.release();
    }

    void type()
    {
        const QVector<QLineEdit*> edits = usable<QLineEdit>(*m_window);
        if (edits.isEmpty())
            return;
        QLineEdit* edit = oneOf(edits);
        const QString text = oneOf(kOddTexts);
        say("type " + nameOf(*edit) + ": " + text);
        edit->setFocus();
        edit->selectAll();
        for (const QChar letter : text)
            QTest::sendKeyEvent(QTest::Click, edit, Qt::Key_unknown, letter, Qt::NoModifier);
        if (pick(2) == 0)
            QTest::keyClick(edit, Qt::Key_Return);
    }

    void key()
    {
        static const QVector<int> kKeys{Qt::Key_Print, Qt::Key_Print, Qt::Key_Print,    Qt::Key_Escape,
                                        Qt::Key_Tab,   Qt::Key_Space, Qt::Key_PageDown, Qt::Key_Up,
                                        Qt::Key_Left,  Qt::Key_Return};
        QWidget* active = QApplication::activeWindow();
        if (active == nullptr)
            return;
        const int key = oneOf(kKeys);
        // It would answer the question of Exit.
        if (active != m_window.get() && key != Qt::Key_Print)
            return;
        const auto modifier = pick(3) == 0 && key == Qt::Key_Tab ? Qt::ControlModifier : Qt::NoModifier;
        say(QString("key 0x%1").arg(key, 0, 16));
        QTest::keyClick(active->windowHandle(), static_cast<Qt::Key>(key), modifier);
    }

    QVector<QWidget*> pressable()
    {
        QVector<QWidget*> widgets;
        const bool alsoEdits = pick(4) == 0;
        const bool alsoExit = pick(4) == 0;
        for (QWidget* widget : usable<QWidget>(*m_window)) {
            const bool isEdit = qobject_cast<QLineEdit*>(widget) || qobject_cast<QAbstractSpinBox*>(widget);
            const bool kind = qobject_cast<QAbstractButton*>(widget) || (isEdit && alsoEdits) ||
                              qobject_cast<QTabBar*>(widget);
            if (kind && widget->window() == m_window.get() &&
                (alsoExit || widget->objectName() != "BUTTON_EXIT"))
                widgets.append(widget);
        }
        // The way to the other tabs is as likely as what lies on one.
        for (QTabBar* bar : usable<QTabBar>(*m_window))
            widgets.insert(widgets.size(), 2, bar);
        return widgets;
    }

    static QString nameOf(const QWidget& widget)
    {
        if (!widget.objectName().isEmpty() && !widget.objectName().startsWith("qt_"))
            return widget.objectName();
        return (widget.parentWidget() ? widget.parentWidget()->objectName() : QString()) + "/" +
               widget.metaObject()->className();
    }

    // ---- instrument ----

    void disturb()
    {
        switch (pick(12)) {
        case 0:
        case 1:
        case 2: {
            if (m_instrument.usb().isPlugged()) {
                say("pull");
                m_instrument.usb().pull();
            } else {
                UsbDisk disk;
                disk.condition = pick(6) == 0 ? UsbDiskCondition::Unmountable : UsbDiskCondition::Good;
                say("plug");
                m_instrument.usb().plug(disk);
            }
            break;
        }
        case 3:
        case 4:
        case 5:
            if (m_withDeviceFaults)
                disturbCamera();
            break;
        case 6:
        case 7:
        case 8:
            if (m_withLineFaults)
                disturbLine();
            break;
        case 9:
            if (m_withDeviceFaults)
                disturbFile();
            break;
        case 10:
            say("new slide");
            m_instrument.putSlide(pick(2) == 0 ? SlideKind::Target : SlideKind::Cells);
            break;
        default:
            break;
        }
    }

    void disturbCamera()
    {
        static const QStringList kFaults{"stall",
                                         "unplugged",
                                         "short-frames",
                                         "i2c-nack:1/5",
                                         "lost-frames:1/3",
                                         "ioctl:VIDIOC_STREAMON",
                                         "no-camera",
                                         "ioctl:VIDIOC_S_FMT",
                                         "fewer-buffers",
                                         "no-i2c",
                                         "ioctl:VIDIOC_DQBUF:EIO:1",
                                         "mmap:2"};
        if (pick(2) == 0) {
            say("camera well");
            m_instrument.camera().faults().clear();
            return;
        }
        const QString fault = oneOf(kFaults);
        say("camera " + fault);
        check(m_instrument.camera().faults().enable(fault.toStdString()), "no such fault " + fault);
    }

    void disturbLine()
    {
        static const QVector<LineFault> kFaults{
            LineFault::NoAnswer, LineFault::Ignored, LineFault::Late,
            LineFault::Garbled,  LineFault::Noisy,   LineFault::Trickled,
            LineFault::Doubled,  LineFault::Failure, LineFault::Unsolicited};
        static const QVector<std::string> kLines{"$OK,STM1,ABS,100,\r\n", "$OK,STM1,ORIGIN,,\r\n",
                                                 "$OK,STM1,MVP,640,\r\n", "$NG,STM1,MVN,1,\r\n",
                                                 "$,,,,,,,\r\n",          "\r\n",
                                                 "garbage without end",   "$OK,DEVICE,READY,,\r\n"};
        const int kind = pick(10);
        m_instrument.board().withBoard([&](Board& board, InstrumentTime now) {
            if (kind < 4) {
                const LineFault fault = oneOf(kFaults);
                say(QString("line fault %1").arg(static_cast<int>(fault)));
                board.addFault({fault, "", 0, 1 + pick(6)});
            } else if (kind < 7) {
                say("line well");
                board.clearFaults();
                board.setPowered(true, now);
            } else if (kind < 9) {
                const std::string line = oneOf(kLines);
                say("unasked " + QString::fromStdString(line).trimmed());
                board.sendUnasked(line, now);
            } else {
                say("no power");
                board.setPowered(false, now);
            }
        });
    }

    void disturbFile()
    {
        const QString path = m_instrument.root() + oneOf(InstrumentTree::settingsFiles());
        QFile file(path);
        switch (pick(3)) {
        case 0:
            say("remove " + path);
            file.remove();
            break;
        case 1:
            say("rubbish in " + path);
            if (file.open(QIODevice::WriteOnly))
                file.write(QByteArray("\0[x\n=\xff\xfe[%General]\n%1=2", 20));
            break;
        default:
            say("another's key in " + path);
            if (file.open(QIODevice::Append))
                file.write("\n[Other]\nkey=1\n");
        }
    }

    // ---- what must hold ----

    template <class Widget>
    Widget* find(const char* name) const
    {
        return m_window->findChild<Widget*>(name);
    }

    void lookAtAll()
    {
        const int runs = m_window->findChildren<alg_Autofocus*>().size();
        check(runs <= 2, QString("%1 autofocus runs").arg(runs));
        int boxes = 0;
        QStringList texts;
        for (QWidget* top : QApplication::topLevelWidgets())
            if (top->isVisible() && top != m_window.get() && top->isModal()) {
                ++boxes;
                if (auto* box = qobject_cast<QMessageBox*>(top))
                    texts += box->text();
            }
        if (texts.removeDuplicates() > 0)
            wrong("the same box twice: " + texts.join("; "));
        if (boxes > 1)
            say(QString("%1 boxes: ").arg(boxes) + texts.join("; "));
        if (texts.contains("Finish AutoFocus !") && !m_withLineFaults && !m_finishSeen)
            check(find<QLineEdit>("EDIT_Z_POSITION")->text().toInt() == m_instrument.stagePosition_steps(),
                  QString("position after the run: %1, truly %2")
                      .arg(find<QLineEdit>("EDIT_Z_POSITION")->text())
                      .arg(m_instrument.stagePosition_steps()));
        m_finishSeen = texts.contains("Finish AutoFocus !");
        if (!m_withDeviceFaults)
            judgeSensor();
        if (m_actions == 1)
            m_held = held();
        // The stage goes on only as long as a button is held.
        if (boxes > 0)
            for (QAbstractButton* button : m_window->findChildren<QAbstractButton*>())
                check(!button->isDown() || button->window() != m_window.get(),
                      nameOf(*button) + " is down behind a box");
    }

    /// Descriptors and threads.
    static QPair<int, int> held()
    {
        return {
            QDir("/proc/self/fd").entryList(QDir::System | QDir::AllEntries | QDir::NoDotAndDotDot).size(),
            QDir("/proc/self/task").entryList(QDir::AllEntries | QDir::NoDotAndDotDot).size()};
    }

    /// Mends the instrument, answers what is open, and then looks at what is left.
    void calmDown()
    {
        say("calm");
        letGo();
        m_instrument.camera().faults().clear();
        m_instrument.board().withBoard([](Board& board, InstrumentTime now) {
            board.clearFaults();
            board.setPowered(true, now);
        });
        m_calmSince.start();
        connect(&m_settling, &QTimer::timeout, this, [this] { settle(); });
        m_settling.start(50);
    }

    void settle()
    {
        ++g_beats;
        if (QWidget* modal = QApplication::activeModalWidget()) {
            m_quietSince.invalidate();
            if (auto* dialog = qobject_cast<QDialog*>(modal))
                dialog->reject();
            return;
        }
        // It has its button marked and locked until its end, and may have begun long ago.
        if (isHandlerUnderWay()) {
            m_quietSince.invalidate();
            return;
        }
        const bool locked = !m_window->isEnabled() || !find<QWidget>("TAB_MENU")->isEnabled();
        if (locked && m_calmSince.elapsed() < (m_withLineFaults ? kShortCalm_ms : kCalm_ms)) {
            m_quietSince.invalidate();
            return;
        }
        if (!m_quietSince.isValid())
            m_quietSince.start();
        if (m_quietSince.elapsed() < 3000)
            return;
        m_settling.stop();
        judge(locked);
        say("SIGTERM at the end");
        ::raise(SIGTERM);
    }

    void judge(bool locked)
    {
        if (locked) {
            const QString how = m_window->isEnabled() ? "the tabs" : "the window";
            // A lost answer locks both for good; so does a run whose best place is where it stands.
            if (!m_withLineFaults && !(m_window->isEnabled() && endsWhereItStands()))
                wrong(how + " stay locked");
            say(how + " are locked");
            return;
        }
        judgeQc();
        judgeModes();
        judgeSensor();
        judgeLight();
    }

    /// Whether the last run found that it need not move any more, and so is never told that it did.
    static bool endsWhereItStands()
    {
        int end = -1;
        int move = -1;
        for (int i = 0; i < g_said.size(); ++i) {
            if (g_said[i].contains("prepareEndAutoFocusing"))
                end = i;
            if (g_said[i].contains("write_nonBlocking"))
                move = i;
        }
        return end > move;
    }

    void judgeQc()
    {
        const bool frozen = find<QWidget>("QC_MEASURE")->isVisibleTo(m_window.get());
        const auto enabled = [this](const char* name) {
            const auto* widget = find<QWidget>(name);
            return widget->isEnabledTo(widget->parentWidget());
        };
        check((find<QAbstractButton>("BUTTON_QC_CAPTURE")->text() == "Live") == frozen,
              "caption of QC capture");
        check(enabled("CHECK_TARGET") == frozen, "check box of the target");
        check(enabled("BUTTON_QC_MEASURE") == frozen, "QC measure");
        check(frozen || !enabled("BUTTON_POINT_1"), "point 1");
        check(frozen || !enabled("BUTTON_POINT_2"), "point 2");
        check(enabled("BUTTON_CONNECT") == m_zigMode, "connect");
        for (const char* name : {"BUTTON_Z_ORIGIN", "BUTTON_Z_MOVE_REFERENCE", "BUTTON_Z_DIAGNOSIS",
                                 "BUTTON_EXIT", "BUTTON_PASSWORD", "BUTTON_Z_ABS", "BUTTON_AUTOFOCUS",
                                 "BUTTON_QC_CAPTURE", "BUTTON_SAVE_INI", "BUTTON_DEBUG", "BUTTON_CAPTURE"})
            check(enabled(name), QString(name) + " is locked");
        for (QAbstractButton* button : m_window->findChildren<QAbstractButton*>())
            check(!button->isDown(), nameOf(*button) + " is down");
        for (const char* name :
             {"BUTTON_Z_ORIGIN", "BUTTON_Z_MOVE_REFERENCE", "BUTTON_Z_DIAGNOSIS", "BUTTON_PASSWORD"})
            check(!find<QWidget>(name)->styleSheet().contains("170"), QString(name) + " looks busy");
    }

    bool isMarked(const char* name) const { return find<QWidget>(name)->styleSheet().contains("170"); }

    void judgeModes()
    {
        int marked = 0;
        for (const char* name : {"BUTTON_RESOLUTION_VGA", "BUTTON_RESOLUTION_1280", "BUTTON_RESOLUTION_5M"})
            marked += isMarked(name) ? 1 : 0;
        check(marked == 1, QString("%1 resolutions are marked").arg(marked));
        check(isMarked("BUTTON_STAINING_NTB") != isMarked("BUTTON_STAINING_TB"), "staining");
        const bool frozen = find<QWidget>("QC_MEASURE")->isVisibleTo(m_window.get());
        if (m_withDeviceFaults || frozen)
            return;
        check(m_instrument.camera().isStreaming(), "the camera stands still");
        const QPair<int, int> now = held();
        say(QString("descriptors %1, threads %2").arg(now.first).arg(now.second));
        if (!m_withLineFaults && now != m_held)
            wrong(QString("descriptors %1 then %2, threads %3 then %4")
                      .arg(m_held.first)
                      .arg(now.first)
                      .arg(m_held.second)
                      .arg(now.second));
    }

    QString notice() const
    {
        const auto* label = find<QLabel>("LABEL_NOTICE");
        return label != nullptr && label->isVisible() ? label->text() : QString();
    }

    void judgeSensor()
    {
        static const QVector<QPair<const char*, int>> kSettings{{"EDIT_EXPOSURE", 0x3501},
                                                                {"EDIT_GAIN", 0x350A},
                                                                {"EDIT_COLOR_RED", 0x3400},
                                                                {"EDIT_COLOR_GREEN", 0x3402},
                                                                {"EDIT_COLOR_BLUE", 0x3404}};
        for (const auto& setting : kSettings) {
            const auto address = static_cast<std::uint16_t>(setting.second);
            const unsigned truth = m_instrument.camera().sensorRegister(address) * 256U +
                                   m_instrument.camera().sensorRegister(address + 1);
            const QString shown = find<QLineEdit>(setting.first)->text();
            if (shown.right(4).toUInt(nullptr, 16) != truth && !notice().contains("sensor") &&
                !notice().contains("Camera"))
                wrong(QString("%1: shown %2, true 0x%3; told: %4")
                          .arg(setting.first, shown)
                          .arg(truth, 4, 16)
                          .arg(notice()));
        }
    }

    void judgeLight()
    {
        const BoardLight light = m_instrument.light();
        if (notice().contains("LED") || notice().contains("answer"))
            return;
        // The board's own level after a loss of power is not the program's to know.
        if (m_withLineFaults)
            return;
        check(light.ledOn != find<QAbstractButton>("BUTTON_LED")->isChecked(), "LED " + notice());
    }

    void afterTheEnd()
    {
        check(!Controller::getInstance()->isSerialPortOpen(), "the port stays open");
        check(m_instrument.camera().openMappings() == 0, "mappings are left");
        check(!m_instrument.camera().isStreaming(), "the camera streams");
        check(QApplication::activeModalWidget() == nullptr, "a box is left");
        const QStringList lines = m_instrument.boardLines();
        if (!m_withLineFaults && !m_zigMode) {
            check(lines.mid(lines.size() - 2) == QStringList({"$,LED4,OFF,,", "$,STM1,ORIGIN,,"}),
                  "the last lines are " + lines.mid(lines.size() - 4).join(' '));
            QTest::qWait(50);
            check(!m_instrument.light().ledOn, "the LED is on");
            check(m_instrument.stagePosition_steps() == 0, "the stage is not parked");
        }
        m_timer.stop();
        m_settling.stop();
        m_window.reset();
        check(m_instrument.camera().openDescriptors("/dev/video0") == 0, "the camera is left open");
        for (const QString& path : InstrumentTree::settingsFiles()) {
            const QFileInfo info(m_instrument.root() + path);
            for (const QString& name : info.dir().entryList(QDir::Files | QDir::Hidden))
                check(InstrumentTree::settingsFiles().filter(name).size() == 1,
                      "left in its folder: " + name);
            if (!m_withDeviceFaults) {
                QSettings settings(info.filePath(), QSettings::IniFormat);
                check(info.exists() && !settings.allKeys().isEmpty() &&
                          settings.status() == QSettings::NoError,
                      "damaged: " + path);
            }
        }
    }

    std::mt19937 m_chance;
    const bool m_withLineFaults;
    const bool m_withDeviceFaults;
    const bool m_zigMode;
    const bool m_realTime;
    const int m_ending;
    SimulatedInstrument m_instrument;
    TerminationSignal m_termination{TerminationSignal::Second::IsAbsorbed};
    std::unique_ptr<ORLA_II_Plus_Verifier> m_window;
    TouchPanel m_panel;
    QTimer m_timer;
    QTimer m_settling;
    QElapsedTimer m_calmSince;
    QElapsedTimer m_quietSince;
    // In real time an answer that is lost is waited for in full: seconds for an action.
    const int m_wanted =
        accuracySeeds(0) > 0 && !(m_realTime && m_withLineFaults) ? kManyActions : kFewActions;
    int m_actions = 0;
    bool m_calm = false;
    bool m_finishSeen = false;
    QPair<int, int> m_held;
    QStringList m_wrong;
};

static void tellTheLast()
{
    constexpr int kLines = 150;
    for (const QString& text : g_said.mid(qMax(0, g_said.size() - kLines)))
        std::printf("    %s\n", qPrintable(text));
}

/// One seed's day; what was wrong goes to the standard output, with what led to it; then 1.
static int spendDay(int seed)
{
    qInstallMessageHandler(hear);
    // The library makes a thread of its own for its first large picture, and keeps it.
    cv::Mat bgr;
    cv::cvtColor(cv::Mat(1944, 2592, CV_8UC3, cv::Scalar()), bgr, cv::COLOR_RGB2BGR);
    std::thread([] {
        int still_s = 0;
        for (int day_s = 0, last = -1; still_s < kStuck_s && day_s < kDay_ms / 1000 - 5; ++day_s) {
            std::this_thread::sleep_for(std::chrono::seconds(1));
            const int now = g_beats;
            still_s = now == last ? still_s + 1 : 0;
            last = now;
        }
        std::printf(still_s < kStuck_s ? "  WRONG: the day does not end\n" : "  WRONG: nothing moves\n");
        tellTheLast();
        std::fflush(stdout);
        std::abort();
    }).detach();
    RestlessHands hands(seed);
    const int result = hands.run();
    hands.tell();
    if (result != 0)
        tellTheLast();
    std::fflush(stdout);
    return result;
}

/// Whatever is pressed and whatever happens meanwhile: the program neither dies nor hangs, is
/// not locked for good without a reason, does one thing at a time, shows what is so, ends in
/// order and leaves its files whole.
class TestRestlessHands : public QObject
{
    Q_OBJECT

private slots:
    void nothingBreaks_data() { seed_process::addRows(kFewSeeds); }

    void nothingBreaks()
    {
        QFETCH(int, seed);
        QByteArray said;
        const bool isRight = seed_process::run(seed, kDay_ms, said);
        // A message of the test's would be cut off.
        if (!isRight)
            std::printf("%s\n", said.constData());
        QVERIFY2(isRight, "what was wrong, and what led to it, is told above");
    }
};

int main(int argc, char* argv[])
{
    const std::optional<int> seed = seed_process::ownSeed();
    if (seed)
        TouchPanel::plugIn();
    const CountingApplication application(argc, argv);
    if (seed)
        return spendDay(*seed);
    TestRestlessHands test;
    return QTest::qExec(&test, argc, argv);
}

#include "test_restless_hands.moc"
