#include <QtTest>

#include "RegisterSteps.h"

Q_DECLARE_METATYPE(SettingStep)

namespace {

constexpr int kNothing = -1;

int stepped(unsigned int value, SettingStep step, unsigned int coarse, unsigned int maximum)
{
    const auto result = steppedValue(value, step, coarse, maximum);
    return result ? static_cast<int>(*result) : kNothing;
}

} // namespace

class TestRegisterSteps : public QObject
{
    Q_OBJECT

private slots:
    void aPressStepsAndStopsAtTheEnds_data()
    {
        QTest::addColumn<int>("value");
        QTest::addColumn<SettingStep>("step");
        QTest::addColumn<int>("coarse");
        QTest::addColumn<int>("maximum");
        QTest::addColumn<int>("expected");
        const auto row = [](const char* name, int value, SettingStep step, int coarse, int maximum,
                            int expected) {
            QTest::newRow(name) << value << step << coarse << maximum << expected;
        };
        using S = SettingStep;
        row("fine up", 100, S::FineUp, 16, 511, 101);
        row("fine up to the maximum", 510, S::FineUp, 16, 511, 511);
        row("fine up at the maximum", 511, S::FineUp, 16, 511, kNothing);
        row("fine up beyond the maximum", 600, S::FineUp, 16, 511, kNothing);
        row("exposure 0xFFFF fine up", 0xFFFF, S::FineUp, 16, 65535, kNothing);
        row("coarse up", 100, S::CoarseUp, 16, 511, 116);
        row("gain 0x01F0 coarse up", 0x1F0, S::CoarseUp, 16, 511, 511);
        row("coarse up from M - 17", 494, S::CoarseUp, 16, 511, 510);
        row("coarse up from M - 16", 495, S::CoarseUp, 16, 511, 511);
        row("coarse up at the maximum", 511, S::CoarseUp, 16, 511, kNothing);
        row("fine down", 1, S::FineDown, 16, 511, 0);
        row("fine down at 0", 0, S::FineDown, 16, 511, kNothing);
        row("coarse down from 16", 16, S::CoarseDown, 16, 511, 0);
        row("coarse down from 15", 15, S::CoarseDown, 16, 511, 0);
        row("coarse down from 17", 17, S::CoarseDown, 16, 511, 1);
        row("coarse down at 0 writes 0", 0, S::CoarseDown, 16, 511, 0);
        row("LED coarse up from 989", 989, S::CoarseUp, 10, 1000, 999);
        row("LED coarse up from 990", 990, S::CoarseUp, 10, 1000, 1000);
        row("LED coarse up from 995", 995, S::CoarseUp, 10, 1000, 1000);
        row("LED coarse up from 1000", 1000, S::CoarseUp, 10, 1000, kNothing);
        row("LED coarse down from 9", 9, S::CoarseDown, 10, 1000, 0);
        row("LED coarse down from 10", 10, S::CoarseDown, 10, 1000, 0);
        row("LED coarse down from 11", 11, S::CoarseDown, 10, 1000, 1);
    }

    void aPressStepsAndStopsAtTheEnds()
    {
        QFETCH(int, value);
        QFETCH(SettingStep, step);
        QFETCH(int, coarse);
        QFETCH(int, maximum);
        QFETCH(int, expected);
        QCOMPARE(stepped(static_cast<unsigned int>(value), step, static_cast<unsigned int>(coarse),
                         static_cast<unsigned int>(maximum)),
                 expected);
    }

    void noStepEverLeavesTheRange()
    {
        for (const SensorSettingInfo& info : kSensorSettings) {
            for (unsigned int value = 0; value <= info.maximum; ++value) {
                for (const SettingStep step : {SettingStep::FineDown, SettingStep::FineUp,
                                               SettingStep::CoarseDown, SettingStep::CoarseUp}) {
                    const auto next = steppedValue(value, step, kSensorCoarseStep, info.maximum);
                    if (next && *next > info.maximum)
                        QFAIL(qPrintable(QString("%1 -> %2").arg(value).arg(*next)));
                }
            }
        }
    }

