#include <QTabWidget>
#include <QtTest>

#include "support/WindowFixture.h"

namespace {

/// Longer than a held button takes to repeat.
constexpr int kHeld_ms = 700;
const QStringList kStopped{"$,STM1,STOP,,", "$,STM1,GET_POS,,"};

} // namespace

/// A button that is held down when something comes up over the window, which then does not
/// hear that it is let go.
class TestWindowHold : public QObject, private WindowFixture
{
    Q_OBJECT

private slots:
    void aRotationDoesNotGoOnBehindABox_data()
    {
        QTest::addColumn<QString>("button");
        QTest::addColumn<bool>("close");
        QTest::newRow("up, screenshot") << "BUTTON_Z_ROTATE_PLUS" << false;
        QTest::newRow("down, screenshot") << "BUTTON_Z_ROTATE_MINUS" << false;
        QTest::newRow("up, close") << "BUTTON_Z_ROTATE_PLUS" << true;
    }

    void aRotationDoesNotGoOnBehindABox()
    {
        QFETCH(QString, button);
        QFETCH(bool, close);
        press(qPrintable(button));
        takeBoardLines();
        QStringList behindTheBox;
        letGoBehindTheBox(button, behindTheBox);
        if (close)
            window().close();
        else
            user().pressKey(Qt::Key_Print);
        QCOMPARE(boxes().seen().size(), 1);
        QCOMPARE(behindTheBox, kStopped);
        QVERIFY(!find<QPushButton>(qPrintable(button))->isDown());
        QVERIFY(takeBoardLines().isEmpty());
    }

    void aStepIsNotRepeatedBehindABox()
    {
        press("BUTTON_Z_MOVE_PLUS");
        QVERIFY(waitUntil([this] { return takeBoardLines().contains("$,STM1,MVP,256,"); }));
        QStringList behindTheBox;
        letGoBehindTheBox("BUTTON_Z_MOVE_PLUS", behindTheBox);
        user().pressKey(Qt::Key_Print);
        QCOMPARE(boxes().seen().size(), 1);
        takeBoardLines();
        QTest::qWait(kHeld_ms);
        QVERIFY(takeBoardLines().isEmpty());
        QVERIFY(!find<QPushButton>("BUTTON_Z_MOVE_PLUS")->isDown());
    }

    void aRotationDoesNotGoOnBehindAnotherTab()
    {
        openTab(0);
        find<QTabWidget>("TAB_MENU")->setFocus();
        press("BUTTON_Z_ROTATE_PLUS");
        takeBoardLines();
        QTest::keyClick(window().windowHandle(), Qt::Key_Tab, Qt::ControlModifier);
        QCOMPARE(find<QTabWidget>("TAB_MENU")->currentIndex(), 1);
        release("BUTTON_Z_ROTATE_PLUS");
        QCOMPARE(takeBoardLines(), kStopped);
    }

    void cleanup()
    {
        boxes().clear();
        release("BUTTON_Z_ROTATE_PLUS");
        find<QPushButton>("BUTTON_Z_MOVE_PLUS")->setDown(false);
        takeBoardLines();
        openTab(0);
    }

private:
    /// Lets the button go when the next box has come up, and notes what the board has heard by then.
    void letGoBehindTheBox(const QString& button, QStringList& heard)
    {
        auto* once = new QObject(this);
        connect(&boxes(), &BoxWatcher::boxShown, once, [this, button, &heard, once] {
            delete once;
            heard = takeBoardLines();
            release(qPrintable(button));
        });
    }
};

QTEST_MAIN(TestWindowHold)
#include "test_window_hold.moc"
