#include <cmath>
#include <memory>

#include <QApplication>
#include <QFileDialog>
#include <QFontDatabase>
#include <QFontInfo>
#include <QMessageBox>
#include <QScreen>
#include <QTabBar>
#include <QtTest>

#include "BoardState.h"
#include "PanelSetup.h"
#include "tests/support/LayoutChecks.h"
#include "tests/support/PixelBounds.h"
#include "tests/support/XServer.h"
#include "tests/verifier/Panel.h"

namespace {

const char* const kSelected = "background-color: rgb(0, 170, 255);";
const char* const kNormal = "background-color: none;";
const QColor kGround(0xe8, 0xec, 0xef);
const QRect kColumn(640, 0, 160, 480);
constexpr QSize kLeastTarget(24, 24);
constexpr double kLeastContrast = 4.5;
/// What is off: fainter than the rest at a glance, legible at a second one.
constexpr double kLeastContrastWhenOff = 2.5;
constexpr double kMostContrastWhenOff = 3.6;

/// The surroundings that the whole test can be run in, by the environment of its process.
/// Dots per inch of a real screen that knows its size; unset, there is no screen.
constexpr const char* kScreenVariable = "ORLA_TEST_SCREEN_DPI";
/// Set where the form's font is missing and another one stands in.
constexpr const char* kOtherFontVariable = "ORLA_TEST_OTHER_FONT";
/// Set for a desktop whose colours are light on dark.
constexpr const char* kDarkVariable = "ORLA_TEST_DARK_DESKTOP";

QPalette darkPalette()
{
    const QColor ground(0x24, 0x24, 0x24), text(0xee, 0xee, 0xee);
    QPalette palette(ground);
    for (const auto role : {QPalette::WindowText, QPalette::Text, QPalette::ButtonText, QPalette::ToolTipText,
                            QPalette::BrightText})
        palette.setColor(role, text);
    for (const auto role : {QPalette::Base, QPalette::AlternateBase, QPalette::ToolTipBase})
        palette.setColor(role, QColor(0x1b, 0x1b, 0x1b));
    return palette;
}

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
                                  "checked", "checked and disabled", "pressed", "selected and pressed",
                                  "cleared and pressed", "live", "without board"})
            QTest::addRow("page %d, %s", page, state) << page << QString(state);
}

