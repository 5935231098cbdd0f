#include <algorithm>
#include <cmath>

#include <QtTest>

#include <QDir>

#include "shipped/Expectations.h"
#include "tests/support/Patience.h"

namespace {

/// What the picture's four fields look like, converted as television does it.
QRgb shown(int luma, int u, int v)
{
    const auto channel = [](double value) { return qBound(0, qRound(value), 255); };
    const double grey = 1.164 * (luma - 16);
    return qRgb(channel(grey + 1.596 * (v - 128)), channel(grey - 0.391 * (u - 128) - 0.813 * (v - 128)),
                channel(grey + 2.018 * (u - 128)));
}
const QRgb kRed = shown(110, 90, 240), kGreen = shown(110, 54, 34), kBlue = shown(110, 240, 110),
           kGrey = shown(110, 128, 128);

bool isNear(QRgb seen, QRgb expected)
{
    constexpr int tolerance = 6; // the conversion's own rounding
    return std::abs(qRed(seen) - qRed(expected)) <= tolerance &&
           std::abs(qGreen(seen) - qGreen(expected)) <= tolerance &&
           std::abs(qBlue(seen) - qBlue(expected)) <= tolerance;
}

/// By when a busy machine has had a moment for the program.
const int kPatience_ms = patient_ms(30000);

/// Waits until a frame made from now on is on the screen: both threads of the camera are at work.
bool showsNewFrames(ShippedProgram& program)
{
    const int contrast = program.scene().contrast == 0 ? 100 : 0; // of the square at this point
    program.scene().contrast = contrast;
    const QRgb expected = shown(110 + contrast, 90, 240);
    return QTest::qWaitFor([&] { return isNear(program.picture().pixel(115, 115), expected); }, kPatience_ms);
}

/// The descriptors and the number of threads, once no look of half a second has seen others: for a
/// moment in each second the mount table is open. Empty where that does not come.
QStringList holdings(const ShippedProgram& program)
{
    constexpr int settled_ms = 500;
    QStringList held;
    QElapsedTimer unchanged;
    const auto hasSettled = [&] {
        const QStringList now = program.descriptors() + QStringList(QString::number(program.threads()));
        if (now != held || !unchanged.isValid()) {
            held = now;
            unchanged.start();
        }
        return unchanged.elapsed() >= settled_ms;
    };
    return QTest::qWaitFor(hasSettled, kPatience_ms) ? held : QStringList();
}

/// Of what the program has written, the lines in which the pattern is found. Times of day and
/// lines of source code, which differ from run to run and from one version to the next, are named.
QStringList told(const ShippedProgram& program, const char* pattern)
{
    return QString(program.output())
        .replace(QRegularExpression("\\b\\d{4}/\\d\\d/\\d\\d \\d\\d:\\d\\d:\\d\\d,\\d{3}$",
                                    QRegularExpression::MultilineOption),
                 "TIME")
        .replace(QRegularExpression(" \\d+ ----->"), " LINE ----->")
        .split('\n')
        .filter(QRegularExpression(pattern));
}

} // namespace

/// The program as it is shipped, judged by what a stranger can see of its work with pictures: the
/// calls on the capture device and the bus, the pixels, the pictures on the disk, the numbers.
class TestShippedCamera : public ShippedProgramTest
{
    Q_OBJECT

private slots:
    void aModeSwitchClosesPausesAndOpens_data()
    {
        QTest::addColumn<bool>("free");
        QTest::newRow("buffers hold the format") << false;
        QTest::newRow("only the stream holds it") << true;
    }

