#include <QtTest>

#include "ProgramRun.h"

namespace {

const QString kCameraOpen = QStringLiteral("bool OV5642Camera::open(int, std::string, bool) ");
const QString kReadTimeout = QStringLiteral("readAvailableData_Blocking errorDataReadingTimeout");

void row(const char* name, const QString& fault, const QString& message, const QString& absent = {},
         const QString& steps = QStringLiteral("window,tabs,exit,ended"))
{
    QTest::newRow(name) << fault << message << absent << steps;
}

} // namespace

/// Whatever is missing or fails when the program starts: it comes to a window that takes
/// presses, says what it has to say, and leaves by its Exit button with all devices closed.
class TestBadCircumstances : public QObject
{
    Q_OBJECT

private slots:
    void theWindowIsUsableAndCloses_data()
    {
        QTest::addColumn<QString>("fault");
        QTest::addColumn<QString>("message"); // in the debug stream; none: no error at all
        QTest::addColumn<QString>("absent");  // must not be in it
        QTest::addColumn<QString>("steps");

        row("no capture device", "no-camera", kCameraOpen + "[Error] VIDIOC_S_FMT !");
        row("unplugged camera", "unplugged", kCameraOpen + "[Error] VIDIOC_S_FMT !");
        row("no bus", "no-i2c", "[Error] /dev/i2c-1: No such file or directory");
        row("no serial device", "no-serial", "Controller", "sig_connected_controller");
        row("silent board", "no-answer:READY", kReadTimeout, "opened serial port");
        row("board without power", "no-power", kReadTimeout, "slot_connected_controller");
        row("garbage from the board", "garbled", "m_commandResponse:", "slot_connected_controller");
        row("board refuses everything", "failure", "$NG,DEVICE,READY,", "slot_connected_controller");
        row("late board", "late:READY", "slot_connected_controller");
        row("answers byte by byte", "trickled", "slot_connected_controller");
        row("unasked lines", "unsolicited", "trySerialPort");

        for (const char* request :
             {"VIDIOC_S_FMT", "VIDIOC_REQBUFS", "VIDIOC_QUERYBUF", "VIDIOC_QBUF", "VIDIOC_STREAMON"})
            row(request, QString("ioctl:") + request, kCameraOpen + "[Error] " + request + " !");
        row("third VIDIOC_QUERYBUF", "ioctl:VIDIOC_QUERYBUF:EINVAL:3",
            kCameraOpen + "[Error] VIDIOC_QUERYBUF !");
        row("second VIDIOC_QBUF", "ioctl:VIDIOC_QBUF:EINVAL:2", kCameraOpen + "[Error] VIDIOC_QBUF !");
        row("busy VIDIOC_S_FMT", "ioctl:VIDIOC_S_FMT:EBUSY", kCameraOpen + "[Error] VIDIOC_S_FMT !");
        row("VIDIOC_DQBUF", "ioctl:VIDIOC_DQBUF", {});
        row("VIDIOC_DQBUF once", "ioctl:VIDIOC_DQBUF:EAGAIN:1", {});
        row("VIDIOC_QBUF while streaming", "ioctl:VIDIOC_QBUF:EIO:5", {});
        row("VIDIOC_STREAMOFF", "ioctl:VIDIOC_STREAMOFF",
            "bool OV5642Camera::close() [Error] VIDIOC_STREAMOFF");
        row("mapping", "mmap:3", "[Error] ");
        row("no frames", "stall", {});
        row("short frames", "short-frames", {});
        row("oversized frames", "oversized-frames", {});
        row("more buffers", "more-buffers", {});
        row("fewer buffers", "fewer-buffers", {});
        row("short transfers on the bus", "i2c-short", kCameraOpen + "[Error] I2C failed: 1280");
        row("one short transfer", "i2c-short:3", kCameraOpen + "[Error] I2C failed: 1280");
        row("no acknowledgement", "i2c-nack", kCameraOpen + "[Error] I2C failed: 1280");
        // The descriptor of a bus that refuses the address stays open, so "ended" has no say.
        row("bus refuses the address", "ioctl:I2C_SLAVE_FORCE", {}, "[Error]", "window,tabs,exit");

        row("no settings files", "no-settings", {});
        row("unreadable settings files", "unreadable-settings", "[Error] not read:");
        row("no display driver parameter", "no-display-parameter", {});
    }

    void theWindowIsUsableAndCloses()
    {
        QFETCH(QString, fault);
        QFETCH(QString, message);
        QFETCH(QString, absent);
        QFETCH(QString, steps);
        const ProgramRun run({"--instant", "--steps", steps, "--fault", fault});
        QVERIFY2(run.exitStatus == 0, run.all());
        const QString log = run.log();
        QVERIFY(!log.isEmpty());
        if (message.isEmpty())
            QVERIFY2(!log.contains("[Error]"), qPrintable(log));
        else
            QVERIFY2(log.contains(message), qPrintable(log));
        if (!absent.isEmpty())
            QVERIFY2(!log.contains(absent), qPrintable(log));
    }
};

QTEST_GUILESS_MAIN(TestBadCircumstances)
#include "test_bad_circumstances.moc"
