#include <ctime>
#include <memory>

#include <unistd.h>

#include <QApplication>
#include <QDateTime>
#include <QScopeGuard>
#include <QScreen>
#include <QTemporaryFile>
#include <QtTest>

#include "ProgramStart.h"
#include "support/InChild.h"

namespace {

const char* g_lastWords = nullptr;

void ownHandler(QtMsgType, const QMessageLogContext&, const QString&) {}

void endInStart()
{
    qFatal("%s", g_lastWords);
}

} // namespace

/// What a program's beginning leaves behind.
class TestProgramStart : public QObject
{
    Q_OBJECT

private slots:
    void whatEndsQtsStartIsToldByItsFirstSentence_data()
    {
        QTest::addColumn<QByteArray>("lastWords");
        QTest::addColumn<QByteArray>("cause");
        QTest::newRow("advice follows")
            << QByteArray("The cause is this. Reinstalling may help.\n\nAvailable: a, b.\n")
            << QByteArray("The cause is this");
        QTest::newRow("on a line of its own")
            << QByteArray("\n  The cause\n  is more. And more.\n") << QByteArray("The cause");
    }

    void whatEndsQtsStartIsToldByItsFirstSentence()
    {
        QFETCH(QByteArray, lastWords);
        QFETCH(QByteArray, cause);
        QTemporaryFile errors;
        QVERIFY(errors.open());
        const int status = inChild([&] {
            ::dup2(errors.handle(), STDERR_FILENO);
            g_lastWords = lastWords.constData();
            qAddPreRoutine(endInStart);
            char name[] = "program";
            char* arguments[] = {name, nullptr};
            int count = 1;
            startApplication("program", count, arguments);
            return 0;
        });
        QCOMPARE(status, kProgramFailed);
        QVERIFY(errors.seek(0));
        QCOMPARE(errors.readAll(), "program: no screen can be used; QT_QPA_PLATFORM, and for an X server "
                                   "DISPLAY, name one (" +
                                       cause + ")\n");
    }

    // A failure of Qt's later on is not one of the screen.
    void whoeverTookMessagesTakesThemAfterwards()
    {
        char name[] = "program";
        char* arguments[] = {name, nullptr};
        int count = 1;
        const QtMessageHandler tests = qInstallMessageHandler(ownHandler);
        const std::unique_ptr<QApplication> application = startApplication("program", count, arguments);
        const QtMessageHandler left = qInstallMessageHandler(tests);
        QVERIFY(application != nullptr);
        QVERIFY(QGuiApplication::primaryScreen() != nullptr);
        QCOMPARE(reinterpret_cast<quintptr>(left), reinterpret_cast<quintptr>(&ownHandler));
    }

    void theTimeZoneIsTheMachinesUnlessOneIsNamed()
    {
        const QByteArray before = qgetenv("TZ");
        const auto restore = qScopeGuard([&] {
            before.isNull() ? qunsetenv("TZ") : qputenv("TZ", before);
            ::tzset();
        });
        const QDateTime summer(QDate(2026, 7, 1), QTime(12, 0), Qt::UTC);
        char name[] = "program";
        char* arguments[] = {name, nullptr};
        int count = 1;

        qunsetenv("TZ");
        const QString machines = summer.toLocalTime().toString(Qt::ISODate);
        QVERIFY(startApplication("program", count, arguments) != nullptr);
        QCOMPARE(qgetenv("TZ"), QByteArray(":/etc/localtime"));
        QCOMPARE(summer.toLocalTime().toString(Qt::ISODate), machines);

        qputenv("TZ", "XYZ-5:30");
        QVERIFY(startApplication("program", count, arguments) != nullptr);
        QCOMPARE(summer.toLocalTime().toString(Qt::ISODate), QString("2026-07-01T17:30:00"));
    }
};

QTEST_APPLESS_MAIN(TestProgramStart)
#include "test_program_start.moc"
