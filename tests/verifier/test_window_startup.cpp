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
/// What the board hears when it is connected.
const QStringList kConnected{"$,DEVICE,READY,,", "$,STM1,ORIGIN,,", "$,LED4,BRT,225,", "$,STM1,ABS,32000,"};
const QString kSlots = "void ORLA_II_Plus_Verifier::";

WindowFixture::Options startOptions()
{
    WindowFixture::Options options;
    options.zigMode = kZigMode;
    return options;
}

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
Q_DECLARE_METATYPE(LineFault)

class TestWindowStartup : public QObject, protected WindowFixture
{
    Q_OBJECT

public:
    /// The recorder has come before the window, and hears how it starts.
    explicit TestWindowStartup(const LogRecorder& log = LogRecorder())
        : WindowFixture(startOptions()),
          m_stream(log.messages()),
          m_lines(takeBoardLines()),
          m_traffic(traffic()),
          m_messages(messages())
    {
    }

private slots:
    void init()
    {
        clearFaults();
        boxes().clear();
        clearConsoles();
        takeBoardLines();
    }

    void theHandshakeHomesAndAppliesTheSettings()
    {
        QCOMPARE(m_lines, kConnected);
        QVERIFY(m_traffic.startsWith("$,DEVICE,READY,,\n$OK,DEVICE,READY,"));
        QCOMPARE(text("EDIT_LED"), QString("225"));
        QCOMPARE(text("EDIT_Z_REFERENCE"), QString("32000"));
    }

    void theWindowIsThePanel()
    {
        QCOMPARE(window().windowTitle(), QString("ORLA-II Plus Verifier"));
        QCOMPARE(window().size(), QSize(800, 480));
        QCOMPARE(window().minimumSize(), QSize(800, 480));
        QCOMPARE(window().maximumSize(), QSize(800, 480));
        QCOMPARE(find<QTabWidget>("TAB_MENU")->currentIndex(), 0);
        QVERIFY(window().parentWidget() == nullptr);
    }

    void theVideoLayerIsReleased()
    {
        QCOMPARE(tree().displayLayerProtect(), QString("0"));
        QCOMPARE(bytesOf(machinePath("/sys/module/disp/parameters/disp_layer_protect")), QByteArray("0"));
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
        QVERIFY(m_stream.contains(kSlots + "get_INI_value(QSettings&)"));
        QCOMPARE(m_stream.filter("[CUS_CAL_INI]").size(), 30);
        QCOMPARE(m_stream.filter("[BFN_CAL_INI]").size(), 30);
        QVERIFY(
            m_stream.contains(QString("----> global_ini()->bZig_mode : ") + (kZigMode ? "true" : "false")));
        QVERIFY(!m_messages.contains("CAL_INI"));
    }

    void theStepsOfTheStartFollowEachOther()
    {
        expectInOrder(m_stream, {"ORLA_II_Plus_Verifier::get_INI_value",
                                 "ORLA_II_Plus_Verifier::on_BUTTON_RESOLUTION_1280_clicked",
                                 "OV5642Camera::open", "ORLA_II_Plus_Verifier::startCamera",
                                 "ORLA_II_Plus_Verifier::getCamera_reg", "openSerialPort", "trySerialPort",
                                 "ORLA_II_Plus_Verifier::slot_connected_controller", "z_stage_origin",
                                 "ORLA_II_Plus_Verifier::apply_INI_value", "led_brightness", "z_stage_abs"});
    }

    void theWindowSaysThisOfItsStartAndNothingElse()
    {
        QStringList expected;
        for (const char* step :
             {"get_INI_value(QSettings&)", "on_BUTTON_RESOLUTION_1280_clicked()", "startCamera(int) 1",
              "getCamera_reg()", "slot_connected_controller()", "apply_INI_value()", "getCamera_reg()",
              "on_BUTTON_Z_MOVE_REFERENCE_clicked()"})
            expected += kSlots + step;
        QCOMPARE(m_stream.filter("ORLA_II_Plus_Verifier::"), expected);
    }

