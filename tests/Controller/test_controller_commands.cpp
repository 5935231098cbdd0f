#include <QtTest>

#include "ControllerFixture.h"

namespace {

using BoolCommand = std::function<bool(Controller&)>;

struct BoolRow
{
    const char* function;
    BoolCommand call;
    const char* line;
    int positionAfter; // from 1000
};

const std::vector<BoolRow>& boolRows()
{
    static const std::vector<BoolRow> rows = {
        {"led_on", [](Controller& c) { return c.led_on(); }, "$,LED4,ON,,", 1000},
        {"led_off", [](Controller& c) { return c.led_off(); }, "$,LED4,OFF,,", 1000},
        {"led_brightness", [](Controller& c) { return c.led_brightness(225); }, "$,LED4,BRT,225,", 1000},
        {"led_brightness", [](Controller& c) { return c.led_brightness(-5); }, "$,LED4,BRT,-5,", 1000},
        {"z_stage_origin", [](Controller& c) { return c.z_stage_origin(SERIAL_BLOCKING); }, "$,STM1,ORIGIN,,",
         0},
        {"z_stage_ron", [](Controller& c) { return c.z_stage_ron(250); }, "$,STM1,RON,250,", 1000},
        {"z_stage_rop", [](Controller& c) { return c.z_stage_rop(250); }, "$,STM1,ROP,250,", 1000},
        {"z_stage_mvn", [](Controller& c) { return c.z_stage_mvn(SERIAL_BLOCKING, 640); }, "$,STM1,MVN,640,",
         360},
        {"z_stage_mvn", [](Controller& c) { return c.z_stage_mvn(SERIAL_BLOCKING, 0); }, "$,STM1,MVN,0,",
         1000},
        {"z_stage_mvp", [](Controller& c) { return c.z_stage_mvp(SERIAL_BLOCKING, 640); }, "$,STM1,MVP,640,",
         1640},
        {"z_stage_abs", [](Controller& c) { return c.z_stage_abs(SERIAL_BLOCKING, -40); }, "$,STM1,ABS,-40,",
         -40},
        {"z_stage_stop", [](Controller& c) { return c.z_stage_stop(); }, "$,STM1,STOP,,", 1000},
        {"stage_kval_acc", [](Controller& c) { return c.stage_kval_acc(11); }, "$,STM1,ACC,11,", 1000},
        {"stage_kval_dec", [](Controller& c) { return c.stage_kval_dec(12); }, "$,STM1,DEC,12,", 1000},
        {"stage_kval_run", [](Controller& c) { return c.stage_kval_run(13); }, "$,STM1,RUN,13,", 1000},
        {"stage_kval_hold", [](Controller& c) { return c.stage_kval_hold(14); }, "$,STM1,HOLD,14,", 1000},
    };
    return rows;
}

// Every row with every kind of reply to it.
void addBoolRows()
{
    QTest::addColumn<int>("row");
    QTest::addColumn<QByteArray>("result");
    QTest::addColumn<bool>("ok");
    for (int row = 0; row < static_cast<int>(boolRows().size()); ++row) {
        for (const char* result : {"OK", "NG", "ok", "OK ", ""}) {
            QTest::addRow("%s '%s'", boolRows()[static_cast<std::size_t>(row)].line, result)
                << row << QByteArray(result) << (qstrcmp(result, "OK") == 0);
        }
    }
}

struct MoveRow
{
    const char* function;
    BoolCommand call;
    const char* line;
    const char* completed;
    int positionAfter; // from 1000
};

const std::vector<MoveRow>& moveRows()
{
    static const std::vector<MoveRow> rows = {
        {"z_stage_origin", [](Controller& c) { return c.z_stage_origin(SERIAL_NON_BLOCKING); },
         "$,STM1,ORIGIN,,", "origin", 0},
        {"z_stage_mvn", [](Controller& c) { return c.z_stage_mvn(SERIAL_NON_BLOCKING, 230); },
         "$,STM1,MVN,230,", "mvn", 770},
        {"z_stage_mvp", [](Controller& c) { return c.z_stage_mvp(SERIAL_NON_BLOCKING, 230); },
         "$,STM1,MVP,230,", "mvp", 1230},
        {"z_stage_abs", [](Controller& c) { return c.z_stage_abs(SERIAL_NON_BLOCKING, 230); },
         "$,STM1,ABS,230,", "abs", 230},
    };
    return rows;
}

} // namespace

