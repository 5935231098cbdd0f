#include <array>
#include <cstring>
#include <memory>

#include <QAccessible>
#include <QApplication>
#include <QMessageBox>
#include <QSet>
#include <QTabBar>
#include <QtTest>

#include "BoardState.h"
#include "tests/verifier/Panel.h"

namespace {

const char* const kExit = "background-color: rgb(255, 85, 0);";

struct Expected
{
    const char* name;
    const char* className;
    const char* parent;
    const char* text = nullptr; ///< where it stands as given
};

/// Every widget of the form in the order of its creation.
constexpr Expected kWidgets[] = {
    {"centralwidget", "QWidget", "ORLA_II_Plus_Verifier"},
    {"TAB_MENU", "QTabWidget", "centralwidget"},
    {"TAB_STAGE", "QWidget", "qt_tabwidget_stackedwidget"},
    {"BUTTON_Z_MOVE_REFERENCE", "QPushButton", "TAB_STAGE", "Ref. move"},
    {"SPIN_Z_STEP", "QSpinBox", "TAB_STAGE"},
    {"BUTTON_Z_POSITION", "QPushButton", "TAB_STAGE", "Position"},
    {"EDIT_Z_REFERENCE", "QLineEdit", "TAB_STAGE", ""},
    {"EDIT_Z_POSITION", "QLineEdit", "TAB_STAGE", ""},
    {"LABEL_Z_STEP", "QLabel", "TAB_STAGE", "Step"},
    {"BUTTON_Z_ABS", "QPushButton", "TAB_STAGE"},
    {"BUTTON_Z_SET_REFERENCE", "QPushButton", "TAB_STAGE", "Ref. set"},
    {"EDIT_Z_ABS", "QLineEdit", "TAB_STAGE", ""},
    {"LABEL_Z_SPEED", "QLabel", "TAB_STAGE", "Speed"},
    {"SPIN_Z_SPEED", "QSpinBox", "TAB_STAGE"},
    {"BUTTON_Z_MOVE_MINUS", "QPushButton", "TAB_STAGE"},
    {"BUTTON_Z_MOVE_PLUS", "QPushButton", "TAB_STAGE"},
    {"BUTTON_Z_ROTATE_PLUS", "QPushButton", "TAB_STAGE"},
    {"BUTTON_Z_STOP", "QPushButton", "TAB_STAGE", "Stop"},
    {"BUTTON_Z_ROTATE_MINUS", "QPushButton", "TAB_STAGE"},
    {"BUTTON_Z_ORIGIN", "QPushButton", "TAB_STAGE", "Origin"},
    {"BUTTON_AUTOFOCUS", "QPushButton", "TAB_STAGE", "Autofocus"},
    {"CHECK_DEBUG_AUTOFOCUS", "QCheckBox", "TAB_STAGE", "Debug"},
    {"PROGRESS_AUTOFOCUS", "QProgressBar", "TAB_STAGE"},
    {"EDIT_Z_DIAGNOSIS", "QLineEdit", "TAB_STAGE", ""},
    {"BUTTON_Z_DIAGNOSIS", "QPushButton", "TAB_STAGE", "Diagnosis"},
    {"TAB_CAMERA", "QWidget", "qt_tabwidget_stackedwidget"},
    {"LABEL_EXPOSURE", "QLabel", "TAB_CAMERA", "Exposure"},
    {"LABEL_GAIN", "QLabel", "TAB_CAMERA", "Gain"},
    {"LABEL_COLOR_BLUE", "QLabel", "TAB_CAMERA", "Blue"},
    {"LABEL_COLOR_RED", "QLabel", "TAB_CAMERA", "Red"},
    {"LABEL_COLOR_GREEN", "QLabel", "TAB_CAMERA", "Green"},
    {"BUTTON_GAIN_FINE_DOWN", "QPushButton", "TAB_CAMERA"},
    {"EDIT_GAIN", "QLineEdit", "TAB_CAMERA", "0x0000"},
    {"BUTTON_GAIN_FINE_UP", "QPushButton", "TAB_CAMERA"},
    {"BUTTON_EXPOSURE_FINE_DOWN", "QPushButton", "TAB_CAMERA"},
    {"EDIT_EXPOSURE", "QLineEdit", "TAB_CAMERA", "0x0000"},
    {"BUTTON_EXPOSURE_FINE_UP", "QPushButton", "TAB_CAMERA"},
    {"BUTTON_COLOR_RED_FINE_DOWN", "QPushButton", "TAB_CAMERA"},
    {"EDIT_COLOR_RED", "QLineEdit", "TAB_CAMERA", "0x0000"},
    {"BUTTON_COLOR_RED_FINE_UP", "QPushButton", "TAB_CAMERA"},
    {"BUTTON_COLOR_GREEN_FINE_DOWN", "QPushButton", "TAB_CAMERA"},
    {"EDIT_COLOR_GREEN", "QLineEdit", "TAB_CAMERA", "0x0000"},
    {"BUTTON_COLOR_GREEN_FINE_UP", "QPushButton", "TAB_CAMERA"},
    {"BUTTON_COLOR_BLUE_FINE_DOWN", "QPushButton", "TAB_CAMERA"},
    {"EDIT_COLOR_BLUE", "QLineEdit", "TAB_CAMERA", "0x0000"},
    {"BUTTON_COLOR_BLUE_FINE_UP", "QPushButton", "TAB_CAMERA"},
    {"BUTTON_GAIN_COARSE_DOWN", "QPushButton", "TAB_CAMERA"},
    {"BUTTON_GAIN_COARSE_UP", "QPushButton", "TAB_CAMERA"},
    {"BUTTON_EXPOSURE_COARSE_DOWN", "QPushButton", "TAB_CAMERA"},
    {"BUTTON_EXPOSURE_COARSE_UP", "QPushButton", "TAB_CAMERA"},
    {"BUTTON_COLOR_RED_COARSE_DOWN", "QPushButton", "TAB_CAMERA"},
    {"BUTTON_COLOR_RED_COARSE_UP", "QPushButton", "TAB_CAMERA"},
    {"BUTTON_COLOR_GREEN_COARSE_DOWN", "QPushButton", "TAB_CAMERA"},
    {"BUTTON_COLOR_GREEN_COARSE_UP", "QPushButton", "TAB_CAMERA"},
    {"BUTTON_COLOR_BLUE_COARSE_DOWN", "QPushButton", "TAB_CAMERA"},
    {"BUTTON_COLOR_BLUE_COARSE_UP", "QPushButton", "TAB_CAMERA"},
    {"BUTTON_STAINING_TB", "QPushButton", "TAB_CAMERA", "TB"},
    {"BUTTON_RESOLUTION_1280", "QPushButton", "TAB_CAMERA", "1280"},
    {"BUTTON_STAINING_NTB", "QPushButton", "TAB_CAMERA", "NTB"},
    {"BUTTON_RESOLUTION_VGA", "QPushButton", "TAB_CAMERA", "VGA"},
    {"BUTTON_RESOLUTION_5M", "QPushButton", "TAB_CAMERA", "5M"},
    {"CHECK_SCALED_TO_FIT", "QCheckBox", "TAB_CAMERA", "Scaled to fit"},
    {"BUTTON_LED", "QPushButton", "TAB_CAMERA"},
    {"EDIT_LED", "QLineEdit", "TAB_CAMERA"},
    {"BUTTON_LED_COARSE_DOWN", "QPushButton", "TAB_CAMERA"},
    {"BUTTON_LED_COARSE_UP", "QPushButton", "TAB_CAMERA"},
    {"BUTTON_LED_FINE_UP", "QPushButton", "TAB_CAMERA"},
    {"BUTTON_LED_FINE_DOWN", "QPushButton", "TAB_CAMERA"},
    {"BUTTON_CAPTURE", "QPushButton", "TAB_CAMERA", "Capture"},
    {"CHECK_CROSS_LINE", "QCheckBox", "TAB_CAMERA", "Cross line"},
    {"BUTTON_TEST", "QPushButton", "TAB_CAMERA", "TEST"},
    {"TAB_QC", "QWidget", "qt_tabwidget_stackedwidget"},
    {"EDIT_INTENSITY_RED", "QLineEdit", "TAB_QC"},
    {"LABEL_INTENSITY_BLUE", "QLabel", "TAB_QC"},
    {"EDIT_INTENSITY_GREEN", "QLineEdit", "TAB_QC"},
    {"LABEL_INTENSITY_GREEN", "QLabel", "TAB_QC"},
    {"EDIT_INTENSITY_BLUE", "QLineEdit", "TAB_QC"},
    {"BUTTON_INTENSITY", "QPushButton", "TAB_QC", "Intensity"},
    {"LABEL_INTENSITY_RED", "QLabel", "TAB_QC"},
    {"BUTTON_QC_CAPTURE", "QPushButton", "TAB_QC", "Capture"},
    {"EDIT_POINT_2", "QLineEdit", "TAB_QC", "0, 0"},
    {"EDIT_POINT_1", "QLineEdit", "TAB_QC", "0, 0"},
    {"BUTTON_QC_MEASURE", "QPushButton", "TAB_QC", "Measure"},
    {"EDIT_MAGNIFICATION", "QLineEdit", "TAB_QC"},
    {"LABEL_MAGNIFICATION", "QLabel", "TAB_QC", "Mag."},
    {"EDIT_VOLUME_FACTOR", "QLineEdit", "TAB_QC"},
    {"LABEL_VOLUME_FACTOR", "QLabel", "TAB_QC", "Vol."},
    {"BUTTON_POINT_1", "QPushButton", "TAB_QC"},
    {"BUTTON_POINT_2", "QPushButton", "TAB_QC"},
    {"LABEL_SERIAL_PREFIX", "QLabel", "TAB_QC"},
    {"EDIT_SERIAL_MIDFIX", "QLineEdit", "TAB_QC"},
    {"EDIT_SERIAL_SUFFIX", "QLineEdit", "TAB_QC", "00000"},
    {"CHECK_TARGET", "QCheckBox", "TAB_QC", "Target"},
    {"BUTTON_PASSWORD", "QPushButton", "TAB_QC", "Password"},
    {"BUTTON_SKIP_FRAME", "QPushButton", "TAB_QC", "Skipframe"},
    {"EDIT_SKIP_FRAME", "QLineEdit", "TAB_QC"},
    {"QC_MEASURE", "QC_measure", "centralwidget"},
    {"BUTTON_EXIT", "QPushButton", "centralwidget"},
    {"LABEL_VERSION", "QLabel", "centralwidget", ORLA_VERSION},
    {"BUTTON_DEBUG", "QPushButton", "centralwidget", "Console"},
    {"SPIN_DEBUG", "QSpinBox", "centralwidget"},
    {"BUTTON_SAVE_INI", "QPushButton", "centralwidget", "Save"},
    {"BUTTON_CONNECT", "QPushButton", "centralwidget", "X"},
};
constexpr int kWidgetCount = sizeof(kWidgets) / sizeof(kWidgets[0]);

} // namespace

