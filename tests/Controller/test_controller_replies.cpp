#include <chrono>
#include <memory>
#include <thread>

#include <QTextCodec>
#include <QtTest>

#include "ControllerFixture.h"

namespace {

/// A locale's character set as long as the object lives.
class LocaleCodec
{
public:
    explicit LocaleCodec(const char* name) { QTextCodec::setCodecForLocale(QTextCodec::codecForName(name)); }
    ~LocaleCodec() { QTextCodec::setCodecForLocale(m_before); }
    LocaleCodec(const LocaleCodec&) = delete;
    LocaleCodec& operator=(const LocaleCodec&) = delete;

private:
    QTextCodec* const m_before = QTextCodec::codecForLocale();
};

} // namespace

class TestControllerReplies : public QObject
{
    Q_OBJECT

private slots:
    void parsingTakesTheTextAfterTheLastMark_data()
    {
        QTest::addColumn<QString>("line");
        QTest::addColumn<QStringList>("fields");
        const QStringList before = {"was", "a", "b", "c"};
        QTest::newRow("reply") << "$OK,STM1,MVP,640," << QStringList({"OK", "STM1", "MVP", "640"});
        QTest::newRow("no mark") << "OK,STM1,MVP,640," << QStringList({"OK", "STM1", "MVP", "640"});
        QTest::newRow("two replies run together")
            << "$OK,STM1,MVP,1,$NG,LED4,ON,," << QStringList({"NG", "LED4", "ON", ""});
        QTest::newRow("text after the last comma is dropped")
            << "$OK,STM1,MVP,7,rest" << QStringList({"OK", "STM1", "MVP", "7"});
        QTest::newRow("empty fields") << "$,,,," << QStringList({"", "", "", ""});
        QTest::newRow("blanks are kept")
            << "$ OK,DEVICE,FW VERSION, 1 ," << QStringList({" OK", "DEVICE", "FW VERSION", " 1 "});
        QTest::newRow("four pieces") << "$OK,DEVICE,READY," << before;
        QTest::newRow("six pieces") << "$OK,DEVICE,READY,,," << before;
        QTest::newRow("mark at the end") << "OK,STM1,MVP,640,$" << before;
        QTest::newRow("empty") << "" << before;
    }

    void parsingTakesTheTextAfterTheLastMark()
    {
        QFETCH(QString, line);
        QFETCH(QStringList, fields);
        ControllerFixture fixture;
        fixture.controller.parsing_responseReceived("$was,a,b,c,");
        fixture.log.clear();
        fixture.controller.parsing_responseReceived(line);
        QCOMPARE(fixture.fields(), fields);
        QCOMPARE(fixture.log.messages().size(), 1);
        QVERIFY(fixture.log.messages().first().startsWith("parsing_responseReceived"));
    }

    void aNonBlockingReplyMovesTheTrackedPosition_data()
    {
        QTest::addColumn<QByteArray>("reply");
        QTest::addColumn<int>("position");
        QTest::addColumn<QStringList>("signalled");
        const auto row = [](const char* reply, int position, const QStringList& signalled) {
            QTest::newRow(reply) << QByteArray(reply) + "\r\n" << position << signalled;
        };
        row("$OK,STM1,ORIGIN,,", 0, {"origin"});
        row("$NG,STM1,ORIGIN,,", 0, {"origin"});
        row("$OK,STM1,MVN,230,", 770, {"mvn"});
        row("$NG,STM1,MVN,230,", 770, {"mvn"});
        row("$OK,STM1,MVP,230,", 1230, {"mvp"});
        row("$NG,STM1,MVP,230,", 1230, {"mvp"});
        row("$OK,STM1,MVP,-30,", 970, {"mvp"});
        row("$OK,STM1,MVP,,", 1000, {"mvp"});
        row("$OK,STM1,MVN,many,", 1000, {"mvn"});
        row("$OK,STM1,MVN,-2147483648,", -2147482648, {"mvn"});
        row("$OK,STM1,MVP,2147483647,", -2147482649, {"mvp"});
        row("$OK,STM1,ABS,-40,", -40, {"abs"});
        row("$OK,STM1,ABS,,", 0, {"abs"});
        row("$OK,STM1,xMVNMVPx,1,", 999, {"mvn"});
        row("$OK,STM1,ABS ORIGIN,9,", 0, {"origin"});
        row("$OK,STM1,STOP,,", 1000, {});
        row("$OK,STM1,GET_POS,7,", 1000, {});
        row("$OK,STM1,mvp,7,", 1000, {});
    }

