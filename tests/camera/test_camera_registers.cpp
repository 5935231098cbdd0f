#include <algorithm>

#include <QtTest>

#include "CameraTools.h"
#include "settings/GlobalIni.h"
#include "settings/SettingsFiles.h"

namespace {

constexpr quint16 kOutsideTheTen = 0x3500;

QStringList getCalls(const QString& addressBytes, const QString& read = "read 1")
{
    return {kOpenBus, kAddress, "write " + addressBytes, kPause, read, kPause, kCloseBus};
}

QStringList setCalls(const QString& bytes)
{
    return {kOpenBus, kAddress, "write " + bytes, kPause, kCloseBus};
}

// Streams in a mode, so that the register operations work on its set.
void openMode(RiggedCamera& camera, int mode, const std::string& file = {})
{
    QVERIFY(camera.open(mode, file, false));
    camera.machine.trace().clear();
}

void addFailuresOfAnyTransfer()
{
    QTest::addColumn<QString>("call");
    QTest::addColumn<int>("result");
    QTest::newRow("no bus") << "open" << -1;
    QTest::newRow("no such address") << "I2C_SLAVE_FORCE" << -1;
    QTest::newRow("address answers oddly") << "I2C_SLAVE_FORCE" << 1;
    QTest::newRow("not acknowledged") << "write" << -1;
}

} // namespace

class TestCameraRegisters : public QObject
{
    Q_OBJECT

private slots:
    void init()
    {
        std::copy(kCalibrationRegisters.begin(), kCalibrationRegisters.end(), g_RegIdx);
        g_global_ini = {};
        quint16 value = 0;
        for (auto* block : {&g_global_ini.CUS_reg, &g_global_ini.BFN_reg, &g_global_ini.AE_reg}) {
            for (auto& row : *block)
                for (quint16& entry : row)
                    entry = ++value; // CUS 1..30, BFN 31..60, AE 61..90
        }
    }

    void aRegisterHasItsPlaceInTheIndexTable_data()
    {
        QTest::addColumn<int>("reg");
        QTest::addColumn<int>("index");
        const int registers[] = {0x3501, 0x3502, 0x350A, 0x350B, 0x3400,
                                 0x3401, 0x3402, 0x3403, 0x3404, 0x3405};
        for (int i = 0; i < 10; ++i)
            QTest::addRow("0x%04X", registers[i]) << registers[i] << i;
        for (int reg : {0x0000, 0x3500, 0x3503, 0x33FF, 0x3406, 0xFFFF})
            QTest::addRow("0x%04X", reg) << reg << -1;
    }

    void aRegisterHasItsPlaceInTheIndexTable()
    {
        QFETCH(int, reg);
        QFETCH(int, index);
        RiggedCamera camera;
        QCOMPARE(camera.getRegisterIndex(reg), index);
        // The table that the window fills later is not what decides.
        std::fill(std::begin(g_RegIdx), std::end(g_RegIdx), quint16(0));
        QCOMPARE(camera.getRegisterIndex(reg), index);
    }

    void allCalibrationRecordsAreZeroAtFirst()
    {
        RiggedCamera camera;
        QCOMPARE(camera.mode(), 0);
        for (int mode = 0; mode < 3; ++mode) {
            for (int i = 0; i < 10; ++i) {
                QCOMPARE(camera.calibrationRecord(mode, i).address, quint16(0));
                QCOMPARE(camera.calibrationRecord(mode, i).value, quint16(0));
            }
        }
    }

    void readingSendsTheAddressHighByteFirstAndPausesTwice()
    {
        RiggedCamera camera;
        camera.machine.setRegister(0x350A, 0xA5);
        camera.machine.trace().clear();
        quint16 value = 0xFFFF;
        QVERIFY(camera.get(0x350A, value));
        QCOMPARE(value, quint16(0xA5));
        QCOMPARE(camera.machine.calls(), getCalls("35 0A", "read 1 A5"));
        QCOMPARE(camera.machine.openDescriptors(ScriptedCamera::kBus), std::size_t(0));
    }

