#include <algorithm>
#include <array>
#include <csignal>
#include <iterator>
#include <memory>
#include <random>

#include <sys/wait.h>
#include <unistd.h>

#include <QDir>
#include <QElapsedTimer>
#include <QtTest>

#include "platform/InstrumentPath.h"
#include "settings/CalibrationFile.h"
#include "settings/MainSettings.h"
#include "settings/SafeSettingsFile.h"
#include "settings/StageFile.h"
#include "support/FileBytes.h"
#include "support/InChild.h"
#include "tests/settings/FaultyFileCalls.h"
#include "tests/settings/QuickDirectory.h"

using FaultyFileCalls::Fault;

namespace {

constexpr RegisterIndex kRegisters = {0x3501, 0x3502, 0x350A, 0x350B, 0x3400,
                                      0x3401, 0x3402, 0x3403, 0x3404, 0x3405};
constexpr const char* kFiles[] = {kMainSettingsFile, kCusCalibrationFile, kBfnCalibrationFile, kStageFile};
constexpr int kFileCount = int(std::size(kFiles));
/// Calls that not every save makes: a file gets its time by one where the clock has not moved on.
constexpr int kStamps = kFileCount;
constexpr SettingsPart kTabs[] = {SettingsPart::Stage, SettingsPart::Camera, SettingsPart::Qc};

using Contents = std::array<QByteArray, kFileCount>;

/// What the technician has set: every value of the second is another than that of the first.
global_ini_t record(int step)
{
    global_ini_t record{};
    for (auto* table : {&record.CUS_reg, &record.BFN_reg})
        for (auto& row : *table)
            for (quint16& byte : row)
                byte = quint16(16 + step);
    record.LED_brightness = 300 + step;
    record.Z_step = 512 + step;
    record.Z_speed = 300 + step;
    record.Z_reference = 30000 + step;
    record.System.Magnification = 1.4 + step;
    record.System.Volume_factor = 0.5 + step;
    record.Skip_frame = 9 + step;
    return record;
}

/// The same calls in the same order as the window's Save.
void saveTab(SettingsPart tab, int step)
{
    const global_ini_t values = record(step);
    SafeSettingsFile file(kMainSettingsFile);
    if (tab == SettingsPart::Stage)
        saveStageFile(values);
    if (tab == SettingsPart::Camera)
        for (const CalibrationFile& calibration : kCalibrationFiles)
            saveCalibration(calibration, kRegisters, values);
    saveMainSettings(file.settings(), values, tab, {{"7", QString::number(42 + step)}, "0.0.1"});
    file.commit();
}

/// Whether a start finds values that were saved with step 0 or with step 1.
bool startFindsOldOrNew()
{
    QSettings settings(instrumentPath(QString(kMainSettingsFile)), QSettings::IniFormat);
    global_ini_t loaded{};
    loadMainSettings(settings, loaded);
    loadStageFile(loaded);
    for (const CalibrationFile& file : kCalibrationFiles)
        loadCalibration(
            file, kRegisters, loaded, [](const QString&) {});
    const auto isOldOrNew = [](int value, int old) { return value == old || value == old + 1; };
    return isOldOrNew(loaded.Z_reference, 30000) && isOldOrNew(loaded.LED_brightness, 300) &&
           isOldOrNew(loaded.Z_step, 512) && isOldOrNew(loaded.CUS_reg[2][9], 16) &&
           isOldOrNew(loaded.BFN_reg[0][0], 16) && isOldOrNew(loaded.Skip_frame, 9);
}

Contents contents()
{
    Contents found;
    std::transform(std::begin(kFiles), std::end(kFiles), found.begin(),
                   [](const char* file) { return bytesOf(instrumentPath(QString(file))); });
    return found;
}

QStringList entries()
{
    QStringList all;
    for (const char* folder : {"/opt/ORLA3/conf", "/root/Orla2"})
        all += QDir(instrumentPath(QString(folder)))
                   .entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot);
    return all;
}

} // namespace

/// What a save of each tab leaves behind that does not come to its end.
class TestPowerCutTabs : public QObject
{
    Q_OBJECT

private slots:
    /// Does once, elsewhere, what the hundreds of children do: they begin with what an emulator has
    /// translated so far, and each would have to translate all of it otherwise.
    void initTestCase()
    {
        const QuickRoot root;
        for (const SettingsPart tab : kTabs)
            saveTab(tab, 0);
        QVERIFY(startFindsOldOrNew());
    }

    void init()
    {
        m_root = std::make_unique<QuickRoot>();
        for (const SettingsPart tab : kTabs)
            QCOMPARE(inChild([tab] { return saveTab(tab, 0), 0; }), 0);
        m_old = contents();
        for (const QByteArray& content : m_old)
            QVERIFY(!content.isEmpty());
        QCOMPARE(entries().size(), kFileCount);
    }

    void cleanup() { m_root.reset(); }

    void aPowerCutAtAnyCallOfASaveLeavesEachFileOldOrNew_data()
    {
        // In the middle of a write is a test of the single file.
        QTest::addColumn<int>("tab");
        for (const SettingsPart tab : kTabs)
            QTest::addRow("tab %d", int(tab) - int(SettingsPart::Stage)) << int(tab);
    }