void putIntoState(Panel& panel, const QString& state)
{
    if (state != "without board")
        showBoardState(panel.ui.BUTTON_CONNECT);
    panel.ui.BUTTON_CONNECT->setEnabled(state != "without board");
    if (state.startsWith("selected") || state == "busy")
        styleButtons(panel, kSelected);
    if (state.startsWith("cleared"))
        styleButtons(panel, kNormal);
    if (state.startsWith("checked"))
        for (QAbstractButton* button : panel.centralWidget()->findChildren<QAbstractButton*>())
            button->setChecked(button->isCheckable());
    if (state.endsWith("pressed"))
        for (QPushButton* button : panel.buttons())
            button->setDown(true);
    if (state == "live")
        panel.ui.BUTTON_QC_CAPTURE->setText("Live");
    if (state == "selected")
        panel.ui.BUTTON_CONNECT->setText("O");
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
    /// A widget as it lies on the panel.
    QImage shown(QWidget* widget)
    {
        return m_panel->grab({widget->mapTo(m_panel.get(), QPoint()), widget->size()}).toImage();
    }

    /// Pressed, the button is darker over its ground and has another border, and comes back.
    void pressIsSeen(QPushButton* button)
    {
        const QImage up = shown(button);
        button->setDown(true);
        const QImage down = shown(button);
        button->setDown(false);
        QVERIFY2(shown(button) == up, qPrintable(button->objectName()));
        const QPoint ground(8, button->height() - 6);
        QVERIFY2(layout::contrast(up.pixelColor(ground), down.pixelColor(ground)) > 1.4,
                 qPrintable(button->objectName() + ' ' + up.pixelColor(ground).name() + ' ' +
                            down.pixelColor(ground).name()));
        const QPoint border(button->width() / 2, 2);
        QVERIFY2(up.pixelColor(border) != down.pixelColor(border), qPrintable(button->objectName()));
    }

    /// Where no window manager draws a frame, the box is told from the panel by its own.
    void frameIsSeen(QWidget* box)
    {
        QVERIFY(QTest::qWaitForWindowExposed(box));
        const QImage picture = box->grab().toImage();
        for (int i = 0; i < 3; ++i)
            for (const QPoint& point :
                 {QPoint(i, picture.height() / 2), QPoint(picture.width() - 1 - i, picture.height() / 2),
                  QPoint(picture.width() / 2, i), QPoint(picture.width() / 2, picture.height() - 1 - i)})
                QVERIFY2(layout::contrast(picture.pixelColor(point), kGround) > 4.5,
                         qPrintable(QString("%1, %2").arg(point.x()).arg(point.y())));
    }

    std::unique_ptr<Panel> m_panel;

private slots:
    void initTestCase()
    {
        if (qEnvironmentVariableIsSet(kOtherFontVariable) &&
            (hasFont() || QFontDatabase().families().isEmpty()))
            QSKIP("there is no other font here than the form's");
        if (qEnvironmentVariableIsSet(kScreenVariable) && QGuiApplication::platformName() != "xcb")
            QSKIP("no X server can be started here");
    }

    void init() { m_panel = std::make_unique<Panel>(); }
    void cleanup() { m_panel.reset(); }

    void thePanelIsDrawnPixelForPixelWhateverTheScreenSays()
    {
        m_panel->show();
        const QScreen* screen = QGuiApplication::primaryScreen();
        if (qEnvironmentVariableIsSet(kScreenVariable))
            QVERIFY(std::abs(screen->physicalDotsPerInch() - qEnvironmentVariableIntValue(kScreenVariable)) <
                    2.0);
        QCOMPARE(m_panel->logicalDpiX(), 96);
        QCOMPARE(m_panel->logicalDpiY(), 96);
        QCOMPARE(m_panel->devicePixelRatioF(), 1.0);
        QCOMPARE(m_panel->grab().toImage().size(), kWindow.size());
        QCOMPARE(QFontInfo(m_panel->ui.BUTTON_Z_POSITION->font()).pixelSize(), 12);
        QCOMPARE(QFontInfo(m_panel->ui.LABEL_EXPOSURE->font()).pixelSize(), 11);
    }

    void theLiveViewIsFreeForTheWindowToPaint()
    {
        for (int page = 0; page < kPages; ++page) {
            m_panel->ui.TAB_MENU->setCurrentIndex(page);
            m_panel->show();
            const QImage picture = m_panel->grab(kLiveView).toImage();
            QCOMPARE(
                boundsOf(picture, picture.rect(), [](QRgb pixel) { return pixel != kLivePicture.rgb(); }),
                QRect());
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
        showCurrentRow(*m_panel);
        QCOMPARE(layout::clippedTexts(m_panel.get()).join("; "), QString());
    }

    void everyTextStandsOutFromItsGround_data() { addStates(); }

    void everyTextStandsOutFromItsGround()
    {
        showCurrentRow(*m_panel);
        const auto texts = layout::paintedTexts(m_panel.get());
        QVERIFY(texts.size() > 15);
        for (const layout::PaintedText& text : texts) {
            if (text.name == "BUTTON_CONNECT" && m_panel->ui.BUTTON_CONNECT->isFlat())
                continue;
            const QString found =
                QString("%1: \"%2\" %3").arg(text.name, text.text).arg(text.contrast, 0, 'f', 2);
            if (text.enabled)
                QVERIFY2(text.contrast >= kLeastContrast, qPrintable(found));
            else
                QVERIFY2(text.contrast >= kLeastContrastWhenOff && text.contrast <= kMostContrastWhenOff,
                         qPrintable(found));
        }
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

    void trimButtonsAreWide()
    {
        int count = 0;
        for (const QPushButton* button : m_panel->ui.TAB_CAMERA->findChildren<QPushButton*>()) {
            const QString name = button->objectName();
            if (!name.contains("_FINE_") && !name.contains("_COARSE_"))
                continue;
            ++count;
            QVERIFY2(button->width() >= 30 && button->height() >= 24, qPrintable(name));
        }
        QCOMPARE(count, 24);
    }

    void aTrimsValueStandsBesideItsNameAboveItsButtons()
    {
        for (const char* name : {"EXPOSURE", "GAIN", "COLOR_RED", "COLOR_GREEN", "COLOR_BLUE"}) {
            const QRect label = m_panel->get(QString("LABEL_%1").arg(name))->geometry();
            const QRect value = m_panel->get(QString("EDIT_%1").arg(name))->geometry();
            QCOMPARE(label.top(), value.top());
            QVERIFY(label.right() < value.left());
            int right = -1;
            for (const char* step : {"COARSE_DOWN", "FINE_DOWN", "FINE_UP", "COARSE_UP"}) {
                const QRect button = m_panel->get(QString("BUTTON_%1_%2").arg(name, step))->geometry();
                QCOMPARE(button.top(), value.bottom() + 1);
                QVERIFY2(button.left() > right, name);
                right = button.right();
            }
        }
    }

    void whatBelongsTogetherLiesTogetherAndNothingElseDoes()
    {
        const auto& ui = m_panel->ui;
        const QRect set = ui.BUTTON_Z_SET_REFERENCE->geometry();
        const QRect move = ui.BUTTON_Z_MOVE_REFERENCE->geometry();
        QCOMPARE(set.top(), move.top());
        QVERIFY(move.left() - set.right() <= 4 && move.left() > set.right());
        QVERIFY(ui.EDIT_Z_REFERENCE->y() > set.bottom() && ui.EDIT_Z_REFERENCE->y() - set.bottom() <= 4);

        const QRect stained = ui.BUTTON_STAINING_TB->geometry();
        QVERIFY(stained.left() - ui.BUTTON_STAINING_NTB->geometry().right() <= 4);
        QVERIFY(ui.BUTTON_TEST->x() - stained.right() >= 16);

        const QRect fit = ui.CHECK_SCALED_TO_FIT->geometry();
        QVERIFY(ui.CHECK_CROSS_LINE->y() - fit.bottom() > 4);
    }

    void theProgressOfAutofocusIsReadAsANumber()
    {
        const QProgressBar* bar = m_panel->ui.PROGRESS_AUTOFOCUS;
        QVERIFY(bar->height() >= 16);
        QVERIFY(bar->isTextVisible());
        m_panel->ui.PROGRESS_AUTOFOCUS->setValue(46);
        QCOMPARE(bar->text(), QString("46%"));
    }

    void onlyOneControlIsCalledDebug()
    {
        int count = 0;
        for (const QAbstractButton* button : m_panel->centralWidget()->findChildren<QAbstractButton*>())
            count += button->text().contains("Debug") ? 1 : 0;
        QCOMPARE(count, 1);
    }

    void withoutABoardToConnectTheButtonShowsNothing()
    {
        QPushButton* board = m_panel->ui.BUTTON_CONNECT;
        board->setEnabled(false);
        m_panel->show();
        const QImage picture = shown(board);
        QCOMPARE(boundsOf(picture, picture.rect(), [](QRgb pixel) { return pixel != kGround.rgb(); }),
                 QRect());
    }

    void theBoardReadsAsAStateWithItsCaption()
    {
        QPushButton* board = m_panel->ui.BUTTON_CONNECT;
        showBoardState(board);
        m_panel->show();
        QCOMPARE(board->text(), QString("X"));
        QCOMPARE(board->styleSheet(), QString());
        const auto* caption = board->findChild<QLabel*>();
        QVERIFY(caption && caption->isVisible());
        QCOMPARE(caption->text(), QString("Board"));
        QVERIFY(board->rect().contains(caption->geometry()));
        QCOMPARE(caption->pos(), QPoint(5, 0));
        QCOMPARE(caption->font().pointSize(), 8);
        QVERIFY(!caption->font().bold());
        QCOMPARE(caption->size(), QSize(caption->sizeHint().width(), board->height()));
        QCOMPARE(caption->objectName(), QString("LABEL_CONNECT"));
        // The caption lets the press through.
        QSignalSpy pressed(board, &QPushButton::clicked);
        const QPoint middle = caption->mapTo(m_panel.get(), caption->rect().center());
        QCOMPARE(m_panel->childAt(middle), static_cast<QWidget*>(board));
        QTest::mouseClick(m_panel->windowHandle(), Qt::LeftButton, {}, middle);
        QTRY_COMPARE(pressed.count(), 1);
        // Connected, the whole button is blue, the caption's place too.
        board->setStyleSheet(kSelected);
        QCOMPARE(shown(board).pixelColor(caption->x(), 6), QColor(0, 170, 255));
        QCOMPARE(shown(board).pixelColor(board->width() - 6, 6), QColor(0, 170, 255));
        // It covers nothing but with its letters, which stand clear of the button's edges.
        const QImage with = shown(board);
        board->findChild<QLabel*>()->hide();
        const QImage without = shown(board);
        QVERIFY(with != without);
        const int bottom = board->height() - 1;
        for (const int y : {0, 1, 2, bottom - 2, bottom - 1, bottom})
            for (int x = 0; x < board->width(); ++x)
                QCOMPARE(with.pixelColor(x, y), without.pixelColor(x, y));
    }

    void aPressIsSeenWhateverColourTheButtonHas_data()
    {
        QTest::addColumn<QString>("style");
        QTest::addColumn<QStringList>("buttons");
        const QStringList plain{"BUTTON_Z_ORIGIN", "BUTTON_SAVE_INI", "BUTTON_DEBUG"};
        QTest::newRow("fresh") << "" << plain;
        QTest::newRow("selected") << kSelected << plain;
        QTest::newRow("cleared") << kNormal << plain;
        QTest::newRow("a colour of its own") << QString() << QStringList({"BUTTON_EXIT", "BUTTON_Z_STOP"});
    }

    void aPressIsSeenWhateverColourTheButtonHas()
    {
        QFETCH(QString, style);
        QFETCH(QStringList, buttons);
        m_panel->show();
        for (const QString& name : buttons) {
            auto* button = m_panel->get<QPushButton>(name);
            if (!style.isNull())
                button->setStyleSheet(style);
            const QString before = button->styleSheet();
            pressIsSeen(button);
            if (QTest::currentTestFailed())
                return;
            QCOMPARE(button->styleSheet(), before);
        }
    }

    void theKeyboardsPlaceIsSeenOnAButton()
    {
        m_panel->show();
        m_panel->activateWindow();
        QVERIFY(QTest::qWaitForWindowActive(m_panel.get()));
        const auto& ui = m_panel->ui;
        for (const char* style : {"", kSelected, kNormal}) {
            for (QPushButton* button : {ui.BUTTON_SAVE_INI, ui.BUTTON_DEBUG}) {
                button->setStyleSheet(style);
                ui.SPIN_DEBUG->setFocus();
                const QImage before = shown(button);
                button->setFocus();
                QVERIFY(button->hasFocus());
                QVERIFY(shown(button) != before);
                const int middle = button->height() / 2;
                QVERIFY(layout::contrast(shown(button).pixelColor(1, middle),
                                         shown(button).pixelColor(5, middle)) > 3.0);
            }
        }
    }

    void theKeyboardsPlaceIsSeenOnTabsAndCheckBoxes()
    {
        m_panel->show();
        m_panel->activateWindow();
        QVERIFY(QTest::qWaitForWindowActive(m_panel.get()));
        const auto& ui = m_panel->ui;
        for (QWidget* widget : {static_cast<QWidget*>(ui.TAB_MENU->tabBar()),
                                static_cast<QWidget*>(ui.CHECK_DEBUG_AUTOFOCUS)}) {
            ui.SPIN_DEBUG->setFocus();
            const QImage before = shown(widget);
            widget->setFocus();
            QVERIFY(widget->hasFocus());
            QVERIFY2(shown(widget) != before, qPrintable(widget->objectName()));
            QCOMPARE(layout::clippedTexts(m_panel.get()).join("; "), QString());
        }
    }

    void boxesHaveAFrameOfTheirOwn_data()
    {
        QTest::addColumn<int>("icon");
        QTest::addColumn<QString>("text");
        QTest::newRow("question") << int(QMessageBox::Question) << "Are you sure quit ?";
        QTest::newRow("information") << int(QMessageBox::Information)
                                     << "The serial number has been set as the password!";
        QTest::newRow("error") << int(QMessageBox::Critical) << "Please insert USB disk !!!";
    }

    void boxesHaveAFrameOfTheirOwn()
    {
        QFETCH(int, icon);
        QFETCH(QString, text);
        m_panel->show();
        QMessageBox box(QMessageBox::Icon(icon), "ORLA-III", text, QMessageBox::Yes | QMessageBox::No,
                        m_panel.get());
        box.show();
        frameIsSeen(&box);
        if (QTest::currentTestFailed())
            return;
        const auto* label = box.findChild<QLabel*>("qt_msgbox_label");
        QVERIFY(label->height() >= label->heightForWidth(label->width()));
        QVERIFY(box.rect().adjusted(3, 3, -3, -3).contains(label->geometry()));
        for (const QAbstractButton* button : box.buttons())
            QVERIFY(button->width() >= 80 && button->height() >= 36);
        QVERIFY(box.width() <= kWindow.width());
    }

    void theFileDialogHasAFrameAndFitsThePanel()
    {
        m_panel->show();
        QFileDialog dialog(m_panel.get());
        dialog.setOption(QFileDialog::DontUseNativeDialog);
        dialog.show();
        frameIsSeen(&dialog);
        QVERIFY(dialog.width() <= kWindow.width() && dialog.height() <= kWindow.height());
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
        QCOMPARE(shown(button).pixelColor(8, 8), fresh.pixelColor(8, 8));
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

int main(int argc, char* argv[])
{
    std::unique_ptr<XServer> server;
    if (const int dpi = qEnvironmentVariableIntValue(kScreenVariable); dpi > 0) {
        server = std::make_unique<XServer>(kWindow.width(), kWindow.height(), dpi);
        if (!server->display().empty()) {
            qputenv("DISPLAY", server->display().c_str());
            qputenv("QT_QPA_PLATFORM", "xcb");
            // Nothing here is drawn by OpenGL, whose libraries would only be loaded and left.
            qputenv("QT_XCB_GL_INTEGRATION", "none");
        }
    }
    setUpPanel();
    const QApplication application(argc, argv);
    if (qEnvironmentVariableIsSet(kDarkVariable))
        QApplication::setPalette(darkPalette());
    TestFormLook test;
    return QTest::qExec(&test, argc, argv);
}
#include "test_form_look.moc"
