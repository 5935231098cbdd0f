#include "support/WindowFixture.h"

#include <QApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QLineEdit>
#include <QMouseEvent>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QSettings>
#include <QTabWidget>
#include <QtTest>

#include "platform/InstrumentPath.h"
#include "simulator/instrument/FreshFrames.h"

namespace {

constexpr int kLookInterval_ms = 5;

} // namespace

BoxAnswers::BoxAnswers(QWidget* window) : m_window(window)
{
    connect(&m_timer, &QTimer::timeout, this, [this] { look(); });
    m_timer.start(kLookInterval_ms);
}

void BoxAnswers::look()
{
    auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget());
    if (box == nullptr)
        return;
    m_met.append({box->windowTitle(), box->text(), box->icon(), box->standardButtons(),
                  box->defaultButton() != nullptr, m_window->isEnabled(),
                  m_window->findChild<QWidget*>("TAB_MENU")->isEnabled()});
    QMessageBox::StandardButton answer =
        box->standardButtons().testFlag(QMessageBox::No) ? QMessageBox::No : QMessageBox::Ok;
    if (!m_answers.isEmpty())
        answer = m_answers.takeFirst();
    if (QAbstractButton* button = box->button(answer))
        button->click();
    else
        box->reject();
}

QStringList BoxAnswers::texts() const
{
    QStringList texts;
    for (const MetBox& box : m_met)
        texts.append(box.text);
    return texts;
}

WindowFixture::WindowFixture() : WindowFixture(Options()) {}

WindowFixture::WindowFixture(const Options& options) : m_tree(m_root.path()), m_usb(m_root.path())
{
    if (!m_tree.create() || !m_usb.install())
        qFatal("the instrument's files cannot be created");
    {
        QSettings settings(m_root.filePath("opt/ORLA3/conf/ORLA3.ini"), QSettings::IniFormat);
        settings.setValue("ORLA-III/Zig mode", options.zigMode ? "On" : "Off");
    }
    if (options.prepare)
        options.prepare(m_root.path());
    setInstrumentRoot(m_root.path());

    if (options.sharedBoard != nullptr) {
        const QString device = m_root.filePath("dev/ttyS2");
        if (!QDir().mkpath(QFileInfo(device).path()) ||
            !QFile::link(QString::fromStdString(options.sharedBoard->devicePath()), device))
            qFatal("the board's device cannot be linked");
        m_boardInUse = options.sharedBoard;
    } else if (options.withBoard) {
        m_board = std::make_unique<BoardPort>(m_root.path().toStdString(), options.board, options.pace);
        m_boardInUse = m_board.get();
    }
    SimulatedCameraParameters camera = options.camera;
    camera.instantPauses = true;
    m_camera = std::make_unique<SimulatedDeviceCalls>(camera, [this](InstrumentTime) {
        if (m_boardInUse == nullptr)
            return LightPath{0.0, true, 225};
        const BoardLight light = m_boardInUse->light();
        return LightPath{light.stagePosition_steps, light.ledOn, light.ledLevel};
    });
    installDeviceCalls(m_camera.get());
    if (options.freshFrames && m_boardInUse != nullptr)
        setFreshFrames(true);
    m_window = std::make_unique<ORLA_II_Plus_Verifier>();
    m_boxes = std::make_unique<BoxAnswers>(m_window.get());
    m_window->show();
    if (!QTest::qWaitForWindowExposed(m_window.get()))
        qFatal("the window does not show");
}

WindowFixture::~WindowFixture()
{
    m_boxes.reset();
    m_window.reset();
    if (m_boardInUse != nullptr)
        setFreshFrames(false);
    installDeviceCalls(nullptr);
    setInstrumentRoot("/");
}

void WindowFixture::setFreshFrames(bool on)
{
    if (on)
        answerMovesWithFreshFrames(*m_boardInUse, *m_camera);
    else
        m_boardInUse->setArrivalWatcher({});
}

QString WindowFixture::machinePath(const QString& fixedPath) const
{
    return m_root.path() + fixedPath;
}

QString WindowFixture::text(const char* edit) const
{
    return find<QLineEdit>(edit)->text();
}

void WindowFixture::setText(const char* edit, const QString& text)
{
    find<QLineEdit>(edit)->setText(text);
}

void WindowFixture::openTab(int index)
{
    find<QTabWidget>("TAB_MENU")->setCurrentIndex(index);
}

namespace {

/// Shows the page of the tab widget that a widget lies on.
void showPageOf(QTabWidget* tabs, QWidget* widget)
{
    for (int i = 0; i < tabs->count(); ++i) {
        if (tabs->widget(i)->isAncestorOf(widget))
            tabs->setCurrentIndex(i);
    }
}

} // namespace

void WindowFixture::click(const char* button)
{
    auto* widget = find<QAbstractButton>(button);
    showPageOf(find<QTabWidget>("TAB_MENU"), widget);
    // Near the left edge: a check box does not react over its whole width.
    QTest::mouseClick(widget, Qt::LeftButton, Qt::NoModifier, QPoint(8, widget->height() / 2));
}

void WindowFixture::press(const char* button)
{
    auto* widget = find<QAbstractButton>(button);
    showPageOf(find<QTabWidget>("TAB_MENU"), widget);
    QTest::mousePress(widget, Qt::LeftButton);
}

void WindowFixture::release(const char* button)
{
    QTest::mouseRelease(find<QAbstractButton>(button), Qt::LeftButton);
}

bool WindowFixture::isEnabled(const char* widget) const
{
    return find<QWidget>(widget)->isEnabled();
}

QString WindowFixture::style(const char* button) const
{
    return find<QWidget>(button)->styleSheet();
}

QStringList WindowFixture::takeBoardLines()
{
    QStringList lines;
    m_boardInUse->withBoard([&](Board& board, InstrumentTime) {
        const auto& received = board.receivedLines();
        for (; m_seenLines < received.size(); ++m_seenLines)
            lines.append(QString::fromStdString(received[m_seenLines]));
    });
    return lines;
}

QString WindowFixture::messages() const
{
    return find<QPlainTextEdit>("PLAIN_DEBUG_MESSAGE")->toPlainText();
}

QString WindowFixture::traffic() const
{
    return find<QPlainTextEdit>("PLAIN_DEBUG_CONTROLLER")->toPlainText();
}

void WindowFixture::clearConsoles()
{
    find<QPlainTextEdit>("PLAIN_DEBUG_MESSAGE")->clear();
    find<QPlainTextEdit>("PLAIN_DEBUG_CONTROLLER")->clear();
}

bool WindowFixture::waitUntil(const std::function<bool()>& condition, int timeout_ms)
{
    return QTest::qWaitFor(condition, timeout_ms);
}

bool WindowFixture::waitForFrames(int count)
{
    const auto target = m_camera->counters().framesDelivered + static_cast<unsigned>(count);
    // Two repaints later even a conversion that had begun before has been painted.
    return waitUntil([&] { return m_camera->counters().framesDelivered >= target; }) &&
           waitForPaints(count + 1);
}

bool WindowFixture::waitForPaints(int count)
{
    int painted = 0;
    const auto connection = QObject::connect(m_window.get(), &ORLA_II_Plus_Verifier::updateFrameDone,
                                             m_window.get(), [&painted] { ++painted; });
    const bool good = waitUntil([&] { return painted >= count; });
    QObject::disconnect(connection);
    return good;
}