    void aModeSwitchClosesPausesAndOpens()
    {
        QFETCH(bool, free);
        ShippedProgram program;
        program.scene().formatIsFree = free ? 1 : 0;
        QVERIFY(program.start());
        program.chooseTab(1);
        struct Mode
        {
            const char* button;
            int width;
            int height;
            int firstValue;
            int framesASecond;
        };
        const Mode modes[] = {{"BUTTON_RESOLUTION_VGA", 640, 480, 0x10, 30},
                              {"BUTTON_RESOLUTION_5M", 2592, 1944, 0x10 + 20, 15},
                              {"BUTTON_RESOLUTION_1280", 1280, 960, 0x10 + 10, 30}};
        QSize running(1280, 960);
        for (const Mode& mode : modes) {
            const int before = program.calls().size();
            program.click(mode.button);
            const QStringList calls = program.calls(before);
            QCOMPARE(only(calls, "video "),
                     closing(running.width(), running.height()) +
                         (free ? opening(mode.width, mode.height) : reopening(mode.width, mode.height)));
            QCOMPARE(valueWrites(calls), registerWrites(mode.firstValue));
            QVERIFY(program.shortestPause_s("video munmap 3", before) >= 0.5);
            for (const Mode& other : modes)
                QCOMPARE(program.style(other.button), &other == &mode ? kChosen : kNotChosen);
            // Every frame is fetched: in a second as many as the device makes, if not in the first
            // span then in one in which a busy machine lets the program.
            double rate = 0.0;
            const auto keepsUp = [&] {
                const int frames = program.scene().framesTaken;
                QElapsedTimer time;
                time.start();
                QTest::qWait(700);
                rate = std::max(rate, (program.scene().framesTaken - frames) * 1000.0 / time.elapsed());
                return rate > mode.framesASecond * 0.8;
            };
            QVERIFY2(QTest::qWaitFor(keepsUp, kPatience_ms), qPrintable(QString::number(rate)));
            running = QSize(mode.width, mode.height);
        }
        QCOMPARE(program.exit(), 0);
    }

    void manySwitchesLeaveNothingBehind()
    {
        ShippedProgram program;
        QVERIFY(program.start());
        program.chooseTab(1);
        program.click("BUTTON_RESOLUTION_VGA");
        QVERIFY(showsNewFrames(program));
        const QStringList before = holdings(program);
        QVERIFY(before.count("memfd:frame (deleted)") > 0);
        for (int i = 0; i < 4; ++i)
            program.click(i % 2 ? "BUTTON_RESOLUTION_VGA" : "BUTTON_STAINING_TB");
        program.setCameraFaults({"ioctl:VIDIOC_STREAMON"});
        for (int i = 0; i < 10; ++i)
            program.click("BUTTON_RESOLUTION_5M");
        program.setCameraFaults({});
        program.click("BUTTON_RESOLUTION_VGA");
        QVERIFY(showsNewFrames(program));
        QCOMPARE(holdings(program).join(", "), before.join(", "));
        QCOMPARE(program.exit(), 0);
    }

    void theLiveViewShowsThePictureOfTheDevice()
    {
        ShippedProgram program;
        QVERIFY(program.start());
        program.chooseTab(1);
        QTRY_VERIFY_WITH_TIMEOUT(isNear(program.picture().pixel(100, 100), kRed), kPatience_ms);
        QImage scaled = program.picture();
        QVERIFY(isNear(scaled.pixel(500, 100), kGreen));
        QVERIFY(isNear(scaled.pixel(100, 400), kBlue));
        QVERIFY(isNear(scaled.pixel(639, 479), kGrey));
        QVERIFY(isNear(scaled.pixel(317, 237), kRed) && isNear(scaled.pixel(323, 243), kGrey));

        program.click("CHECK_SCALED_TO_FIT"); // 1:1, the frame's upper left quarter
        const QRgb yellow = qRgb(255, 255, 0);
        QTRY_VERIFY_WITH_TIMEOUT(isNear(program.picture().pixel(600, 450), kRed), kPatience_ms);
        QImage whole = program.picture();
        QCOMPARE(whole.pixel(0, 0), yellow);
        QCOMPARE(whole.pixel(80, 20), yellow); // the navigator's right edge
        QCOMPARE(whole.pixel(40, 20), yellow); // and that of the part on screen

        // A press on the border starts no drag, one inside does; the view ends at the frame's end.
        program.drag({639, 470}, {5, 5});
        QTest::qWait(100);
        QVERIFY(isNear(program.picture().pixel(600, 450), kRed));
        program.drag({630, 470}, {5, 5});
        QTRY_VERIFY_WITH_TIMEOUT(isNear(program.picture().pixel(600, 450), kGrey), kPatience_ms);
        for (int i = 0; i < 2; ++i)
            program.drag({630, 470}, {5, 5});
        QTRY_COMPARE(program.picture().pixel(40, 45), yellow); // (40, 30) of (80, 60)
        QVERIFY(isNear(program.picture().pixel(20, 20), kGrey));

        program.click("CHECK_CROSS_LINE");
        const QRgb red = qRgb(255, 0, 0);
        QTRY_COMPARE_WITH_TIMEOUT(program.picture().pixel(320, 100), red, kPatience_ms);
        QCOMPARE(program.picture().pixel(100, 240), red);
        program.click("CHECK_SCALED_TO_FIT");
        QTRY_VERIFY_WITH_TIMEOUT(isNear(program.picture().pixel(100, 100), kRed), kPatience_ms);
        program.click("CHECK_SCALED_TO_FIT"); // and 1:1 starts at the upper left again
        QTRY_COMPARE_WITH_TIMEOUT(program.picture().pixel(40, 20), yellow, kPatience_ms);
        QCOMPARE(program.exit(), 0);
    }

