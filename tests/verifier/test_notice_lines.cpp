#include <functional>

#include <QtTest>

#include "NoticeLines.h"

namespace {

using Change = std::function<void(InstrumentCondition&)>;

const Change kNotOpened = [](InstrumentCondition& c) { c.cameraOpenFailure = "VIDIOC_S_FMT"; };
const Change kGone = [](InstrumentCondition& c) { c.cameraGone = true; };
const Change kSilentSensor = [](InstrumentCondition& c) { c.sensorAnswers = false; };
const Change kNoFrames = [](InstrumentCondition& c) { c.framesOverdue = true; };
const Change kNo5M = [](InstrumentCondition& c) { c.fullSizeFrameMissing = true; };
const Change kMissedSetting = [](InstrumentCondition& c) { c.sensorSettingsInForce = false; };
const Change kUnclearAnswers = [](InstrumentCondition& c) {
    c.boardDoubts = QStringList{"Z position", "LED"};
};
const Change kSilentBoard = [](InstrumentCondition& c) { c.boardAnswers = false; };

constexpr const char* kOpenLine =
    "Camera could not be opened: VIDIOC_S_FMT failed. Press a resolution to retry.";
constexpr const char* kGoneLine = "Camera was unplugged. Plug it in, then press a resolution.";
constexpr const char* kSensorLine =
    "Image sensor does not answer: its settings are neither read nor changed.";
constexpr const char* kFramesLine =
    "No picture from the camera for 3 seconds. Press a resolution to restart it.";
constexpr const char* k5MLine = "No 5M picture to measure. Press Live, then Capture again.";
constexpr const char* kSettingLine =
    "Image sensor missed a setting: what is shown may not be in force. Set it again.";
constexpr const char* kUnclearLine = "An answer of the board was unclear. Ask or set again: Z position, LED.";
constexpr const char* kBoardLine =
    "Controller board does not answer: LED and stage do not react. Check its cable.";

} // namespace
Q_DECLARE_METATYPE(QVector<Change>)

class TestNoticeLines : public QObject
{
    Q_OBJECT

private slots:
    void everyCauseIsToldAndNothingThatFollowsFromAnother_data()
    {
        QTest::addColumn<QVector<Change>>("causes");
        QTest::addColumn<QStringList>("lines");
        const auto row = [](const char* name, const QVector<Change>& causes, const QStringList& lines) {
            QTest::newRow(name) << causes << lines;
        };
        row("all is well", {}, {});
        row("not opened", {kNotOpened}, {kOpenLine});
        row("unplugged", {kGone}, {kGoneLine});
        row("silent sensor", {kSilentSensor}, {kSensorLine});
        row("no frames", {kNoFrames}, {kFramesLine});
        row("no 5M frame", {kNo5M}, {k5MLine});
        row("silent board", {kSilentBoard}, {kBoardLine});
        row("missed setting", {kMissedSetting}, {kSettingLine});
        row("unclear answers", {kUnclearAnswers}, {kUnclearLine});
        row("a silent sensor misses settings", {kSilentSensor, kMissedSetting}, {kSensorLine});
        row("a missed setting and no frames", {kMissedSetting, kNoFrames}, {kSettingLine});
        row("a silent board's answers were unclear", {kSilentBoard, kUnclearAnswers}, {kBoardLine});
        row("sensor and board in doubt", {kMissedSetting, kUnclearAnswers}, {kSettingLine, kUnclearLine});
        row("not opened, and all that follows", {kNotOpened, kGone, kSilentSensor, kNoFrames, kNo5M},
            {kOpenLine});
        row("unplugged, and all that follows", {kGone, kSilentSensor, kNoFrames, kNo5M}, {kGoneLine});
        row("a silent sensor delivers nothing", {kSilentSensor, kNoFrames}, {kSensorLine});
        row("a silent sensor in QC", {kSilentSensor, kNo5M}, {kSensorLine, k5MLine});
        row("camera and board", {kNotOpened, kSilentBoard}, {kOpenLine, kBoardLine});
        row("no frames and board", {kNoFrames, kSilentBoard}, {kFramesLine, kBoardLine});
        row("no 5M frame and board", {kNo5M, kSilentBoard}, {k5MLine, kBoardLine});
    }

    void everyCauseIsToldAndNothingThatFollowsFromAnother()
    {
        QFETCH(QVector<Change>, causes);
        QFETCH(QStringList, lines);
        InstrumentCondition condition;
        for (const Change& cause : causes)
            cause(condition);
        QCOMPARE(noticeLines(condition), lines);
    }

    void theCallThatFailedIsNamed()
    {
        InstrumentCondition condition;
        condition.cameraOpenFailure = "open /dev/video0";
        QVERIFY(noticeLines(condition).join(' ').contains("open /dev/video0 failed"));
    }

    void framesAreOverdueAfterThreeSeconds()
    {
        FrameWatch watch;
        QVERIFY(!watch.isOverdue(true, 7, 1000));
        QVERIFY(!watch.isOverdue(true, 7, 3999));
        QVERIFY(watch.isOverdue(true, 7, 4000));
        QVERIFY(watch.isOverdue(true, 7, 60000));
    }

    void oneFrameIsEnoughToEndIt()
    {
        FrameWatch watch;
        watch.isOverdue(true, 7, 0);
        QVERIFY(watch.isOverdue(true, 7, 3000));
        QVERIFY(!watch.isOverdue(true, 8, 3100));
        QVERIFY(!watch.isOverdue(true, 8, 6099));
        QVERIFY(watch.isOverdue(true, 8, 6100));
    }

    void aLookThatCameLateIsNoFault()
    {
        FrameWatch watch;
        watch.isOverdue(true, 7, 0);
        QVERIFY(!watch.isOverdue(true, 400, 12000));
    }

    void framesThatNobodyExpectsAreNotMissed()
    {
        FrameWatch watch;
        watch.isOverdue(true, 7, 0);
        QVERIFY(!watch.isOverdue(false, 7, 5000));
        QVERIFY(!watch.isOverdue(false, 7, 50000));
        // Patience begins anew when they are wanted again, however long ago the last look was.
        QVERIFY(!watch.isOverdue(true, 7, 60000));
        QVERIFY(!watch.isOverdue(true, 7, 62999));
        QVERIFY(watch.isOverdue(true, 7, 63000));
    }

    void aCameraThatNeverDeliversIsOverdueToo()
    {
        FrameWatch watch;
        QVERIFY(!watch.isOverdue(true, 0, 100000));
        QVERIFY(watch.isOverdue(true, 0, 103000));
    }
};

QTEST_APPLESS_MAIN(TestNoticeLines)
#include "test_notice_lines.moc"
