#include <QtTest>

#include "verifier/TrimTab.h"

/// The five sensor settings of the camera tab.
class TestWindowTrim : public QObject, protected TrimTab
{
    Q_OBJECT

private slots:
    void init() { reset(); }

    void aPressStepsTheValue_data()
    {
        QTest::addColumn<int>("family");
        QTest::addColumn<QString>("button");
        QTest::addColumn<int>("from");
        QTest::addColumn<int>("to");
        for (std::size_t i = 0; i < kFamilies.size(); ++i) {
            const int m = static_cast<int>(kFamilies[i].maximum);
            const auto row = [&](const char* button, int from, int to) {
                QTest::addRow("%s %s from %d", kFamilies[i].name, button, from)
                    << static_cast<int>(i) << QString(button) << from << to;
            };
            row("FINE_UP", 0, 1);
            row("FINE_UP", 0x00FF, 0x0100);
            row("FINE_UP", m - 1, m);
            row("FINE_UP", m, kNothing);
            row("COARSE_UP", 0, 16);
            row("COARSE_UP", m - 18, m - 2);
            row("COARSE_UP", m - 17, m - 1);
            row("COARSE_UP", m - 16, m);
            row("COARSE_UP", m - 15, m);
            row("COARSE_UP", m - 1, m);
            row("COARSE_UP", m, kNothing);
            row("FINE_DOWN", m, m - 1);
            row("FINE_DOWN", 0x0100, 0x00FF);
            row("FINE_DOWN", 1, 0);
            row("FINE_DOWN", 0, kNothing);
            row("COARSE_DOWN", m, m - 16);
            row("COARSE_DOWN", 17, 1);
            row("COARSE_DOWN", 16, 0);
            row("COARSE_DOWN", 15, 0);
            row("COARSE_DOWN", 1, 0);
            row("COARSE_DOWN", 0, 0);
        }
    }

    void aPressStepsTheValue()
    {
        QFETCH(int, family);
        QFETCH(QString, button);
        QFETCH(int, from);
        QFETCH(int, to);
        const Family& f = kFamilies[static_cast<std::size_t>(family)];
        const int after = to == kNothing ? from : to;
        global_ini_t expected = *global_ini();
        if (to != kNothing) {
            expected.BFN_reg[1][f.column] = static_cast<quint16>(to >> 8);
            expected.BFN_reg[1][f.column + 1] = static_cast<quint16>(to & 0xFF);
        }

        setText(f.edit, shown(static_cast<unsigned int>(from)));
        enableAll(f);
        click(qPrintable(QString("BUTTON_%1_%2").arg(f.name, button)));

        QCOMPARE(text(f.edit), shown(static_cast<unsigned int>(after)));
        QCOMPARE(busCalls(), to == kNothing ? QStringList() : pairWrite(f, after));
        QVERIFY(sameTables(*global_ini(), expected));
        const bool down = after != 0;
        const bool up = after < static_cast<int>(f.maximum);
        QCOMPARE(enabledOf(f), enabledText(down, down, up, up));
        const QString line = signatureOf(f) + "() " + shown(static_cast<unsigned int>(after)) + " \n";
        QCOMPARE(messages().count(line), to == kNothing ? 0 : 1);
    }

    void aValueIsShownThenToldThenWrittenThenKept()
    {
        for (const Family& f : kFamilies) {
            setText(f.edit, "0x0123");
            enableAll(f);
            const global_ini_t before = *global_ini();
            int told = 0;
            const auto connection =
                connect(&window(), &Window::sig_debug_Message, this, [&](const QStringList& parts) {
                    ++told;
                    QCOMPARE(parts, QStringList({signatureOf(f), "0x0124"}));
                    QCOMPARE(text(f.edit), QString("0x0124"));
                    QVERIFY(busCalls().isEmpty());
                    QVERIFY(sameTables(*global_ini(), before));
                });
            click(f.fineUp);
            disconnect(connection);
            QCOMPARE(told, 1);
            camera().trace().clear();
        }
    }

    void theSensorHoldsWhatIsShown()
    {
        for (const Family& f : kFamilies) {
            setText(f.edit, "0x0123");
            click(f.coarseUp);
            QCOMPARE(int(camera().sensorRegister(f.high)), 0x01);
            QCOMPARE(int(camera().sensorRegister(f.low)), 0x33);
        }
    }

    void theTopByteOfTheExposureIsNeverWritten()
    {
        const auto top = camera().sensorRegister(0x3500);
        for (const char* text : {"0x0000", "0xFFFE"}) {
            setText("EDIT_EXPOSURE", text);
            enableAll(kFamilies[0]);
            click("BUTTON_EXPOSURE_FINE_UP");
        }
        QCOMPARE(camera().sensorRegister(0x3500), top);
        QCOMPARE(busCalls().filter("write 35 00").size(), 0);
    }