    void theWindowsOwnObjectsAreCreatedInOrder()
    {
        QStringList names;
        for (const QObject* child : window().children()) {
            const QString name = child->metaObject()->className();
            if (QStringList({"QWidget", "QTimer", "DebugMessage", "DebugController", "OV5642Camera"})
                    .contains(name))
                names += name;
        }
        QCOMPARE(names.mid(0, 5),
                 QStringList({"QWidget", "QTimer", "DebugMessage", "DebugController", "OV5642Camera"}));
        const auto* timer = window().findChildren<QTimer*>().first();
        QCOMPARE(timer->interval(), 1000);
        QVERIFY(!timer->isSingleShot());
        QVERIFY(timer->isActive());
    }

    void theConsolesAreThereButHidden()
    {
        for (const char* name : {"DebugMessage", "DebugController"}) {
            const auto* console = find<QWidget>(name);
            QVERIFY2(console->isHidden(), name);
            QCOMPARE(console->geometry(), QRect(0, 0, 640, 480));
            QCOMPARE(console->parentWidget(), static_cast<QWidget*>(&window()));
        }
    }

    void theStartMarksWhatIsChosen()
    {
        QCOMPARE(style("BUTTON_CAPTURE"), QString(kHighlight));
        QCOMPARE(style("BUTTON_STAINING_NTB"), QString(kHighlight));
        QCOMPARE(style("BUTTON_STAINING_TB"), QString(kPlain));
        QCOMPARE(style("BUTTON_RESOLUTION_1280"), QString(kHighlight));
        QCOMPARE(style("BUTTON_RESOLUTION_VGA"), QString(kPlain));
        QCOMPARE(style("BUTTON_RESOLUTION_5M"), QString(kPlain));
    }

    void theCameraStreamsAt1280WithTheNtbFile()
    {
        const auto* camera = programCamera();
        QVERIFY(camera->isStreaming());
        QCOMPARE(camera->mode(), 1);
        QVERIFY(m_messages.contains("camera_mode: 1 , ini_file /opt/ORLA3/conf/Calibration_BFN.ini"));
        QVERIFY(waitForFrames(2));
    }

