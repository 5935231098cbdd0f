#include "support/WindowFixture.h"

#include <QLineEdit>
#include <QPlainTextEdit>
#include <QtTest>

#include "Controller/Controller.h"
#include "camera/OV5642Camera.h"
#include "support/Patience.h"

namespace {

const QString kTabs = QStringLiteral("TAB_MENU");

InstrumentParameters parametersOf(const WindowFixture::Options& options)
{
    InstrumentParameters parameters;
    parameters.board = options.board;
    parameters.camera = options.camera;
    parameters.zigMode = options.zigMode;
    parameters.instant = true;
    return parameters;
}

InstrumentFaults faultsOf(const WindowFixture::Options& options)
{
    InstrumentFaults faults;
    faults.noSerialDevice = !options.withBoard;
    return faults;
}

InstrumentAssembly assemblyOf(const WindowFixture::Options& options)
{
    InstrumentAssembly assembly;
    assembly.sharedBoard = options.sharedBoard;
    assembly.beforePowerOn = options.prepare;
    // Without a board that takes commands there is light nevertheless.
    if (!options.withBoard)
        assembly.lightPath = [](InstrumentTime) { return LightPath{0.0, true, 225}; };
    return assembly;
}

} // namespace

WindowFixture::WindowFixture() : WindowFixture(Options()) {}

WindowFixture::WindowFixture(const Options& options)
    : m_instrument(parametersOf(options), {}, faultsOf(options), assemblyOf(options))
{
    if (!m_instrument.error().isEmpty())
        qFatal("%s", qPrintable(m_instrument.error()));
    m_instrument.answerMovesWithFreshFrames(options.freshFrames);
    m_window = std::make_unique<ORLA_II_Plus_Verifier>();
    m_operator = std::make_unique<Operator>(*m_window, QString(), OperatorPace::AtOnce);
    m_window->show();
    if (!QTest::qWaitForWindowExposed(m_window.get()))
        qFatal("the window does not show");
}

WindowFixture::~WindowFixture() = default;

QString WindowFixture::machinePath(const QString& fixedPath) const
{
    return m_instrument.root() + fixedPath;
}

void WindowFixture::destroyWindow()
{
    m_operator.reset();
    m_window.reset();
}

OV5642Camera* WindowFixture::programCamera() const
{
    return m_window->findChild<OV5642Camera*>();
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
    m_operator->openTab(kTabs, index);
}

void WindowFixture::click(const char* button)
{
    expectPressed(button, &Operator::click);
}

void WindowFixture::press(const char* button)
{
    expectPressed(button, &Operator::press);
}

void WindowFixture::release(const char* button)
{
    m_operator->release(button);
}

// A disabled button takes no press; any other has to.
void WindowFixture::expectPressed(const char* button, bool (Operator::*way)(const QString&))
{
    const bool enabled = find<QAbstractButton>(button)->isEnabled();
    if (!(*m_operator.*way)(button) && enabled)
        qFatal("%s cannot be pressed", button);
}

bool WindowFixture::isEnabled(const char* widget) const
{
    return find<QWidget>(widget)->isEnabled();
}

QString WindowFixture::style(const char* button) const
{
    return find<QWidget>(button)->styleSheet();
}

QImage WindowFixture::view() const
{
    return m_window->grab(QRect(0, 0, 640, 480)).toImage();
}

void WindowFixture::keepPicture(const QString& name) const
{
    const QString directory = qEnvironmentVariable("ORLA_TEST_PICTURES");
    if (!directory.isEmpty())
        QVERIFY(m_window->grab().save(directory + '/' + name + ".png"));
}

void WindowFixture::expectBox(const QString& title, const QString& text, QMessageBox::Icon icon,
                              const QStringList& buttons)
{
    QCOMPARE(boxes().seen().size(), 1);
    const SeenBox& box = boxes().seen().first();
    QCOMPARE(box.title, title);
    QCOMPARE(box.text, text);
    QCOMPARE(box.icon, icon);
    QCOMPARE(box.buttons, buttons);
}

void WindowFixture::expectInOrder(const QStringList& lines, const QStringList& parts)
{
    int from = 0;
    for (const QString& part : parts) {
        while (from < lines.size() && !lines.at(from).contains(part))
            ++from;
        QVERIFY2(from < lines.size(), qPrintable(part + " is missing in\n" + lines.join('\n')));
        ++from;
    }
}

void WindowFixture::addFault(const LineFaultRule& fault)
{
    board().withBoard([&](Board& board, InstrumentTime) { board.addFault(fault); });
}

void WindowFixture::sayUnasked(const std::string& bytes)
{
    board().withBoard([&](Board& board, InstrumentTime now) { board.sendUnasked(bytes, now); });
}

void WindowFixture::clearFaults()
{
    board().withBoard([](Board& board, InstrumentTime) { board.clearFaults(); });
    camera().faults().clear();
    Controller::getInstance()->m_timeouts = ControllerTimeouts();
}

QStringList WindowFixture::takeBoardLines()
{
    QStringList lines;
    board().withBoard([&](Board& board, InstrumentTime) {
        for (const std::string& line : board.newLines(m_seenLines))
            lines.append(QString::fromStdString(line));
    });
    return lines;
}

QStringList WindowFixture::waitForBoardLines(int count)
{
    QStringList lines;
    waitUntil([&] {
        lines += takeBoardLines();
        return lines.size() >= count;
    });
    return lines;
}

std::unique_ptr<QObject> WindowFixture::atBoardLine(const QString& start,
                                                    std::function<void(const QString&)> function)
{
    auto listener = std::make_unique<QObject>();
    QObject::connect(Controller::getInstance(), &Controller::sig_debug_Controller, listener.get(),
                     [start, function = std::move(function)](const QString& line) {
                         if (line.startsWith(start))
                             function(line);
                     });
    return listener;
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
    return QTest::qWaitFor(condition, patient_ms(timeout_ms));
}

bool WindowFixture::waitForFrames(int count)
{
    const auto target = camera().counters().framesDelivered + static_cast<unsigned>(count);
    // Two repaints later even a conversion that had begun before has been painted.
    return waitUntil([&] { return camera().counters().framesReturned >= target; }) &&
           waitForPaints(count + 1);
}

bool WindowFixture::waitForPaints(int count)
{
    int painted = 0;
    const auto connection = QObject::connect(
        m_window.get(), &ORLA_II_Plus_Verifier::updateFrameDone, m_window.get(), [&painted] { ++painted; });
    const bool good = waitUntil([&] { return painted >= count; });
    QObject::disconnect(connection);
    return good;
}
