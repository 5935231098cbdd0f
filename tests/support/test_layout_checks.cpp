#include <cmath>
#include <memory>

#include <QCheckBox>
#include <QFrame>
#include <QLabel>
#include <QLineEdit>
#include <QProgressBar>
#include <QPushButton>
#include <QSpinBox>
#include <QTabBar>
#include <QTabWidget>
#include <QtTest>

#include "tests/support/LayoutChecks.h"

namespace {

template <class Widget>
Widget* put(QWidget* parent, const char* name, const QRect& place)
{
    auto* widget = new Widget(parent);
    widget->setObjectName(name);
    widget->setGeometry(place);
    return widget;
}

} // namespace

/// Every check is shown a window without the fault and one with it.
class TestLayoutChecks : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<QWidget> m_window;

private slots:
    void init()
    {
        m_window = std::make_unique<QWidget>();
        m_window->resize(300, 200);
        m_window->setStyleSheet("QWidget { background-color: #ffffff; color: #000000; }"
                                "QPushButton { border: 1px solid #000000; padding: 0px; }");
    }

    void cleanup() { m_window.reset(); }

    void onlyWhatIsVisibleIsLookedAt()
    {
        put<QPushButton>(m_window.get(), "BUTTON", {0, 0, 50, 30});
        put<QLabel>(m_window.get(), "HIDDEN", {0, 0, 50, 30})->hide();
        put<QSpinBox>(m_window.get(), "SPIN", {0, 40, 80, 30});
        m_window->show();
        QStringList names;
        for (const QWidget* part : layout::visibleParts(m_window.get()))
            names += part->objectName();
        QCOMPARE(names, QStringList({"BUTTON", "SPIN"}));
    }

    void aTextTooWideOrTooHighIsReported_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QSize>("size");
        QTest::addColumn<bool>("fits");
        QTest::newRow("fits") << "Stop" << QSize(80, 30) << true;
        QTest::newRow("too wide") << "Stop everything at once" << QSize(80, 30) << false;
        QTest::newRow("too high") << "Stop" << QSize(80, 8) << false;
        QTest::newRow("no text") << "" << QSize(4, 4) << true;
    }

    void aTextTooWideOrTooHighIsReported()
    {
        QFETCH(QString, text);
        QFETCH(QSize, size);
        QFETCH(bool, fits);
        put<QPushButton>(m_window.get(), "BUTTON", {{0, 0}, size})->setText(text);
        put<QLabel>(m_window.get(), "LABEL", {{0, 50}, size})->setText(text);
        put<QLineEdit>(m_window.get(), "LINE", {{0, 100}, size})->setText(text);
        m_window->show();
        const QStringList faults = layout::clippedTexts(m_window.get());
        QCOMPARE(faults.size(), fits ? 0 : 3);
        QVERIFY(fits || faults.at(0).startsWith("BUTTON: \"" + text + "\" needs "));
    }

    void theIndicatorOfACheckBoxTakesRoomFromItsText()
    {
        auto* check = put<QCheckBox>(m_window.get(), "CHECK", {0, 0, 0, 30});
        check->setText("Target");
        const int text_px = check->fontMetrics().horizontalAdvance("Target");
        check->resize(text_px + 4, 30);
        m_window->show();
        QCOMPARE(layout::clippedTexts(m_window.get()).size(), 1);
        check->resize(text_px + 60, 30);
        QCOMPARE(layout::clippedTexts(m_window.get()).join("; "), QString());
    }

    void theValueOfASpinBoxMustFitBesideItsArrows()
    {
        auto* spin = put<QSpinBox>(m_window.get(), "SPIN", {0, 0, 120, 30});
        spin->setMaximum(100000);
        spin->setValue(100000);
        m_window->show();
        QCOMPARE(layout::clippedTexts(m_window.get()).join("; "), QString());
        spin->resize(40, 30);
        QCOMPARE(layout::clippedTexts(m_window.get()).size(), 1);
    }

    void widgetsThatShareAPixelAreReported()
    {
        put<QPushButton>(m_window.get(), "A", {0, 0, 50, 30});
        auto* other = put<QWidget>(m_window.get(), "page", {50, 0, 100, 100});
        auto* b = put<QPushButton>(other, "B", {0, 0, 50, 30});
        put<QFrame>(m_window.get(), "C", {0, 30, 50, 30});
        m_window->show();
        QCOMPARE(layout::overlaps(m_window.get()).join("; "), QString());
        other->move(49, 0);
        QCOMPARE(layout::overlaps(m_window.get()), QStringList({"A and B"}));
        b->hide();
        QCOMPARE(layout::overlaps(m_window.get()).join("; "), QString());
    }

    void aWidgetOutsideTheBoundsOrCutByItsPageIsReported()
    {
        auto* page = put<QWidget>(m_window.get(), "page", {100, 0, 100, 100});
        auto* button = put<QPushButton>(page, "BUTTON", {60, 60, 40, 40});
        m_window->show();
        const QRect bounds(100, 0, 200, 200);
        QCOMPARE(layout::outside(m_window.get(), bounds).join("; "), QString());
        button->move(61, 60);
        QCOMPARE(layout::outside(m_window.get(), bounds), QStringList({"BUTTON"}));
        button->move(0, 0);
        page->move(99, 0);
        QCOMPARE(layout::outside(m_window.get(), bounds), QStringList({"BUTTON"}));
    }

    void smallPlacesToPressAreReported()
    {
        put<QPushButton>(m_window.get(), "BUTTON", {0, 0, 24, 24});
        put<QLabel>(m_window.get(), "LABEL", {30, 0, 10, 10});
        auto* line = put<QLineEdit>(m_window.get(), "LINE", {0, 30, 60, 20});
        line->setReadOnly(true);
        m_window->show();
        QCOMPARE(layout::smallTargets(m_window.get(), {24, 24}).join("; "), QString());
        line->setReadOnly(false);
        auto* check = put<QCheckBox>(m_window.get(), "CHECK", {0, 60, 80, 40});
        check->setText("Target");
        check->show();
        const QStringList faults = layout::smallTargets(m_window.get(), {24, 24});
        QCOMPARE(faults.size(), 2);
        QCOMPARE(faults.at(0), QString("LINE: 60 x 20"));
        QVERIFY(faults.at(1).startsWith("CHECK: "));
        line->setReadOnly(true);
        check->setStyleSheet("QCheckBox::indicator { width: 24px; height: 24px; }");
        QCOMPARE(layout::smallTargets(m_window.get(), {24, 24}).join("; "), QString());
    }

    void theArrowsOfASpinBoxAreTargetsOfTheirOwn()
    {
        auto* spin = put<QSpinBox>(m_window.get(), "SPIN", {0, 0, 120, 30});
        m_window->show();
        const QStringList faults = layout::smallTargets(m_window.get(), {24, 24});
        QCOMPARE(faults.size(), 2);
        QVERIFY(faults.at(0).startsWith("SPIN (up): "));
        QVERIFY(faults.at(1).startsWith("SPIN (down): "));
        spin->setStyleSheet(
            "QSpinBox { border: 1px solid #000000; }"
            "QSpinBox::up-button { width: 30px; height: 30px; subcontrol-position: right; }"
            "QSpinBox::down-button { width: 30px; height: 30px; subcontrol-position: left; }");
        QCOMPARE(layout::smallTargets(m_window.get(), {24, 24}).join("; "), QString());
    }

    void tabsAreTargetsWithTexts()
    {
        auto* tabs = put<QTabWidget>(m_window.get(), "TAB_MENU", {0, 0, 300, 200});
        tabs->addTab(new QWidget, "ONE");
        tabs->setStyleSheet("QTabBar::tab { width: 20px; height: 30px; }");
        m_window->show();
        QCOMPARE(layout::smallTargets(m_window.get(), {24, 24}),
                 QStringList({"TAB_MENU (tabs) ONE: 20 x 30"}));
        QCOMPARE(layout::clippedTexts(m_window.get()).size(), 1);
        tabs->setStyleSheet("QTabBar::tab { width: 80px; height: 40px; }");
        QCOMPARE(layout::smallTargets(m_window.get(), {24, 24}).join("; "), QString());
        QCOMPARE(layout::clippedTexts(m_window.get()).join("; "), QString());
    }

    void aCoveredWidgetIsReported()
    {
        put<QPushButton>(m_window.get(), "BUTTON", {0, 0, 50, 30});
        auto* frame = put<QFrame>(m_window.get(), "FRAME", {100, 0, 50, 50});
        m_window->show();
        QCOMPARE(layout::covered(m_window.get()).join("; "), QString());
        frame->move(0, 0);
        frame->resize(40, 20);
        QCOMPARE(layout::covered(m_window.get()), QStringList({"BUTTON by FRAME"}));
    }

    void faintTextsAreReported()
    {
        auto* button = put<QPushButton>(m_window.get(), "BUTTON", {0, 0, 80, 30});
        button->setText("Stop");
        m_window->show();
        QCOMPARE(layout::faintTexts(m_window.get(), 4.5).join("; "), QString());
        button->setStyleSheet("color: #999999;");
        QCOMPARE(layout::faintTexts(m_window.get(), 4.5).size(), 1);
        button->setStyleSheet("color: #000000; background-color: #202020;");
        QCOMPARE(layout::faintTexts(m_window.get(), 4.5).size(), 1);
        button->setText(QString());
        QCOMPARE(layout::faintTexts(m_window.get(), 4.5).join("; "), QString());
    }

    void paintedTextsTellWhatIsOff()
    {
        m_window->setStyleSheet("QPushButton { color: #000000; background-color: #ffffff; border: 0px; }"
                                "QPushButton:disabled { color: #949494; }");
        auto* on = put<QPushButton>(m_window.get(), "ON", {0, 0, 80, 30});
        auto* off = put<QPushButton>(m_window.get(), "OFF", {0, 40, 80, 30});
        for (QPushButton* button : {on, off})
            button->setText("Stop");
        put<QLabel>(m_window.get(), "BLANK", {0, 80, 80, 30})->setText(" ");
        off->setEnabled(false);
        m_window->show();
        const auto texts = layout::paintedTexts(m_window.get());
        QCOMPARE(texts.size(), 2);
        QCOMPARE(texts.at(0).name, QString("ON"));
        QCOMPARE(texts.at(0).text, QString("Stop"));
        QVERIFY(texts.at(0).enabled && !texts.at(1).enabled);
        QVERIFY(texts.at(0).contrast > 15.0);
        QVERIFY2(texts.at(1).contrast > 2.0 && texts.at(1).contrast < 3.1,
                 qPrintable(QString::number(texts.at(1).contrast)));
    }

    void aCaptionMayLieInItsButton()
    {
        auto* button = put<QPushButton>(m_window.get(), "BUTTON", {0, 0, 80, 30});
        auto* caption = put<QLabel>(button, "CAPTION", {0, 0, 60, 30});
        m_window->show();
        QCOMPARE(layout::overlaps(m_window.get()).join("; "), QString());
        caption->setAttribute(Qt::WA_TransparentForMouseEvents);
        QCOMPARE(layout::covered(m_window.get()).join("; "), QString());
    }

    void theNumberOfAProgressBarMustFit()
    {
        auto* bar = put<QProgressBar>(m_window.get(), "BAR", {0, 0, 80, 30});
        bar->setValue(46);
        m_window->show();
        QCOMPARE(layout::clippedTexts(m_window.get()).join("; "), QString());
        bar->resize(80, 8);
        QCOMPARE(layout::clippedTexts(m_window.get()).size(), 1);
        bar->setTextVisible(false);
        QCOMPARE(layout::clippedTexts(m_window.get()).join("; "), QString());
    }

    void contrastFollowsTheLuminance()
    {
        QCOMPARE(layout::contrast(Qt::black, Qt::white), 21.0);
        QCOMPARE(layout::contrast(Qt::white, Qt::black), 21.0);
        QCOMPARE(layout::contrast(Qt::red, Qt::red), 1.0);
        QVERIFY(std::abs(layout::contrast(QColor(0x76, 0x76, 0x76), Qt::white) - 4.54) < 0.01);
    }
};

QTEST_MAIN(TestLayoutChecks)
#include "test_layout_checks.moc"
