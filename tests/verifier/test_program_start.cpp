#include <memory>

#include <QApplication>
#include <QScreen>
#include <QtTest>

#include "ProgramStart.h"

namespace {

void ownHandler(QtMsgType, const QMessageLogContext&, const QString&) {}

} // namespace

/// What a program's beginning leaves behind.
class TestProgramStart : public QObject
{
    Q_OBJECT

private slots:
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
};

QTEST_APPLESS_MAIN(TestProgramStart)
#include "test_program_start.moc"