    void aSettingThatWasNotWrittenIsKnownUntilItIsWrittenOrRead_data()
    {
        QTest::addColumn<bool>("written");
        QTest::newRow("written again") << true;
        QTest::newRow("read") << false;
    }

    void aSettingThatWasNotWrittenIsKnownUntilItIsWrittenOrRead()
    {
        QFETCH(bool, written);
        RiggedCamera camera;
        QVERIFY(camera.settingsInForce());
        camera.machine.failCall("write", 1, -1);
        QVERIFY(!camera.set(0x3501, 0x1E));
        QVERIFY(!camera.settingsInForce());
        // Another register's success is no news of this one, and a failed reading none at all.
        QVERIFY(camera.set(0x3502, 0x1E));
        QVERIFY(camera.sensorAnswers());
        quint16 value = 0;
        camera.machine.failCall("read", 1, -1);
        QVERIFY(!camera.get(0x3501, value));
        QVERIFY(!camera.settingsInForce());
        QVERIFY(written ? camera.set(0x3501, 0x1E) : camera.get(0x3501, value));
        QVERIFY(camera.settingsInForce());
        // What is shown after a failed reading is what was written last.
        camera.machine.failCall("read", 1, -1);
        QVERIFY(!camera.get(0x3501, value));
        QVERIFY(camera.settingsInForce());
        // A register that nothing shows does not count.
        camera.machine.failCall("write", 1, -1);
        QVERIFY(!camera.set(0x3804, 0x02));
        QVERIFY(camera.settingsInForce());
    }

    void aFailedReadGoesThroughAllItsStepsAndYieldsTheCachedByte_data()
    {
        addFailuresOfAnyTransfer();
        QTest::newRow("one address byte") << "write" << 1;
        QTest::newRow("nothing sent") << "write" << 0;
        QTest::newRow("read error") << "read" << -1;
        QTest::newRow("nothing read") << "read" << 0;
    }

    void aFailedReadGoesThroughAllItsStepsAndYieldsTheCachedByte()
    {
        QFETCH(QString, call);
        QFETCH(int, result);
        RiggedCamera camera;
        QVERIFY(camera.set(0x3501, 0x1E));
        camera.machine.setRegister(0x3501, 0x77);
        camera.machine.trace().clear();

        camera.machine.failCall(call, 1, result);
        quint16 value = 0xFFFF;
        QVERIFY(!camera.get(0x3501, value));
        QCOMPARE(value, quint16(0x1E));
        // An address that did not arrive leaves the sensor at the register written last.
        QStringList expected = getCalls("35 01", call == "write" ? "read 1 77" : "read 1");
        if (call == "open")
            expected.removeLast(); // nothing to close
        QCOMPARE(camera.machine.calls(), expected);
        QCOMPARE(camera.machine.openDescriptors(ScriptedCamera::kBus), std::size_t(0));

        camera.machine.failCall(call, 1, result);
        value = 0xFFFF;
        QVERIFY(!camera.get(kOutsideTheTen, value));
        QCOMPARE(value, quint16(0xFFFF));
    }

    void readingWithoutABusYieldsTheCacheOfTheCurrentMode()
    {
        RiggedCamera camera;
        openMode(camera, kMode1280, kBfnCalibrationFile);
        camera.machine.setMissing(ScriptedCamera::kBus, true);
        for (int i = 0; i < 10; ++i) {
            quint16 value = 0xFFFF;
            QVERIFY(!camera.get(kCalibrationRegisters[i], value));
            QCOMPARE(value, quint16(31 + 10 + i));
        }
        quint16 value = 0x1234;
        QVERIFY(!camera.get(kOutsideTheTen, value));
        QCOMPARE(value, quint16(0x1234));
    }

