#include "Algorithm/FocusLog.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QtTest>

#include <opencv2/imgcodecs.hpp>

#include "platform/InstrumentPath.h"
#include "support/FileBytes.h"

using namespace focus_log;

class TestFocusLog : public QObject
{
    Q_OBJECT

private slots:
    void init()
    {
        m_root.reset(new QTemporaryDir);
        QVERIFY(m_root->isValid());
        setInstrumentRoot(m_root->path());
    }

    void cleanup() { setInstrumentRoot({}); }

    void directoryCarriesTheStartTime()
    {
        const QDateTime start(QDate(2024, 3, 9), QTime(7, 5, 2, 999));
        QCOMPARE(directoryOf(start), QStringLiteral("/mnt/ORLA-II/Autofocus/20240309_070502"));
        QCOMPARE(stepDirectory(directoryOf(start), 1),
                 QStringLiteral("/mnt/ORLA-II/Autofocus/20240309_070502/Step1"));
    }

    void frameFileNames_data()
    {
        QTest::addColumn<int>("step");
        QTest::addColumn<int>("number");
        QTest::addColumn<int>("z");
        QTest::addColumn<double>("score");
        QTest::addColumn<QString>("name");
        QTest::newRow("first") << 1 << 1 << 6160 << 12.5 << "/d/Step1/Autofocus_01_6160_12.5.tiff";
        QTest::newRow("fifteenth") << 1 << 15 << -40 << 0.0 << "/d/Step1/Autofocus_15_-40_0.tiff";
        QTest::newRow("six digits") << 3 << 7 << 0 << double(123.456789F)
                                    << "/d/Step3/Autofocus_07_0_123.457.tiff";
        QTest::newRow("exponent") << 2 << 1 << 1 << double(1.0F / 1e6F)
                                  << "/d/Step2/Autofocus_01_1_1e-06.tiff";
    }

    void frameFileNames()
    {
        QFETCH(int, step);
        QFETCH(int, number);
        QFETCH(int, z);
        QFETCH(double, score);
        QTEST(frameFile(QStringLiteral("/d"), step, static_cast<std::size_t>(number), z, score), "name");
    }

    void tableCountsLinesFromZeroAndTheBestFromOne()
    {
        const std::vector<AutoFocusingData_s> samples{{0.0, 6160}, {123.456789, 6800}, {0.25, -7440}};
        QCOMPARE(scoreTable(samples, 1),
                 QStringLiteral("0,6160,0\n1,6800,123.457\n2,-7440,0.25\n\n2,6800,123.457"));
    }

    void tableOfABestThatIsMissingLeavesItOut()
    {
        QCOMPARE(scoreTable({{1.5, 2}}, 1), QStringLiteral("0,2,1.5\n\n"));
        QCOMPARE(scoreTable({}, 0), QStringLiteral("\n"));
    }

    void directoriesComeWithTheirParents()
    {
        QVERIFY(createDirectory(QStringLiteral("/mnt/a/b/Step1")));
        QVERIFY(QDir(m_root->filePath(QStringLiteral("mnt/a/b/Step1"))).exists());
        QVERIFY(createDirectory(QStringLiteral("/mnt/a/b/Step1")));
    }

    void framesAreReadBackPixelByPixel()
    {
        cv::Mat frame(31, 47, CV_8UC3);
        cv::randu(frame, 0, 256);
        const cv::Mat before = frame.clone();
        QVERIFY(writeFrame(QStringLiteral("/frame.tiff"), frame));
        QCOMPARE(cv::norm(frame, before, cv::NORM_INF), 0.0);
        // The reader hands out B, G, R.
        const cv::Mat bgr = cv::imread(m_root->filePath(QStringLiteral("frame.tiff")).toStdString());
        QCOMPARE(bgr.size(), frame.size());
        cv::Mat channel;
        for (int i = 0; i < 3; ++i) {
            cv::Mat expected;
            cv::extractChannel(frame, expected, i);
            cv::extractChannel(bgr, channel, 2 - i);
            QCOMPARE(cv::norm(channel, expected, cv::NORM_INF), 0.0);
        }
    }

