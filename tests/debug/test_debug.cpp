#include <cmath>
#include <memory>

#include <QElapsedTimer>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QScrollBar>
#include <QScroller>
#include <QTextBlock>
#include <QTextLayout>
#include <QtTest>

#include "debug/DebugController.h"
#include "debug/DebugFormat.h"
#include "debug/DebugMessage.h"
#include "support/LayoutChecks.h"

namespace {

constexpr int kMessageConsole = 0;
constexpr int kControllerConsole = 1;

/// The console of the row of data.
int kindOfRow()
{
    QFETCH(int, kind);
    return kind;
}

/// Either console behind the calls that both offer.
struct Console
{
    Console() : Console(kindOfRow()) {}
    explicit Console(int kind, QWidget* parent = nullptr)
    {
        if (kind == kMessageConsole)
            message = std::make_unique<DebugMessage>(parent);
        else
            controller = std::make_unique<DebugController>(parent);
    }
    QWidget* widget() const
    {
        return message ? static_cast<QWidget*>(message.get()) : static_cast<QWidget*>(controller.get());
    }
    void insert(const QString& text) const
    {
        message ? message->insertPlainText(text) : controller->insertPlainText(text);
    }
    void showCursor() const { message ? message->ensureCursorVisible() : controller->ensureCursorVisible(); }
    bool isShown() const
    {
        widget()->show();
        return QTest::qWaitForWindowExposed(widget());
    }
    QPlainTextEdit* area() const { return widget()->findChild<QPlainTextEdit*>(); }
    QPushButton* clear() const { return widget()->findChild<QPushButton*>("BUTTON_CLEAR"); }

    std::unique_ptr<DebugMessage> message;
    std::unique_ptr<DebugController> controller;
};

void addConsoles()
{
    QTest::addColumn<int>("kind");
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("area");
    QTest::newRow("message") << kMessageConsole << "DebugMessage"
                             << "PLAIN_DEBUG_MESSAGE";
    QTest::newRow("controller") << kControllerConsole << "DebugController"
                                << "PLAIN_DEBUG_CONTROLLER";
}

/// As a finger does that reads while it moves: without a flick at the end. By the window, as the
/// platform delivers it: a mouse event for a widget alone has no button on its way.
void dragSlowly(QWidget* viewport, QPoint distance_px)
{
    constexpr int kMove_px = 10;
    QWindow* window = viewport->window()->windowHandle();
    const QPoint start = viewport->mapTo(viewport->window(), viewport->rect().center()) - distance_px / 2;
    const int moves = distance_px.manhattanLength() / kMove_px;
    QTest::mousePress(window, Qt::LeftButton, {}, start);
    for (int i = 1; i <= moves; ++i) {
        QTest::mouseMove(window, start + distance_px * i / moves);
        QTest::qWait(5);
    }
    const QPoint end = start + distance_px;
    // The speed of the last moves is what the scroller would throw the text with.
    for (int i = 0; i < 20; ++i) {
        QTest::mouseMove(window, end + QPoint(i % 2, 0));
        QTest::qWait(10);
    }
    QTest::mouseRelease(window, Qt::LeftButton, {}, end);
    QTest::qWait(100);
}

/// The colour that stands out most in the line.
QColor colorOfLine(QPlainTextEdit* area, int line)
{
    const QRect rect = area->cursorRect(QTextCursor(area->document()->findBlockByNumber(line)));
    const QImage picture = area->viewport()->grab().toImage();
    const QColor ground = picture.pixelColor(picture.width() - 5, rect.center().y());
    QColor most = ground;
    for (int y = rect.top(); y <= rect.bottom(); ++y)
        for (int x = 0; x < picture.width(); ++x)
            if (layout::contrast(picture.pixelColor(x, y), ground) > layout::contrast(most, ground))
                most = picture.pixelColor(x, y);
    return most;
}

/// As the window writes them: formatted, inserted, scrolled to.
qint64 timeOfThousandLines_us(const Console& console)
{
    QElapsedTimer timer;
    timer.start();
    for (int i = 0; i < 1000; ++i) {
        console.insert(formatDebugMessage({"void f()", "value", QString::number(i)}));
        console.showCursor();
    }
    return timer.nsecsElapsed() / 1000;
}

} // namespace