    void captureWritesTheFrameOntoTheDisk()
    {
        ShippedProgram program;
        program.plugDisk();
        QVERIFY(program.start());
        program.chooseTab(1);
        const int frames = program.scene().framesTaken;
        QTRY_VERIFY_WITH_TIMEOUT(program.scene().framesTaken > frames + 2, kPatience_ms);
        const SeenBox dialog = program.boxOf("BUTTON_CAPTURE");
        QCOMPARE(dialog.title, "Save image");
        QCOMPARE(dialog.text, "/mnt");
        QCOMPARE(dialog.filters, QStringList("TIFF image (*.tif)"));
        program.ask({{"do", "file"}, {"path", "/mnt/cells.tif"}, {"later", true}});
        QTRY_VERIFY_WITH_TIMEOUT(!program.isBoxOpen(), kPatience_ms);
        QVERIFY(program.waitEnabled(5000));
        QCOMPARE(QDir(program.file("mnt")).entryList(QDir::Files), QStringList("cells.tif.tif"));
        const QImage written = QImage::fromData(program.content("mnt/cells.tif.tif"));
        if (!written.isNull()) { // Qt reads TIFF with a plugin only
            QCOMPARE(written.size(), QSize(1280, 960));
            QVERIFY(isNear(written.pixel(100, 100), kRed) && isNear(written.pixel(100, 900), kBlue));
        }
        const QByteArray start = program.content("mnt/cells.tif.tif").left(4);
        QVERIFY(start == QByteArray("II*\0", 4) || start == QByteArray("MM\0*", 4));
        QCOMPARE(program.exit(), 0);
        const QDir home(program.file("home"));
        QCOMPARE(home.entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot), QStringList());
    }

    void autofocusSweepsPicksAndLogs()
    {
        ShippedProgram program;
        DeviceScene& scene = program.scene();
        program.board().setArrivalWatcher([&scene, &program](InstrumentTime) {
            constexpr int focus = 30640, largest = 100, fall_steps = 40;
            const int position = static_cast<int>(program.board().light().stagePosition_steps);
            scene.contrast = qMax(2, largest - std::abs(position - focus) / fall_steps);
            // A frame of the new place is there when the answer comes.
            const int frames = scene.framesTaken;
            for (int i = 0; i < 100 && scene.framesTaken < frames + 3; ++i)
                QThread::msleep(5);
        });
        program.plugDisk();
        QVERIFY(program.start());
        program.click("BUTTON_Z_POSITION");
        QCOMPARE(program.text("EDIT_Z_POSITION"), "30000");
        program.click("CHECK_DEBUG_AUTOFOCUS");
        const int before = program.boardLines().size();
        program.ask({{"do", "click"}, {"name", "BUTTON_AUTOFOCUS"}, {"later", true}});
        VERIFY_BOX(program.waitForBox(30000), "information: ORLA-III", "Finish AutoFocus !", "OK");
        QVERIFY(program.enabled("BUTTON_AUTOFOCUS"));
        program.answer("OK");

        QStringList lines{"STM1,GET_POS,,", "STM1,MVN,4480,", "STM1,GET_POS,,", "STM1,MVP,640,",
                          "STM1,GET_POS,,"};
        for (int i = 0; i < 14; ++i)
            lines += "STM1,MVP,640,";
        lines += {"STM1,GET_POS,,", "STM1,MVN,4480,", "STM1,GET_POS,,"};
        QCOMPARE(program.boardLines(before), lines);
        QCOMPARE(int(program.board().light().stagePosition_steps), 30640);
        QCOMPARE(program.text("EDIT_Z_POSITION"), "30640");
        QCOMPARE(program.text("PROGRESS_AUTOFOCUS"), "100%");

        const QDir runs(program.file("mnt/ORLA-II/Autofocus"));
        const QStringList run = runs.entryList(QDir::Dirs | QDir::NoDotAndDotDot);
        QCOMPARE(run.size(), 1);
        QVERIFY(QRegularExpression("^\\d{8}_\\d{6}$").match(run[0]).hasMatch());
        const QString folder = "mnt/ORLA-II/Autofocus/" + run[0] + "/Step1/";
        const QList<QByteArray> rows = program.content(folder + "best_focus_value.csv").split('\n');
        QCOMPARE(rows.size(), 15 + 2);
        for (int i = 0; i < 15; ++i) {
            const QList<QByteArray> fields = rows[i].split(',');
            QCOMPARE(fields.mid(0, 2),
                     QList<QByteArray>({QByteArray::number(i), QByteArray::number(26160 + 640 * i)}));
            QVERIFY(fields[2].toDouble() > 0);
            QVERIFY2(QFile::exists(program.file(folder + QString("Autofocus_%1_%2_%3.tiff")
                                                             .arg(i + 1, 2, 10, QChar('0'))
                                                             .arg(26160 + 640 * i)
                                                             .arg(QString(fields[2])))),
                     rows[i].constData());
        }
        QCOMPARE(rows[15], QByteArray());
        QCOMPARE(rows[16], "8,30640," + rows[7].split(',')[2]); // counted from one here
        QCOMPARE(program.exit(), 0);

        const QString sequencer = "void alg_Autofocus::", window = "void ORLA_II_Plus_Verifier::";
        const QString moved = sequencer + "slot_z_stage_moved() TIME";
        const QString review =
            window + "slot_review_AutoFocusing(int, std::vector<AutoFocusingData_s>, int) ";
        QStringList log{window + "on_BUTTON_AUTOFOCUS_clicked()", sequencer + "process()",
                        sequencer + "prepareAutoFocusing_Step2(int, int) interval: 640, count: 15"};
        QStringList samples{review + QString(25, '#'), review + "[1] best_index: 7"};
        for (int i = 0; i < 15; ++i) {
            const int position = 26160 + 640 * i;
            log << moved << window + "slot_move_z_position(int) " + QString::number(position)
                << window + QString("slot_progress_AutoFocusing(int) [1] %1/15 %2%")
                                .arg(i + 1)
                                .arg((i + 1) / 15.0 * 100.0);
            if (i < 14)
                log << sequencer + "dispatch_proc() TIME";
            samples << review + QString("[1](%1) focus_value: %2 , position: %3")
                                    .arg(i)
                                    .arg(QString(rows[i].split(',')[2]))
                                    .arg(position);
        }
        log << samples << sequencer + "prepareEndAutoFocusing()" << moved
            << window + "slot_move_z_position(int) 30640" << sequencer + "endAutoFocusing()"
            << window + "slot_endAutoFocusing(int) 30640";
        QCOMPARE(told(program, "alg_Autofocus::|AutoFocusing|AUTOFOCUS|slot_move_z"), log);
    }

    void theTargetIsMeasuredOnAFrozenFrame()
    {
        ShippedProgram program;
        QVERIFY(program.start());
        program.chooseTab(2);
        const QStringList controls{"CHECK_TARGET", "BUTTON_POINT_1", "BUTTON_POINT_2", "BUTTON_QC_MEASURE"};
        const auto enabled = [&] {
            QList<bool> states;
            for (const QString& control : controls)
                states += program.enabled(control);
            return states;
        };
        QCOMPARE(enabled(), QList<bool>({false, false, false, false}));

        QElapsedTimer time;
        time.start();
        program.click("BUTTON_QC_CAPTURE");
        QVERIFY(!program.enabled("ORLA_II_Plus_Verifier"));
        QVERIFY(program.waitEnabled(10000));
        QVERIFY(time.elapsed() >= 2500);
        QCOMPARE(program.text("BUTTON_QC_CAPTURE"), "Live");
        QVERIFY(program.look("QC_MEASURE")["visible"].toBool());
        QCOMPARE(enabled(), QList<bool>({true, false, false, true}));
        const int frames = program.scene().framesTaken;

        const auto pan = [&program](int x, int y) { // within one drag's reach
            program.drag({620, 460}, {620 - x, 460 - y});
        };
        pan(476, 432);
        pan(0, 300); // (796, 972) is at (320, 240)
        program.click("CHECK_TARGET");
        QCOMPARE(enabled(), QList<bool>({true, true, true, true}));
        program.touch(326, 235);
        QCOMPARE(program.picture().pixel(306, 230), qRgb(0, 255, 0)); // the target's square
        program.click("BUTTON_POINT_1");
        QCOMPARE(program.text("EDIT_POINT_1"), "796, 972");
        program.touch(100, 400);
        VERIFY_BOX(program.boxOf("BUTTON_POINT_2"), "critical: Error", "Cell not detected !", "OK");
        program.answer("OK");
        program.click("CHECK_TARGET");
        pan(500, 0);
        pan(500, 0);
        program.click("CHECK_TARGET");
        program.touch(315, 244);
        program.click("BUTTON_POINT_2");
        QCOMPARE(program.text("EDIT_POINT_2"), "1796, 972");
        program.click("BUTTON_QC_MEASURE");
        QCOMPARE(program.text("EDIT_MAGNIFICATION"), "1.400");
        QCOMPARE(program.text("EDIT_VOLUME_FACTOR"), "0.50388");
        program.boxOf("BUTTON_SAVE_INI");
        program.answer("OK");
        QVERIFY(program.content(kMainSettings).contains("Magnification=1.4\n"));
        QVERIFY(program.content(kMainSettings).contains("Volume%20factor=0.50388\n"));
        QCOMPARE(int(program.scene().framesTaken), frames); // the camera has rested

        const int before = program.calls().size();
        program.click("BUTTON_QC_CAPTURE");
        QCOMPARE(only(program.calls(before), "video "), reopening(2592, 1944));
        QCOMPARE(program.text("BUTTON_QC_CAPTURE"), "Capture");
        QCOMPARE(enabled(), QList<bool>({false, false, false, false}));
        QVERIFY(program.look("CHECK_TARGET")["checked"].toBool());
        // The frame of before the freeze is on the screen first, then one that is still empty.
        QVERIFY(showsNewFrames(program) && showsNewFrames(program));
        program.click("BUTTON_INTENSITY");
        const double expected = (qRed(kRed) + qRed(kGreen) + qRed(kBlue) + qRed(kGrey)) / 4.0;
        QVERIFY(std::abs(program.text("EDIT_INTENSITY_RED").toDouble() - expected) < 3);
        QCOMPARE(program.exit(), 0);

        const QString window = "void ORLA_II_Plus_Verifier::";
        const QString measured = "void QC_measure::measure2Point() LINE ----->";
        const QString kept = window + "slot_measure_result(MeasureInfo_t) ------> global_ini()->System.";
        QCOMPARE(told(program, "measure|CHECK_TARGET|BUTTON_POINT|BUTTON_QC|BUTTON_INTENSITY"),
                 QStringList({window + "on_BUTTON_QC_CAPTURE_clicked() m_QC_mode: 1",
                              window + "on_CHECK_TARGET_clicked(bool)",
                              window + "on_BUTTON_POINT_1_clicked()",
                              window + "slot_measure_point(int, int, int) 0 796, 972",
                              window + "on_BUTTON_POINT_2_clicked()",
                              window + "slot_measure_error(TargetingError_e) 0",
                              window + "on_CHECK_TARGET_clicked(bool)",
                              window + "on_CHECK_TARGET_clicked(bool)",
                              window + "on_BUTTON_POINT_2_clicked()",
                              window + "slot_measure_point(int, int, int) 1 1796, 972",
                              window + "on_BUTTON_QC_MEASURE_clicked()",
                              measured + "Before Magnification : 1.4",
                              measured + "after Magnification : 1.4",
                              measured + "length_pixel : 1000",
                              measured + "length_mm : 1",
                              measured + "pixel_size : 1",
                              measured + "Magnification : 1.4",
                              measured + "m_MeasureInfo.area_mm : 5.03885",
                              measured + "area_mm : 5.03885",
                              measured + "m_MeasureInfo.Volume_factor : 0.50388",
                              measured + "Volume_factor : 0.503885",
                              kept + "Magnification : 1.4",
                              kept + "Volume_factor : 0.50388",
                              window + "on_BUTTON_QC_CAPTURE_clicked() m_QC_mode: 0",
                              window + "on_BUTTON_INTENSITY_clicked()"}));
    }
};

QTEST_GUILESS_MAIN(TestShippedCamera)
#include "test_shipped_camera.moc"