    void theShownTextIsRead_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("after");
        const auto row = [](const char* name, const char* text, const char* after) {
            QTest::newRow(name) << text << after;
        };
        row("as shown", "0x01EE", "0x01EF");
        row("small letters", "0x01ee", "0x01EF");
        row("no prefix", "01EE", "0x01EF");
        row("last four characters", "0xFFFF0012", "0x0013");
        row("short", "F", "0x0010");
        row("prefix within the last four", "0x1F", "0x0020");
        row("no number", "zzzz", "0x0001");
        row("empty", "", "0x0001");
    }

    void theShownTextIsRead()
    {
        QFETCH(QString, text);
        setText("EDIT_GAIN", text);
        enableAll(kFamilies[1]);
        click("BUTTON_GAIN_FINE_UP");
        QTEST(this->text("EDIT_GAIN"), "after");
    }

    void eachChoiceFillsItsOwnEntry_data() { addChoices(); }

    void eachChoiceFillsItsOwnEntry()
    {
        QFETCH(bool, stained);
        QFETCH(int, resolution);
        choose(stained, resolution);
        global_ini_t expected = *global_ini();
        auto& table = stained ? expected.CUS_reg : expected.BFN_reg;
        for (const Family& f : kFamilies) {
            // The files hold a high byte of 1 everywhere: another one shows where it goes.
            setText(f.edit, "0x00A0");
            click(f.fineUp);
            table[resolution][f.column] = 0x00;
            table[resolution][f.column + 1] = 0xA1;
            QVERIFY2(sameTables(*global_ini(), expected), f.name);
        }
    }

    void everySwitchEndsInTheReadBack_data() { addChoices(); }

    void everySwitchEndsInTheReadBack()
    {
        QFETCH(bool, stained);
        QFETCH(int, resolution);
        for (const Family& f : kFamilies)
            setText(f.edit, "before");
        choose(stained, resolution);
        const auto& table = stained ? global_ini()->CUS_reg : global_ini()->BFN_reg;
        for (std::size_t i = 0; i < kFamilies.size(); ++i) {
            const Family& f = kFamilies[i];
            QCOMPARE(text(f.edit),
                     shown(0x0100u + unsigned(TrimTab::calibratedLowByte(stained, resolution, i))));
            QCOMPARE(text(f.edit),
                     shown(table[resolution][f.column] * 256u + table[resolution][f.column + 1]));
            QCOMPARE(enabledOf(f), enabledText(true, true, true, f.maximum > 0x0170 + 16));
        }
        const int last = messages().lastIndexOf("ORLA_II_Plus_Verifier::getCamera_reg");
        QVERIFY(last > messages().lastIndexOf("ORLA_II_Plus_Verifier::startCamera"));
    }

    void aSwitchWritesItsTenRegistersAndReadsThemBack_data() { addChoices(); }

    void aSwitchWritesItsTenRegistersAndReadsThemBack()
    {
        QFETCH(bool, stained);
        QFETCH(int, resolution);
        choose(stained, resolution);
        camera().trace().clear();
        click(stained ? "BUTTON_STAINING_TB" : "BUTTON_STAINING_NTB");
        QStringList expected{"open /dev/i2c-1", "address"};
        for (std::size_t i = 0; i < kFamilies.size(); ++i) {
            const Family& f = kFamilies[i];
            const unsigned int low = unsigned(TrimTab::calibratedLowByte(stained, resolution, i));
            expected += QString::asprintf("write %02X %02X 01", f.high >> 8U, f.high & 0xFFU);
            expected += QString::asprintf("write %02X %02X %02X", f.low >> 8U, f.low & 0xFFU, low);
        }
        expected += "close";
        // The read-back asks for each of them in a transaction of its own.
        QCOMPARE(busCalls().mid(0, expected.size()), expected);
        QCOMPARE(busCalls().size(), expected.size() + 10 * 5);
    }

    void whatWasTrimmedIsThereAgainAfterSwitchingAwayAndBack()
    {
        setText("EDIT_COLOR_RED", "0x0ABC");
        click("BUTTON_COLOR_RED_FINE_UP");
        choose(true, 1);
        QCOMPARE(text("EDIT_COLOR_RED"), QString("0x0127"));
        choose(false, 0);
        QCOMPARE(text("EDIT_COLOR_RED"), QString("0x0162"));
        choose(false, 1);
        QCOMPARE(text("EDIT_COLOR_RED"), QString("0x0ABD"));
    }

    void theReadBackAsksForEachPairHighByteFirst()
    {
        window().getCamera_reg();
        QStringList expected;
        for (const Family& f : kFamilies) {
            for (const quint16 address : {f.high, f.low}) {
                const int value = camera().sensorRegister(address);
                expected += {"open /dev/i2c-1", "address",
                             QString::asprintf("write %02X %02X", address >> 8, address & 0xFF),
                             QString::asprintf("read %02X", value), "close"};
            }
        }
        QCOMPARE(busCalls(), expected);
    }

    void afterAReadBackACoarseButtonNeedsAWholeStep_data()
    {
        QTest::addColumn<int>("family");
        QTest::addColumn<int>("value");
        QTest::addColumn<Enabled>("enabled");
        for (std::size_t i = 0; i < kFamilies.size(); ++i) {
            const int m = static_cast<int>(kFamilies[i].maximum);
            const auto row = [&](int value, const Enabled& enabled) {
                QTest::addRow("%s at %d", kFamilies[i].name, value)
                    << static_cast<int>(i) << value << enabled;
            };
            row(0, "0011");
            row(1, "1011");
            row(15, "1011");
            row(16, "1111");
            row(m - 17, "1111");
            row(m - 16, "1110");
            row(m - 1, "1110");
            row(m, "1100");
            if (m < 0xFFFF)
                row(0xFFFF, "1100");
        }
    }

    void afterAReadBackACoarseButtonNeedsAWholeStep()
    {
        QFETCH(int, family);
        QFETCH(int, value);
        const Family& f = kFamilies[static_cast<std::size_t>(family)];
        (window().*f.setter)(static_cast<unsigned int>(value));
        setText(f.edit, "before");
        window().getCamera_reg();
        QCOMPARE(text(f.edit), shown(static_cast<unsigned int>(value)));
        QTEST(enabledOf(f), "enabled");
    }

    void aFailedBusFallsBackOnTheLastWrittenBytes_data()
    {
        QTest::addColumn<int>("fault");
        QTest::newRow("no bus") << int(CameraFault::NoBus);
        QTest::newRow("not acknowledged") << int(CameraFault::BusNack);
        QTest::newRow("short") << int(CameraFault::BusShort);
    }

    void aFailedBusFallsBackOnTheLastWrittenBytes()
    {
        QFETCH(int, fault);
        setText("EDIT_GAIN", "0x0110");
        click("BUTTON_GAIN_FINE_UP");
        camera().faults().enable({static_cast<CameraFault>(fault)});
        // The value is shown and kept for the files; the sensor has not taken it.
        click("BUTTON_GAIN_COARSE_UP");
        QCOMPARE(text("EDIT_GAIN"), QString("0x0121"));
        QCOMPARE(int(global_ini()->BFN_reg[1][2]), 0x01);
        QCOMPARE(int(global_ini()->BFN_reg[1][3]), 0x21);
        window().getCamera_reg();
        QCOMPARE(text("EDIT_GAIN"), QString("0x0111"));
        QVERIFY(boxes().seen().isEmpty());
    }

    void aHeldButtonRepeatsPairByPair()
    {
        setText("EDIT_GAIN", "0x0100");
        press("BUTTON_GAIN_FINE_UP");
        QVERIFY(waitUntil([this] { return busCalls().filter("write").size() >= 6; }));
        release("BUTTON_GAIN_FINE_UP");
        const QStringList calls = busCalls();
        const int presses = calls.filter("write").size() / 2;
        QStringList expected;
        for (int i = 1; i <= presses; ++i)
            expected += pairWrite(kFamilies[1], 0x100 + i);
        QCOMPARE(calls, expected);
        QCOMPARE(text("EDIT_GAIN"), shown(0x100u + static_cast<unsigned int>(presses)));
    }

    void aHeldButtonEndsAtTheMaximum()
    {
        setText("EDIT_GAIN", "0x01FD");
        press("BUTTON_GAIN_FINE_UP");
        QVERIFY(waitUntil([this] { return !isEnabled("BUTTON_GAIN_FINE_UP"); }));
        QTest::qWait(300);
        release("BUTTON_GAIN_FINE_UP");
        QCOMPARE(text("EDIT_GAIN"), QString("0x01FF"));
        QCOMPARE(busCalls(), pairWrite(kFamilies[1], 0x1FE) + pairWrite(kFamilies[1], 0x1FF));
    }

    void theTestButtonDoesNothing()
    {
        const global_ini_t before = *global_ini();
        click("BUTTON_TEST");
        QVERIFY(busCalls().isEmpty());
        QVERIFY(takeBoardLines().isEmpty());
        QCOMPARE(messages(), QString());
        QVERIFY(sameTables(*global_ini(), before));
        QVERIFY(boxes().seen().isEmpty());
    }

private:
    static void addChoices()
    {
        QTest::addColumn<bool>("stained");
        QTest::addColumn<int>("resolution");
        const char* const names[] = {"VGA", "1280", "5M"};
        for (const bool stained : {false, true})
            for (int resolution = 0; resolution < 3; ++resolution)
                QTest::addRow("%s %s", stained ? "TB" : "NTB", names[resolution]) << stained << resolution;
    }

    static QString signatureOf(const Family& f)
    {
        return QString("void ORLA_II_Plus_Verifier::set_%1(unsigned int)").arg(f.name);
    }
};

QTEST_MAIN(TestWindowTrim)
#include "test_window_trim.moc"
