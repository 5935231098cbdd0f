#include <csignal>
#include <cstdio>

#include <QDir>
#include <QRegularExpression>
#include <QtTest>

#include "shipped/Expectations.h"

namespace {

const QString kTbRegisters = "opt/ORLA3/conf/Calibration_CUS.ini";
const QString kNtbRegisters = "opt/ORLA3/conf/Calibration_BFN.ini";
const QString kStageSettings = "root/Orla2/Orla2.ini";

} // namespace

/// The program as it is shipped, judged by what a stranger can see of it: the order of its start
/// and end, the lines to the board, the texts, the files, and whatever may be missing.
class TestShippedProgram : public ShippedProgramTest
{
    Q_OBJECT

private slots:
    void theStartComesToEachDeviceInItsTurn()
    {
        ShippedProgram program;
        program.write("etc/mtab", "/dev/sdz1 /mnt vfat\n/dev/sdz2 /mnt/deeper vfat\n");
        QVERIFY(program.start());

        const QStringList calls = program.calls();
        const QStringList devices{"video open /dev/video0 read-write non-blocking",
                                  "video F_SETFD FD_CLOEXEC"};
        QStringList expected{"file read /etc/mtab",
                             "file written /sys/module/disp/parameters/disp_layer_protect"};
        // Each is looked into once before QSettings reads it.
        for (const char* file : {"/opt/ORLA3/conf/ORLA3.ini", "/opt/ORLA3/conf/Calibration_CUS.ini",
                                 "/opt/ORLA3/conf/Calibration_BFN.ini", "/root/Orla2/Orla2.ini"})
            expected += {QString("file read ") + file, QString("file read ") + file};
        expected += devices;
        for (const QString& call : opening(1280, 960))
            expected += "video " + call;
        expected += {"i2c open /dev/i2c-1 read-write", "i2c I2C_SLAVE_FORCE 3C"};
        for (const QString& bytes : registerWrites(0x10 + 10))
            expected += "i2c write " + bytes;
        expected += "i2c close /dev/i2c-1";
        QCOMPARE(calls.mid(0, expected.size()), expected);
        QVERIFY(program.shortestPause_s("i2c write") >= 0.005);
        QVERIFY(program.shortestPause_s("i2c read") >= 0.005);

        // Only then the port; between, the registers are read back for the screen.
        const int port = calls.indexOf("file written /dev/ttyS2");
        QVERIFY(port > expected.size());
        QCOMPARE(only(calls.mid(expected.size(), port - expected.size()), "i2c read 1 "),
                 QStringList({"1A", "1B", "1C", "1D", "1E", "1F", "20", "21", "22", "23"}));

        QCOMPARE(program.content("sys/module/disp/parameters/disp_layer_protect"), "0");
        QCOMPARE(program.commands(), "umount /mnt\numount /mnt\n");
        QCOMPARE(program.text("EDIT_EXPOSURE"), "0x1A1B");
        QCOMPARE(program.text("EDIT_COLOR_BLUE"), "0x2223");
        QCOMPARE(program.style("BUTTON_RESOLUTION_1280"), kChosen);
        QCOMPARE(program.style("BUTTON_STAINING_NTB"), kChosen);
        QCOMPARE(program.exit(), 0);
    }

    void thePortIsSetAsTheBoardExpects()
    {
        ShippedProgram program;
        QVERIFY(program.start());
        if (!program.portCanBeSeen())
            QSKIP("the program has the port for itself, and only the machine's own root sees it then");
        QVERIFY(program.portIsSetAsTheBoardExpects());
        QCOMPARE(program.exit(), 0);
    }