    void connectIsForZigModeOnly()
    {
        QCOMPARE(isEnabled("BUTTON_CONNECT"), kZigMode);
        QCOMPARE(Controller::getInstance()->m_bZigMode, kZigMode);
        QCOMPARE(connectButton()->text(), QString(kZigMode ? "O" : "X"));
        QCOMPARE(style("BUTTON_CONNECT") == kHighlight, kZigMode);
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
        EventWatch watch({&window(), connectButton()});
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
        const auto noting = atBoardLine("$", [&](const QString& line) { watch.note(line.trimmed()); });
        QVERIFY(QMetaObject::invokeMethod(&window(), "on_BUTTON_CONNECT_clicked"));
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

    void aBoardThatDoesNotAcknowledgeLeavesTheXAndMayBeTriedAgain_data()
    {
        QTest::addColumn<LineFault>("fault");
        QTest::newRow("refuses") << LineFault::Failure;
        QTest::newRow("died") << LineFault::NoAnswer;
    }

    void aBoardThatDoesNotAcknowledgeLeavesTheXAndMayBeTriedAgain()
    {
        if (!kZigMode)
            QSKIP("outside Zig mode the button is disabled");
        QFETCH(LineFault, fault);
        // Its "OK" is still in the record when the board says nothing any more.
        QVERIFY(Controller::getInstance()->z_stage_stop());
        takeBoardLines();
        addFault({fault, "READY", 1});
        click("BUTTON_CONNECT");
        QCOMPARE(connectButton()->text(), QString("X"));
        QCOMPARE(style("BUTTON_CONNECT"), QString(kPlain));
        QVERIFY(isEnabled("BUTTON_CONNECT"));
        QCOMPARE(messages(), kSlots + "on_BUTTON_CONNECT_clicked()() \n");
        QCOMPARE(takeBoardLines(), QStringList("$,DEVICE,READY,,"));
        click("BUTTON_CONNECT");
        QCOMPARE(connectButton()->text(), QString("O"));
        QCOMPARE(style("BUTTON_CONNECT"), QString(kHighlight));
        QCOMPARE(takeBoardLines().mid(0, 2), QStringList({"$,DEVICE,READY,,", "$,STM1,ORIGIN,,"}));
    }

    // A press would home the stage under the sweep.
    void connectIsLockedDuringARunAndIsWhatItWasAfterwards()
    {
        addFault({LineFault::NoAnswer, "MVP", 1});
        const QString look = connectButton()->text() + connectButton()->styleSheet();
        click("BUTTON_AUTOFOCUS");
        QVERIFY(!isEnabled("TAB_MENU"));
        QVERIFY(!isEnabled("BUTTON_CONNECT"));
        // The move that the run waits for is on its way.
        QVERIFY(waitUntil([this] { return takeBoardLines().contains("$,STM1,MVP,640,"); }));
        connectButton()->click();
        QTest::mouseClick(connectButton(), Qt::LeftButton);
        QTest::keyClick(connectButton(), Qt::Key_Space);
        QCOMPARE(takeBoardLines(), QStringList());
        window().slot_endAutoFocusing(0);
        QVERIFY(isEnabled("TAB_MENU"));
        QCOMPARE(isEnabled("BUTTON_CONNECT"), kZigMode);
        QCOMPARE(connectButton()->text() + connectButton()->styleSheet(), look);
    }

    void everyAcknowledgementHomesAndAppliesAgain()
    {
        const QString look = connectButton()->text() + style("BUTTON_CONNECT");
        for (int i = 0; i < 2; ++i) {
            clearConsoles();
            QVERIFY(Controller::getInstance()->trySerialPort());
            QCOMPARE(takeBoardLines(), kConnected);
            QVERIFY(messages().startsWith(kSlots + "slot_connected_controller()() \n"));
            QCOMPARE(connectButton()->text() + style("BUTTON_CONNECT"), look);
        }
    }

    void theDiskIsFlushedEverySecondWhileItIsThere()
    {
        const auto syncs = [this] { return camera().counters().fileSystemSyncs; };
        const auto before = syncs();
        QTest::qWait(1300);
        QCOMPARE(syncs(), before);
        QVERIFY(usb().plug());
        QVERIFY(waitUntil([&] { return syncs() >= before + 2; }));
        QVERIFY(usb().pull());
        // The monitor notices, and the flushing ends.
        QVERIFY(waitUntil([&] {
            const auto now = syncs();
            QTest::qWait(1500);
            return syncs() == now;
        }));
    }

    // The first link makes the directory and the last one takes it away, where no other file
    // system of the machine has a link there.
    void theDiskIsFoundThoughItsDirectoryComesAndGoesWithIt()
    {
        QDir links(machinePath("/dev/disk/by-uuid"));
        const auto syncs = [this] { return camera().counters().fileSystemSyncs; };
        for (int times = 0; times < 2; ++times) {
            QVERIFY(links.removeRecursively());
            QTest::qWait(1200);
            QVERIFY(links.mkpath("."));
            const auto before = syncs();
            QVERIFY(usb().plug());
            QVERIFY(waitUntil([&] { return syncs() > before; }));
            QVERIFY(usb().isMounted());
            QVERIFY(usb().pull());
        }
        QVERIFY(waitUntil([this] { return !usb().isMounted(); }));
    }

    void thePasswordScriptRunsWithoutArguments()
    {
        click("BUTTON_PASSWORD");
        QCOMPARE(messages(), kSlots + "on_BUTTON_PASSWORD_clicked()() \n");
        QCOMPARE(tree().passwordRuns().size(), 1);
        QCOMPARE(tree().passwordRuns().first().arguments, QStringList());
        expectPasswordBox();
    }

    // Neither what the script says, nor the serial number, which becomes the password.
    void noLogHoldsThePassword()
    {
        const QString script = machinePath("/opt/ORLA3/bin/set_password.sh");
        const QByteArray before = bytesOf(script);
        putBytes(script, "#!/bin/sh\necho OR3-07-31415\necho OR3-07-31415 >&2\n");
        setText("EDIT_SERIAL_MIDFIX", "07");
        setText("EDIT_SERIAL_SUFFIX", "31415");

        QTemporaryFile output;
        QVERIFY(output.open());
        QStringList log;
        {
            const LogRecorder recorder;
            const int own = ::dup(STDERR_FILENO);
            ::dup2(output.handle(), STDERR_FILENO);
            click("BUTTON_PASSWORD");
            ::dup2(own, STDERR_FILENO);
            ::close(own);
            log = recorder.messages();
        }
        putBytes(script, before);
        QVERIFY(!log.isEmpty());
        QCOMPARE(log.filter("31415"), QStringList());
        QVERIFY(!messages().isEmpty());
        QVERIFY(!messages().contains("31415"));
        QVERIFY(!traffic().contains("31415"));
        QVERIFY(output.seek(0));
        QVERIFY(!output.readAll().contains("31415"));
        QCOMPARE(boxes().texts().filter("31415"), QStringList());
    }

    void thePasswordButtonShowsThatItIsAtWorkAndKeepsPressesOut()
    {
        const auto runs = [this] { return tree().passwordRuns().size(); };
        openTab(2);
        auto* button = find<QPushButton>("BUTTON_PASSWORD");
        const int before = runs();
        EventWatch watch({button, &window()});
        const BoxShown boxShown(watch);
        QStringList wrong;
        watch.atChange([&](const QString& change) {
            if (change != "paint BUTTON_PASSWORD" || !boxes().seen().isEmpty())
                return;
            const bool isLocked = !button->isEnabled() && !button->isEnabledTo(&window());
            if (runs() == before && (!isLocked || button->styleSheet() != kHighlight))
                wrong << "painted as free before the script ran";
        });
        for (const char* other : {"BUTTON_Z_POSITION", "BUTTON_SAVE_INI", "BUTTON_PASSWORD", "BUTTON_EXIT"})
            QMetaObject::invokeMethod(find<QPushButton>(other), "click", Qt::QueuedConnection);
        QVERIFY(QMetaObject::invokeMethod(&window(), "on_BUTTON_PASSWORD_clicked"));
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
        QVERIFY(boxes().seen().first().windowWasEnabled);
        QCOMPARE(takeBoardLines(), QStringList());
        QCOMPARE(messages(), kSlots + "on_BUTTON_PASSWORD_clicked()() \n");
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
        const int before = tree().passwordRuns().size();
        const QString path = machinePath("/opt/ORLA3/bin/set_password.sh");
        QVERIFY(QFile::remove(path));
        if (!script.isEmpty())
            putBytes(path, script);
        if (mayRun)
            QVERIFY(QFile::setPermissions(path, QFile::permissions(path) | QFile::ExeOwner));
        click("BUTTON_PASSWORD");
        QCOMPARE(tree().passwordRuns().size(), before);
        expectPasswordBox();
        QCOMPARE(messages(), kSlots + "on_BUTTON_PASSWORD_clicked()() \n");
        QVERIFY(isEnabled("BUTTON_PASSWORD"));
    }

    void everySlotIsBoundToAWidgetAndItsSignal()
    {
        int bound = 0;
        const QMetaObject* meta = window().metaObject();
        for (int i = meta->methodOffset(); i < meta->methodCount(); ++i) {
            const QByteArray signature = meta->method(i).methodSignature();
            if (!signature.startsWith("on_"))
                continue;
            const int split = signature.lastIndexOf('_', signature.indexOf('('));
            const QByteArray widgetName = signature.mid(3, split - 3);
            const QByteArray signal = signature.mid(split + 1);
            const auto* widget = window().findChild<QWidget*>(QString::fromLatin1(widgetName));
            if (widget == nullptr)
                QFAIL(signature.constData());
            QVERIFY2(widget->metaObject()->indexOfSignal(signal) >= 0, signature.constData());
            ++bound;
        }
        QCOMPARE(bound, 62);
    }

    // Whoever made the application: the form itself names no family.
    void theWindowSetsItsFont()
    {
        for (const QWidget* widget : window().findChildren<QWidget*>())
            QCOMPARE(widget->font().family(), QString("DejaVu Sans"));
        QCOMPARE(QMessageBox().font().family(), QString("DejaVu Sans"));
    }

    void noAtExitLeavesEverythingAsItIs()
    {
        boxes().answerNextWith("No");
        click("BUTTON_EXIT");
        expectBox("ORLA-III", "Are you sure quit ?", QMessageBox::Question, {"Yes", "No"});
        QVERIFY(!boxes().seen().first().hadDefaultButton);
        QCOMPARE(style("BUTTON_EXIT"), QString("background-color: rgb(255, 85, 0);"));
        QVERIFY(isEnabled("BUTTON_EXIT"));
        QVERIFY(Controller::getInstance()->isSerialPortOpen());
        QVERIFY(messages().endsWith(kSlots + "on_BUTTON_EXIT_clicked()() \n"));
        QVERIFY(takeBoardLines().isEmpty());
        QVERIFY(programCamera()->isStreaming());
        QVERIFY(waitForFrames(2));
    }

    void aCloseRequestAsksToo()
    {
        QVERIFY(!window().close());
        QCOMPARE(boxes().texts(), QStringList("Are you sure quit ?"));
        QVERIFY(window().isVisible());
    }

    void aCloseRequestToALockedWindowIsIgnored()
    {
        window().setEnabled(false);
        QVERIFY(!window().close());
        window().setEnabled(true);
        QVERIFY(boxes().seen().isEmpty());
        QVERIFY(window().isVisible());
    }

    void yesAtExitParksTheInstrumentAndQuits()
    {
        boxes().answerNextWith("Yes");
        const auto* camera = programCamera();
        auto looking = atBoardLine(
            "$", [&](const QString& line) { QVERIFY2(camera->isStreaming(), qPrintable(line)); });
        QTimer::singleShot(
            0, this, [this] { click("BUTTON_EXIT"); });
        QTimer::singleShot(10000, qApp, [] { QCoreApplication::exit(1); });
        QCOMPARE(QApplication::exec(), 0);
        looking.reset();
        const QStringList expected =
            kZigMode ? QStringList() : QStringList({"$,LED4,OFF,,", "$,STM1,ORIGIN,,"});
        QCOMPARE(takeBoardLines(), expected);
        QVERIFY(!camera->isStreaming());
        const QString asked = kSlots + "on_BUTTON_EXIT_clicked()() ";
        QCOMPARE(messages(), asked + '\n' + asked + "shutdown hardware \n" + kSlots + "stopCamera()() \n");
    }

private:
    QPushButton* connectButton() { return find<QPushButton>("BUTTON_CONNECT"); }

    void expectPasswordBox()
    {
        expectBox("ORLA-III", "The serial number has been set as the password!", QMessageBox::Information);
    }

    // What the start wrote to the debug stream, sent to the board, and left in the consoles.
    QStringList m_stream;
    QStringList m_lines;
    QString m_traffic;
    QString m_messages;
};

QTEST_MAIN(TestWindowStartup)
#include "test_window_startup.moc"
