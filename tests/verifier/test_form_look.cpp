#include <memory>

#include <QFontInfo>
#include <QTabBar>
#include <QtTest>

#include "tests/support/LayoutChecks.h"
#include "tests/verifier/Panel.h"

namespace {

const char* const kSelected = "background-color: rgb(0, 170, 255);";
const char* const kNormal = "background-color: none;";
const QRect kColumn(640, 0, 160, 480);
constexpr QSize kLeastTarget(24, 24);
constexpr double kLeastContrast = 4.5;

bool hasFont()
{
    return QFontInfo(QFont("DejaVu Sans", 9)).family() == "DejaVu Sans";
}

/// The longest contents that the program puts into each field.
void fillWithLongestContents(Panel& panel)
{
    const QMap<QString, QString> contents = {
        {"EDIT_Z_POSITION", "-640000"},    {"EDIT_Z_REFERENCE", "-640000"},
        {"EDIT_Z_ABS", "-640000"},         {"EDIT_Z_DIAGNOSIS", "-100000"},
        {"EDIT_GAIN", "0xDDDD"},           {"EDIT_EXPOSURE", "0xDDDD"},
        {"EDIT_COLOR_RED", "0xDDDD"},      {"EDIT_COLOR_GREEN", "0xDDDD"},
        {"EDIT_COLOR_BLUE", "0xDDDD"},     {"EDIT_LED", "1000"},
        {"EDIT_INTENSITY_RED", "255.0"},   {"EDIT_INTENSITY_GREEN", "255.0"},
        {"EDIT_INTENSITY_BLUE", "255.0"},  {"EDIT_POINT_1", "2591, 1943"},
        {"EDIT_POINT_2", "2591, 1943"},    {"EDIT_MAGNIFICATION", "-10.400"},
        {"EDIT_VOLUME_FACTOR", "0.50388"}, {"EDIT_SERIAL_MIDFIX", "999"},
        {"EDIT_SERIAL_SUFFIX", "99999"},   {"EDIT_SKIP_FRAME", "30"}};
    for (auto it = contents.cbegin(); it != contents.cend(); ++it)
        panel.get<QLineEdit>(it.key())->setText(it.value());
    panel.ui.SPIN_Z_STEP->setValue(100000);
    panel.ui.SPIN_Z_SPEED->setValue(1000);
    panel.ui.SPIN_DEBUG->setValue(3);
    panel.ui.PROGRESS_AUTOFOCUS->setValue(46);
}

/// Styles all buttons but those whose colours mean something else: exit, stop, lamp.
void styleButtons(Panel& panel, const char* style)
{
    const auto& ui = panel.ui;
    for (QPushButton* button : panel.buttons())
        if (button != ui.BUTTON_EXIT && button != ui.BUTTON_Z_STOP && button != ui.BUTTON_LED)
            button->setStyleSheet(style);
}

void addStates()
{
    QTest::addColumn<int>("page");
    QTest::addColumn<QString>("state");
    for (int page = 0; page < kPages; ++page)
        for (const char* state : {"fresh", "selected", "cleared", "disabled", "busy", "cleared and disabled",
                                  "checked", "checked and disabled", "pressed", "live", "unconnected"})
            QTest::addRow("page %d, %s", page, state) << page << QString(state);
}

void putIntoState(Panel& panel, const QString& state)
{
    if (state == "selected" || state == "busy")
        styleButtons(panel, kSelected);
    if (state.startsWith("cleared"))
        styleButtons(panel, kNormal);
    if (state.startsWith("checked"))
        for (QAbstractButton* button : panel.centralWidget()->findChildren<QAbstractButton*>())
            button->setChecked(button->isCheckable());
    if (state == "pressed")
        for (QPushButton* button : panel.buttons())
            button->setDown(true);
    if (state == "live")
        panel.ui.BUTTON_QC_CAPTURE->setText("Live");
    if (state == "unconnected") {
        panel.ui.BUTTON_CONNECT->setText("O");
        panel.ui.BUTTON_CONNECT->setEnabled(false);
    }
    if (state.endsWith("disabled") || state == "busy")
        panel.setEnabled(false);
}

/// Shows the page filled and in the state of the current row.
void showCurrentRow(Panel& panel)
{
    QFETCH(int, page);
    QFETCH(QString, state);
    fillWithLongestContents(panel);
    putIntoState(panel, state);
    panel.ui.TAB_MENU->setCurrentIndex(page);
    panel.show();
}

} // namespace

