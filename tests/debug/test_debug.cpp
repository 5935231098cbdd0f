#include <memory>

#include <QPlainTextEdit>
#include <QPushButton>
#include <QScrollBar>
#include <QtTest>

#include "debug/DebugController.h"
#include "debug/DebugFormat.h"
#include "debug/DebugMessage.h"

namespace {

constexpr int kMessageConsole = 0;
constexpr int kControllerConsole = 1;

/// Either console behind the calls that both offer.
struct Console
{
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
        QFETCH(QString, line);
        QCOMPARE(formatDebugMessage(parts), line);
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
        QFETCH(int, kind);
        QFETCH(QString, name);
        QFETCH(QString, area);
        Console console(kind);
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
        QFETCH(int, kind);
        Console console(kind);
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
        QFETCH(int, kind);
        Console console(kind);
        console.insert("$,STM1,POS,\r\n");
        console.insert("<b>OK</b>");
        console.insert(",1");
        QCOMPARE(console.area()->toPlainText(), QString("$,STM1,POS,\n<b>OK</b>,1"));
    }

    void clearEmptiesTheConsoleAndItGoesOn_data() { addConsoles(); }

    void clearEmptiesTheConsoleAndItGoesOn()
    {
        QFETCH(int, kind);
        Console console(kind);
        console.insert("before\r\n");
        QTest::mouseClick(console.clear(), Qt::LeftButton);
        QCOMPARE(console.area()->toPlainText(), QString());
        console.insert("after");
        QCOMPARE(console.area()->toPlainText(), QString("after"));
    }

    void theLastLineComesIntoView_data() { addConsoles(); }

    void theLastLineComesIntoView()
    {
        QFETCH(int, kind);
        Console console(kind);
        console.widget()->show();
        QVERIFY(QTest::qWaitForWindowExposed(console.widget()));
        console.insert(QString("line\r\n").repeated(200));
        console.area()->verticalScrollBar()->setValue(0);
        QVERIFY(!console.area()->viewport()->rect().intersects(console.area()->cursorRect()));
        console.showCursor();
        QVERIFY(console.area()->viewport()->rect().contains(console.area()->cursorRect()));
    }

    void aHiddenConsoleKeepsItsText_data() { addConsoles(); }

    void aHiddenConsoleKeepsItsText()
    {
        QFETCH(int, kind);
        QWidget window;
        Console console(kind, &window);
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