    void aNonBlockingReplyMovesTheTrackedPosition()
    {
        QFETCH(QByteArray, reply);
        ListeningFixture fixture;
        fixture.controller.m_zStagePosition = 1000;
        fixture.peer.send(reply);
        QTRY_COMPARE(fixture.log.messages().size(), 2);
        QTEST(fixture.moves, "signalled");
        QTEST(fixture.controller.m_zStagePosition, "position");
        QCOMPARE(fixture.echoed.count(), 0);
        const QString line = QString::fromLatin1(reply.left(reply.size() - 2));
        QCOMPARE(fixture.log.messages(),
                 QStringList({"slot_readyRead response: \"" + line + "\"",
                              "parsing_responseReceived response: \"" + line + "\""}));
    }

    void theTrackedPositionIsUpToDateWhenTheSignalComes()
    {
        ListeningFixture fixture;
        int seen = 0;
        connect(&fixture.controller, &Controller::sig_z_stage_mvp, this,
                [&] { seen = fixture.controller.m_zStagePosition; });
        fixture.peer.send("$OK,STM1,MVP,230,\r\n");
        QTRY_COMPARE(seen, 230);
    }

    void twoLinesInOneChunkAreHandledByTwoNotifications()
    {
        OpenFixture fixture;
        // Twice, or every notification would find two listeners and take two lines.
        fixture.controller.setPortListener(true);
        fixture.controller.setPortListener(true);
        fixture.peer.send("$OK,STM1,MVP,230,\r\n$OK,STM1,MVN,30,\r\n");
        QTRY_VERIFY(!fixture.moves.isEmpty());
        QTest::qWait(kShort_ms);
        QCOMPARE(fixture.moves, QStringList("mvp"));
        fixture.peer.send("$OK,STM1,STOP,,\r\n");
        QTRY_COMPARE(fixture.moves, QStringList({"mvp", "mvn"}));
        QCOMPARE(fixture.controller.m_zStagePosition, 200);
    }

    void anUnparsableLineRepeatsThePreviousReply()
    {
        ListeningFixture fixture;
        fixture.peer.send("$OK,STM1,MVP,230,\r\n");
        QTRY_COMPARE(fixture.moves.size(), 1);
        fixture.peer.send("noise\r\n");
        QTRY_COMPARE(fixture.moves.size(), 2);
        QCOMPARE(fixture.controller.m_zStagePosition, 460);
    }

    void trickledBytesAreOneLine()
    {
        ListeningFixture fixture;
        for (const char byte : QByteArray("$OK,STM1,MVP,230,\r\n")) {
            QCOMPARE(fixture.moves.size(), 0);
            fixture.peer.send(QByteArray(1, byte));
            QTest::qWait(2);
        }
        QTRY_COMPARE(fixture.moves.size(), 1);
        QCOMPARE(fixture.controller.m_zStagePosition, 230);
    }

    void aLineEndsAtItsFirstNul()
    {
        ListeningFixture fixture;
        fixture.controller.parsing_responseReceived("$OK,STM1,ABS,3,");
        fixture.peer.send(QByteArray("$OK,STM1,ABS,-40\0,\r\n", 20));
        QTRY_COMPARE(fixture.moves.size(), 1);
        QCOMPARE(fixture.controller.m_zStagePosition, 3);
        QVERIFY(fixture.log.messages().contains("slot_readyRead response: \"$OK,STM1,ABS,-40\""));
    }