class TestDebug : public QObject
{
    Q_OBJECT

private slots:
    void aMessageReadsAsACallWithItsValues_data()
    {
        QTest::addColumn<QStringList>("parts");
        QTest::addColumn<QString>("line");
        QTest::newRow("nothing") << QStringList() << "\r\n";
        QTest::newRow("call and value") << QStringList({"slot_z_stage_mvp", "position:", "230"})
                                        << "slot_z_stage_mvp() position: 230 \r\n";
        QTest::newRow("short parts") << QStringList({"f", "ab"}) << "f() ab \r\n";
        QTest::newRow("only a call") << QStringList({"void f()"}) << "void f()() \r\n";
        QTest::newRow("empty parts") << QStringList({"", ""}) << "()  \r\n";
        QTest::newRow("reply") << QStringList({"f", "reply\r\n"}) << "f() reply \r\n";
        QTest::newRow("first part with line end") << QStringList({"call\r\n"}) << "call() \r\n";
        QTest::newRow("all line ends of a part go") << QStringList({"f", "\ra\nb\r\nc\n"}) << "f() abc \r\n";
        QTest::newRow("reversed line end stays") << QStringList({"f", "a\n\rb"}) << "f() a\n\rb \r\n";
        QTest::newRow("lone line feed stays") << QStringList({"f", "a\nb"}) << "f() a\nb \r\n";
        QTest::newRow("lone return stays") << QStringList({"f", "a\rb"}) << "f() a\rb \r\n";
        QTest::newRow("two characters stay") << QStringList({"f", "\r\n", "x"}) << "f() \r\n x \r\n";
        QTest::newRow("three characters do not") << QStringList({"f", "a\r\n", "x"}) << "f() a x \r\n";
        QTest::newRow("quotes and umlauts")
            << QStringList({"f", "\"\u00e4 %1\""}) << "f() \"\u00e4 %1\" \r\n";
    }

    void aMessageReadsAsACallWithItsValues()
    {
        QFETCH(QStringList, parts);
        QTEST(formatDebugMessage(parts), "line");
    }

    void messagesStandOnLinesOfTheirOwn()
    {
        Console console(kMessageConsole);
        console.insert(formatDebugMessage({"f", "reply\r\n"}));
        console.insert(formatDebugMessage({}));
        console.insert(formatDebugMessage({"g", "a\nb"}));
        QCOMPARE(console.area()->toPlainText(), QString("f() reply \n\ng() a\nb \n"));
    }

    void aConsoleLooksAsLaidOut_data() { addConsoles(); }

    void aConsoleLooksAsLaidOut()
    {
        QFETCH(QString, name);
        QFETCH(QString, area);
        Console console;
        QWidget* widget = console.widget();
        QCOMPARE(widget->objectName(), name);
        QCOMPARE(QString(widget->metaObject()->className()), name);
        QCOMPARE(widget->windowTitle(), QString("Form"));
        QCOMPARE(widget->size(), QSize(640, 480));
        QVERIFY(console.area());
        QCOMPARE(console.area()->objectName(), area);
        QCOMPARE(console.area()->geometry(), QRect(0, 0, 640, 480));
        QVERIFY(console.clear());
        QCOMPARE(console.clear()->text(), QString("Clear"));
        QCOMPARE(console.clear()->geometry(), QRect(560, 5, 60, 30));
        for (const QWidget* part :
             {static_cast<QWidget*>(console.area()), static_cast<QWidget*>(console.clear())}) {
            QCOMPARE(part->font().family(), QString("DejaVu Sans"));
            QCOMPARE(part->font().pointSize(), 9);
        }
    }

    void theClearButtonStaysClearOfTheScrollBar_data() { addConsoles(); }

    void theClearButtonStaysClearOfTheScrollBar()
    {
        Console console;
        console.insert(QString("line\n").repeated(100));
        console.widget()->show();
        QWidget* window = console.widget();
        QVERIFY(QTest::qWaitForWindowExposed(window));
        QScrollBar* bar = console.area()->verticalScrollBar();
        QVERIFY(bar->isVisible());
        const QRect barRect(bar->mapTo(window, QPoint()), bar->size());
        QVERIFY(!barRect.intersects(console.clear()->geometry()));
        for (const QPoint& corner : {QPoint(560, 5), QPoint(619, 5), QPoint(560, 34), QPoint(619, 34)})
            QCOMPARE(window->childAt(corner), static_cast<QWidget*>(console.clear()));
    }

    void textIsShownExactlyAsItComes_data() { addConsoles(); }

