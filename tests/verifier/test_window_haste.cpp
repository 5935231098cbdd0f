#include <memory>

#include <QPushButton>
#include <QtTest>

#include "Controller/Controller.h"
#include "support/TouchPanel.h"
#include "support/WindowFixture.h"

namespace {

const QString kFinished = "Finish AutoFocus !";

} // namespace

/// A technician who presses the next button before the last one has taken effect: one after
/// the other is carried out, each from its beginning to its end.
class TestWindowHaste : public QObject
{
    Q_OBJECT

private slots:
    void cleanup()
    {
        Controller::getInstance()->closeSerialPort();
        m_fixture.reset();
    }

    void busyStepsKeepTheirOrder_data()
    {
        QTest::addColumn<QString>("first");
        QTest::addColumn<QString>("second");
        QTest::addColumn<QStringList>("lines");
        const QString origin = "$,STM1,ORIGIN,,";
        const QString reference = "$,STM1,ABS,30000,";
        const QString diagnosis = "$,STM1,SELF_DIAG,,";
        const auto row = [](const char* name, const char* first, const char* second,
                            const QStringList& lines) { QTest::newRow(name) << first << second << lines; };
        row("origin, reference", "BUTTON_Z_ORIGIN", "BUTTON_Z_MOVE_REFERENCE", {origin, reference});
        row("reference, origin", "BUTTON_Z_MOVE_REFERENCE", "BUTTON_Z_ORIGIN", {reference, origin});
        row("diagnosis, origin", "BUTTON_Z_DIAGNOSIS", "BUTTON_Z_ORIGIN", {diagnosis, origin});
        row("origin, step", "BUTTON_Z_ORIGIN", "BUTTON_Z_MOVE_PLUS", {origin, "$,STM1,MVP,256,"});
    }

    void busyStepsKeepTheirOrder()
    {
        QFETCH(QString, first);
        QFETCH(QString, second);
        QFETCH(QStringList, lines);
        makeWindow(false);
        m_fixture->setText("EDIT_Z_REFERENCE", "30000");
        press({first, second});
        QCOMPARE(m_fixture->waitForBoardLines(lines.size()), lines);
    }

    void aBusyStepDoesNotTakeTheAnswerOfAnAbsoluteMove_data() { rowsOfFirst(); }

    void aBusyStepDoesNotTakeTheAnswerOfAnAbsoluteMove()
    {
        QFETCH(QString, first);
        makeWindow(true);
        m_fixture->setText("EDIT_Z_ABS", "20000");
        press({first, "BUTTON_Z_ABS"});
        QVERIFY(m_fixture->waitUntil([this] { return m_heard.contains("$,STM1,ABS,20000,"); }));
        QVERIFY2(m_fixture->waitUntil([this] { return m_fixture->window().isEnabled(); }),
                 "the window stays locked");
        QCOMPARE(m_fixture->text("EDIT_Z_POSITION"), QString("20000"));
        QCOMPARE(m_fixture->board().light().stagePosition_steps, 20000.0);
    }

    void aBusyStepDoesNotTakeTheAnswersOfARun_data() { rowsOfFirst(); }

    void aBusyStepDoesNotTakeTheAnswersOfARun()
    {
        QFETCH(QString, first);
        // With one picture for all places the best is where the stage stands, which ends no run.
        makeWindow(true, true);
        m_fixture->setText("EDIT_Z_POSITION", "31500");
        press({first, "BUTTON_AUTOFOCUS"});
        QVERIFY2(
            m_fixture->waitUntil([this] { return m_fixture->boxes().texts() == QStringList(kFinished); }),
            "the run does not end");
        QVERIFY(m_fixture->isEnabled("TAB_MENU"));
    }

private:
    static void rowsOfFirst()
    {
        QTest::addColumn<QString>("first");
        QTest::newRow("origin") << "BUTTON_Z_ORIGIN";
        QTest::newRow("reference") << "BUTTON_Z_MOVE_REFERENCE";
        QTest::newRow("diagnosis") << "BUTTON_Z_DIAGNOSIS";
        QTest::newRow("connect") << "BUTTON_CONNECT";
    }

    void makeWindow(bool zigMode, bool freshFrames = false)
    {
        WindowFixture::Options options;
        options.zigMode = zigMode;
        options.freshFrames = freshFrames;
        m_fixture = std::make_unique<WindowFixture>(options);
        m_heard.clear();
        connect(Controller::getInstance(), &Controller::sig_debug_Controller, &m_fixture->window(),
                [this](const QString& line) { m_heard += line.trimmed(); });
        m_fixture->openTab(0);
        m_fixture->takeBoardLines();
        QVERIFY(QTest::qWaitForWindowActive(&m_fixture->window()));
    }

    /// All of them wait when the event loop goes on.
    void press(const QStringList& buttons)
    {
        for (const QString& button : buttons)
            m_panel.tap(*m_fixture->find<QPushButton>(qPrintable(button)));
    }

    std::unique_ptr<WindowFixture> m_fixture;
    TouchPanel m_panel;
    QStringList m_heard;
};

int main(int argc, char* argv[])
{
    TouchPanel::plugIn();
    QApplication application(argc, argv);
    TestWindowHaste test;
    return QTest::qExec(&test, argc, argv);
}

#include "test_window_haste.moc"
