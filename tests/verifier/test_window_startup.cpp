// Built twice: with the instrument in Zig mode and without it. The controller belongs to the
// process, so one process sees one start-up.

#include <unistd.h>

#include <QApplication>
#include <QDir>
#include <QFile>
#include <QLabel>
#include <QMetaMethod>
#include <QTabWidget>
#include <QTemporaryFile>
#include <QtTest>

#include "Controller/Controller.h"
#include "camera/OV5642Camera.h"
#include "settings/GlobalIni.h"
#include "support/EventWatch.h"
#include "support/FileBytes.h"
#include "support/LogRecorder.h"
#include "support/WindowFixture.h"

namespace {

constexpr bool kZigMode = ORLA_TEST_ZIG_MODE;
constexpr const char* kHighlight = "background-color: rgb(0, 170, 255);";
constexpr const char* kPlain = "background-color: none;";

/// Notes when a message box comes up.
class BoxShown : public QObject
{
public:
    explicit BoxShown(EventWatch& watch) : m_watch(watch) { qApp->installEventFilter(this); }

protected:
    bool eventFilter(QObject* watched, QEvent* event) override
    {
        if (event->type() == QEvent::Show && qobject_cast<QMessageBox*>(watched) != nullptr)
            m_watch.note("box");
        return false;
    }

private:
    EventWatch& m_watch;
};

} // namespace

