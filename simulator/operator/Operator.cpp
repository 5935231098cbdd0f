#include "simulator/operator/Operator.h"

#include <QAbstractButton>
#include <QApplication>
#include <QCheckBox>
#include <QCursor>
#include <QDir>
#include <QLineEdit>
#include <QPainter>
#include <QScreen>
#include <QSpinBox>
#include <QStyle>
#include <QStyleOptionButton>
#include <QTabBar>
#include <QTabWidget>
#include <QtTest>

namespace {

constexpr int kLiveViewWidth_px = 640;
constexpr int kLiveViewHeight_px = 480;

// A check box reacts at its mark and its caption, not all over its width.
QPoint pressPoint(QWidget& widget)
{
    if (const auto* box = qobject_cast<QCheckBox*>(&widget)) {
        QStyleOptionButton option;
        option.initFrom(box);
        return box->style()->subElementRect(QStyle::SE_CheckBoxIndicator, &option, box).center();
    }
    return widget.rect().center();
}

QPixmap onScreen(QWidget& window)
{
    return window.screen()->grabWindow(window.winId());
}

} // namespace

Operator::Operator(QWidget& window, const QString& pictureDirectory, OperatorPace pace)
    : m_window(window), m_pictureDirectory(pictureDirectory), m_pace(pace), m_boxes(window, pace)
{
    connect(&window, SIGNAL(updateFrameDone()), this, SLOT(countFrame()));
    connect(&m_boxes, &BoxWatcher::boxShown, this, [this] { takePicture(QStringLiteral("box")); });
}

QWidget* Operator::find(const QString& name)
{
    auto* widget = m_window.objectName() == name ? &m_window : m_window.findChild<QWidget*>(name);
    if (widget == nullptr)
        noteProblem(QStringLiteral("there is no %1").arg(name));
    return widget;
}

bool Operator::openTabsAround(QWidget& widget)
{
    for (QWidget* parent = widget.parentWidget(); parent != nullptr; parent = parent->parentWidget()) {
        auto* tabs = qobject_cast<QTabWidget*>(parent);
        if (tabs == nullptr)
            continue;
        for (int page = 0; page < tabs->count(); ++page)
            if (tabs->widget(page)->isAncestorOf(&widget) && !openPage(*tabs, page))
                return false;
    }
    return true;
}

bool Operator::openPage(QTabWidget& tabs, int page)
{
    if (tabs.currentIndex() == page)
        return true;
    const QPoint place = tabs.tabBar()->tabRect(page).center();
    pressAt(tabs.tabBar()->mapTo(&m_window, place));
    releaseAt(tabs.tabBar()->mapTo(&m_window, place));
    return tabs.currentIndex() == page;
}

bool Operator::uncovered(const QWidget& widget, const QPoint& position)
{
    const QWidget* top = m_window.childAt(position);
    if (top == &widget || widget.isAncestorOf(top))
        return true;
    noteProblem(QStringLiteral("%1 is covered by %2")
                    .arg(widget.objectName(), top ? top->objectName() : QStringLiteral("nothing")));
    return false;
}

bool Operator::reach(const QString& name, QPoint& position)
{
    QWidget* widget = find(name);
    if (widget == nullptr)
        return false;
    if (!openTabsAround(*widget) || !widget->isVisible()) {
        noteProblem(QStringLiteral("%1 cannot be seen").arg(name));
        return false;
    }
    // It is pressed nevertheless, as by a finger, and the window ignores that.
    if (!widget->isEnabled())
        noteProblem(QStringLiteral("%1 is disabled").arg(name));
    position = widget->mapTo(&m_window, pressPoint(*widget));
    return uncovered(*widget, position);
}

bool Operator::click(const QString& name)
{
    bool enabled = false;
    return pressWidget(name, enabled) && release(name) && enabled;
}

bool Operator::press(const QString& name)
{
    bool enabled = false;
    return pressWidget(name, enabled) && enabled;
}

bool Operator::pressWidget(const QString& name, bool& enabled)
{
    QPoint position;
    if (!reach(name, position))
        return false;
    enabled = isEnabled(name);
    pressAt(position);
    return true;
}

void Operator::pressAt(const QPoint& position)
{
    pointAt(position);
    sendMouse(QEvent::MouseButtonPress, position);
}