    void afterAClickBothButtonsOfADirectionGoTogether_data()
    {
        QTest::addColumn<int>("value");
        QTest::addColumn<bool>("down");
        QTest::addColumn<bool>("up");
        QTest::newRow("at 0") << 0 << false << true;
        QTest::newRow("at 1") << 1 << true << true;
        QTest::newRow("one below the maximum") << 510 << true << true;
        QTest::newRow("at the maximum") << 511 << true << false;
        QTest::newRow("beyond it") << 600 << true << false;
    }

    void afterAClickBothButtonsOfADirectionGoTogether()
    {
        QFETCH(int, value);
        QFETCH(bool, down);
        QFETCH(bool, up);
        const StepsEnabled enabled = stepsEnabledAfterClick(static_cast<unsigned int>(value), 511);
        QCOMPARE(enabled.fineDown, down);
        QCOMPARE(enabled.coarseDown, down);
        QCOMPARE(enabled.fineUp, up);
        QCOMPARE(enabled.coarseUp, up);
    }

    void afterAReadBackACoarseButtonNeedsAWholeStep_data()
    {
        QTest::addColumn<int>("value");
        QTest::addColumn<bool>("fineDown");
        QTest::addColumn<bool>("coarseDown");
        QTest::addColumn<bool>("fineUp");
        QTest::addColumn<bool>("coarseUp");
        QTest::newRow("at 0") << 0 << false << false << true << true;
        QTest::newRow("at 15") << 15 << true << false << true << true;
        QTest::newRow("at 16") << 16 << true << true << true << true;
        QTest::newRow("at M - 17") << 494 << true << true << true << true;
        QTest::newRow("at M - 16") << 495 << true << true << true << false;
        QTest::newRow("at M - 1") << 510 << true << true << true << false;
        QTest::newRow("at M") << 511 << true << true << false << false;
        QTest::newRow("beyond M") << 0xFFFF << true << true << false << false;
    }

    void afterAReadBackACoarseButtonNeedsAWholeStep()
    {
        QFETCH(int, value);
        const StepsEnabled enabled = stepsEnabledAfterRead(static_cast<unsigned int>(value), 511);
        QTEST(enabled.fineDown, "fineDown");
        QTEST(enabled.coarseDown, "coarseDown");
        QTEST(enabled.fineUp, "fineUp");
        QTEST(enabled.coarseUp, "coarseUp");
    }

    void theLastFourCharactersAreTheValue_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<int>("value");
        QTest::newRow("as shown") << "0x01FF" << 0x1FF;
        QTest::newRow("without prefix") << "1e00" << 0x1E00;
        QTest::newRow("no number") << "zzzz" << 0;
        QTest::newRow("empty") << "" << 0;
    }

    void theLastFourCharactersAreTheValue()
    {
        QFETCH(QString, text);
        QFETCH(int, value);
        QCOMPARE(static_cast<int>(shownRegisterValue(text)), value);
    }

    void theSettingsMeetTheirRegistersAndMaxima()
    {
        QCOMPARE(sensorSettingInfo(SensorSetting::Exposure).maximum, 65535u);
        QCOMPARE(sensorSettingInfo(SensorSetting::Gain).maximum, 511u);
        QCOMPARE(sensorSettingInfo(SensorSetting::Blue).maximum, 4095u);
        QCOMPARE(sensorSettingInfo(SensorSetting::Exposure).column, 0);
        QCOMPARE(sensorSettingInfo(SensorSetting::Gain).column, 2);
        QCOMPARE(sensorSettingInfo(SensorSetting::Red).column, 4);
        QCOMPARE(sensorSettingInfo(SensorSetting::Green).column, 6);
        QCOMPARE(sensorSettingInfo(SensorSetting::Blue).column, 8);
    }
};

QTEST_GUILESS_MAIN(TestRegisterSteps)
#include "test_register_steps.moc"