    void withTheListenerOffALineIsNotHandled()
    {
        OpenFixture fixture;
        fixture.controller.setPortListener(true);
        fixture.controller.setPortListener(true);
        fixture.peer.send("$OK,STM1,MVP,1,\r\n");
        QTRY_COMPARE(fixture.moves.size(), 1);
        QTest::qWait(kShort_ms);
        QCOMPARE(fixture.moves.size(), 1);
        fixture.controller.setPortListener(false);
        fixture.peer.send("$OK,STM1,MVP,2,\r\n");
        QTest::qWait(kShort_ms);
        QCOMPARE(fixture.moves.size(), 1);
        QCOMPARE(fixture.controller.m_zStagePosition, 1);
    }

    void anExchangeTellsEachOfItsStepsInTurn()
    {
        OpenFixture fixture;
        fixture.logEchoes();
        fixture.exchange("$,LED4,ON,,\r\n", "$OK,LED4,ON,,\r\n");
        QCOMPARE(fixture.controller.commandResponse(), QStringLiteral("$OK,LED4,ON,,"));
        QCOMPARE(fixture.log.messages(),
                 QStringList({R"(write_Blocking command: "$,LED4,ON,,\r\n")", R"(echo "$,LED4,ON,,\r\n")",
                              R"(readAvailableData_Blocking m_commandResponse: "$OK,LED4,ON,,\r\n")",
                              R"(echo "$OK,LED4,ON,,\r\n")",
                              R"(parsing_responseReceived response: "$OK,LED4,ON,,")"}));
    }

    // A line is over with its line feed; what is cut off is a carriage return with it.
    void aLineFeedAloneEndsALine()
    {
        ListeningFixture fixture;
        fixture.exchange("$,LED4,ON,,\r\n", "$OK,LED4,ON,,\n");
        QCOMPARE(fixture.controller.commandResponse(), QStringLiteral("$OK,LED4,ON,,\n"));
        QCOMPARE(fixture.fields(), QStringList({"OK", "LED4", "ON", ""}));
        fixture.peer.send("$OK,STM1,MVP,230,\n");
        QTRY_COMPARE(fixture.moves.size(), 1);
        QCOMPARE(fixture.controller.m_zStagePosition, 230);
    }

    void anExchangeKeepsTheListenerAwayAndBringsItBack()
    {
        ListeningFixture fixture;
        fixture.exchange("$,STM1,MVP,640,\r\n", "$OK,STM1,MVP,640,\r\n");
        QTest::qWait(kShort_ms);
        QCOMPARE(fixture.moves.size(), 0);
        QCOMPARE(fixture.controller.m_zStagePosition, 0);
        fixture.peer.send("$OK,STM1,MVP,640,\r\n");
        QTRY_COMPARE(fixture.moves.size(), 1);
    }

    void aTimeoutEmptiesTheLastLineAndLeavesTheRecordAndTheListener()
    {
        OpenFixture fixture;
        fixture.exchange("$,STM1,GET_POS,,\r\n", "$OK,STM1,GET_POS,77,\r\n");
        QVERIFY(!fixture.controller.commandResponse().isEmpty());
        fixture.log.clear();
        fixture.echoed.clear();
        QElapsedTimer timer;
        timer.start();
        fixture.controller.writeAndRead_Blocking("$,STM1,STOP,,\r\n", kLong_ms, kShort_ms);
        QVERIFY(timer.elapsed() >= kShort_ms - 1);
        QCOMPARE(fixture.controller.commandResponse(), QString());
        QCOMPARE(fixture.fields(), QStringList({"OK", "STM1", "GET_POS", "77"}));
        QCOMPARE(fixture.echoed.count(), 1);
        QCOMPARE(fixture.log.messages(), QStringList({"write_Blocking command: \"$,STM1,STOP,,\\r\\n\"",
                                                      "readAvailableData_Blocking errorDataReadingTimeout"}));
        fixture.peer.send("$OK,STM1,MVP,640,\r\n");
        QTRY_COMPARE(fixture.moves.size(), 1);
    }