void Operator::moveTo(const QPoint& position)
{
    sendMouse(QEvent::MouseMove, position);
}

void Operator::releaseAt(const QPoint& position)
{
    sendMouse(QEvent::MouseButtonRelease, position);
    // The next press is not the second one of a double click.
    QTest::lastMouseTimestamp += QTest::mouseDoubleClickInterval;
}

// The test library's own functions would run the event loop after each event.
void Operator::sendMouse(QEvent::Type type, const QPoint& position)
{
    const bool isUp = type == QEvent::MouseButtonRelease;
    const auto button = type == QEvent::MouseMove ? Qt::NoButton : Qt::LeftButton;
    qt_handleMouseEvent(m_window.windowHandle(), position, m_window.mapToGlobal(position),
                        isUp ? Qt::NoButton : Qt::LeftButton, button, type, Qt::NoModifier,
                        ++QTest::lastMouseTimestamp);
    // Not with the button down: on a busy machine that would take long enough for a click to
    // repeat.
    if (m_pace == OperatorPace::ToBeSeen && type != QEvent::MouseButtonPress)
        QCoreApplication::processEvents();
}

// On a display that somebody may watch, the pointer goes to the place before it is pressed.
void Operator::pointAt(const QPoint& position)
{
    constexpr int kPointing_ms = 40;
    if (!m_window.isVisible() || QGuiApplication::platformName() == QLatin1String("offscreen"))
        return;
    QCursor::setPos(m_window.mapToGlobal(position));
    wait(kPointing_ms);
}

bool Operator::dragOn(const QString& name, const QPoint& place, const QPoint& by)
{
    constexpr int kMoves = 3;
    QPoint middle;
    if (!reach(name, middle))
        return false;
    const bool enabled = isEnabled(name);
    const QWidget& widget = *find(name);
    const QPoint start = widget.mapTo(&m_window, place);
    if (!uncovered(widget, start))
        return false;
    pressAt(start);
    for (int move = 1; move <= kMoves && !by.isNull(); ++move)
        moveTo(start + by * move / kMoves);
    releaseAt(start + by);
    return enabled;
}

void Operator::pressKey(Qt::Key key)
{
    QTest::keyClick(m_window.windowHandle(), key);
}

// A finger can be lifted from a widget that has been disabled under it.
bool Operator::release(const QString& name)
{
    QWidget* widget = find(name);
    if (widget == nullptr)
        return false;
    releaseAt(widget->mapTo(&m_window, pressPoint(*widget)));
    return true;
}

bool Operator::hold(const QString& name, int duration_ms)
{
    bool enabled = false;
    if (!pressWidget(name, enabled))
        return false;
    if (enabled)
        wait(duration_ms);
    return release(name) && enabled;
}

bool Operator::type(const QString& name, const QString& text, bool endWithReturn)
{
    if (!click(name))
        return false;
    QWidget* target = find(name);
    if (auto* spin = qobject_cast<QSpinBox*>(target))
        target = spin->findChild<QLineEdit*>();
    QTest::keyClick(target, Qt::Key_A, Qt::ControlModifier);
    QTest::keyClick(target, Qt::Key_Delete);
    QTest::keyClicks(target, text);
    if (endWithReturn)
        QTest::keyClick(target, Qt::Key_Return);
    return true;
}

bool Operator::openTab(const QString& pageName)
{
    QWidget* page = find(pageName);
    if (page == nullptr)
        return false;
    // A page lies in its tab widget's stack; anything on it opens it.
    QWidget* content = page->findChild<QWidget*>();
    if (content != nullptr && openTabsAround(*content) && page->isVisible())
        return true;
    noteProblem(QStringLiteral("%1 does not open").arg(pageName));
    return false;
}

bool Operator::openTab(const QString& tabsName, int index)
{
    auto* tabs = qobject_cast<QTabWidget*>(find(tabsName));
    if (tabs != nullptr && openPage(*tabs, index))
        return true;
    noteProblem(QStringLiteral("tab %1 of %2 does not open").arg(index).arg(tabsName));
    return false;
}

bool Operator::setChecked(const QString& name, bool checked)
{
    if (isChecked(name) == checked)
        return true;
    if (!click(name))
        return false;
    if (isChecked(name) == checked)
        return true;
    noteProblem(QStringLiteral("%1 does not change").arg(name));
    return false;
}