    void writingSendsThreeBytesAndCachesThemInTheCurrentModeOnly()
    {
        RiggedCamera camera;
        openMode(camera, kMode1280);
        QVERIFY(camera.set(0x3501, 0x1E));
        QCOMPARE(camera.machine.calls(), setCalls("35 01 1E"));
        QCOMPARE(camera.machine.sensorRegister(0x3501), quint8(0x1E));
        for (int mode = 0; mode < 3; ++mode) {
            const CalibrationRecord& record = camera.calibrationRecord(mode, 0);
            QCOMPARE(record.address, quint16(mode == kMode1280 ? 0x3501 : 0));
            QCOMPARE(record.value, quint16(mode == kMode1280 ? 0x1E : 0));
        }
        QCOMPARE(camera.machine.openDescriptors(ScriptedCamera::kBus), std::size_t(0));
    }

    void everyCalibrationRegisterIsCachedAtItsIndex()
    {
        RiggedCamera camera;
        for (int i = 0; i < 10; ++i)
            QVERIFY(camera.set(kCalibrationRegisters[i], 0x40 + i));
        for (int i = 0; i < 10; ++i) {
            QCOMPARE(camera.calibrationRecord(kModeVga, i).address, kCalibrationRegisters[i]);
            QCOMPARE(camera.calibrationRecord(kModeVga, i).value, quint16(0x40 + i));
        }
    }

    void onlyTheLowByteOfAValueCounts()
    {
        RiggedCamera camera;
        QVERIFY(camera.set(0x3405, 0x12AB));
        QCOMPARE(camera.machine.calls(), setCalls("34 05 AB"));
        QCOMPARE(camera.calibrationRecord(kModeVga, 9).value, quint16(0xAB));
    }

    void writingAnotherRegisterSucceedsAndCachesNothing()
    {
        RiggedCamera camera;
        QVERIFY(camera.set(kOutsideTheTen, 0x0F));
        QCOMPARE(camera.machine.sensorRegister(kOutsideTheTen), quint8(0x0F));
        for (int i = 0; i < 10; ++i)
            QCOMPARE(camera.calibrationRecord(kModeVga, i).address, quint16(0));
    }

    void aFailedWriteGoesThroughAllItsStepsAndCachesNothing_data()
    {
        addFailuresOfAnyTransfer();
        QTest::newRow("two of three bytes") << "write" << 2;
    }

    void aFailedWriteGoesThroughAllItsStepsAndCachesNothing()
    {
        QFETCH(QString, call);
        QFETCH(int, result);
        RiggedCamera camera;
        QVERIFY(camera.set(0x350B, 0x11));
        camera.machine.trace().clear();
        camera.machine.failCall(call, 1, result);
        QVERIFY(!camera.set(0x350B, 0x22));
        QStringList expected = setCalls("35 0B 22");
        if (call == "open")
            expected.removeLast();
        QCOMPARE(camera.machine.calls(), expected);
        QCOMPARE(camera.calibrationRecord(kModeVga, 3).value, quint16(0x11));
        QCOMPARE(camera.machine.openDescriptors(ScriptedCamera::kBus), std::size_t(0));
    }

    // Who answers where the sensor's address was refused is somebody else.
    void aTransferBehindARefusedAddressIsNone()
    {
        RiggedCamera camera;
        QVERIFY(camera.set(0x350B, 0x11));
        camera.machine.failCall("I2C_SLAVE_FORCE", 1);
        camera.machine.failCall("write", 1, 3);
        QVERIFY(!camera.set(0x350B, 0x22));
        QCOMPARE(camera.calibrationRecord(kModeVga, 3).value, quint16(0x11));

        camera.machine.failCall("I2C_SLAVE_FORCE", 1);
        camera.machine.failCall("write", 1, 2);
        camera.machine.failCall("read", 1, 1);
        quint16 value = 0xFFFF;
        QVERIFY(!camera.get(0x350B, value));
        QCOMPARE(value, quint16(0x11));
    }