    // Every piece restarts the wait, so the whole answer may take longer than the time-out.
    void aTrickledAnswerMayTakeLongerThanTheTimeout()
    {
        const InstrumentTime kPause{200000};
        constexpr int kReadTimeout_ms = 1000;
        OpenFixture fixture;
        fixture.peer.answer({{"$OK,"},
                             {"STM1", kPause},
                             {",", kPause},
                             {"STO", kPause},
                             {"P", kPause},
                             {",,", kPause},
                             {"\r", kPause},
                             {"\n", kPause}});
        QElapsedTimer timer;
        timer.start();
        fixture.controller.writeAndRead_Blocking("$,STM1,STOP,,\r\n", kLong_ms, kReadTimeout_ms);
        QVERIFY(timer.elapsed() > kReadTimeout_ms);
        QCOMPARE(fixture.controller.commandResponse(), QStringLiteral("$OK,STM1,STOP,,"));
    }

    void anUnfinishedLineIsATimeoutAndIsGoneByTheNextExchange()
    {
        OpenFixture fixture;
        fixture.peer.answer("$OK,STM1,STO");
        fixture.controller.writeAndRead_Blocking("$,STM1,STOP,,\r\n", kLong_ms, kShort_ms);
        QCOMPARE(fixture.controller.commandResponse(), QString());
        fixture.exchange("$,LED4,ON,,\r\n", "$OK,LED4,ON,,\r\n");
        QCOMPARE(fixture.controller.commandResponse(), QStringLiteral("$OK,LED4,ON,,"));
    }

    void anOldLineIsNotTakenForTheAnswer()
    {
        OpenFixture fixture;
        fixture.peer.send("$NG,STM1,OLD,,\r\n");
        QTest::qWait(kShort_ms);
        fixture.exchange("$,LED4,ON,,\r\n", "$OK,LED4,ON,,\r\n$OK,LED4,TWICE,,\r\n");
        QCOMPARE(fixture.fields(), QStringList({"OK", "LED4", "ON", ""}));
        fixture.exchange("$,LED4,OFF,,\r\n", "$OK,LED4,OFF,,\r\n");
        QCOMPARE(fixture.fields(), QStringList({"OK", "LED4", "OFF", ""}));
    }

    void aBlockingReplyEndsAtItsFirstNul()
    {
        OpenFixture fixture;
        fixture.exchange("$,LED4,ON,,\r\n", QByteArray("$OK,\0LED4,ON,,\r\n", 16));
        QCOMPARE(fixture.controller.commandResponse(), QStringLiteral("$OK,"));
        QCOMPARE(fixture.echoed.at(1).at(0).toString(), QStringLiteral("$OK,"));
        QCOMPARE(fixture.fields(), QStringList({"", "", "", ""}));
    }

    void foreignBytesAreReadAsLatin1()
    {
        OpenFixture fixture;
        fixture.exchange("$,DEVICE,FW VERSION,,\r\n", "$OK,DEVICE,FW VERSION,\xb5\xff,\r\n");
        QCOMPARE(fixture.controller.responseInfo().value, QString::fromLatin1("\xb5\xff"));
    }

    void aCommandGoesOutInTheLocalesCharactersAndTheReplyIsLatin1_data()
    {
        QTest::addColumn<QByteArray>("locale");
        QTest::addColumn<QByteArray>("sent");
        QTest::newRow("Latin-9") << QByteArray("ISO-8859-15") << QByteArray("\xA4");
        QTest::newRow("UTF-8") << QByteArray("UTF-8") << QByteArray("\xE2\x82\xAC");
    }

    void aCommandGoesOutInTheLocalesCharactersAndTheReplyIsLatin1()
    {
        QFETCH(QByteArray, locale);
        QFETCH(QByteArray, sent);
        const LocaleCodec codec(locale.constData());
        const QString euro = QString("$,LED4,%1,,\r\n").arg(QChar(0x20AC));
        OpenFixture fixture;
        fixture.peer.answer("$OK,LED4,\xA4,,\r\n");
        fixture.controller.writeAndRead_Blocking(euro, kLong_ms, kLong_ms);
        QCOMPARE(fixture.controller.responseInfo().command, QString(QChar(0xA4)));
        fixture.controller.write_nonBlocking(euro);
        const QByteArray line = "$,LED4," + sent + ",,\r\n";
        QTRY_COMPARE(fixture.peer.received(), QList<QByteArray>({line, line}));
    }