QString Operator::text(const QString& name)
{
    const QWidget* widget = find(name);
    if (widget == nullptr)
        return {};
    for (const char* property : {"plainText", "text", "value"}) {
        const QVariant shown = widget->property(property);
        if (shown.isValid())
            return shown.toString();
    }
    return {};
}

QVariant Operator::valueOf(const QString& name, const char* property)
{
    const QWidget* widget = find(name);
    return widget != nullptr ? widget->property(property) : QVariant();
}

QStringList Operator::disabledControls() const
{
    if (!m_window.isEnabled())
        return {QStringLiteral("the whole window")};
    QStringList names;
    const QList<QWidget*> widgets = m_window.findChildren<QWidget*>();
    for (const QWidget* widget : widgets) {
        const bool control = qobject_cast<const QAbstractButton*>(widget) != nullptr ||
                             qobject_cast<const QTabWidget*>(widget) != nullptr;
        // A tab bar has arrows of its own, for more tabs than it has room for.
        const bool ofTabBar = qobject_cast<const QTabBar*>(widget->parentWidget()) != nullptr;
        if (control && !ofTabBar && !widget->isEnabled())
            names.append(widget->objectName());
    }
    names.removeAll(QString());
    return names;
}

bool Operator::windowIsEnabled() const
{
    return m_window.isVisible() && m_window.isEnabled();
}

QString Operator::windowTitle() const
{
    return m_window.windowTitle();
}

bool Operator::waitUntil(const std::function<bool()>& condition, int timeout_ms, const QString& otherwise)
{
    const auto done = [&] { return m_givenUp || condition(); };
    if (QTest::qWaitFor(done, timeout_ms) && !m_givenUp)
        return true;
    if (!otherwise.isEmpty())
        noteProblem(otherwise);
    return false;
}

void Operator::wait(int duration_ms)
{
    waitUntil([] { return false; }, duration_ms);
}

bool Operator::waitForFrames(int count, int timeout_ms)
{
    const int wanted = m_paintedFrames + count;
    return waitUntil([&] { return m_paintedFrames >= wanted; }, timeout_ms,
                     QStringLiteral("the live view stands still"));
}

QImage Operator::liveView()
{
    return onScreen(m_window).toImage().copy(0, 0, kLiveViewWidth_px, kLiveViewHeight_px);
}

QImage Operator::screen()
{
    QPixmap picture = onScreen(m_window);
    QPainter painter(&picture);
    const QWidgetList windows = QApplication::topLevelWidgets();
    for (QWidget* over : windows)
        if (over != &m_window && over->isVisible() && over->windowHandle() != nullptr)
            painter.drawPixmap(over->geometry().topLeft() - m_window.geometry().topLeft(), onScreen(*over));
    painter.end();
    return picture.toImage();
}

void Operator::takePicture(const QString& name)
{
    if (m_pictureDirectory.isEmpty())
        return;
    const QString file =
        QStringLiteral("%1-%2.png").arg(++m_pictureNumber, 2, 10, QLatin1Char('0')).arg(name);
    if (screen().save(QDir(m_pictureDirectory).filePath(file)))
        m_pictures.append(file);
    else
        noteProblem(QStringLiteral("%1 cannot be written").arg(file));
}

QStringList Operator::takePictures()
{
    QStringList taken;
    taken.swap(m_pictures);
    return taken;
}

void Operator::expectBox(const QString& buttonCaption)
{
    m_boxesWhenExpected = boxes().size();
    m_boxes.answerNextWith(buttonCaption);
}

const SeenBox* Operator::boxSinceExpected() const
{
    return boxes().size() > m_boxesWhenExpected ? &boxes().last() : nullptr;
}

void Operator::noteProblem(const QString& problem)
{
    if (!m_problems.contains(problem))
        m_problems.append(problem);
}

QString Operator::takeProblems()
{
    for (; m_judgedBoxes < boxes().size(); ++m_judgedBoxes) {
        const SeenBox& box = boxes().at(m_judgedBoxes);
        if (!box.expected)
            noteProblem(QStringLiteral("unexpected box \"%1\": \"%2\"").arg(box.title, box.text));
    }
    if (m_boxes.forgetAwaited() > 0)
        noteProblem(QStringLiteral("an expected box did not come up"));
    QStringList problems;
    problems.swap(m_problems);
    return problems.join(QStringLiteral("; "));
}