    void eachSettingsFileFillsTheSetFromItsBlock_data()
    {
        QTest::addColumn<QString>("file");
        QTest::addColumn<int>("mode");
        QTest::addColumn<int>("firstValue");
        const char* const files[] = {"/opt/ORLA3/conf/Calibration_CUS.ini",
                                     "/opt/ORLA3/conf/Calibration_BFN.ini",
                                     "/opt/ORLA3/conf/AutoExposure.ini"};
        for (int block = 0; block < 3; ++block) {
            for (int mode = 0; mode < 3; ++mode)
                QTest::addRow("%s, mode %d", files[block], mode)
                    << QString(files[block]) << mode << block * 30 + mode * 10 + 1;
        }
    }

    void eachSettingsFileFillsTheSetFromItsBlock()
    {
        QFETCH(QString, file);
        QFETCH(int, mode);
        QFETCH(int, firstValue);
        RiggedCamera camera;
        openMode(camera, mode);
        QVERIFY(camera.loadRegisters(file.toStdString()));
        QVERIFY(camera.machine.calls().isEmpty());
        for (int other = 0; other < 3; ++other) {
            for (int i = 0; i < 10; ++i) {
                const CalibrationRecord& record = camera.calibrationRecord(other, i);
                QCOMPARE(record.address, quint16(other == mode ? kCalibrationRegisters[i] : 0));
                QCOMPARE(record.value, quint16(other == mode ? firstValue + i : 0));
            }
        }
    }

    void theAddressesOfALoadedSetComeFromTheIndexTable()
    {
        RiggedCamera camera;
        for (int i = 0; i < 10; ++i)
            g_RegIdx[i] = 0x5000 + i;
        QVERIFY(camera.loadRegisters(kCusCalibrationFile));
        for (int i = 0; i < 10; ++i)
            QCOMPARE(camera.calibrationRecord(kModeVga, i).address, quint16(0x5000 + i));
    }

    void anUnknownPathLoadsNothing_data()
    {
        QTest::addColumn<QString>("file");
        QTest::newRow("empty") << "";
        QTest::newRow("another file") << "/opt/ORLA3/conf/ORLA3.ini";
        QTest::newRow("beginning only") << "/opt/ORLA3/conf/Calibration_CUS";
        QTest::newRow("more behind it") << "/opt/ORLA3/conf/Calibration_CUS.ini.bak";
        QTest::newRow("other case") << "/opt/ORLA3/conf/calibration_cus.ini";
    }

    void anUnknownPathLoadsNothing()
    {
        QFETCH(QString, file);
        RiggedCamera camera;
        QVERIFY(camera.set(0x3501, 0x55));
        QVERIFY(!camera.loadRegisters(file.toStdString()));
        QCOMPARE(camera.calibrationRecord(kModeVga, 0).value, quint16(0x55));
        QCOMPARE(camera.calibrationRecord(kModeVga, 1).address, quint16(0));
    }

    void theWorkTableGoesOutRecordByRecord()
    {
        RiggedCamera camera;
        openMode(camera, kModeVga, kCusCalibrationFile);
        QCOMPARE(camera.setRegisters(3), 3);
        const QStringList expected = {kOpenBus,         kAddress,         "write 35 01 01",
                                      kPause,           "write 35 02 02", kPause,
                                      "write 35 0A 03", kPause,           kCloseBus};
        QCOMPARE(camera.machine.calls(), expected);
    }

    void noRecordsStillOpenAndCloseTheBus()
    {
        RiggedCamera camera;
        openMode(camera, kModeVga, kCusCalibrationFile);
        QCOMPARE(camera.setRegisters(0), 0);
        QCOMPARE(camera.machine.calls(), QStringList({kOpenBus, kAddress, kCloseBus}));
    }

    void theWorkTableIsNeverReadBeyondItsEnd()
    {
        RiggedCamera camera;
        QCOMPARE(camera.setRegisters(5), 0);
        openMode(camera, kModeVga, kCusCalibrationFile);
        QCOMPARE(camera.setRegisters(1000), 10);
        QCOMPARE(camera.machine.trace().calls(CallKind::BusWrite).size(), std::size_t(10));
    }