class TestControllerCommands : public QObject
{
    Q_OBJECT

private slots:
    void aCommandSendsItsLineAndIsJudgedByTheReply_data() { addBoolRows(); }

    void aCommandSendsItsLineAndIsJudgedByTheReply()
    {
        QFETCH(int, row);
        QFETCH(QByteArray, result);
        const BoolRow& command = boolRows()[static_cast<std::size_t>(row)];
        const QByteArray line = QByteArray(command.line) + "\r\n";
        OpenFixture fixture;
        fixture.controller.m_zStagePosition = 1000;
        fixture.peer.answer("$" + result + line.mid(1));
        // While the lines go to and fro the stage has not moved yet.
        QVector<int> meanwhile;
        connect(&fixture.controller, &Controller::sig_debug_Controller, this,
                [&] { meanwhile << fixture.controller.m_zStagePosition; });
        QTEST(command.call(fixture.controller), "ok");
        QCOMPARE(meanwhile, QVector<int>({1000, 1000}));
        QCOMPARE(fixture.peer.received(), QList<QByteArray>{line});
        QCOMPARE(fixture.controller.m_zStagePosition, command.positionAfter);
        QCOMPARE(fixture.log.messages().first(), QString(command.function));
        QCOMPARE(fixture.moves, QStringList());
    }

    void aNonBlockingMoveReportsThePreviousOutcome_data()
    {
        QTest::addColumn<int>("row");
        QTest::addColumn<bool>("previousOk");
        for (int row = 0; row < static_cast<int>(moveRows().size()); ++row) {
            for (const bool previousOk : {false, true})
                QTest::addRow("%s %d", moveRows()[static_cast<std::size_t>(row)].line, previousOk)
                    << row << previousOk;
        }
    }

    void aNonBlockingMoveReportsThePreviousOutcome()
    {
        QFETCH(int, row);
        QFETCH(bool, previousOk);
        const MoveRow& move = moveRows()[static_cast<std::size_t>(row)];
        ListeningFixture fixture;
        fixture.controller.parsing_responseReceived(previousOk ? "$OK,LED4,ON,," : "$NG,LED4,ON,,");
        fixture.log.clear();
        fixture.controller.m_zStagePosition = 1000;
        QCOMPARE(move.call(fixture.controller), previousOk);
        QCOMPARE(fixture.log.messages().first(), QString(move.function));
        QVERIFY(fixture.log.messages().at(1).startsWith("write_nonBlocking command:"));
        QCOMPARE(fixture.controller.m_zStagePosition, 1000);
        QTRY_COMPARE(fixture.peer.received(), QList<QByteArray>{QByteArray(move.line) + "\r\n"});
        fixture.peer.send("$OK" + QByteArray(move.line).mid(1) + "\r\n");
        QTRY_COMPARE(fixture.moves, QStringList(move.completed));
        QCOMPARE(fixture.controller.m_zStagePosition, move.positionAfter);
    }

    void theFirmwareIsAskedForItsTexts_data()
    {
        QTest::addColumn<bool>("build");
        QTest::addColumn<QByteArray>("reply");
        QTest::addColumn<QString>("text");
        QTest::newRow("version") << false << QByteArray("$OK,DEVICE,FW VERSION,1.02,\r\n") << "1.02";
        QTest::newRow("version refused") << false << QByteArray("$NG,DEVICE,FW VERSION,1.02,\r\n") << "";
        QTest::newRow("build") << true << QByteArray("$OK,DEVICE,FW BUILD,20210415,\r\n") << "20210415";
        QTest::newRow("build refused") << true << QByteArray("$NG,DEVICE,FW BUILD,x,\r\n") << "";
    }