    void textIsShownExactlyAsItComes()
    {
        Console console;
        console.insert("$,STM1,POS,\r\n");
        console.insert("<b>OK</b>");
        console.insert(",1");
        QCOMPARE(console.area()->toPlainText(), QString("$,STM1,POS,\n<b>OK</b>,1"));
    }

    void clearEmptiesTheConsoleAndItGoesOn_data() { addConsoles(); }

    void clearEmptiesTheConsoleAndItGoesOn()
    {
        Console console;
        console.insert("before\r\n");
        QTest::mouseClick(console.clear(), Qt::LeftButton);
        QCOMPARE(console.area()->toPlainText(), QString());
        console.insert("after");
        QCOMPARE(console.area()->toPlainText(), QString("after"));
    }

    void theLastLineComesIntoView_data() { addConsoles(); }

    void theLastLineComesIntoView()
    {
        Console console;
        QVERIFY(console.isShown());
        console.insert(QString("line\r\n").repeated(200));
        console.area()->verticalScrollBar()->setValue(0);
        QVERIFY(!console.area()->viewport()->rect().intersects(console.area()->cursorRect()));
        console.showCursor();
        QVERIFY(console.area()->viewport()->rect().contains(console.area()->cursorRect()));
    }

    void aTapMovesNoCursorAndMarksNothing_data() { addConsoles(); }

    void aTapMovesNoCursorAndMarksNothing()
    {
        Console console;
        console.insert("first\r\nsecond\r\n");
        QVERIFY(console.isShown());
        QWidget* viewport = console.area()->viewport();
        const QPoint first = console.area()->cursorRect(QTextCursor(console.area()->document())).center();
        QTest::mouseClick(viewport, Qt::LeftButton, {}, first);
        QTest::mouseDClick(viewport, Qt::LeftButton, {}, first + QPoint(5, 0));
        QWindow* window = console.widget()->windowHandle();
        QTest::mousePress(window, Qt::LeftButton, {}, first);
        QTest::mouseMove(window, first + QPoint(60, 20));
        QTest::mouseRelease(window, Qt::LeftButton, {}, first + QPoint(60, 20));
        QTest::mouseClick(viewport, Qt::MiddleButton, {}, first);
        QVERIFY(!console.area()->textCursor().hasSelection());
        QVERIFY(console.area()->textCursor().atEnd());
        QCOMPARE(console.area()->contextMenuPolicy(), Qt::NoContextMenu);
        console.insert("third\r\n");
        QCOMPARE(console.area()->toPlainText(), QString("first\nsecond\nthird\n"));
    }

    void keysChangeNoTextAndMoveNoCursor_data() { addConsoles(); }

    void keysChangeNoTextAndMoveNoCursor()
    {
        Console console;
        console.insert("first\r\nsecond\r\n");
        console.widget()->show();
        QTest::keyClicks(console.area(), "abc");
        for (const int key : {Qt::Key_Home, Qt::Key_Up, Qt::Key_Left, Qt::Key_Backspace, Qt::Key_Delete,
                              Qt::Key_Return, Qt::Key_PageUp})
            QTest::keyClick(console.area(), Qt::Key(key));
        QTest::keyClick(console.area(), Qt::Key_A, Qt::ControlModifier);
        QTest::keyClick(console.area(), Qt::Key_Z, Qt::ControlModifier);
        QVERIFY(!console.area()->textCursor().hasSelection());
        console.insert("third");
        QCOMPARE(console.area()->toPlainText(), QString("first\nsecond\nthird"));
    }

    void theTextGoesToTheCursorWhereverTheProgramPutsIt_data() { addConsoles(); }

    void theTextGoesToTheCursorWhereverTheProgramPutsIt()
    {
        Console console;
        console.insert("ad");
        QTextCursor cursor = console.area()->textCursor();
        cursor.setPosition(1);
        console.area()->setTextCursor(cursor);
        console.insert("b");
        console.insert("c");
        QCOMPARE(console.area()->toPlainText(), QString("abcd"));
    }

    void aFingerDragsTheTextLineByLine_data() { addConsoles(); }