class TestWindowStartup : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        const LogRecorder log;
        WindowFixture::Options options;
        options.zigMode = kZigMode;
        m_fixture = std::make_unique<WindowFixture>(options);
        m_stream = log.messages();
    }

    void cleanupTestCase() { m_fixture.reset(); }

    void theHandshakeHomesAndAppliesTheSettings()
    {
        QCOMPARE(m_fixture->takeBoardLines(), QStringList({"$,DEVICE,READY,,", "$,STM1,ORIGIN,,",
                                                           "$,LED4,BRT,225,", "$,STM1,ABS,32000,"}));
        QVERIFY(m_fixture->traffic().startsWith("$,DEVICE,READY,,\n$OK,DEVICE,READY,"));
        QCOMPARE(m_fixture->text("EDIT_LED"), QString("225"));
        QCOMPARE(m_fixture->text("EDIT_Z_REFERENCE"), QString("32000"));
    }

    void theWindowIsThePanel()
    {
        QCOMPARE(m_fixture->window().windowTitle(), QString("ORLA-II Plus Verifier"));
        QCOMPARE(m_fixture->window().size(), QSize(800, 480));
        QCOMPARE(m_fixture->window().minimumSize(), QSize(800, 480));
        QCOMPARE(m_fixture->window().maximumSize(), QSize(800, 480));
        QCOMPARE(m_fixture->find<QTabWidget>("TAB_MENU")->currentIndex(), 0);
        QVERIFY(m_fixture->window().parentWidget() == nullptr);
    }

    void theVideoLayerIsReleased()
    {
        QCOMPARE(m_fixture->tree().displayLayerProtect(), QString("0"));
        QCOMPARE(bytesOf(m_fixture->machinePath("/sys/module/disp/parameters/disp_layer_protect")),
                 QByteArray("0"));
    }

    void theSensorRegistersAreNamed()
    {
        const QVector<quint16> expected{0x3501, 0x3502, 0x350A, 0x350B, 0x3400,
                                        0x3401, 0x3402, 0x3403, 0x3404, 0x3405};
        for (int i = 0; i < expected.size(); ++i)
            QCOMPARE(g_RegIdx[i], expected[i]);
    }

    void theSettingsAreLoadedBeforeThereIsAConsole()
    {
        QVERIFY(m_stream.contains("void ORLA_II_Plus_Verifier::get_INI_value(QSettings&)"));
        QCOMPARE(m_stream.filter("[CUS_CAL_INI]").size(), 30);
        QCOMPARE(m_stream.filter("[BFN_CAL_INI]").size(), 30);
        QVERIFY(
            m_stream.contains(QString("----> global_ini()->bZig_mode : ") + (kZigMode ? "true" : "false")));
        QVERIFY(!m_fixture->messages().contains("CAL_INI"));
    }

    void theStepsOfTheStartFollowEachOther()
    {
        const QStringList steps{"ORLA_II_Plus_Verifier::get_INI_value",
                                "ORLA_II_Plus_Verifier::on_BUTTON_RESOLUTION_1280_clicked",
                                "OV5642Camera::open",
                                "ORLA_II_Plus_Verifier::startCamera",
                                "ORLA_II_Plus_Verifier::getCamera_reg",
                                "openSerialPort",
                                "trySerialPort",
                                "ORLA_II_Plus_Verifier::slot_connected_controller",
                                "z_stage_origin",
                                "ORLA_II_Plus_Verifier::apply_INI_value",
                                "led_brightness",
                                "z_stage_abs"};
        int from = 0;
        for (const QString& step : steps) {
            while (from < m_stream.size() && !m_stream[from].contains(step))
                ++from;
            QVERIFY2(from < m_stream.size(), qPrintable(step));
        }
    }

    void theWindowSaysThisOfItsStartAndNothingElse()
    {
        const QString prefix = "void ORLA_II_Plus_Verifier::";
        QStringList expected;
        for (const char* step :
             {"get_INI_value(QSettings&)", "on_BUTTON_RESOLUTION_1280_clicked()", "startCamera(int) 1",
              "getCamera_reg()", "slot_connected_controller()", "apply_INI_value()", "getCamera_reg()",
              "on_BUTTON_Z_MOVE_REFERENCE_clicked()"})
            expected += prefix + step;
        QCOMPARE(m_stream.filter("ORLA_II_Plus_Verifier::"), expected);
    }

    void theWindowsOwnObjectsAreCreatedInOrder()
    {
        QStringList names;
        for (const QObject* child : m_fixture->window().children()) {
            const QString name = child->metaObject()->className();
            if (QStringList({"QWidget", "QTimer", "DebugMessage", "DebugController", "OV5642Camera"})
                    .contains(name))
                names += name;
        }
        QCOMPARE(names.mid(0, 5),
                 QStringList({"QWidget", "QTimer", "DebugMessage", "DebugController", "OV5642Camera"}));
        const auto* timer = m_fixture->window().findChildren<QTimer*>().first();
        QCOMPARE(timer->interval(), 1000);
        QVERIFY(!timer->isSingleShot());
        QVERIFY(timer->isActive());
    }

    void theConsolesAreThereButHidden()
    {
        for (const char* name : {"DebugMessage", "DebugController"}) {
            const auto* console = m_fixture->find<QWidget>(name);
            QVERIFY2(console->isHidden(), name);
            QCOMPARE(console->geometry(), QRect(0, 0, 640, 480));
        }
    }

    void theStartMarksWhatIsChosen()
    {
        QCOMPARE(m_fixture->style("BUTTON_CAPTURE"), QString(kHighlight));
        QCOMPARE(m_fixture->style("BUTTON_STAINING_NTB"), QString(kHighlight));
        QCOMPARE(m_fixture->style("BUTTON_STAINING_TB"), QString(kPlain));
        QCOMPARE(m_fixture->style("BUTTON_RESOLUTION_1280"), QString(kHighlight));
        QCOMPARE(m_fixture->style("BUTTON_RESOLUTION_VGA"), QString(kPlain));
        QCOMPARE(m_fixture->style("BUTTON_RESOLUTION_5M"), QString(kPlain));
    }

    void theCameraStreamsAt1280WithTheNtbFile()
    {
        const auto* camera = m_fixture->programCamera();
        QVERIFY(camera->isStreaming());
        QCOMPARE(camera->mode(), 1);
        QVERIFY(
            m_fixture->messages().contains("camera_mode: 1 , ini_file /opt/ORLA3/conf/Calibration_BFN.ini"));
        QVERIFY(m_fixture->waitForFrames(2));
    }

    void connectIsForZigModeOnly()
    {
        QCOMPARE(m_fixture->isEnabled("BUTTON_CONNECT"), kZigMode);
        QCOMPARE(Controller::getInstance()->m_bZigMode, kZigMode);
        QCOMPARE(connectButton()->text(), QString(kZigMode ? "O" : "X"));
        QCOMPARE(m_fixture->style("BUTTON_CONNECT") == kHighlight, kZigMode);
    }

    void theBoardsStateIsShownInZigModeOnly()
    {
        QCOMPARE(connectButton()->isFlat(), !kZigMode);
        const auto* caption = connectButton()->findChild<QLabel*>();
        QCOMPARE(caption != nullptr, kZigMode);
        QVERIFY(!caption || caption->text() == "Board");
    }

    void connectShowsXUntilTheAnswerCame()
    {
        if (!kZigMode)
            QSKIP("outside Zig mode the button is disabled");
        EventWatch watch;
        watch.watch(&m_fixture->window());
        watch.watch(connectButton());
        const auto look = [this] { return connectButton()->text() + connectButton()->styleSheet(); };
        QStringList looks;
        QStringList painted;
        watch.atChange([&](const QString& change) {
            if (change == "paint BUTTON_CONNECT")
                painted += look();
            if (!change.startsWith('$'))
                return;
            painted += change;
            looks += look();
        });
        const auto connection = connect(Controller::getInstance(), &Controller::sig_debug_Controller, this,
                                        [&](const QString& line) { watch.note(line.trimmed()); });
        QVERIFY(QMetaObject::invokeMethod(&m_fixture->window(), "on_BUTTON_CONNECT_clicked"));
        disconnect(connection);
        const QString x = QString("X") + kPlain;
        const QString o = QString("O") + kHighlight;
        QCOMPARE(looks.mid(0, 3), QStringList({x, x, o}));
        QCOMPARE(look(), o);
        QCOMPARE(watch.before("$,DEVICE,READY,,").count("turn"), 1);
        painted.removeDuplicates();
        // The O is seen before the stage is homed, which may take seconds.
        QCOMPARE(painted.mid(0, 5),
                 QStringList({x, "$,DEVICE,READY,,", "$OK,DEVICE,READY,,", o, "$,STM1,ORIGIN,,"}));
    }

    void aBoardThatRefusesLeavesTheXAndMayBeTriedAgain()
    {
        if (!kZigMode)
            QSKIP("outside Zig mode the button is disabled");
        m_fixture->takeBoardLines();
        m_fixture->addFault({LineFault::Failure, "READY", 1});
        m_fixture->clearConsoles();
        m_fixture->click("BUTTON_CONNECT");
        QCOMPARE(connectButton()->text(), QString("X"));
        QCOMPARE(m_fixture->style("BUTTON_CONNECT"), QString(kPlain));
        QVERIFY(m_fixture->isEnabled("BUTTON_CONNECT"));
        QCOMPARE(m_fixture->messages(),
                 QString("void ORLA_II_Plus_Verifier::on_BUTTON_CONNECT_clicked()() \n"));
        QCOMPARE(m_fixture->takeBoardLines(), QStringList("$,DEVICE,READY,,"));
        m_fixture->click("BUTTON_CONNECT");
        QCOMPARE(connectButton()->text(), QString("O"));
        QCOMPARE(m_fixture->takeBoardLines().mid(0, 2), QStringList({"$,DEVICE,READY,,", "$,STM1,ORIGIN,,"}));
    }

    // An "OK" of before is still in the record when the board says nothing any more.
    void aBoardThatDiedLeavesTheXAndMayBeTriedAgain()
    {
        if (!kZigMode)
            QSKIP("outside Zig mode the button is disabled");
        QVERIFY(Controller::getInstance()->z_stage_stop());
        m_fixture->takeBoardLines();
        m_fixture->addFault({LineFault::NoAnswer, "READY", 1});
        m_fixture->click("BUTTON_CONNECT");
        QCOMPARE(connectButton()->text(), QString("X"));
        QCOMPARE(m_fixture->style("BUTTON_CONNECT"), QString(kPlain));
        QCOMPARE(m_fixture->takeBoardLines(), QStringList("$,DEVICE,READY,,"));
        QVERIFY(m_fixture->isEnabled("BUTTON_CONNECT"));
        m_fixture->click("BUTTON_CONNECT");
        QCOMPARE(connectButton()->text(), QString("O"));
        QCOMPARE(m_fixture->style("BUTTON_CONNECT"), QString(kHighlight));
        QCOMPARE(m_fixture->takeBoardLines().mid(0, 2), QStringList({"$,DEVICE,READY,,", "$,STM1,ORIGIN,,"}));
    }

    // A press would home the stage under the sweep.
    void connectIsLockedDuringARunAndIsWhatItWasAfterwards()
    {
        m_fixture->addFault({LineFault::NoAnswer, "MVP", 1});
        const QString look = connectButton()->text() + connectButton()->styleSheet();
        m_fixture->click("BUTTON_AUTOFOCUS");
        QVERIFY(!m_fixture->isEnabled("TAB_MENU"));
        QVERIFY(!m_fixture->isEnabled("BUTTON_CONNECT"));
        // The move that the run waits for is on its way.
        QVERIFY(
            m_fixture->waitUntil([this] { return m_fixture->takeBoardLines().contains("$,STM1,MVP,640,"); }));
        connectButton()->click();
        QTest::mouseClick(connectButton(), Qt::LeftButton);
        QTest::keyClick(connectButton(), Qt::Key_Space);
        QCOMPARE(m_fixture->takeBoardLines(), QStringList());
        m_fixture->window().slot_endAutoFocusing(0);
        QVERIFY(m_fixture->isEnabled("TAB_MENU"));
        QCOMPARE(m_fixture->isEnabled("BUTTON_CONNECT"), kZigMode);
        QCOMPARE(connectButton()->text() + connectButton()->styleSheet(), look);
    }

    void everyAcknowledgementHomesAndAppliesAgain()
    {
        m_fixture->takeBoardLines();
        const QString look = connectButton()->text() + m_fixture->style("BUTTON_CONNECT");
        for (int i = 0; i < 2; ++i) {
            m_fixture->clearConsoles();
            QVERIFY(Controller::getInstance()->trySerialPort());
            QCOMPARE(m_fixture->takeBoardLines(), QStringList({"$,DEVICE,READY,,", "$,STM1,ORIGIN,,",
                                                               "$,LED4,BRT,225,", "$,STM1,ABS,32000,"}));
            QVERIFY(m_fixture->messages().startsWith(
                "void ORLA_II_Plus_Verifier::slot_connected_controller()() \n"));
            QCOMPARE(connectButton()->text() + m_fixture->style("BUTTON_CONNECT"), look);
        }
    }

    void theDiskIsFlushedEverySecondWhileItIsThere()
    {
        const auto syncs = [this] { return m_fixture->camera().counters().fileSystemSyncs; };
        const auto before = syncs();
        QTest::qWait(1300);
        QCOMPARE(syncs(), before);
        QVERIFY(m_fixture->usb().plug());
        QVERIFY(m_fixture->waitUntil([&] { return syncs() >= before + 2; }));
        QVERIFY(m_fixture->usb().pull());
        // The monitor notices, and the flushing ends.
        QVERIFY(m_fixture->waitUntil([&] {
            const auto now = syncs();
            QTest::qWait(1500);
            return syncs() == now;
        }));
    }

    // The first link makes the directory and the last one takes it away, where no other file
    // system of the machine has a link there.
    void theDiskIsFoundThoughItsDirectoryComesAndGoesWithIt()
    {
        QDir links(m_fixture->machinePath("/dev/disk/by-uuid"));
        const auto syncs = [this] { return m_fixture->camera().counters().fileSystemSyncs; };
        for (int times = 0; times < 2; ++times) {
            QVERIFY(links.removeRecursively());
            QTest::qWait(1200);
            QVERIFY(links.mkpath("."));
            const auto before = syncs();
            QVERIFY(m_fixture->usb().plug());
            QVERIFY(m_fixture->waitUntil([&] { return syncs() > before; }));
            QVERIFY(m_fixture->usb().isMounted());
            QVERIFY(m_fixture->usb().pull());
        }
        QVERIFY(m_fixture->waitUntil([this] { return !m_fixture->usb().isMounted(); }));
    }

    void thePasswordScriptRunsWithoutArguments()
    {
        m_fixture->boxes().clear();
        m_fixture->clearConsoles();
        m_fixture->click("BUTTON_PASSWORD");
        QCOMPARE(m_fixture->messages(),
                 QString("void ORLA_II_Plus_Verifier::on_BUTTON_PASSWORD_clicked()() \n"));
        QCOMPARE(m_fixture->tree().passwordRuns().size(), 1);
        QCOMPARE(m_fixture->tree().passwordRuns().first().arguments, QStringList());
        expectPasswordBox();
    }

    // Neither what the script says, nor the serial number, which becomes the password.
    void noLogHoldsThePassword()
    {
        const QString path = m_fixture->machinePath("/opt/ORLA3/bin/set_password.sh");
        QFile script(path);
        QVERIFY(script.open(QIODevice::ReadOnly));
        const QByteArray before = script.readAll();
        script.close();
        QVERIFY(script.open(QIODevice::WriteOnly | QIODevice::Truncate));
        script.write("#!/bin/sh\necho OR3-07-31415\necho OR3-07-31415 >&2\n");
        script.close();
        m_fixture->setText("EDIT_SERIAL_MIDFIX", "07");
        m_fixture->setText("EDIT_SERIAL_SUFFIX", "31415");
        m_fixture->boxes().clear();
        m_fixture->clearConsoles();

        QTemporaryFile output;
        QVERIFY(output.open());
        QStringList log;
        {
            const LogRecorder recorder;
            const int own = ::dup(STDERR_FILENO);
            ::dup2(output.handle(), STDERR_FILENO);
            m_fixture->click("BUTTON_PASSWORD");
            ::dup2(own, STDERR_FILENO);
            ::close(own);
            log = recorder.messages();
        }
        QVERIFY(script.open(QIODevice::WriteOnly | QIODevice::Truncate));
        script.write(before);
        QVERIFY(!log.isEmpty());
        QCOMPARE(log.filter("31415"), QStringList());
        QVERIFY(!m_fixture->messages().isEmpty());
        QVERIFY(!m_fixture->messages().contains("31415"));
        QVERIFY(!m_fixture->traffic().contains("31415"));
        QVERIFY(output.seek(0));
        QVERIFY(!output.readAll().contains("31415"));
        QCOMPARE(m_fixture->boxes().texts().filter("31415"), QStringList());
    }

    void thePasswordButtonShowsThatItIsAtWorkAndKeepsPressesOut()
    {
        const auto runs = [this] { return m_fixture->tree().passwordRuns().size(); };
        m_fixture->openTab(2);
        auto* button = m_fixture->find<QPushButton>("BUTTON_PASSWORD");
        const int before = runs();
        m_fixture->takeBoardLines();
        m_fixture->boxes().clear();
        EventWatch watch;
        watch.watch(button);
        watch.watch(&m_fixture->window());
        const BoxShown boxShown(watch);
        QStringList wrong;
        watch.atChange([&](const QString& change) {
            if (change != "paint BUTTON_PASSWORD" || !m_fixture->boxes().seen().isEmpty())
                return;
            const bool isLocked = !button->isEnabled() && !button->isEnabledTo(&m_fixture->window());
            if (runs() == before && (!isLocked || button->styleSheet() != kHighlight))
                wrong << "painted as free before the script ran";
        });
        for (const char* other : {"BUTTON_Z_POSITION", "BUTTON_SAVE_INI", "BUTTON_PASSWORD", "BUTTON_EXIT"})
            QMetaObject::invokeMethod(m_fixture->find<QPushButton>(other), "click", Qt::QueuedConnection);
        m_fixture->clearConsoles();
        QVERIFY(QMetaObject::invokeMethod(&m_fixture->window(), "on_BUTTON_PASSWORD_clicked"));
        QCOMPARE(wrong, QStringList());
        const QStringList until = watch.before("enabled BUTTON_PASSWORD");
        QCOMPARE(until.count("disabled BUTTON_PASSWORD"), 1);
        QCOMPARE(until.count("turn"), 1);
        QVERIFY(until.mid(until.indexOf("turn")).contains("paint BUTTON_PASSWORD"));
        const QStringList end = watch.after("enabled ORLA_II_Plus_Verifier");
        QVERIFY(end.contains("box"));
        QVERIFY2(end.mid(0, end.indexOf("box")).contains("paint ORLA_II_Plus_Verifier"),
                 "the end is seen before the box");
        QCOMPARE(runs(), before + 1);
        QCOMPARE(button->styleSheet(), QString(kPlain));
        QVERIFY(button->isEnabled());
        expectPasswordBox();
        QVERIFY(m_fixture->boxes().seen().first().windowWasEnabled);
        QCOMPARE(m_fixture->takeBoardLines(), QStringList());
        QCOMPARE(m_fixture->messages(),
                 QString("void ORLA_II_Plus_Verifier::on_BUTTON_PASSWORD_clicked()() \n"));
    }

    void aPasswordScriptThatFailsIsNotToldApart_data()
    {
        QTest::addColumn<QByteArray>("script");
        QTest::addColumn<bool>("mayRun");
        QTest::newRow("its exit status") << QByteArray("#!/bin/sh\nexit 3\n") << true;
        QTest::newRow("its end by a signal") << QByteArray("#!/bin/sh\nkill -KILL $$\n") << true;
        QTest::newRow("no program") << QByteArray("no program") << true;
        QTest::newRow("not to be run") << QByteArray("#!/bin/sh\n") << false;
        QTest::newRow("missing") << QByteArray() << false;
    }

    void aPasswordScriptThatFailsIsNotToldApart()
    {
        QFETCH(QByteArray, script);
        QFETCH(bool, mayRun);
        const int before = m_fixture->tree().passwordRuns().size();
        QFile file(m_fixture->machinePath("/opt/ORLA3/bin/set_password.sh"));
        QVERIFY(file.remove());
        if (!script.isEmpty()) {
            QVERIFY(file.open(QIODevice::WriteOnly));
            file.write(script);
            file.close();
            if (mayRun)
                QVERIFY(file.setPermissions(file.permissions() | QFile::ExeOwner));
        }
        m_fixture->boxes().clear();
        m_fixture->clearConsoles();
        m_fixture->click("BUTTON_PASSWORD");
        QCOMPARE(m_fixture->tree().passwordRuns().size(), before);
        expectPasswordBox();
        QCOMPARE(m_fixture->messages(),
                 QString("void ORLA_II_Plus_Verifier::on_BUTTON_PASSWORD_clicked()() \n"));
        QVERIFY(m_fixture->isEnabled("BUTTON_PASSWORD"));
    }

    void everySlotIsBoundToAWidgetAndItsSignal()
    {
        int bound = 0;
        const QMetaObject* meta = m_fixture->window().metaObject();
        for (int i = meta->methodOffset(); i < meta->methodCount(); ++i) {
            const QByteArray signature = meta->method(i).methodSignature();
            if (!signature.startsWith("on_"))
                continue;
            const int split = signature.lastIndexOf('_', signature.indexOf('('));
            const QByteArray widgetName = signature.mid(3, split - 3);
            const QByteArray signal = signature.mid(split + 1);
            const auto* widget = m_fixture->window().findChild<QWidget*>(QString::fromLatin1(widgetName));
            if (widget == nullptr)
                QFAIL(signature.constData());
            QVERIFY2(widget->metaObject()->indexOfSignal(signal) >= 0, signature.constData());
            ++bound;
        }
        QCOMPARE(bound, 61);
    }

    void noAtExitLeavesEverythingAsItIs()
    {
        m_fixture->takeBoardLines();
        m_fixture->boxes().clear();
        m_fixture->boxes().answerNextWith("No");
        m_fixture->clearConsoles();
        m_fixture->click("BUTTON_EXIT");
        QCOMPARE(m_fixture->boxes().seen().size(), 1);
        const SeenBox& box = m_fixture->boxes().seen().first();
        QCOMPARE(box.title, QString("ORLA-III"));
        QCOMPARE(box.text, QString("Are you sure quit ?"));
        QCOMPARE(box.icon, QMessageBox::Question);
        QCOMPARE(box.buttons, QStringList({"Yes", "No"}));
        QVERIFY(!box.hadDefaultButton);
        QVERIFY(m_fixture->messages().endsWith("void ORLA_II_Plus_Verifier::on_BUTTON_EXIT_clicked()() \n"));
        QVERIFY(m_fixture->takeBoardLines().isEmpty());
        QVERIFY(m_fixture->programCamera()->isStreaming());
        QVERIFY(m_fixture->waitForFrames(2));
    }

    void aCloseRequestAsksToo()
    {
        m_fixture->boxes().clear();
        QVERIFY(!m_fixture->window().close());
        QCOMPARE(m_fixture->boxes().texts(), QStringList("Are you sure quit ?"));
        QVERIFY(m_fixture->window().isVisible());
    }

    void aCloseRequestToALockedWindowIsIgnored()
    {
        m_fixture->boxes().clear();
        m_fixture->window().setEnabled(false);
        QVERIFY(!m_fixture->window().close());
        m_fixture->window().setEnabled(true);
        QVERIFY(m_fixture->boxes().seen().isEmpty());
        QVERIFY(m_fixture->window().isVisible());
    }

    void yesAtExitParksTheInstrumentAndQuits()
    {
        m_fixture->takeBoardLines();
        m_fixture->clearConsoles();
        m_fixture->boxes().answerNextWith("Yes");
        const auto* camera = m_fixture->programCamera();
        const auto connection = connect(
            Controller::getInstance(), &Controller::sig_debug_Controller, this,
            [&](const QString& line) { QVERIFY2(camera->isStreaming(), qPrintable(line)); });
        QTimer::singleShot(
            0, this, [this] { m_fixture->click("BUTTON_EXIT"); });
        QTimer::singleShot(10000, qApp, [] { QCoreApplication::exit(1); });
        QCOMPARE(QApplication::exec(), 0);
        disconnect(connection);
        const QStringList expected =
            kZigMode ? QStringList() : QStringList({"$,LED4,OFF,,", "$,STM1,ORIGIN,,"});
        QCOMPARE(m_fixture->takeBoardLines(), expected);
        QVERIFY(!camera->isStreaming());
        const QString asked = "void ORLA_II_Plus_Verifier::on_BUTTON_EXIT_clicked()() ";
        QCOMPARE(m_fixture->messages(), asked + '\n' + asked + "shutdown hardware \n" +
                                            "void ORLA_II_Plus_Verifier::stopCamera()() \n");
    }

private:
    QPushButton* connectButton() { return m_fixture->find<QPushButton>("BUTTON_CONNECT"); }

    void expectPasswordBox()
    {
        m_fixture->expectBox("ORLA-III", "The serial number has been set as the password!",
                             QMessageBox::Information);
    }

    std::unique_ptr<WindowFixture> m_fixture;
    QStringList m_stream; ///< what the start wrote to the debug stream
};

QTEST_MAIN(TestWindowStartup)
#include "test_window_startup.moc"