    void aPowerCutAtAnyCallOfASaveLeavesEachFileOldOrNew()
    {
        QFETCH(int, tab);
        const auto part = SettingsPart(tab);
        const Contents fresh = contentsAfterSave(part);
        const int calls = callsOfASave(part);
        int cuts = 0;
        int mixed = 0;
        int status = FaultyFileCalls::kCutStatus;
        while (status == FaultyFileCalls::kCutStatus) {
            putOld();
            ++cuts;
            QVERIFY2(cuts <= calls + 1 + kStamps, "what a cut left behind makes calls of a later save");
            status = inChild([part, cuts] {
                FaultyFileCalls::arm(Fault::Cut, cuts);
                saveTab(part, 1);
                FaultyFileCalls::disarm();
                return 0;
            });
            const Contents found = contents();
            verifyOldOrNew(found, fresh, "cut " + QByteArray::number(cuts));
            mixed += found != m_old && found != fresh ? 1 : 0;
            if (status != 0)
                verifyALaterStartSaves(part, fresh);
            if (QTest::currentTestFailed())
                return;
        }
        QCOMPARE(status, 0);
        QVERIFY2(cuts >= calls + 1 - kStamps, "cuts are not seen");
        QVERIFY2(cuts > 25, "the calls are not seen");
        // Where several files belong to a tab, one may be new while another is old.
        QCOMPARE(mixed > 0, part != SettingsPart::Qc);
    }

    void aKillAtARandomMomentLeavesEachFileOldOrNew()
    {
        bool asked = false;
        const int askedKills = qEnvironmentVariableIntValue("ORLA_TEST_KILLS", &asked);
        const int kills = asked ? askedKills : 20;
        constexpr int kTriesForAKill = 20;
        constexpr unsigned kSeed = 20240611;
        std::mt19937 random(kSeed);
        std::array<Contents, std::size(kTabs)> fresh;
        std::transform(std::begin(kTabs), std::end(kTabs), fresh.begin(),
                       [this](SettingsPart tab) { return contentsAfterSave(tab); });
        int killed = 0;
        int changed = 0;
        for (int tries = 0; killed < kills; ++tries) {
            QVERIFY2(tries < kills * kTriesForAKill, "the saves are over before they can be killed");
            const std::size_t tab = random() % std::size(kTabs);
            putOld();
            const bool caught = killDuringSave(kTabs[tab], double(random()) / double(random.max()));
            const Contents found = contents();
            verifyOldOrNew(found, fresh[tab], "kill " + QByteArray::number(killed));
            verifyALaterStartSaves(kTabs[tab], fresh[tab]);
            if (QTest::currentTestFailed())
                return;
            killed += caught ? 1 : 0;
            changed += caught && found != m_old ? 1 : 0;
        }
        qInfo("%d kills, after %d of them a file was new", killed, changed);
    }

private:
    Contents contentsAfterSave(SettingsPart tab)
    {
        putOld();
        inChild([tab] { return saveTab(tab, 1), 0; });
        return contents();
    }

    int callsOfASave(SettingsPart tab)
    {
        putOld();
        return inChild([tab] {
            FaultyFileCalls::arm(Fault::None, 0);
            saveTab(tab, 1);
            return FaultyFileCalls::disarm();
        });
    }

    void putOld() const
    {
        for (int i = 0; i < kFileCount; ++i)
            putBytes(instrumentPath(QString(kFiles[i])), m_old[std::size_t(i)]);
    }

    void verifyOldOrNew(const Contents& found, const Contents& fresh, const QByteArray& when) const
    {
        for (std::size_t i = 0; i < found.size(); ++i)
            QVERIFY2(found[i] == m_old[i] || found[i] == fresh[i],
                     when + " left of " + kFiles[i] + ": " + found[i]);
    }

    /// A start after the cut finds values, and its save is whole and clears up.
    void verifyALaterStartSaves(SettingsPart tab, const Contents& fresh) const
    {
        QCOMPARE(inChild([tab] {
                     const bool good = startFindsOldOrNew();
                     saveTab(tab, 1);
                     return good ? 0 : 1;
                 }),
                 0);
        const Contents found = contents();
        for (std::size_t i = 0; i < found.size(); ++i)
            QCOMPARE(found[i], fresh[i]);
        QCOMPARE(entries().size(), kFileCount);
    }

    /// Kills a process at that part of the time that its save takes. False if it was over before.
    bool killDuringSave(SettingsPart tab, double part)
    {
        int ready[2] = {-1, -1};
        if (::pipe(ready) != 0)
            return false;
        QElapsedTimer time;
        const pid_t child = ::fork();
        if (child < 0) // never a signal to -1, which is everybody
            return false;
        if (child == 0) {
            [[maybe_unused]] const ssize_t told = ::write(ready[1], "", 1);
            saveTab(tab, 1);
            ::_exit(0);
        }
        char byte = 0;
        [[maybe_unused]] const ssize_t heard = ::read(ready[0], &byte, 1);
        time.start();
        const auto wait_ns = qint64(part * double(m_longestSave_ns));
        while (time.nsecsElapsed() < wait_ns && ::waitpid(child, nullptr, WNOHANG) == 0)
            ::usleep(1);
        ::kill(child, SIGKILL);
        int status = 0;
        // One that was over is waited for already.
        const bool caught = ::waitpid(child, &status, 0) == child && WIFSIGNALED(status);
        if (!caught)
            m_longestSave_ns = qMax<qint64>(time.nsecsElapsed(), kShortestSave_ns);
        ::close(ready[0]);
        ::close(ready[1]);
        return caught;
    }

    static constexpr qint64 kShortestSave_ns = 500000;

    std::unique_ptr<QuickRoot> m_root;
    Contents m_old;
    qint64 m_longestSave_ns = 20000000; // what the first ones may take; then, what the last took
};

QTEST_GUILESS_MAIN(TestPowerCutTabs)
#include "test_power_cut_tabs.moc"