    void theFirmwareIsAskedForItsTexts()
    {
        QFETCH(bool, build);
        QFETCH(QByteArray, reply);
        OpenFixture fixture;
        fixture.peer.answer(reply);
        QTEST(build ? fixture.controller.device_fw_build() : fixture.controller.device_fw_version(), "text");
        QCOMPARE(fixture.peer.received(),
                 QList<QByteArray>{build ? "$,DEVICE,FW BUILD,,\r\n" : "$,DEVICE,FW VERSION,,\r\n"});
        QCOMPARE(fixture.log.messages().first(), QString(build ? "device_fw_build" : "device_fw_version"));
    }

    void thePositionQueryCorrectsTheTrackedPosition_data()
    {
        QTest::addColumn<QByteArray>("reply");
        QTest::addColumn<int>("returned");
        QTest::addColumn<int>("tracked");
        QTest::newRow("position") << QByteArray("$OK,STM1,GET_POS,1234,\r\n") << 1234 << 1234;
        QTest::newRow("negative") << QByteArray("$OK,STM1,GET_POS,-7,\r\n") << -7 << -7;
        QTest::newRow("no number") << QByteArray("$OK,STM1,GET_POS,,\r\n") << 0 << 0;
        QTest::newRow("refused") << QByteArray("$NG,STM1,GET_POS,,\r\n") << -1 << 1000;
        QTest::newRow("unparsable") << QByteArray("$OK,STM1,GET_POS,5\r\n") << -1 << 1000;
    }

    void thePositionQueryCorrectsTheTrackedPosition()
    {
        QFETCH(QByteArray, reply);
        OpenFixture fixture;
        fixture.controller.m_zStagePosition = 1000;
        fixture.peer.answer(reply);
        QTEST(fixture.controller.z_stage_pos(), "returned");
        QTEST(fixture.controller.m_zStagePosition, "tracked");
        QCOMPARE(fixture.peer.received(), QList<QByteArray>{"$,STM1,GET_POS,,\r\n"});
        QCOMPARE(fixture.log.messages().first(), QStringLiteral("z_stage_pos"));
    }

    void theDiagnosisReturnsTheBoardsNumber_data()
    {
        QTest::addColumn<QByteArray>("reply");
        QTest::addColumn<int>("returned");
        QTest::newRow("zero") << QByteArray("$OK,STM1,SELF_DIAG,0,\r\n") << 0;
        QTest::newRow("number") << QByteArray("$OK,STM1,SELF_DIAG,17,\r\n") << 17;
        QTest::newRow("refused") << QByteArray("$NG,STM1,SELF_DIAG,17,\r\n") << -1;
    }

    void theDiagnosisReturnsTheBoardsNumber()
    {
        QFETCH(QByteArray, reply);
        OpenFixture fixture;
        fixture.peer.answer(reply);
        QTEST(fixture.controller.z_stage_diagnosis(), "returned");
        QCOMPARE(fixture.peer.received(), QList<QByteArray>{"$,STM1,SELF_DIAG,,\r\n"});
        QCOMPARE(fixture.log.messages().first(), QStringLiteral("z_stage_diagnosis"));
    }

    void arithmeticOfTheTrackedPositionWraps()
    {
        OpenFixture fixture;
        fixture.controller.m_zStagePosition = 2147483647;
        fixture.peer.answer("$OK,STM1,MVP,1,\r\n");
        QVERIFY(fixture.controller.z_stage_mvp(SERIAL_BLOCKING, 1));
        QCOMPARE(fixture.controller.m_zStagePosition, -2147483647 - 1);
    }

    void theModesHaveTheirNumbers()
    {
        QCOMPARE(static_cast<int>(SERIAL_BLOCKING), 0);
        QCOMPARE(static_cast<int>(SERIAL_NON_BLOCKING), 1);
    }
};

QTEST_GUILESS_MAIN(TestControllerCommands)
#include "test_controller_commands.moc"
