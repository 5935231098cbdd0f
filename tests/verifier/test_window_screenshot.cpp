// On a real X server without a monitor: only there can the whole screen be grabbed.

#include <QDir>
#include <QGuiApplication>
#include <QImageReader>
#include <QScreen>
#include <QTemporaryDir>
#include <QTimer>
#include <QtTest>

#include "support/WindowFixture.h"
#include "support/XServer.h"
#include "verifier/UsbStick.h"

/// The Print key.
class TestWindowScreenshot : public QObject, protected WindowFixture
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        if (QGuiApplication::platformName() != "xcb")
            QSKIP("no X server (Xvfb) can be started here, and without one there is no screen to grab");
        window().move(0, 0);
        // Its flushes would be taken for those of the screenshot.
        for (QTimer* timer : window().findChildren<QTimer*>(QString(), Qt::FindDirectChildrenOnly))
            timer->stop();
        QVERIFY(waitForFrames(3));
    }

    void init()
    {
        boxes().clear();
        clearConsoles();
    }

    void cleanup() { pullAndUnmount(*this); }

    // The counter goes on from test to test; this is the first one.
    void theFirstPictureIsNumberOne()
    {
        QVERIFY(plugAndMount(*this));
        const QImage screen = grabScreen();
        const auto syncs = camera().counters().fileSystemSyncs;
        std::uint64_t syncsAtBox = syncs + 100;
        const QObject look;
        connect(&boxes(), &BoxWatcher::boxShown, &look,
                [&] { syncsAtBox = camera().counters().fileSystemSyncs; });
        print();
        expectBox("ORLA-III", "/mnt/KorvexCap-0001.png saved !", QMessageBox::Information);
        QCOMPARE(syncsAtBox, syncs);
        QCOMPARE(camera().counters().fileSystemSyncs, syncs + 1);

        QCOMPARE(filesOnDisk(), QStringList("KorvexCap-0001.png"));
        QImageReader reader(usb().filesOf() + "/KorvexCap-0001.png");
        QCOMPARE(reader.format(), QByteArray("png"));
        const QImage picture = reader.read();
        QCOMPARE(picture.size(), QGuiApplication::primaryScreen()->size());
        QCOMPARE(picture.convertToFormat(QImage::Format_RGB32), screen);
    }

    void thePictureIsWhatTheWindowShows()
    {
        QVERIFY(plugAndMount(*this));
        const QImage shown = window().grab().toImage().convertToFormat(QImage::Format_RGB32);
        print();
        QCOMPARE(boxes().texts(), QStringList("/mnt/KorvexCap-0002.png saved !"));
        const QImage picture(usb().filesOf() + "/KorvexCap-0002.png");
        QCOMPARE(picture.size(), QSize(800, 480));
        // The window fills the screen.
        QCOMPARE(picture.convertToFormat(QImage::Format_RGB32), shown);
    }

    void withoutADiskNothingIsWrittenOrCounted()
    {
        const auto syncs = camera().counters().fileSystemSyncs;
        // What a disk would be mounted over is a folder like any other.
        const QDir folder(machinePath("/mnt"));
        QVERIFY(folder.exists());
        QVERIFY(folder.isEmpty());
        print();
        expectBox("Error", "Please insert USB disk !!!", QMessageBox::Critical);
        QCOMPARE(camera().counters().fileSystemSyncs, syncs);
        QCOMPARE(folder.entryList(QDir::AllEntries | QDir::NoDotAndDotDot), QStringList());
    }

    void aFailureKeepsTheNumber()
    {
        QVERIFY(plugAndMount(*this));
        const QString name = usb().filesOf() + "/KorvexCap-0003.png";
        // Nobody, root included, writes to a directory as if it were a file.
        QVERIFY(QDir().mkdir(name));
        const auto syncs = camera().counters().fileSystemSyncs;
        print();
        expectBox("Error", "/mnt/KorvexCap-0003.png saving failed !!!", QMessageBox::Critical);
        QCOMPARE(camera().counters().fileSystemSyncs, syncs);
        QVERIFY(messages().contains("[Error] /mnt/KorvexCap-0003.png "));

        QVERIFY(QDir().rmdir(name));
        boxes().clear();
        print();
        expectBox("ORLA-III", "/mnt/KorvexCap-0003.png saved !", QMessageBox::Information);
        QVERIFY(!QImage(name).isNull());
    }

    void aLinkOnTheDiskLeadsNoPictureElsewhere()
    {
        QVERIFY(plugAndMount(*this));
        QTemporaryDir elsewhere;
        const QString name = usb().filesOf() + "/KorvexCap-0004.png";
        QVERIFY(QFile::link(elsewhere.filePath("theirs.png"), name));
        print();
        expectBox("Error", "/mnt/KorvexCap-0004.png saving failed !!!", QMessageBox::Critical);
        QVERIFY(QDir(elsewhere.path()).isEmpty());
        QVERIFY(QFile::remove(name));
    }

    void aDiskThatTakesNothingFails_data()
    {
        QTest::addColumn<int>("condition");
        QTest::newRow("full") << int(UsbDiskCondition::Full);
        QTest::newRow("read-only") << int(UsbDiskCondition::ReadOnly);
    }

    void aDiskThatTakesNothingFails()
    {
        QFETCH(int, condition);
        if (!plugAndMount(*this, static_cast<UsbDiskCondition>(condition)))
            QSKIP("this process may not mount a file system");
        print();
        expectBox("Error", "/mnt/KorvexCap-0004.png saving failed !!!", QMessageBox::Critical);
    }

    void theNumberHasFourDigits()
    {
        QVERIFY(plugAndMount(*this));
        for (int number = 4; number <= 10; ++number) {
            boxes().clear();
            print();
            QCOMPARE(boxes().texts(),
                     QStringList(QString("/mnt/KorvexCap-%1.png saved !").arg(number, 4, 10, QChar('0'))));
        }
        QVERIFY(filesOnDisk().contains("KorvexCap-0010.png"));
    }

    void otherKeysDoNothing()
    {
        QVERIFY(plugAndMount(*this));
        const QStringList before = filesOnDisk();
        for (const int key : {Qt::Key_SysReq, Qt::Key_P, Qt::Key_Escape, Qt::Key_F12, Qt::Key_Return}) {
            QKeyEvent event(QEvent::KeyPress, key, Qt::NoModifier);
            event.accept();
            QCoreApplication::sendEvent(&window(), &event);
            QVERIFY(!event.isAccepted());
        }
        QVERIFY(boxes().seen().isEmpty());
        QCOMPARE(filesOnDisk(), before);
    }

    void theKeyIsTaken()
    {
        QKeyEvent event(QEvent::KeyPress, Qt::Key_Print, Qt::NoModifier);
        event.ignore();
        QCoreApplication::sendEvent(&window(), &event);
        QVERIFY(event.isAccepted());
        QCOMPARE(boxes().texts(), QStringList("Please insert USB disk !!!"));
    }

    void theKeyCountsWhereverTheFocusIs_data()
    {
        QTest::addColumn<QString>("widget");
        for (const char* widget :
             {"EDIT_Z_ABS", "SPIN_Z_STEP", "EDIT_LED", "CHECK_CROSS_LINE", "EDIT_SKIP_FRAME", "TAB_MENU",
              "PLAIN_DEBUG_MESSAGE", "PLAIN_DEBUG_CONTROLLER", "QC_MEASURE"})
            QTest::newRow(widget) << widget;
    }

    void theKeyCountsWhereverTheFocusIs()
    {
        QFETCH(QString, widget);
        QTest::keyClick(find<QWidget>(qPrintable(widget)), Qt::Key_Print);
        QCOMPARE(boxes().texts(), QStringList("Please insert USB disk !!!"));
    }

private:
    void print() { QTest::keyClick(&window(), Qt::Key_Print); }

    static QImage grabScreen()
    {
        return QGuiApplication::primaryScreen()->grabWindow(0).toImage().convertToFormat(
            QImage::Format_RGB32);
    }

    QStringList filesOnDisk() { return QDir(usb().filesOf()).entryList(QDir::Files); }
};

int main(int argc, char* argv[])
{
    const XServer server(800, 480);
    if (!server.display().empty()) {
        qputenv("DISPLAY", server.display().c_str());
        qputenv("QT_QPA_PLATFORM", "xcb");
        // Nothing here is drawn by OpenGL, whose libraries would only be loaded and left.
        qputenv("QT_XCB_GL_INTEGRATION", "none");
    }
    int result = 0;
    {
        const QApplication application(argc, argv);
        TestWindowScreenshot test;
        result = QTest::qExec(&test, argc, argv);
    }
    return result;
}

#include "test_window_screenshot.moc"