    void theBoardIsGreetedHomedAndSetUp()
    {
        ShippedProgram program;
        QVERIFY(program.start());
        QCOMPARE(program.boardLines(),
                 QStringList({"DEVICE,READY,,", "STM1,ORIGIN,,", "LED4,BRT,300,", "STM1,ABS,30000,"}));
        QCOMPARE(program.text("EDIT_LED"), "300");
        QCOMPARE(program.text("EDIT_Z_REFERENCE"), "30000");
        QCOMPARE(program.text("SPIN_Z_STEP"), "512");
        QCOMPARE(program.text("SPIN_Z_SPEED"), "300");
        QCOMPARE(program.text("EDIT_SERIAL_MIDFIX"), "7");
        QCOMPARE(program.text("EDIT_SERIAL_SUFFIX"), "42");
        QCOMPARE(program.text("EDIT_SKIP_FRAME"), "9");
        QCOMPARE(program.text("LABEL_VERSION"), "0.0.1");

        program.setValue("SPIN_DEBUG", 2);
        program.click("BUTTON_DEBUG");
        QVERIFY(program.look("DebugController")["visible"].toBool());
        QCOMPARE(program.text("PLAIN_DEBUG_CONTROLLER"),
                 "$,DEVICE,READY,,\n$OK,DEVICE,READY,,\n$,STM1,ORIGIN,,\n$OK,STM1,ORIGIN,,\n"
                 "$,LED4,BRT,300,\n$OK,LED4,BRT,300,\n$,STM1,ABS,30000,\n$OK,STM1,ABS,30000,\n");
        const QString messages = program.text("PLAIN_DEBUG_MESSAGE");
        QVERIFY2(
            messages.contains("bool OV5642Camera::open(int, std::string, bool)() camera_mode: 1 , ini_file "
                              "/opt/ORLA3/conf/Calibration_BFN.ini \n"),
            qPrintable(messages));
        QCOMPARE(program.exit(), 0);

        QString log(program.output());
        log.remove("virtual void GrabThread::run()\n"); // comes when its thread does
        const QString handshake = R"(
openSerialPort
"/dev/ttyS2"
trySerialPort
write_Blocking command: "$,DEVICE,READY,,\r\n"
readAvailableData_Blocking m_commandResponse: "$OK,DEVICE,READY,,\r\n"
parsing_responseReceived response: "$OK,DEVICE,READY,,"
opened serial port "/dev/ttyS2"
void ORLA_II_Plus_Verifier::slot_connected_controller()
z_stage_origin
write_Blocking command: "$,STM1,ORIGIN,,\r\n"
readAvailableData_Blocking m_commandResponse: "$OK,STM1,ORIGIN,,\r\n"
parsing_responseReceived response: "$OK,STM1,ORIGIN,,"
)";
        QVERIFY2(log.contains(handshake), qPrintable(log));
    }

    void leavingParksTheBoardUnlessInZigMode_data()
    {
        QTest::addColumn<QByteArray>("zigMode");
        QTest::addColumn<QStringList>("parking");
        const QStringList parked{"LED4,OFF,,", "STM1,ORIGIN,,"};
        QTest::newRow("off") << QByteArray("Zig%20mode=Off\n") << parked;
        QTest::newRow("on in small letters") << QByteArray("Zig%20mode=on\n") << parked;
        QTest::newRow("on") << QByteArray("Zig%20mode=On\n") << QStringList();
        QTest::newRow("not set") << QByteArray() << QStringList();
    }

    void leavingParksTheBoardUnlessInZigMode()
    {
        QFETCH(QByteArray, zigMode);
        QFETCH(QStringList, parking);
        ShippedProgram program;
        program.write(kMainSettings, "[ORLA-III]\n" + zigMode);
        QVERIFY(program.start());
        const bool zig = parking.isEmpty();
        QCOMPARE(program.enabled("BUTTON_CONNECT"), zig);
        if (zig) {
            QCOMPARE(program.text("BUTTON_CONNECT"), "O");
            QCOMPARE(program.style("BUTTON_CONNECT"), kChosen);
            const int before = program.boardLines().size();
            program.click("BUTTON_CONNECT");
            QCOMPARE(program.boardLines(before),
                     QStringList({"DEVICE,READY,,", "STM1,ORIGIN,,", "LED4,BRT,225,", "STM1,ABS,32000,"}));
        }
        const int before = program.boardLines().size();
        QCOMPARE(program.exit(), 0);
        QCOMPARE(program.boardLines(before), parking);
        QCOMPARE(only(program.calls(), "video ").mid(2 + opening(1280, 960).size()),
                 closing(1280, 960) << "close /dev/video0");
    }

    void anAdapterThatWasPulledOutIsToldAndFoundAgain()
    {
        ShippedProgram program;
        program.write(kMainSettings, "[ORLA-III]\nZig%20mode=On\n");
        QVERIFY(program.start());
        QVERIFY(!program.look("LABEL_NOTICE")["visible"].toBool());
        program.replugBoard();
        QVERIFY(ShippedProgram::waitUntil(
            [&] { return program.text("LABEL_NOTICE").startsWith("Controller board does not answer:"); },
            5000));
        program.click("BUTTON_CONNECT");
        QCOMPARE(program.text("BUTTON_CONNECT"), "O");
        QCOMPARE(program.style("BUTTON_CONNECT"), kChosen);
        QCOMPARE(program.boardLines(),
                 QStringList({"DEVICE,READY,,", "STM1,ORIGIN,,", "LED4,BRT,225,", "STM1,ABS,32000,"}));
        QVERIFY(ShippedProgram::waitUntil([&] { return !program.look("LABEL_NOTICE")["visible"].toBool(); },
                                          5000));
    }

    void aSignalFromOutsideParksTheBoardToo_data()
    {
        QTest::addColumn<QByteArray>("zigMode");
        QTest::addColumn<bool>("questionOpen");
        QTest::addColumn<QStringList>("parking");
        const QStringList parked{"LED4,OFF,,", "STM1,ORIGIN,,"};
        QTest::newRow("parks") << QByteArray("Off") << false << parked;
        QTest::newRow("beneath the question of Exit") << QByteArray("Off") << true << parked;
        QTest::newRow("in Zig mode") << QByteArray("On") << false << QStringList();
    }

    // The service manager's way to end the program.
    void aSignalFromOutsideParksTheBoardToo()
    {
        QFETCH(QByteArray, zigMode);
        QFETCH(bool, questionOpen);
        QFETCH(QStringList, parking);
        ShippedProgram program;
        program.write(kMainSettings, "[ORLA-III]\nZig%20mode=" + zigMode + '\n');
        QVERIFY(program.start());
        QVERIFY(!QDir(program.file("lock")).isEmpty());
        if (questionOpen)
            program.boxOf("BUTTON_EXIT");
        const int before = program.boardLines().size();
        for (int times = 0; times < 2; ++times)
            QCOMPARE(::kill(static_cast<pid_t>(program.processId()), SIGTERM), 0);
        QCOMPARE(program.waitForEnd(), 0);
        QCOMPARE(program.boardLines(before), parking);
        QCOMPARE(only(program.calls(), "video ").mid(2 + opening(1280, 960).size()),
                 closing(1280, 960) << "close /dev/video0");
        QVERIFY2(QDir(program.file("lock")).isEmpty(), "the serial port is given back");
    }

    // Qt's platforms may have ways of their own to it, such as a key of the keyboard's driver.
    void anEndOfTheEventLoopParksTheBoardToo()
    {
        ShippedProgram program;
        QVERIFY(program.start());
        const int before = program.boardLines().size();
        program.ask({{"do", "quit"}});
        QCOMPARE(program.waitForEnd(), 0);
        QCOMPARE(program.boardLines(before), QStringList({"LED4,OFF,,", "STM1,ORIGIN,,"}));
        QCOMPARE(only(program.calls(), "video ").mid(2 + opening(1280, 960).size()),
                 closing(1280, 960) << "close /dev/video0");
        QVERIFY2(QDir(program.file("lock")).isEmpty(), "the serial port is given back");
    }

    void noIsNoAndTheCameraGoesOn()
    {
        ShippedProgram program;
        QVERIFY(program.start());
        const int before = program.boardLines().size();
        VERIFY_BOX(program.boxOf("BUTTON_EXIT"), "question: ORLA-III", "Are you sure quit ?", "No Yes");
        program.answer("No");
        const int frames = program.scene().framesTaken;
        QTRY_VERIFY(program.scene().framesTaken > frames + 10);
        QCOMPARE(program.boardLines(before), QStringList());
        QCOMPARE(program.exit(), 0);
    }

    void stageButtonsSendTheirLineAndShowThePosition()
    {
        ShippedProgram program;
        QVERIFY(program.start());
        struct Press
        {
            const char* button;
            QStringList lines;
            QString position;
        };
        const QString kWhereItStands("?"), kAsBefore("=");
        program.setValue("SPIN_Z_SPEED", 400);
        program.type("EDIT_Z_ABS", "no number");
        const Press presses[] = {
            {"BUTTON_Z_POSITION", {"STM1,GET_POS,,"}, "30000"},
            {"BUTTON_Z_MOVE_PLUS", {"STM1,MVP,512,"}, "30512"},
            {"BUTTON_Z_MOVE_MINUS", {"STM1,MVN,512,"}, "30000"},
            {"BUTTON_Z_ROTATE_PLUS", {"STM1,ROP,400,", "STM1,STOP,,", "STM1,GET_POS,,"}, kWhereItStands},
            {"BUTTON_Z_ROTATE_MINUS", {"STM1,RON,400,", "STM1,STOP,,", "STM1,GET_POS,,"}, kWhereItStands},
            {"BUTTON_Z_STOP", {"STM1,STOP,,"}, kAsBefore},
            {"BUTTON_Z_MOVE_REFERENCE", {"STM1,ABS,30000,"}, kAsBefore},
            {"BUTTON_Z_DIAGNOSIS", {"STM1,SELF_DIAG,,"}, kAsBefore},
            {"BUTTON_Z_ORIGIN", {"STM1,ORIGIN,,"}, kAsBefore},
            {"BUTTON_Z_POSITION", {"STM1,GET_POS,,"}, "0"},
            // Below zero the board is asked, and the tracked number shown nevertheless.
            {"BUTTON_Z_MOVE_MINUS", {"STM1,MVN,512,", "STM1,GET_POS,,"}, "-512"},
            {"BUTTON_Z_SET_REFERENCE", {}, "-512"},
        };
        for (const Press& press : presses) {
            const int before = program.boardLines().size();
            const QString shownBefore = program.text("EDIT_Z_POSITION");
            program.click(press.button);
            QCOMPARE(program.boardLines(before), press.lines);
            const int stands_steps = qRound(program.board().light().stagePosition_steps);
            const QString expected = press.position == kAsBefore        ? shownBefore
                                     : press.position == kWhereItStands ? QString::number(stands_steps)
                                                                        : press.position;
            QCOMPARE(program.text("EDIT_Z_POSITION"), expected);
            QVERIFY2(program.enabled(press.button), press.button);
        }
        QCOMPARE(program.text("EDIT_Z_REFERENCE"), "-512");
        QCOMPARE(program.text("EDIT_Z_DIAGNOSIS"), "17");
        QCOMPARE(program.style("BUTTON_Z_ORIGIN"), kNotChosen);
        QCOMPARE(program.exit(), 0);
    }

    void theWindowWaitsForAnAbsoluteMove()
    {
        ShippedProgram program;
        QVERIFY(program.start());
        program.type("EDIT_Z_ABS", "1234");
        program.silenceBoard(true);
        const int before = program.boardLines().size();
        program.click("BUTTON_Z_ABS");
        QTRY_COMPARE(program.boardLines(before), QStringList("STM1,ABS,1234,"));
        QVERIFY(!program.enabled("ORLA_II_Plus_Verifier"));
        program.silenceBoard(false);
        program.board().withBoard([](Board& board, InstrumentTime) { board.placeStage(1234); });
        program.sayUnasked("$NG,STM1,ABS,1234,\r\n"); // a failed move ends the waiting too
        QVERIFY(program.waitEnabled(2000));
        QCOMPARE(program.boardLines(before), QStringList({"STM1,ABS,1234,", "STM1,GET_POS,,"}));
        QCOMPARE(program.text("EDIT_Z_POSITION"), "1234");
        QCOMPARE(program.exit(), 0);
    }

    void aTrimGoesToTheSensorAndIntoItsFile()
    {
        ShippedProgram program;
        QVERIFY(program.start());
        program.chooseTab(1);
        program.click("BUTTON_STAINING_TB");
        QCOMPARE(program.style("BUTTON_STAINING_TB"), kChosen);
        QCOMPARE(program.style("BUTTON_STAINING_NTB"), kNotChosen);
        QCOMPARE(program.text("EDIT_EXPOSURE"), "0x8A8B");

        const int before = program.calls().size();
        program.click("BUTTON_EXPOSURE_COARSE_UP"); // 0x8A9B
        program.click("BUTTON_GAIN_FINE_UP");       // beyond its largest value: nothing
        program.click("BUTTON_GAIN_FINE_DOWN");     // 0x8C8C
        QCOMPARE(valueWrites(program.calls(before)),
                 QStringList({"35 01 8A", "35 02 9B", "35 0A 8C", "35 0B 8C"}));
        QCOMPARE(program.scene().registers[0x3502], 0x9B);
        QCOMPARE(program.text("EDIT_EXPOSURE"), "0x8A9B");
        QCOMPARE(program.text("EDIT_GAIN"), "0x8C8C");

        program.type("EDIT_LED", "995", true);
        program.click("BUTTON_LED_COARSE_UP");
        QCOMPARE(program.boardLines().last(), "LED4,BRT,1000,");
        QVERIFY(!program.enabled("BUTTON_LED_COARSE_UP") && program.enabled("BUTTON_LED_COARSE_DOWN"));
        program.type("EDIT_LED", "1000", true);
        program.click("BUTTON_LED");
        QCOMPARE(program.boardLines().last(), "LED4,OFF,,");
        QVERIFY(!program.enabled("EDIT_LED"));
        program.click("BUTTON_LED");
        QCOMPARE(program.boardLines().last(), "LED4,ON,,");

        VERIFY_BOX(program.boxOf("BUTTON_SAVE_INI"), "information: ORLA-III", "INI saved !", "OK");
        program.answer("OK");
        const QByteArray tb = program.content(kTbRegisters), ntb = program.content(kNtbRegisters);
        const QByteArray trimmed = tb.mid(tb.indexOf("[1280]"), tb.indexOf("[5M]") - tb.indexOf("[1280]"));
        for (const char* line : {"0x3501=0x8A\n", "0x3502=0x9B\n", "0x350A=0x8C\n", "0x350B=0x8C\n"})
            QVERIFY2(trimmed.contains(line), trimmed.constData());
        QCOMPARE(ntb.count("0x3502=0x1B\n"), 1); // the other staining's file keeps its own
        QVERIFY(program.content(kMainSettings).contains("LED=1000\n"));
        QCOMPARE(program.exit(), 0);
    }

    void savingWritesWhatBelongsToTheTab()
    {
        ShippedProgram program;
        QVERIFY(program.start());
        program.setValue("SPIN_Z_STEP", 640);
        program.type("EDIT_LED", "777", true);
        program.type("EDIT_SERIAL_SUFFIX", "12");
        const QStringList files{kMainSettings, kTbRegisters, kNtbRegisters, kStageSettings};
        QList<QByteArray> before;
        const auto read = [&] {
            before.clear();
            for (const QString& file : files)
                before += program.content(file);
        };
        const auto changed = [&] {
            QList<bool> differ;
            for (int i = 0; i < files.size(); ++i)
                differ += program.content(files[i]) != before[i];
            return differ;
        };
        const auto save = [&](int tab) {
            program.chooseTab(tab);
            read();
            program.boxOf("BUTTON_SAVE_INI");
            program.answer("OK");
        };

        save(0);
        QCOMPARE(changed(), QList<bool>({true, false, false, true}));
        QCOMPARE(program.content(kStageSettings), "[Z stage]\nSpeed=300\nStep=640\n");
        const QByteArray main = program.content(kMainSettings);
        for (const char* line : {"Z%20reference=30000\n", "Z%20reset%20pos=30000\n", "Z%20ref%202ch=32560\n",
                                 "Z%20ref%20Reusable=35120\n", "Z%20ref%20Validation=30000\n", "LED=300\n",
                                 "Serial=OR3-7-42\n", "Version%20QC=0.0.1\n"})
            QVERIFY2(main.contains(line), main.constData());

        save(1);
        QVERIFY(changed()[0] && !changed()[3]);
        QVERIFY(program.content(kMainSettings).contains("LED=777\n"));
        QVERIFY(program.content(kMainSettings).contains("Serial=OR3-7-42\n"));

        save(2);
        QCOMPARE(changed(), QList<bool>({true, false, false, false}));
        QVERIFY(program.content(kMainSettings).contains("Serial=OR3-07-00012\n"));
        QVERIFY(program.content(kMainSettings).contains("Skip%20frame=9\n"));
        QVERIFY(!program.content(kMainSettings).contains("Magnification"));

        // What nobody saves is in no file when the program has ended.
        program.setValue("SPIN_Z_STEP", 20);
        program.type("EDIT_LED", "42", true);
        program.type("EDIT_SERIAL_SUFFIX", "99");
        read();
        QCOMPARE(program.exit(), 0);
        QCOMPARE(changed(), QList<bool>({false, false, false, false}));
    }

    void withoutADiskNothingIsWritten()
    {
        ShippedProgram program;
        QVERIFY(program.start());
        const auto answered = [&program] {
            SeenBox box = program.waitForBox();
            program.answer("OK");
            return box;
        };
        program.ask({{"do", "key"}, {"key", int(Qt::Key_Print)}, {"later", true}});
        VERIFY_BOX(answered(), "critical: Error", "Please insert USB disk !!!", "OK");
        const int lines = program.boardLines().size();
        program.click("CHECK_DEBUG_AUTOFOCUS");
        program.boxOf("BUTTON_AUTOFOCUS");
        VERIFY_BOX(answered(), "critical: Error", "Please insert USB disk !!!", "OK");
        QCOMPARE(program.boardLines(lines), QStringList());
        program.chooseTab(1);
        program.boxOf("BUTTON_CAPTURE");
        VERIFY_BOX(answered(), "critical: Error", "Please insert USB disk !!!", "OK");

        program.chooseTab(2);
        for (const char* count : {"0", "31", "many"}) {
            program.type("EDIT_SKIP_FRAME", count);
            program.boxOf("BUTTON_SKIP_FRAME");
            VERIFY_BOX(answered(), "critical: Error", "Possible range: 1 to 30", "OK");
        }
        program.type("EDIT_SKIP_FRAME", "30");
        program.boxOf("BUTTON_SKIP_FRAME");
        VERIFY_BOX(answered(), "information: ORLA-III",
                   "Skip frame value is set. \nPress [Save Ini] to save the value.", "OK");
        QCOMPARE(QDir(program.file("mnt")).entryList(QDir::AllEntries | QDir::NoDotAndDotDot), QStringList());
        QCOMPARE(program.exit(), 0);
    }

    void aDiskIsMountedAndFlushed_data()
    {
        QTest::addColumn<int>("notices");
        QTest::newRow("at once") << 1;
        QTest::newRow("in two steps") << 2;
    }

    // Every notice of a change that leaves no mounted disk runs umount. One plug or pull may bring
    // two: when a second's look at the folder falls between the change and its notice, or as below.
    void aDiskIsMountedAndFlushed()
    {
        QFETCH(int, notices);
        ShippedProgram program;
        const QString links = program.file("dev/disk/by-uuid/");
        QVERIFY(QFile::link("../../mmcblk0p1", links + "SYSTEM")); // the board's own
        QVERIFY(program.start());
        QVERIFY(!program.calls().contains("sync"));
        const auto ran = [&](const QString& pattern) {
            return QRegularExpression(QRegularExpression::anchoredPattern(pattern))
                .match(program.commands())
                .hasMatch();
        };
        const QString plugged = QString("(umount \n){%1,}mount /dev/sda1 /mnt\n").arg(notices);
        const QString pulled = plugged + QString("(umount /dev/sda1\n){%1,}").arg(notices);

        if (notices == 2) { // the link has another name at first
            QVERIFY(QFile::link("../../sda1", links + ".#1234-ABCD"));
            QTRY_VERIFY2(ran("(umount \n)+"), program.commands().constData());
            QCOMPARE(std::rename(qPrintable(links + ".#1234-ABCD"), qPrintable(links + "1234-ABCD")), 0);
        } else {
            program.plugDisk();
        }
        QTRY_VERIFY2(ran(plugged), program.commands().constData());
        QTRY_VERIFY(program.calls().contains("sync"));
        QVERIFY2(ran(plugged), program.commands().constData());

        program.pullDisk();
        if (notices == 2) {
            QTRY_VERIFY2(ran(plugged + "(umount /dev/sda1\n)+"), program.commands().constData());
            QVERIFY(QFile::remove(links + "SYSTEM"));
        }
        QTRY_VERIFY2(ran(pulled), program.commands().constData());
        QCOMPARE(program.exit(), 0);
        QVERIFY2(ran(pulled), program.commands().constData());
    }

    void thePasswordScriptHasRunWhenTheBoxComes()
    {
        ShippedProgram program;
        QVERIFY(program.start());
        program.chooseTab(2);
        const QString text = "The serial number has been set as the password!";
        VERIFY_BOX(program.boxOf("BUTTON_PASSWORD"), "information: ORLA-III", text, "OK");
        QCOMPARE(program.commands(), "password 0\n"); // no arguments
        program.answer("OK");
        QFile::remove(program.file("opt/ORLA3/bin/set_password.sh"));
        VERIFY_BOX(program.boxOf("BUTTON_PASSWORD"), "information: ORLA-III", text, "OK");
        program.answer("OK");
        QCOMPARE(program.exit(), 0);
    }

    void itStartsAndLeavesWhateverFails_data()
    {
        QTest::addColumn<QString>("fault");  // of the camera
        QTest::addColumn<QString>("broken"); // what else is
        QTest::addColumn<QString>("error");  // among the messages; none: no error at all
        const QString open = "bool OV5642Camera::open(int, std::string, bool)() [Error] ";
        const auto row = [](const char* name, const char* fault, const char* broken,
                            const QString& message = {}) {
            QTest::newRow(name) << QString(fault) << QString(broken) << message;
        };
        row("format", "ioctl:VIDIOC_S_FMT", "", open + "VIDIOC_S_FMT !");
        row("queueing", "ioctl:VIDIOC_QBUF", "", open + "VIDIOC_QBUF !");
        row("streaming", "ioctl:VIDIOC_STREAMON", "", open + "VIDIOC_STREAMON !");
        row("stopping", "ioctl:VIDIOC_STREAMOFF", "");
        row("no camera", "unplugged", "", open + "VIDIOC_S_FMT !");
        row("no frames", "stall", "");
        row("no bus", "no-i2c", "", "[Error] /dev/i2c-1: No such file or directory");
        row("sensor does not acknowledge", "i2c-nack", "", open + "I2C failed: 1280");
        row("no board", "", "port");
        row("silent board", "", "board");
        row("no settings", "", "settings");
        row("no display driver", "", "display");
    }

    void itStartsAndLeavesWhateverFails()
    {
        QFETCH(QString, fault);
        QFETCH(QString, broken);
        QFETCH(QString, error);
        ShippedProgram program;
        program.setCameraFaults({fault});
        program.silenceBoard(broken == "board");
        if (broken == "port")
            QFile::remove(program.file("dev/ttyS2"));
        if (broken == "settings")
            for (const QString& file : {kMainSettings, kTbRegisters, kNtbRegisters, kStageSettings})
                QFile::remove(program.file(file));
        QDir driver(program.file("sys/module/disp"));
        if (broken == "display")
            QVERIFY(driver.removeRecursively());
        QVERIFY(program.start());
        if (broken == "display")
            QVERIFY2(!driver.exists() && !program.output().contains("disp_layer"), program.output());
        const QString messages = program.text("PLAIN_DEBUG_MESSAGE");
        QVERIFY2(error.isEmpty() ? !messages.contains("[Error]") : messages.contains(error),
                 qPrintable(messages));
        if (fault == "no-i2c" || fault == "i2c-nack")
            QCOMPARE(program.text("EDIT_EXPOSURE"), "0x1A1B"); // what has been meant for the sensor
        if (broken == "port" || broken == "board") {
            program.click("BUTTON_Z_MOVE_PLUS");
            QCOMPARE(program.text("EDIT_Z_POSITION"), "");
        } else {
            QCOMPARE(program.text("EDIT_LED"), broken == "settings" ? "225" : "300");
            program.click("BUTTON_Z_MOVE_PLUS");
            QCOMPARE(program.text("EDIT_Z_POSITION"), broken == "settings" ? "32256" : "30512");
        }
        QCOMPARE(program.exit(), 0);
        QCOMPARE(program.calls().filter("video close").size(), fault == "unplugged" ? 0 : 1);
    }
};

QTEST_GUILESS_MAIN(TestShippedProgram)
#include "test_shipped_program.moc"