/// How the form looks and how it is pressed, on each page and in each state.
class TestFormLook : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<Panel> m_panel;

private slots:
    void init() { m_panel = std::make_unique<Panel>(); }
    void cleanup() { m_panel.reset(); }

    void theLiveViewIsFreeForTheWindowToPaint()
    {
        for (int page = 0; page < kPages; ++page) {
            m_panel->ui.TAB_MENU->setCurrentIndex(page);
            m_panel->show();
            const QImage picture = m_panel->grab(kLiveView).toImage();
            for (int y = 0; y < picture.height(); ++y)
                for (int x = 0; x < picture.width(); ++x)
                    if (picture.pixelColor(x, y) != kLivePicture)
                        QFAIL(qPrintable(QString("covered at %1, %2").arg(x).arg(y)));
        }
    }

    void theStillPictureLiesOverTheLiveView()
    {
        m_panel->ui.QC_MEASURE->show();
        m_panel->show();
        QCOMPARE(m_panel->ui.QC_MEASURE->geometry(), kLiveView);
        QCOMPARE(m_panel->ui.TAB_MENU->x(), kColumn.x());
        for (const QPoint& corner :
             {kLiveView.topLeft(), kLiveView.topRight(), kLiveView.bottomLeft(), kLiveView.bottomRight()})
            QCOMPARE(m_panel->childAt(corner), static_cast<QWidget*>(m_panel->ui.QC_MEASURE));
    }

    void everythingHasItsPlace_data() { addStates(); }

    void everythingHasItsPlace()
    {
        showCurrentRow(*m_panel);
        QVERIFY(layout::visibleParts(m_panel.get()).size() > 20);
        QCOMPARE(layout::outside(m_panel.get(), kColumn).join("; "), QString());
        QCOMPARE(layout::overlaps(m_panel.get()).join("; "), QString());
        QCOMPARE(layout::covered(m_panel.get()).join("; "), QString());
        m_panel->ui.QC_MEASURE->show();
        QCOMPARE(layout::outside(m_panel.get(), kWindow).join("; "), QString());
        QCOMPARE(layout::overlaps(m_panel.get()).join("; "), QString());
    }

    void noTextIsClipped_data() { addStates(); }

    void noTextIsClipped()
    {
        if (!hasFont())
            QSKIP("the font of the form, DejaVu Sans, is not installed");
        showCurrentRow(*m_panel);
        QCOMPARE(layout::clippedTexts(m_panel.get()).join("; "), QString());
    }

    void everyTextStandsOutFromItsGround_data() { addStates(); }

    void everyTextStandsOutFromItsGround()
    {
        showCurrentRow(*m_panel);
        QCOMPARE(layout::faintTexts(m_panel.get(), kLeastContrast).join("; "), QString());
    }

    void aGlovedFingerHitsEverything_data() { addStates(); }

    void aGlovedFingerHitsEverything()
    {
        showCurrentRow(*m_panel);
        QCOMPARE(layout::smallTargets(m_panel.get(), kLeastTarget).join("; "), QString());
    }

    void frequentButtonsAreLarger()
    {
        const auto& ui = m_panel->ui;
        for (const QPushButton* button :
             {ui.BUTTON_AUTOFOCUS, ui.BUTTON_Z_MOVE_MINUS, ui.BUTTON_Z_MOVE_PLUS, ui.BUTTON_Z_ROTATE_MINUS,
              ui.BUTTON_Z_ROTATE_PLUS, ui.BUTTON_Z_STOP, ui.BUTTON_Z_ORIGIN, ui.BUTTON_CAPTURE,
              ui.BUTTON_QC_CAPTURE, ui.BUTTON_SAVE_INI})
            QVERIFY2(button->width() >= 48 && button->height() >= 30, qPrintable(button->objectName()));
        QVERIFY(ui.BUTTON_LED->width() >= 48);
    }

    void theSidesOfASpinBoxStepIt()
    {
        m_panel->show();
        for (QSpinBox* spin : {m_panel->ui.SPIN_Z_STEP, m_panel->ui.SPIN_Z_SPEED, m_panel->ui.SPIN_DEBUG}) {
            const int before = spin->value();
            const int middle = spin->height() / 2;
            for (const int x : {spin->width() - 3, spin->width() - 26})
                QTest::mouseClick(spin, Qt::LeftButton, {}, {x, middle});
            QCOMPARE(spin->value(), before + 2 * spin->singleStep());
            for (const int x : {2, 25})
                QTest::mouseClick(spin, Qt::LeftButton, {}, {x, middle});
            QCOMPARE(spin->value(), before);
        }
    }

    void aCheckBoxReactsOverAFingersHeight()
    {
        m_panel->show();
        for (QCheckBox* check : {m_panel->ui.CHECK_DEBUG_AUTOFOCUS, m_panel->ui.CHECK_SCALED_TO_FIT,
                                 m_panel->ui.CHECK_CROSS_LINE, m_panel->ui.CHECK_TARGET}) {
            m_panel->ui.TAB_MENU->setCurrentWidget(check->parentWidget());
            const int top = check->height() / 2 - 11;
            const int bottom = check->height() / 2 + 10;
            for (const QPoint& point :
                 {QPoint(1, top), QPoint(1, bottom), QPoint(50, top), QPoint(50, bottom)}) {
                const bool before = check->isChecked();
                QTest::mouseClick(check, Qt::LeftButton, {}, point);
                QVERIFY2(check->isChecked() != before, qPrintable(check->objectName()));
            }
        }
    }

    void aSelectedButtonTurnsBlueAndBack()
    {
        m_panel->show();
        QPushButton* button = m_panel->ui.BUTTON_Z_ORIGIN;
        const QImage fresh = button->grab().toImage();
        button->setStyleSheet(kSelected);
        QCOMPARE(button->grab().toImage().pixelColor(8, 8), QColor(0, 170, 255));
        button->setStyleSheet(kNormal);
        QCOMPARE(m_panel->grab({button->mapTo(m_panel.get(), QPoint()), button->size()})
                     .toImage()
                     .pixelColor(8, 8),
                 fresh.pixelColor(8, 8));
        QCOMPARE(m_panel->ui.BUTTON_EXIT->grab().toImage().pixelColor(8, 8), QColor(255, 85, 0));
    }

    void exitReadsAsOffWhileTheWindowIsLocked()
    {
        m_panel->show();
        QPushButton* exit = m_panel->ui.BUTTON_EXIT;
        const auto ground = [exit] { return exit->grab().toImage().pixelColor(8, 8); };
        QCOMPARE(ground(), QColor(255, 85, 0));
        m_panel->setEnabled(false);
        QVERIFY2(ground().saturation() < 80, qPrintable(ground().name()));
        m_panel->setEnabled(true);
        QCOMPARE(ground(), QColor(255, 85, 0));
    }

    void allTabsShowWithoutScrolling()
    {
        m_panel->show();
        const QTabBar* bar = m_panel->ui.TAB_MENU->tabBar();
        for (int i = 0; i < kPages; ++i)
            QVERIFY(m_panel->ui.TAB_MENU->rect().contains(bar->tabRect(i)));
        for (const QAbstractButton* scroll : bar->findChildren<QAbstractButton*>())
            QVERIFY(!scroll->isVisible());
    }
};

QTEST_MAIN(TestFormLook)
#include "test_form_look.moc"
