#include <map>

#include <QtTest>

#include "simulator/camera/SensorRegisters.h"

namespace {

void writePair(SensorRegisters& sensor, std::uint16_t address, unsigned value)
{
    sensor.write(address, static_cast<std::uint8_t>(value >> 8U));
    sensor.write(static_cast<std::uint16_t>(address + 1), static_cast<std::uint8_t>(value));
}

} // namespace

class TestSensorRegisters : public QObject
{
    Q_OBJECT

private slots:
    void everyRegisterHasItsDefault()
    {
        SensorParameters parameters;
        parameters.defaultExposure_lines = 5000; // beyond 16 bits of sixteenths
        const SensorRegisters sensor(parameters);
        const std::map<int, int> expected{
            {0x3008, 0x02}, {0x300A, 0x56}, {0x300B, 0x42}, {0x3400, 0x04}, {0x3402, 0x04}, {0x3404, 0x04},
            {0x3406, 0x01}, {0x3500, 0x01}, {0x3501, 0x38}, {0x3502, 0x80}, {0x3503, 0x07}, {0x350C, 0x07},
            {0x350D, 0xD0}, {0x3804, 0x0A}, {0x3805, 0x20}, {0x3806, 0x07}, {0x3807, 0x98}, {0x4300, 0x30}};
        std::map<int, int> held;
        for (int address = 0; address <= 0xFFFF; ++address)
            if (const int value = sensor.value(std::uint16_t(address)); value != 0)
                held[address] = value;
        QVERIFY(held == expected);
        QCOMPARE(sensor.settings().exposure_lines, 5000.0);
        QCOMPARE(sensor.settings().gain, 1.0);
        QCOMPARE(sensor.settings().colourGains, (std::array<double, 3>{1.0, 1.0, 1.0}));
    }

    void aRegisterReturnsWhatWasWritten_data()
    {
        QTest::addColumn<int>("address");
        QTest::newRow("known") << 0x3501;
        QTest::newRow("unknown") << 0x58AB;
        QTest::newRow("first") << 0x0000;
        QTest::newRow("last") << 0xFFFF;
    }

    void aRegisterReturnsWhatWasWritten()
    {
        QFETCH(int, address);
        SensorRegisters sensor;
        sensor.write(std::uint16_t(address), 0xA5);
        QCOMPARE(int(sensor.read()), 0xA5);
        sensor.setPointer(0x3008);
        QCOMPARE(int(sensor.read()), 0x02);
        sensor.setPointer(std::uint16_t(address));
        QCOMPARE(int(sensor.read()), 0xA5);
        QCOMPARE(int(sensor.read()), 0xA5);
    }

    void theChipIdCannotBeWritten()
    {
        SensorRegisters sensor;
        writePair(sensor, 0x300A, 0x1234);
        QCOMPARE(int(sensor.value(0x300A)), 0x56);
        QCOMPARE(int(sensor.value(0x300B)), 0x42);
    }

    void aSoftwareResetClearsItselfAndBringsBackTheDefaults()
    {
        SensorRegisters sensor;
        sensor.write(0x5000, 0x77);
        writePair(sensor, 0x3501, 0x1E00);
        writePair(sensor, 0x3400, 0x0123);
        sensor.write(0x3008, 0x82);
        QCOMPARE(int(sensor.value(0x3008)), 0x02);
        QCOMPARE(int(sensor.value(0x5000)), 0);
        QCOMPARE(sensor.settings(), SensorRegisters().settings());
        QCOMPARE(int(sensor.value(0x300A)), 0x56);
        // Only the highest bit resets.
        for (const int control : {0x42, 0x01, 0x7F}) {
            sensor.write(0x3008, std::uint8_t(control));
            QCOMPARE(int(sensor.value(0x3008)), control);
        }
    }

    void exposureCountsSixteenthsOfALine()
    {
        SensorRegisters sensor;
        writePair(sensor, 0x3501, 0x3008);
        QCOMPARE(sensor.settings().exposure_lines, 768.5);
        sensor.write(0x3500, 0xF1);
        QCOMPARE(sensor.settings().exposure_lines, 768.5 + 4096.0);
    }

    void aGainCodeIsAFractionAndDoublings_data()
    {
        QTest::addColumn<int>("code");
        QTest::addColumn<double>("gain");
        QTest::newRow("unit") << 0x000 << 1.0;
        QTest::newRow("half more") << 0x008 << 1.5;
        QTest::newRow("doubled") << 0x010 << 2.0;
        QTest::newRow("doubled twice") << 0x030 << 4.0;
        QTest::newRow("one bit counts as any other") << 0x080 << 2.0;
        QTest::newRow("15.5") << 0x07F << 15.5;
        QTest::newRow("31") << 0x0FF << 31.0;
        QTest::newRow("bit 8 doubles too") << 0x1FF << 62.0;
    }

    void aGainCodeIsAFractionAndDoublings()
    {
        QFETCH(int, code);
        QFETCH(double, gain);
        SensorRegisters sensor;
        writePair(sensor, 0x350A, unsigned(code) | 0xFE00U);
        QCOMPARE(sensor.settings().gain, gain);
    }

    void colourGainsAreLinearAndTwelveBitsWide()
    {
        for (std::size_t channel = 0; channel < 3; ++channel) {
            const auto address = std::uint16_t(0x3400 + 2 * channel);
            SensorRegisters sensor;
            std::array<double, 3> expected{1.0, 1.0, 1.0};
            writePair(sensor, address, 0x0200);
            expected[channel] = 0.5;
            QCOMPARE(sensor.settings().colourGains, expected);
            writePair(sensor, address, 0xFFFF);
            expected[channel] = 4095.0 / 1024.0;
            QCOMPARE(sensor.settings().colourGains, expected);
        }
    }

    void whatIsLeftToTheAutomaticLoopHasItsDefault_data()
    {
        QTest::addColumn<int>("address");
        QTest::addColumn<int>("flags");
        QTest::addColumn<bool>("exposureIsDefault");
        QTest::addColumn<double>("gain");
        QTest::addColumn<double>("green");
        QTest::newRow("all manual") << 0x3503 << 0x07 << false << 2.0 << 2.0;
        QTest::newRow("exposure") << 0x3503 << 0x06 << true << 2.0 << 2.0;
        QTest::newRow("gain") << 0x3503 << 0x05 << false << 1.0 << 2.0;
        QTest::newRow("both") << 0x3503 << 0x00 << true << 1.0 << 2.0;
        QTest::newRow("white balance") << 0x3406 << 0x00 << false << 2.0 << 1.0;
    }

    void whatIsLeftToTheAutomaticLoopHasItsDefault()
    {
        QFETCH(int, address);
        QFETCH(int, flags);
        QFETCH(bool, exposureIsDefault);
        SensorRegisters sensor;
        const SensorSettings defaults = sensor.settings();
        writePair(sensor, 0x3501, 0x0100);
        writePair(sensor, 0x350A, 0x0010);
        writePair(sensor, 0x3402, 0x0800);
        sensor.write(std::uint16_t(address), std::uint8_t(flags));
        const SensorSettings settings = sensor.settings();
        QCOMPARE(settings.exposure_lines, exposureIsDefault ? defaults.exposure_lines : 16.0);
        QTEST(settings.gain, "gain");
        QTEST(settings.colourGains[1], "green");
    }
};

QTEST_GUILESS_MAIN(TestSensorRegisters)
#include "test_sensor_registers.moc"
