#include <QApplication>
#include <QDir>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QtTest>

#include <opencv2/imgcodecs.hpp>

#include "camera/OV5642Camera.h"
#include "settings/GlobalIni.h"
#include "support/EventWatch.h"
#include "support/FileBytes.h"
#include "support/WindowFixture.h"
#include "verifier/UsbStick.h"

/// The Capture button of the camera tab and the skip-frame count of the QC tab.
class TestWindowCapture : public QObject, protected WindowFixture
{
    Q_OBJECT

private slots:
    void init()
    {
        clearConsoles();
        boxes().clear();
        boxes().forgetAwaited();
        if (!programCamera()->isStreaming())
            click("BUTTON_RESOLUTION_1280");
    }

    void cleanup()
    {
        pullAndUnmount(*this);
        QVERIFY(window().isEnabled());
    }

    void aCaptureIsTheFrameThatIsShown_data()
    {
        QTest::addColumn<int>("mode");
        QTest::newRow("640 x 480") << 0;
        QTest::newRow("1280 x 960") << 1;
        QTest::newRow("2592 x 1944") << 2;
    }

    void aCaptureIsTheFrameThatIsShown()
    {
        QFETCH(int, mode);
        const QSize sizes[] = {{640, 480}, {1280, 960}, {2592, 1944}};
        click(kResolutions[mode]);
        QVERIFY(waitForFrames(3));
        QVERIFY(plugAndMount(*this));
        const QString name = QString("frame%1").arg(mode);
        capture(name);

        const cv::Mat picture = readTiff(name + ".tif");
        QCOMPARE(picture.type(), CV_8UC3);
        QCOMPARE(QSize(picture.cols, picture.rows), sizes[mode]);
        // Nothing moves on this instrument, so that every frame of a mode is the same.
        const uchar* frame = programCamera()->getFrame();
        for (int y = 0; y < picture.rows; ++y)
            for (int x = 0; x < picture.cols; ++x, frame += 3) {
                const auto& pixel = picture.at<cv::Vec3b>(y, x);
                if (pixel[2] != frame[0] || pixel[1] != frame[1] || pixel[0] != frame[2])
                    QFAIL(qPrintable(QString("differs at %1, %2").arg(x).arg(y)));
            }
        compareWithTheScreen(picture);
        QVERIFY2(boxes().texts().isEmpty(), "no confirmation is shown");
        QCOMPARE(messages().count("[Error]"), 0);
    }

    void theDialogAsksForAPlaceOnTheDisk()
    {
        QVERIFY(plugAndMount(*this));
        capture("a");
        QCOMPARE(dialogs().size(), 1);
        const SeenBox dialog = dialogs().first();
        QCOMPARE(dialog.title, QString("Save image"));
        QCOMPARE(dialog.text, QString("/mnt"));
        QCOMPARE(dialog.filters, QStringList("TIFF image (*.tif)"));
        QVERIFY(dialog.saves);
        QVERIFY2(dialog.windowWasEnabled, "the window is locked only when the name is known");
    }