    void aFingerDragsTheTextLineByLine()
    {
        Console console;
        console.insert(QString("line\r\n").repeated(500));
        QVERIFY(console.isShown());
        console.showCursor();
        QScrollBar* bar = console.area()->verticalScrollBar();
        const int end = bar->value();
        const int line_px = console.area()->fontMetrics().lineSpacing();
        dragSlowly(console.area()->viewport(), {0, 20 * line_px});
        const int lines = end - bar->value();
        // What the finger moves before the drag begins is not scrolled.
        QVERIFY2(lines >= 14 && lines <= 20, qPrintable(QString::number(lines)));
        dragSlowly(console.area()->viewport(), {0, -20 * line_px});
        QVERIFY2(std::abs(bar->value() - end) <= 2, qPrintable(QString::number(bar->value() - end)));
        QVERIFY(console.area()->textCursor().atEnd());
    }

    void aStrokeSidewaysMovesNothing_data() { addConsoles(); }

    void aStrokeSidewaysMovesNothing()
    {
        Console console;
        console.insert(QString("line\r\n").repeated(500));
        QVERIFY(console.isShown());
        const QScrollBar* bar = console.area()->verticalScrollBar();
        console.area()->verticalScrollBar()->setValue(bar->maximum() / 2);
        const int before = bar->value();
        dragSlowly(console.area()->viewport(), {300, 100});
        QCOMPARE(bar->value(), before);
    }

    void linesWithAnErrorStandOut_data() { addConsoles(); }

    void linesWithAnErrorStandOut()
    {
        Console console;
        console.insert(formatDebugMessage({"open", "plain"}));
        console.insert(formatDebugMessage({"open", "[Error] VIDIOC_S_FMT !"}));
        console.insert(formatDebugMessage({"open", "Error without brackets"}));
        // Also where the mark comes in pieces.
        console.insert("open [Err");
        console.insert("or] late\r\n");
        QVERIFY(console.isShown());
        // Dragged to its end, the text stays there.
        const QScrollerProperties properties =
            QScroller::scroller(console.area()->viewport())->scrollerProperties();
        QCOMPARE(properties.scrollMetric(QScrollerProperties::VerticalOvershootPolicy).toInt(),
                 int(QScrollerProperties::OvershootAlwaysOff));
        const QColor ground(0x1f, 0x29, 0x30);
        const QColor plain = colorOfLine(console.area(), 0);
        const QColor error = colorOfLine(console.area(), 1);
        QVERIFY(layout::contrast(error, ground) > 4.5);
        QVERIFY2(error != plain && error.red() - error.blue() > 50, qPrintable(error.name()));
        QCOMPARE(colorOfLine(console.area(), 2), plain);
        QCOMPARE(colorOfLine(console.area(), 3), error);
        const auto formats = console.area()->document()->findBlockByNumber(1).layout()->formats();
        QCOMPARE(formats.size(), 1);
        QCOMPARE(formats.at(0).format.foreground().color(), QColor(0xff, 0xb4, 0xa8));
        QCOMPARE(formats.at(0).format.fontWeight(), int(QFont::Bold));
        QCOMPARE(console.area()->toPlainText(),
                 QString("open() plain \nopen() [Error] VIDIOC_S_FMT ! \n"
                         "open() Error without brackets \nopen [Error] late\n"));
    }

    void aLineCostsNoMoreWhenAMillionAreHeld()
    {
        Console console(kMessageConsole);
        QVERIFY(console.isShown());
        const qint64 empty_us = timeOfThousandLines_us(console);
        console.insert(formatDebugMessage({"f", "held"}).repeated(1000000));
        const qint64 full_us = timeOfThousandLines_us(console);
        QCOMPARE(console.area()->blockCount(), 1000000 + 2 * 1000 + 1);
        QCOMPARE(console.area()->document()->availableUndoSteps(), 0);
        qInfo("1000 lines: %lld us at first, %lld us with a million held", empty_us, full_us);
        QVERIFY2(full_us < 10 * empty_us + 100000,
                 qPrintable(QString("%1 us, %2 us").arg(empty_us).arg(full_us)));
    }

    void aHiddenConsoleKeepsItsText_data() { addConsoles(); }

    void aHiddenConsoleKeepsItsText()
    {
        QWidget window;
        Console console(kindOfRow(), &window);
        console.widget()->hide();
        console.insert("kept");
        console.showCursor();
        window.show();
        QVERIFY(console.widget()->isHidden());
        console.widget()->show();
        console.widget()->hide();
        QCOMPARE(console.area()->toPlainText(), QString("kept"));
    }
};

QTEST_MAIN(TestDebug)
#include "test_debug.moc"
