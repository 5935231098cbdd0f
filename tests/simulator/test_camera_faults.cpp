#include <algorithm>
#include <cerrno>
#include <string>

#include <linux/i2c-dev.h>
#include <linux/videodev2.h>

#include <QtTest>

#include "simulator/camera/CallTrace.h"
#include "simulator/camera/CameraFaults.h"

class TestCameraFaults : public QObject
{
    Q_OBJECT

private slots:
    void faultsAreReadFromTheirText_data()
    {
        QTest::addColumn<QByteArray>("text");
        QTest::addColumn<bool>("isFault");
        for (const CameraFaultText& fault : kCameraFaults) {
            const bool isRequest = fault.fault == CameraFault::CallFails;
            QTest::newRow(fault.name) << QByteArray(fault.name) << !isRequest;
        }
        QTest::newRow("request only") << QByteArray("ioctl:VIDIOC_QBUF") << true;
        QTest::newRow("request and errno") << QByteArray("ioctl:VIDIOC_QBUF:EBUSY") << true;
        QTest::newRow("all of it") << QByteArray("ioctl:VIDIOC_QBUF:EBUSY:12") << true;
        QTest::newRow("too much") << QByteArray("ioctl:VIDIOC_QBUF:EBUSY:12:1") << false;
        QTest::newRow("no such request") << QByteArray("ioctl:VIDIOC_MAKE_TEA") << false;
        QTest::newRow("no such errno") << QByteArray("ioctl:VIDIOC_QBUF:ETEA") << false;
        QTest::newRow("one of some") << QByteArray("mmap:1/20") << true;
        QTest::newRow("request, one of some") << QByteArray("ioctl:VIDIOC_QBUF:EBUSY:1/20") << true;
        QTest::newRow("first call") << QByteArray("mmap:1") << true;
        QTest::newRow("one of none") << QByteArray("mmap:1/0") << false;
        QTest::newRow("two of some") << QByteArray("mmap:2/20") << false;
        QTest::newRow("not a number") << QByteArray("mmap:x") << false;
        QTest::newRow("0th call") << QByteArray("mmap:0") << false;
        QTest::newRow("number and more") << QByteArray("mmap:2x") << false;
        QTest::newRow("nothing to count") << QByteArray("stall:2") << false;
        QTest::newRow("no such fault") << QByteArray("tea") << false;
        QTest::newRow("empty") << QByteArray() << false;
    }

    void faultsAreReadFromTheirText()
    {
        QFETCH(QByteArray, text);
        QFETCH(bool, isFault);
        CameraFaults faults;
        QCOMPARE(faults.enable(text.toStdString()), isFault);
        int on = 0;
        for (const CameraFaultText& fault : kCameraFaults)
            on += faults.isOn(fault.fault) ? 1 : 0;
        QCOMPARE(on, isFault ? 1 : 0);
        faults.clear();
        for (const CameraFaultText& fault : kCameraFaults)
            QVERIFY(!faults.isOn(fault.fault));
    }

    void aFaultAtRandomStrikesItsShareAndAlikeForASeed()
    {
        const auto strikes = [](std::uint32_t seed) {
            CameraFaults faults;
            faults.setSeed(seed);
            faults.enable("i2c-nack:1/10");
            std::string struck;
            for (int i = 0; i < 1000; ++i)
                struck += faults.strikes(CameraFault::BusNack) ? 'x' : '.';
            return struck;
        };
        const std::string one = strikes(1);
        const auto struck = std::count(one.begin(), one.end(), 'x');
        QVERIFY2(struck > 60 && struck < 140, qPrintable(QString::number(struck)));
        QCOMPARE(strikes(1), one);
        QVERIFY(strikes(2) != one);
    }

    void aFaultStrikesItsCallOrEveryCall_data()
    {
        QTest::addColumn<QByteArray>("text");
        QTest::addColumn<QByteArray>("struck");
        QTest::newRow("every call") << QByteArray("mmap") << QByteArray("xxxx");
        QTest::newRow("the first") << QByteArray("mmap:1") << QByteArray("x...");
        QTest::newRow("the third") << QByteArray("mmap:3") << QByteArray("..x.");
        QTest::newRow("one of one") << QByteArray("mmap:1/1") << QByteArray("xxxx");
    }

    void aFaultStrikesItsCallOrEveryCall()
    {
        QFETCH(QByteArray, text);
        QFETCH(QByteArray, struck);
        CameraFaults faults;
        QVERIFY(faults.enable(text.toStdString()));
        QByteArray result;
        for (int call = 0; call < struck.size(); ++call)
            result += faults.strikes(CameraFault::MappingFails) ? 'x' : '.';
        QCOMPARE(result, struck);
        QVERIFY(!faults.strikes(CameraFault::BusNack));
    }

    void aRequestFailsWithItsErrnoOrAnInputError()
    {
        CameraFaults faults;
        QVERIFY(faults.enable("ioctl:VIDIOC_QBUF"));
        QVERIFY(faults.enable("ioctl:VIDIOC_DQBUF:EBUSY"));
        QVERIFY(faults.enable("ioctl:VIDIOC_S_FMT:EPERM:2"));
        QCOMPARE(faults.strikesCall("VIDIOC_QBUF")->error, EIO);
        QCOMPARE(faults.strikesCall("VIDIOC_QBUF")->result, -1);
        QCOMPARE(faults.strikesCall("VIDIOC_DQBUF")->error, EBUSY);
        QVERIFY(!faults.strikesCall("VIDIOC_S_FMT").has_value());
        QCOMPARE(faults.strikesCall("VIDIOC_S_FMT")->error, EPERM);
        QVERIFY(!faults.strikesCall("VIDIOC_STREAMON").has_value());
    }

    void requestsAreToldByNameOrNumber()
    {
        QCOMPARE(requestName(VIDIOC_STREAMOFF), std::string("VIDIOC_STREAMOFF"));
        QCOMPARE(requestName(I2C_SLAVE_FORCE), std::string("I2C_SLAVE_FORCE"));
        QCOMPARE(requestName(0x1a2bUL), std::string("0x00001A2B"));
        QCOMPARE(requestName(0xC0FFEE11UL), std::string("0xC0FFEE11"));
    }

    void theTraceForgetsTheOldest()
    {
        CallTrace trace(3, false);
        for (int i = 0; i < 5; ++i)
            trace.add({CallKind::BusWrite, {}, std::to_string(i), 0});
        QCOMPARE(trace.calls().size(), std::size_t(3));
        QCOMPARE(trace.calls().front().details, std::string("2"));
    }
};

QTEST_GUILESS_MAIN(TestCameraFaults)
#include "test_camera_faults.moc"
