#include <QLabel>
#include <QtTest>

#include "support/WindowFixture.h"

/// The band over the live view of a program that starts without its board. A program of its
/// own: the controller is the process's and remembers the first window's board.
class TestWindowNoticeAtStart : public QObject
{
    Q_OBJECT

private slots:
    void aBoardThatIsMissingIsToldFromTheStart()
    {
        WindowFixture::Options options;
        options.withBoard = false;
        const WindowFixture fixture(options);
        const auto* notice = fixture.find<QLabel>("LABEL_NOTICE");
        QVERIFY(notice->isVisible());
        QVERIFY2(notice->text().startsWith("Controller board does not answer:"), qPrintable(notice->text()));
    }
};

QTEST_MAIN(TestWindowNoticeAtStart)
#include "test_window_notice_at_start.moc"