    void aSecondTableReplacesTheFirst()
    {
        QVERIFY(writeText(QStringLiteral("/t.csv"), QStringLiteral("a long first text\n")));
        QVERIFY(writeText(QStringLiteral("/t.csv"), QStringLiteral("short")));
        QCOMPARE(bytesOf(m_root->filePath(QStringLiteral("t.csv"))), QByteArray("short"));
    }

    void whatCannotBeWrittenIsReportedAndThrowsNothing()
    {
        const cv::Mat frame(8, 8, CV_8UC3, cv::Scalar(1, 2, 3));
        QVERIFY(!writeFrame(QStringLiteral("/no/such/place/frame.tiff"), frame));
        QVERIFY(!writeFrame(QStringLiteral("/frame.unknown"), frame));
        QVERIFY(!writeFrame(QStringLiteral("/frame.tiff"), cv::Mat()));
        QVERIFY(!writeText(QStringLiteral("/no/such/place/t.csv"), QStringLiteral("x")));
        QVERIFY(writeText(QStringLiteral("/file"), QStringLiteral("in the way")));
        QVERIFY(!createDirectory(QStringLiteral("/file/Step1")));
        // A disk without room: the device that is always full.
        QVERIFY(QFile::link(QStringLiteral("/dev/full"), m_root->filePath(QStringLiteral("full.csv"))));
        QVERIFY(!writeText(QStringLiteral("/full.csv"), QStringLiteral("x")));
        QVERIFY(QFile::link(QStringLiteral("/dev/full"), m_root->filePath(QStringLiteral("full.tiff"))));
        QVERIFY(!writeFrame(QStringLiteral("/full.tiff"), frame));
    }

    void aDisksLinksLeadNoLogElsewhere_data()
    {
        QTest::addColumn<QString>("link");
        QTest::addColumn<QString>("target");
        const auto row = [](const char* name, const char* link, const char* target) {
            QTest::newRow(name) << link << target;
        };
        row("file, in the place of the table", "/mnt/log/t.csv", "../../etc/theirs");
        row("nothing, in the place of the table", "/mnt/log/t.csv", "../../etc/new");
        row("file, in the place of a frame", "/mnt/log/f.tiff", "../../etc/theirs");
        row("folder, in the place of the log's", "/mnt/log", "../etc");
        row("folder, in the place of the first one", "/mnt/ORLA-II", "../etc");
    }

    void aDisksLinksLeadNoLogElsewhere()
    {
        QFETCH(QString, link);
        QFETCH(QString, target);
        const QDir root(m_root->path());
        const QDir etc(root.filePath("etc"));
        QVERIFY(root.mkpath("etc") && root.mkpath("mnt/log"));
        QVERIFY(writeText(QStringLiteral("/etc/theirs"), QStringLiteral("theirs")));
        const QString path = instrumentPath(link);
        QDir().rmdir(path);
        QVERIFY(QFile::link(target, path));

        createDirectory(QStringLiteral("/mnt/ORLA-II/Autofocus/20240309_070502/Step1"));
        writeText(QStringLiteral("/mnt/log/t.csv"), QStringLiteral("ours"));
        writeFrame(QStringLiteral("/mnt/log/f.tiff"), cv::Mat(8, 8, CV_8UC3, cv::Scalar(1, 2, 3)));
        QCOMPARE(etc.entryList(QDir::AllEntries | QDir::NoDotAndDotDot), QStringList("theirs"));
        QCOMPARE(bytesOf(etc.filePath("theirs")), QByteArray("theirs"));
    }

private:
    QScopedPointer<QTemporaryDir> m_root;
};

QTEST_GUILESS_MAIN(TestFocusLog)
#include "test_focus_log.moc"