    void oneFailingWriteOfATableFailsItButTheRestIsWritten_data()
    {
        QTest::addColumn<int>("n");
        QTest::addColumn<int>("result");
        for (int n = 1; n <= 10; ++n) {
            QTest::addRow("write %d refused", n) << n << -1;
            QTest::addRow("write %d short", n) << n << 2;
        }
    }

    void oneFailingWriteOfATableFailsItButTheRestIsWritten()
    {
        QFETCH(int, n);
        QFETCH(int, result);
        RiggedCamera camera;
        openMode(camera, kModeVga, kAutoExposureFile);
        camera.machine.failCall("write", n, result);
        QCOMPARE(camera.setRegisters(10), -1);
        QVERIFY(!camera.sensorAnswers());
        QVERIFY(!camera.settingsInForce());
        QCOMPARE(camera.machine.trace().calls(CallKind::BusWrite).size(), std::size_t(10));
        QCOMPARE(camera.machine.calls().filter(kPause).size(), 10);
        QCOMPARE(camera.machine.calls().last(), kCloseBus);
        // The register that was left out is written once as many go out as stand before it, and it.
        QCOMPARE(camera.setRegisters(unsigned(n) - 1), n - 1);
        QVERIFY(!camera.settingsInForce());
        QCOMPARE(camera.setRegisters(unsigned(n)), n);
        QVERIFY(camera.settingsInForce());
        QVERIFY(camera.sensorAnswers());
    }

    void aTableWithoutABusWritesNothing()
    {
        RiggedCamera camera;
        openMode(camera, kModeVga, kCusCalibrationFile);
        camera.machine.setMissing(ScriptedCamera::kBus, true);
        QCOMPARE(camera.setRegisters(10), 0);
        QCOMPARE(camera.machine.calls(), QStringList({kOpenBus}));
    }

    void aTableForASensorThatIsNotThereLeavesTheBusOpen()
    {
        RiggedCamera camera;
        openMode(camera, kModeVga, kCusCalibrationFile);
        camera.machine.failCall("I2C_SLAVE_FORCE", 1);
        QCOMPARE(camera.setRegisters(10), 0);
        QCOMPARE(camera.machine.calls(), QStringList({kOpenBus, kAddress}));
        QCOMPARE(camera.machine.openDescriptors(ScriptedCamera::kBus), std::size_t(1));
    }

    void croppingWritesTheWindowOfTheMode_data()
    {
        QTest::addColumn<bool>("on");
        QTest::addColumn<int>("mode");
        QTest::addColumn<QStringList>("values");
        QTest::newRow("on, VGA") << true << 0 << QString("02 80 01 E0 13 08 01 00").split(' ');
        QTest::newRow("on, 1280") << true << 1 << QString("05 00 03 C0 13 06 01 06").split(' ');
        QTest::newRow("off, VGA") << false << 0 << QString("05 00 03 C0 11 B0 00 08").split(' ');
        QTest::newRow("off, 1280") << false << 1 << QString("09 FE 07 98 11 AC 00 0C").split(' ');
        QTest::newRow("on, 5M") << true << 2 << QStringList();
        QTest::newRow("off, 5M") << false << 2 << QStringList();
    }

    void croppingWritesTheWindowOfTheMode()
    {
        QFETCH(bool, on);
        QFETCH(int, mode);
        QFETCH(QStringList, values);
        const char* const addresses[] = {"38 04", "38 05", "38 06", "38 07",
                                         "38 24", "38 25", "38 26", "38 27"};
        QStringList expected;
        for (int i = 0; i < values.size(); ++i)
            expected << setCalls(QString("%1 %2").arg(addresses[i], values[i]));

        RiggedCamera camera;
        openMode(camera, mode);
        camera.setCrop(on);
        QCOMPARE(camera.machine.calls(), expected);
    }
};

QTEST_GUILESS_MAIN(TestCameraRegisters)
#include "test_camera_registers.moc"