    void theDialogLeavesNoFileOfItsOwn()
    {
        const QString settings = QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation);
        QVERIFY(QFileInfo(settings).isDir());
        QVERIFY(plugAndMount(*this));
        capture("a");
        QCOMPARE(dialogs().size(), 1);
        QCOMPARE(QDir(settings).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot),
                 QStringList());
    }

    void tifIsAlwaysAppended_data()
    {
        QTest::addColumn<QString>("typed");
        QTest::addColumn<QString>("file");
        const auto row = [](const char* typed) {
            QTest::addRow("%s", typed) << QString::fromUtf8(typed) << QString::fromUtf8(typed) + ".tif";
        };
        row("plain");
        row("given.tif");
        row("given.TIF");
        row("other.png");
        row("with two blanks");
        row("Prüfbild µ 細胞");
        row("dots.in.the.name");
    }

    void tifIsAlwaysAppended()
    {
        QFETCH(QString, typed);
        QFETCH(QString, file);
        QVERIFY(plugAndMount(*this));
        const QStringList before = filesOnDisk();
        capture(typed);
        QStringList added = filesOnDisk();
        for (const QString& name : before)
            added.removeOne(name);
        QCOMPARE(added, QStringList(file));
        QCOMPARE(readTiff(file).cols, static_cast<int>(programCamera()->width()));
    }

    void aFileOfThatNameIsReplaced()
    {
        QVERIFY(plugAndMount(*this));
        putBytes(usb().filesOf() + "/again.tif", "no picture");
        capture("again");
        QCOMPARE(readTiff("again.tif").cols, static_cast<int>(programCamera()->width()));
    }

    void theWindowIsLockedWhileTheFileIsWritten()
    {
        QVERIFY(plugAndMount(*this));
        QStringList changes;
        const auto note = [&] {
            changes += QString(window().isEnabled() ? "free" : "locked") +
                       (filesOnDisk().contains("locked.tif") ? ", file" : ", no file");
        };
        EventWatch watch({&window()});
        watch.atChange([&](const QString& change) {
            if (change.contains("abled "))
                note();
            // What is pending when the window is locked has its turn before the file is written.
            if (change.startsWith("disabled"))
                QMetaObject::invokeMethod(&watch, note, Qt::QueuedConnection);
        });
        capture("locked");
        QCOMPARE(changes, QStringList({"locked, no file", "locked, no file", "free, file"}));
    }

    void cancellingWritesNothing()
    {
        QVERIFY(plugAndMount(*this));
        const QStringList before = filesOnDisk();
        const EventWatch watch({&window()});
        capture(QString());
        QCOMPARE(dialogs().size(), 1);
        QCOMPARE(filesOnDisk(), before);
        QCOMPARE(watch.enabledChanges(), QStringList());
        QVERIFY(boxes().texts().isEmpty());
    }

    void withoutADiskTheTechnicianIsAskedForOne_data()
    {
        QTest::addColumn<bool>("plugged");
        QTest::newRow("none") << false;
        QTest::newRow("one that cannot be mounted") << true;
    }

    void withoutADiskTheTechnicianIsAskedForOne()
    {
        QFETCH(bool, plugged);
        if (plugged)
            QVERIFY(plugAndMount(*this, UsbDiskCondition::Unmountable));
        capture("c");
        QVERIFY2(dialogs().isEmpty(), "no dialog");
        expectBox("Error", "Please insert USB disk !!!", QMessageBox::Critical);
    }

    void aDiskThatTakesNothingIsNamedInTheLogOnly_data()
    {
        QTest::addColumn<int>("condition");
        QTest::newRow("full") << int(UsbDiskCondition::Full);
        QTest::newRow("read-only") << int(UsbDiskCondition::ReadOnly);
    }

    void aDiskThatTakesNothingIsNamedInTheLogOnly()
    {
        QFETCH(int, condition);
        if (!plugAndMount(*this, static_cast<UsbDiskCondition>(condition)))
            QSKIP("this process may not mount a file system");
        capture("d");
        QCOMPARE(dialogs().size(), 1);
        expectFailedWrite("/mnt/d.tif");
    }

    void aDiskPulledWhileItsNameIsTypedGetsNothing()
    {
        QVERIFY(plugAndMount(*this));
        // The name that the dialog hands over lies below the mount point, where there is no
        // disk any more.
        const auto pulling =
            connect(&boxes(), &BoxWatcher::boxShown, this, [this] { pullAndUnmount(*this); });
        capture("e");
        disconnect(pulling);
        QCOMPARE(dialogs().size(), 1);
        QVERIFY(boxes().texts().isEmpty());
        QVERIFY(window().isEnabled());
        QVERIFY(waitForFrames(3));

        QVERIFY(plugAndMount(*this));
        QVERIFY(!filesOnDisk().contains("e.tif"));
        capture("e");
        QVERIFY(filesOnDisk().contains("e.tif"));
    }

    void aNameThatCannotBeWrittenIsNamedInTheLogOnly()
    {
        QVERIFY(plugAndMount(*this));
        QVERIFY(QDir(usb().filesOf()).mkdir("taken.tif"));
        capture("taken");
        expectFailedWrite("/mnt/taken.tif");
    }

    void aLinkOnTheDiskLeadsNoCaptureElsewhere()
    {
        QVERIFY(plugAndMount(*this));
        QTemporaryDir elsewhere;
        const QString theirs = elsewhere.filePath("theirs");
        putBytes(theirs, "");
        const QDir disk(usb().filesOf());
        QVERIFY(QFile::link(theirs, disk.filePath("file.tif")));
        QVERIFY(QFile::link(elsewhere.filePath("new"), disk.filePath("dangling.tif")));
        capture("file");
        expectFailedWrite("/mnt/file.tif");
        capture("dangling");
        expectFailedWrite("/mnt/dangling.tif");
        QCOMPARE(QDir(elsewhere.path()).entryList(QDir::Files), QStringList("theirs"));
        QCOMPARE(QFileInfo(theirs).size(), qint64(0));
    }

    void withoutACameraNoExceptionLeavesTheHandler()
    {
        QVERIFY(plugAndMount(*this));
        window().stopCamera();
        QVERIFY(programCamera()->getFrame() == nullptr);
        capture("f");
        QVERIFY(messages().contains("total() == 0 || data != NULL"));
        expectFailedWrite("/mnt/f.tif");
        QVERIFY(!filesOnDisk().contains("f.tif"));
    }

    // ---- skip frame ----

    void skipFramesAreTakenFromOneToThirty_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<int>("stored");
        for (const int good : {1, 2, 29, 30})
            QTest::addRow("%d", good) << QString::number(good) << good;
        for (const char* bad : {"0", "31", "-1", "abc", "", "5.5", "0x10", "99999999999"})
            QTest::addRow("\"%s\"", bad) << bad << 5;
    }

    void skipFramesAreTakenFromOneToThirty()
    {
        QFETCH(QString, text);
        QFETCH(int, stored);
        global_ini()->Skip_frame = 5;
        setText("EDIT_SKIP_FRAME", text);
        clearConsoles();
        int storedAtBox = -1;
        const QObject look;
        connect(&boxes(), &BoxWatcher::boxShown, &look, [&] { storedAtBox = global_ini()->Skip_frame; });
        click("BUTTON_SKIP_FRAME");
        QCOMPARE(storedAtBox, stored);
        QVERIFY(messages().startsWith("void ORLA_II_Plus_Verifier::on_BUTTON_SKIP_FRAME_clicked()"));
        QCOMPARE(global_ini()->Skip_frame, stored);
        QCOMPARE(this->text("EDIT_SKIP_FRAME"), text);
        if (stored != 5)
            expectBox("ORLA-III", "Skip frame value is set. \nPress [Save Ini] to save the value.",
                      QMessageBox::Information);
        else
            expectBox("Error", "Possible range: 1 to 30", QMessageBox::Critical);
    }