/// What the form holds: names, kinds, order, texts, ranges and properties.
class TestForm : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<Panel> m_panel;
    double m_platformsSize_pt = 0.0;

private slots:
    void initTestCase() { m_platformsSize_pt = QApplication::font().pointSizeF(); }
    void init() { m_panel = std::make_unique<Panel>(); }
    void cleanup() { m_panel.reset(); }

    void everyWidgetIsOfItsKindAtItsPlace_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("className");
        QTest::addColumn<QString>("parent");
        for (const Expected& widget : kWidgets)
            QTest::newRow(widget.name) << widget.name << widget.className << widget.parent;
    }

    void everyWidgetIsOfItsKindAtItsPlace()
    {
        QFETCH(QString, name);
        QFETCH(QString, className);
        QFETCH(QString, parent);
        const auto widget = m_panel->findChildren<QWidget*>(name);
        QCOMPARE(widget.size(), 1);
        QCOMPARE(QString(widget.first()->metaObject()->className()), className);
        QCOMPARE(widget.first()->parentWidget()->objectName(), parent);
    }

    void theFormHoldsOnePointerPerWidgetInOrder()
    {
        QCOMPARE(sizeof(Ui_ORLA_II_Plus_Verifier), kWidgetCount * sizeof(void*));
        std::array<void*, kWidgetCount> members{};
        std::memcpy(members.data(), &m_panel->ui, sizeof(members));
        for (int i = 0; i < kWidgetCount; ++i)
            QCOMPARE(static_cast<void*>(m_panel->get(kWidgets[i].name)), members[i]);
    }

    void siblingsAreCreatedInOrder_data()
    {
        QTest::addColumn<QString>("parent");
        for (const char* parent : {"centralwidget", "TAB_STAGE", "TAB_CAMERA", "TAB_QC"})
            QTest::newRow(parent) << parent;
    }

    void siblingsAreCreatedInOrder()
    {
        QFETCH(QString, parent);
        QStringList expected;
        for (const Expected& widget : kWidgets)
            if (parent == widget.parent)
                expected += widget.name;
        QStringList found;
        for (const QObject* child : m_panel->get(parent)->children())
            found += child->objectName();
        QCOMPARE(found, expected);
    }

    void theWindowAndItsTabs()
    {
        QCOMPARE(m_panel->objectName(), QString("ORLA_II_Plus_Verifier"));
        QCOMPARE(m_panel->windowTitle(), QString("ORLA-II Plus Verifier"));
        QCOMPARE(m_panel->centralWidget()->objectName(), QString("centralwidget"));
        const QTabWidget* tabs = m_panel->ui.TAB_MENU;
        QCOMPARE(tabs->currentIndex(), 0);
        QCOMPARE(tabs->count(), kPages);
        const char* const pages[kPages] = {"TAB_STAGE", "TAB_CAMERA", "TAB_QC"};
        const char* const texts[kPages] = {"STAGE", "CAMERA", "QC"};
        for (int i = 0; i < kPages; ++i) {
            QCOMPARE(tabs->widget(i)->objectName(), QString(pages[i]));
            QCOMPARE(tabs->tabText(i), QString(texts[i]));
        }
    }

    void textsStandAsGiven_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("text");
        for (const Expected& widget : kWidgets)
            if (widget.text != nullptr)
                QTest::newRow(widget.name) << widget.name << widget.text;
    }

    void textsStandAsGiven()
    {
        QFETCH(QString, name);
        QFETCH(QString, text);
        QCOMPARE(m_panel->get(name)->property("text").toString(), text);
    }

    void everyButtonAndLabelHasACaption()
    {
        for (const QAbstractButton* button : m_panel->centralWidget()->findChildren<QAbstractButton*>())
            QVERIFY2(!button->text().isEmpty() || button->objectName().isEmpty() ||
                         qobject_cast<const QTabBar*>(button->parent()),
                     qPrintable(button->objectName()));
        for (const QLabel* label : m_panel->centralWidget()->findChildren<QLabel*>())
            QVERIFY2(!label->text().isEmpty(), qPrintable(label->objectName()));
    }

    void spinBoxesHaveTheirRanges_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QVector<int>>("least most step value");
        QTest::newRow("step") << "SPIN_Z_STEP" << QVector<int>({10, 100000, 1, 256});
        QTest::newRow("speed") << "SPIN_Z_SPEED" << QVector<int>({10, 1000, 10, 250});
        QTest::newRow("console") << "SPIN_DEBUG" << QVector<int>({1, 3, 1, 1});
    }

    void spinBoxesHaveTheirRanges()
    {
        QFETCH(QString, name);
        const auto* spin = m_panel->get<QSpinBox>(name);
        QTEST(QVector<int>({spin->minimum(), spin->maximum(), spin->singleStep(), spin->value()}),
              "least most step value");
    }

    void fieldsAreForReadingOrForTyping()
    {
        const QSet<QString> typed = {"EDIT_Z_ABS", "EDIT_LED", "EDIT_SERIAL_MIDFIX", "EDIT_SERIAL_SUFFIX",
                                     "EDIT_SKIP_FRAME"};
        for (const Expected& widget : kWidgets) {
            const auto* line = m_panel->get<QLineEdit>(widget.name);
            if (!line)
                continue;
            QVERIFY2(line->isReadOnly() != typed.contains(widget.name), widget.name);
            QVERIFY2(line->alignment() & Qt::AlignRight, widget.name);
            QVERIFY2(!line->validator() && line->inputMask().isEmpty(), widget.name);
        }
    }

    void anyTextCanBeTyped()
    {
        m_panel->show();
        auto* line = m_panel->ui.EDIT_Z_ABS;
        QTest::keyClicks(line, "abc -1");
        QCOMPARE(line->text(), QString("abc -1"));
    }

    void onlySteppingButtonsRepeat()
    {
        for (const QPushButton* button : m_panel->buttons()) {
            const QString name = button->objectName();
            const bool steps = name.contains("_FINE_") || name.contains("_COARSE_") ||
                               name.contains("Z_MOVE_MINUS") || name.contains("Z_MOVE_PLUS");
            QVERIFY2(button->autoRepeat() == steps, qPrintable(name));
            if (steps)
                QVERIFY2(button->autoRepeatInterval() >= 30 && button->autoRepeatInterval() <= 40,
                         qPrintable(name));
        }
    }

    void pressesNeverTakeTheKeyboardFromAField()
    {
        QCOMPARE(m_panel->buttons().size(), 55);
        for (const QPushButton* button : m_panel->buttons()) {
            const bool stage = m_panel->ui.TAB_STAGE->isAncestorOf(button);
            QVERIFY2(button->focusPolicy() == (stage ? Qt::NoFocus : Qt::TabFocus),
                     qPrintable(button->objectName()));
        }
    }

    void theTabKeyVisitsEachControlOfThePageInReadingOrder_data()
    {
        QTest::addColumn<int>("page");
        for (int page = 0; page < kPages; ++page)
            QTest::addRow("page %d", page) << page;
    }

    void theTabKeyVisitsEachControlOfThePageInReadingOrder()
    {
        QFETCH(int, page);
        m_panel->ui.TAB_MENU->setCurrentIndex(page);
        m_panel->show();
        m_panel->activateWindow();
        QVERIFY(QTest::qWaitForWindowActive(m_panel.get()));
        QStringList expected;
        for (const Expected& expectedWidget : kWidgets) {
            const QWidget* widget = m_panel->get(expectedWidget.name);
            const bool passesItOn = widget->focusProxy() != nullptr;
            if (widget->isVisible() && (widget->focusPolicy() & Qt::TabFocus) && !passesItOn)
                expected += widget->objectName();
        }
        m_panel->ui.TAB_MENU->tabBar()->setFocus();
        QStringList visited;
        QPoint last(0, 0);
        for (int i = 0; i < expected.size(); ++i) {
            QTest::keyClick(QApplication::focusWidget(), Qt::Key_Tab);
            QWidget* focused = QApplication::focusWidget();
            visited += focused->objectName();
            const QPoint place = focused->mapTo(m_panel.get(), QPoint());
            QVERIFY2(place.y() > last.y() || (place.y() == last.y() && place.x() > last.x()),
                     qPrintable(focused->objectName()));
            last = place;
        }
        visited.sort();
        expected.sort();
        QCOMPARE(visited, expected);
    }

    void everyControlHasANameOfItsOwnForAScreenReader()
    {
        showBoardState(m_panel->ui.BUTTON_CONNECT);
        QSet<QString> names;
        for (const Expected& widget : kWidgets) {
            QWidget* control = m_panel->get(widget.name);
            if (QString(widget.className) == "QWidget" || qobject_cast<QLabel*>(control))
                continue;
            const QString name = QAccessible::queryAccessibleInterface(control)->text(QAccessible::Name);
            QVERIFY2(!name.isEmpty() && !names.contains(name), widget.name);
            names += name;
        }
        QCOMPARE(names.size(), 85);
    }

    void theBoardsStateIsReadWithWhatItIsAbout()
    {
        showBoardState(m_panel->ui.BUTTON_CONNECT);
        QAccessibleInterface* board = QAccessible::queryAccessibleInterface(m_panel->ui.BUTTON_CONNECT);
        QCOMPARE(board->text(QAccessible::Name), QString("X"));
        QVERIFY(board->text(QAccessible::Description).startsWith("Controller board: "));
    }

    void onlyTheTwoTogglesStayDown()
    {
        QStringList checkable;
        for (const QPushButton* button : m_panel->buttons()) {
            if (button->isCheckable())
                checkable += button->objectName();
            QVERIFY2(!button->isChecked(), qPrintable(button->objectName()));
        }
        QCOMPARE(checkable, QStringList({"BUTTON_LED", "BUTTON_DEBUG"}));
    }

    void onlyScaledToFitIsCheckedAtFirst()
    {
        QVERIFY(m_panel->ui.CHECK_SCALED_TO_FIT->isChecked());
        for (const QCheckBox* check :
             {m_panel->ui.CHECK_CROSS_LINE, m_panel->ui.CHECK_TARGET, m_panel->ui.CHECK_DEBUG_AUTOFOCUS})
            QVERIFY2(!check->isChecked(), qPrintable(check->objectName()));
        QCOMPARE(m_panel->ui.PROGRESS_AUTOFOCUS->value(), 0);
        QCOMPARE(m_panel->ui.PROGRESS_AUTOFOCUS->minimum(), 0);
        QCOMPARE(m_panel->ui.PROGRESS_AUTOFOCUS->maximum(), 100);
    }

    void onlyExitCarriesAStyleOfItsOwn()
    {
        for (const QWidget* widget : m_panel->centralWidget()->findChildren<QWidget*>()) {
            const bool isExit = widget == m_panel->ui.BUTTON_EXIT;
            QCOMPARE(widget->styleSheet(), QString(isExit ? kExit : ""));
        }
    }

    // Of the inner parts of widgets too. A font that names the family again is another one to Qt,
    // and looked up apart from what inherits it.
    void noFontIsLookedUpTwice()
    {
        for (const QWidget* widget : m_panel->findChildren<QWidget*>()) {
            QCOMPARE(widget->font().family(), QString("DejaVu Sans"));
            QVERIFY2(widget->font().families() == m_panel->font().families(),
                     qPrintable(widget->objectName()));
        }
    }

    void whatOpensOverTheFormIsInItsFont()
    {
        QCOMPARE(QMessageBox().font().family(), QString("DejaVu Sans"));
        QCOMPARE(QMessageBox(m_panel.get()).font().family(), QString("DejaVu Sans"));
        QCOMPARE(QMessageBox().font().pointSizeF(), m_platformsSize_pt);
    }

    void fontsAreOfOneFamilyAndReadable()
    {
        for (const Expected& expected : kWidgets) {
            const QFont font = m_panel->get(expected.name)->font();
            QVERIFY2(font.family() == "DejaVu Sans", expected.name);
            QVERIFY2(font.pointSize() >= 7 && font.pointSize() <= 10, expected.name);
            if (QString(expected.name).contains("_COARSE_"))
                QCOMPARE(font.pointSize(), 7);
            if (QString(expected.name).startsWith("LABEL_"))
                QVERIFY2(font.pointSize() >= 8, expected.name);
        }
    }
};

QTEST_MAIN(TestForm)
#include "test_form.moc"