    void aNonBlockingWriteReturnsWithoutAnAnswer()
    {
        OpenFixture fixture;
        fixture.controller.write_nonBlocking("$,STM1,ABS,40,\r\n");
        QCOMPARE(fixture.log.messages(), QStringList{"write_nonBlocking command: \"$,STM1,ABS,40,\\r\\n\""});
        QCOMPARE(fixture.echoed.count(), 1);
        QCOMPARE(fixture.echoed.at(0).at(0).toString(), QStringLiteral("$,STM1,ABS,40,\r\n"));
        QTRY_COMPARE(fixture.peer.received(), QList<QByteArray>{"$,STM1,ABS,40,\r\n"});
    }

    // A second line of one chunk waits to be read; a command does away with it.
    void aNonBlockingWriteDiscardsWhatWasNotReadYet()
    {
        ListeningFixture fixture;
        fixture.peer.send("$OK,STM1,MVP,1,\r\n$OK,STM1,MVN,1,\r\n");
        QTRY_COMPARE(fixture.moves, QStringList("mvp"));
        fixture.controller.write_nonBlocking("$,STM1,ABS,40,\r\n");
        fixture.peer.send("$OK,STM1,ABS,40,\r\n");
        QTRY_COMPARE(fixture.moves, QStringList({"mvp", "abs"}));
    }

    // A non-blocking line leaves with the event loop; an exchange that comes first takes its place.
    void anExchangeDiscardsWhatWasNotSentYet()
    {
        OpenFixture fixture;
        fixture.controller.write_nonBlocking("$,STM1,ABS,40,\r\n");
        fixture.exchange("$,LED4,ON,,\r\n", "$OK,LED4,ON,,\r\n");
        QTest::qWait(kShort_ms);
        QCOMPARE(fixture.peer.received(), QList<QByteArray>{"$,LED4,ON,,\r\n"});
    }

    void aBlockingWriteDiscardsWhatWasNotReadYet()
    {
        ListeningFixture fixture;
        fixture.peer.send("$OK,STM1,MVP,1,\r\n$NG,STM1,OLD,,\r\n");
        QTRY_COMPARE(fixture.moves.size(), 1);
        fixture.controller.setPortListener(false);
        fixture.peer.answer("$OK,LED4,ON,,\r\n");
        fixture.controller.write_Blocking("$,LED4,ON,,\r\n", kLong_ms);
        fixture.controller.readAvailableData_Blocking(kLong_ms);
        QCOMPARE(fixture.controller.commandResponse(), QStringLiteral("$OK,LED4,ON,,"));
    }

    // The port stays open: nothing tells a pulled cable from a silent board.
    void aLineThatVanishesEndsTheWait()
    {
        LonelyFixture fixture;
        auto line = std::make_unique<PseudoTerminal>();
        QVERIFY(QDir(fixture.root.path()).mkpath("dev"));
        QVERIFY(QFile::link(QString::fromStdString(line->devicePath()), fixture.root.path() + "/dev/ttyS2"));
        fixture.open();
        Controller& controller = fixture.controller;
        std::thread cutter([&line] {
            std::this_thread::sleep_for(std::chrono::milliseconds(kShort_ms));
            line.reset();
        });
        QElapsedTimer timer;
        timer.start();
        controller.writeAndRead_Blocking("$,LED4,ON,,\r\n", kLong_ms, kLong_ms);
        controller.writeAndRead_Blocking("$,LED4,ON,,\r\n", kLong_ms, kLong_ms);
        cutter.join();
        QVERIFY(timer.elapsed() < kLong_ms);
        QCOMPARE(fixture.log.messages().count("readAvailableData_Blocking errorDataReadingTimeout"), 2);
        QVERIFY(controller.isSerialPortOpen());
        QVERIFY(!controller.trySerialPort());
        QVERIFY(!controller.isSerialPortOpen());
    }
};

QTEST_GUILESS_MAIN(TestControllerReplies)
#include "test_controller_replies.moc"