private:
    /// The dialogs for a file's name so far.
    QVector<SeenBox> dialogs()
    {
        QVector<SeenBox> dialogs;
        for (const SeenBox& box : boxes().seen())
            if (box.isFileDialog)
                dialogs.append(box);
        return dialogs;
    }

    void capture(const QString& name)
    {
        if (!name.isEmpty()) // which cancels
            boxes().giveNextFileName(name);
        clearConsoles();
        click("BUTTON_CAPTURE");
        QVERIFY(messages().startsWith("void ORLA_II_Plus_Verifier::on_BUTTON_CAPTURE_clicked()"));
    }

    QStringList filesOnDisk() { return QDir(usb().filesOf()).entryList(QDir::Files); }

    cv::Mat readTiff(const QString& name)
    {
        const QString path = usb().filesOf() + '/' + name;
        return cv::imread(QFile::encodeName(path).toStdString(), cv::IMREAD_UNCHANGED);
    }

    /// The live view at 1:1 shows the frame's upper left part, but for the navigator.
    void compareWithTheScreen(const cv::Mat& picture)
    {
        click("CHECK_SCALED_TO_FIT");
        QVERIFY(waitForFrames(2));
        const QImage view = this->view();
        click("CHECK_SCALED_TO_FIT");
        for (int y = 0; y < 480; ++y)
            for (int x = y < 64 ? 84 : 0; x < 640; ++x) {
                const auto& pixel = picture.at<cv::Vec3b>(y, x);
                if (view.pixel(x, y) != qRgb(pixel[2], pixel[1], pixel[0]))
                    QFAIL(qPrintable(QString("the screen differs at %1, %2").arg(x).arg(y)));
            }
    }

    void expectFailedWrite(const QString& fixedPath)
    {
        QVERIFY2(messages().contains("[Error] " + fixedPath + ' '), qPrintable(messages()));
        QVERIFY(boxes().texts().isEmpty());
        QVERIFY(window().isEnabled());
    }
};

// With a folder of its own for settings that belong to a user: Qt asks where it is once.
int main(int argc, char** argv)
{
    const QTemporaryDir settings;
    qputenv("XDG_CONFIG_HOME", QFile::encodeName(settings.path()));
    const QApplication application(argc, argv);
    TestWindowCapture test;
    return QTest::qExec(&test, argc, argv);
}
#include "test_window_capture.moc"
