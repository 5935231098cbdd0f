#include <QLineEdit>
#include <QPushButton>
#include <QtTest>

#include "Controller/Controller.h"
#include "support/LayoutChecks.h"
#include "verifier/TrimTab.h"

/// The LED of the camera tab, and what the trimming does to the picture.
class TestWindowLed : public QObject, protected TrimTab
{
    Q_OBJECT

private slots:
    void init() { reset(); }

    void aTypedLevelIsTakenBelowThousand_data()
    {
        QTest::addColumn<QString>("typed");
        QTest::addColumn<int>("level");
        QTest::newRow("0") << "0" << 0;
        QTest::newRow("1") << "1" << 1;
        QTest::newRow("500") << "500" << 500;
        QTest::newRow("999") << "999" << 999;
        QTest::newRow("1000") << "1000" << kNothing;
        QTest::newRow("1001") << "1001" << kNothing;
        QTest::newRow("negative") << "-5" << kNothing;
        QTest::newRow("text") << "abc" << 0;
        QTest::newRow("empty") << "" << 0;
        QTest::newRow("leading zeros") << "0042" << 42;
    }

    void aTypedLevelIsTakenBelowThousand()
    {
        QFETCH(QString, typed);
        QFETCH(int, level);
        setText("EDIT_LED", typed);
        QTest::keyClick(find<QLineEdit>("EDIT_LED"), Qt::Key_Return);
        if (level == kNothing) {
            QVERIFY(takeBoardLines().isEmpty());
            QCOMPARE(text("EDIT_LED"), typed);
            QCOMPARE(global_ini()->LED_brightness, 225);
        } else {
            QCOMPARE(takeBoardLines(), QStringList(QString("$,LED4,BRT,%1,").arg(level)));
            QCOMPARE(text("EDIT_LED"), QString::number(level));
            QCOMPARE(global_ini()->LED_brightness, level);
            QCOMPARE(board().light().ledLevel, level);
            QCOMPARE(ledEnabled(), enabledText(level != 0, level != 0, true, true));
        }
        QVERIFY(boxes().seen().isEmpty());
    }

    void aPressStepsTheLevel_data()
    {
        QTest::addColumn<QString>("button");
        QTest::addColumn<int>("from");
        QTest::addColumn<int>("to");
        const auto row = [](const char* button, int from, int to) {
            QTest::addRow("%s from %d", button, from) << QString("BUTTON_LED_") + button << from << to;
        };
        row("FINE_UP", 0, 1);
        row("FINE_UP", 998, 999);
        row("FINE_UP", 999, 1000);
        row("FINE_UP", 1000, kNothing);
        row("FINE_UP", 1500, kNothing);
        row("COARSE_UP", 0, 10);
        row("COARSE_UP", 989, 999);
        row("COARSE_UP", 990, 1000);
        row("COARSE_UP", 995, 1000);
        row("COARSE_UP", 999, 1000);
        row("COARSE_UP", 1000, kNothing);
        row("FINE_DOWN", 1000, 999);
        row("FINE_DOWN", 1, 0);
        row("FINE_DOWN", 0, kNothing);
        row("COARSE_DOWN", 1000, 990);
        row("COARSE_DOWN", 11, 1);
        row("COARSE_DOWN", 10, 0);
        row("COARSE_DOWN", 9, 0);
        row("COARSE_DOWN", 1, 0);
        row("COARSE_DOWN", 0, kNothing);
        // Typed without Return: nothing that the board refuses is sent.
        row("FINE_DOWN", 1001, 1000);
        row("FINE_DOWN", 1002, 1000);
        row("FINE_DOWN", 99999, 1000);
        row("COARSE_DOWN", 1005, 995);
        row("COARSE_DOWN", 1010, 1000);
        row("COARSE_DOWN", 1500, 1000);
    }

    void aPressStepsTheLevel()
    {
        QFETCH(QString, button);
        QFETCH(int, from);
        QFETCH(int, to);
        setText("EDIT_LED", QString::number(from));
        for (const char* widget : kLedWidgets)
            find<QWidget>(widget)->setEnabled(true);
        click(qPrintable(button));
        const int after = to == kNothing ? from : to;
        QCOMPARE(text("EDIT_LED"), QString::number(after));
        QCOMPARE(takeBoardLines(),
                 to == kNothing ? QStringList() : QStringList(QString("$,LED4,BRT,%1,").arg(to)));
        QCOMPARE(global_ini()->LED_brightness, to == kNothing ? 225 : to);
        const bool down = after != 0;
        const bool up = after < 1000;
        QCOMPARE(ledEnabled(), enabledText(down, down, up, up));
        const QString line = QString("void ORLA_II_Plus_Verifier::set_LED(unsigned int)() %1 \n").arg(to);
        QCOMPARE(messages().count(line), to == kNothing ? 0 : 1);
    }

    void aNegativeLevelIsNotSteppedDown()
    {
        setText("EDIT_LED", "-5");
        for (const char* button : {"BUTTON_LED_FINE_DOWN", "BUTTON_LED_COARSE_DOWN"}) {
            click(button);
            QCOMPARE(text("EDIT_LED"), QString("-5"));
            QCOMPARE(ledEnabled(), Enabled("1111"));
        }
        QCOMPARE(takeBoardLines(), QStringList());
        QCOMPARE(global_ini()->LED_brightness, 225);
    }

    void aLevelIsKeptAndShownBeforeItIsSent()
    {
        setText("EDIT_LED", "300");
        int sent = 0;
        const auto looking = atBoardLine("$,LED4,BRT,", [&](const QString&) {
            ++sent;
            QCOMPARE(global_ini()->LED_brightness, 301);
            QCOMPARE(text("EDIT_LED"), QString("301"));
        });
        click("BUTTON_LED_FINE_UP");
        QCOMPARE(sent, 1);
    }

    void aHeldLedButtonRepeats()
    {
        setText("EDIT_LED", "100");
        press("BUTTON_LED_COARSE_UP");
        const QStringList lines = waitForBoardLines(3);
        release("BUTTON_LED_COARSE_UP");
        QVERIFY(lines.size() >= 3);
        for (int i = 0; i < lines.size(); ++i)
            QCOMPARE(lines[i], QString("$,LED4,BRT,%1,").arg(110 + 10 * i));
    }

    void aCheckedLedButtonMeansDark()
    {
        QVERIFY(board().light().ledOn);
        clearConsoles();
        click("BUTTON_LED");
        QVERIFY(messages().startsWith("void ORLA_II_Plus_Verifier::on_BUTTON_LED_clicked(bool)() off \n"));
        QVERIFY(find<QPushButton>("BUTTON_LED")->isChecked());
        QCOMPARE(takeBoardLines(), QStringList("$,LED4,OFF,,"));
        QVERIFY(!board().light().ledOn);
        for (const char* widget : kLedWidgets)
            QVERIFY2(!isEnabled(widget), widget);

        clearConsoles();
        click("BUTTON_LED");
        QVERIFY(messages().startsWith("void ORLA_II_Plus_Verifier::on_BUTTON_LED_clicked(bool)() on \n"));
        QVERIFY(!find<QPushButton>("BUTTON_LED")->isChecked());
        QCOMPARE(takeBoardLines(), QStringList("$,LED4,ON,,"));
        QVERIFY(board().light().ledOn);
        QCOMPARE(board().light().ledLevel, 225);
        for (const char* widget : kLedWidgets)
            QVERIFY2(isEnabled(widget), widget);
    }

    void theFieldsAreLockedOrFreeBeforeTheLedIsSwitched()
    {
        setText("EDIT_LED", "1000");
        QStringList whenSent;
        const auto looking = atBoardLine("$,LED4", [&](const QString& line) {
            whenSent << line.section(',', 2, 2) + (isEnabled("EDIT_LED") ? " 1" : " 0") + ledEnabled();
        });
        click("BUTTON_LED");
        click("BUTTON_LED");
        QCOMPARE(whenSent, QStringList({"OFF 00000", "ON 11100"}));
    }

    void aDarkLedStaysLockedWhenTheBoardIsConnectedAnew()
    {
        click("BUTTON_LED");
        takeBoardLines();
        QVERIFY(QMetaObject::invokeMethod(Controller::getInstance(), "sig_connected_controller"));
        QCOMPARE(takeBoardLines().filter("BRT"), QStringList("$,LED4,BRT,225,"));
        QVERIFY(find<QPushButton>("BUTTON_LED")->isChecked());
        for (const char* widget : kLedWidgets)
            QVERIFY2(!isEnabled(widget), widget);

        click("BUTTON_LED");
        for (const char* widget : kLedWidgets)
            QVERIFY2(isEnabled(widget), widget);
    }

    void switchingOnLeavesTheButtonsThatHaveRoom_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<Enabled>("enabled");
        const auto row = [](const char* text, const char* on) { QTest::newRow(text) << text << on; };
        row("0", "0011");
        row("1", "1111");
        row("999", "1111");
        row("1000", "1100");
        row("1500", "1100");
        row("abc", "0011");
        // Not 0, though there is nothing below.
        row("-5", "1111");
    }

    void switchingOnLeavesTheButtonsThatHaveRoom()
    {
        QFETCH(QString, text);
        click("BUTTON_LED");
        setText("EDIT_LED", text);
        click("BUTTON_LED");
        QVERIFY(isEnabled("EDIT_LED"));
        QTEST(ledEnabled(), "enabled");
        QCOMPARE(takeBoardLines(), QStringList({"$,LED4,OFF,,", "$,LED4,ON,,"}));
    }

    void aBoardThatRefusesChangesNothingOnTheScreen()
    {
        addFault({LineFault::Failure, "BRT", 1});
        setText("EDIT_LED", "300");
        click("BUTTON_LED_FINE_UP");
        QCOMPARE(text("EDIT_LED"), QString("301"));
        QCOMPARE(global_ini()->LED_brightness, 301);
        QVERIFY(boxes().seen().isEmpty());
    }

    void thePictureGetsBrighter_data()
    {
        QTest::addColumn<QString>("edit");
        QTest::addColumn<QString>("button");
        QTest::addColumn<QString>("dim");
        QTest::addColumn<QString>("bright");
        const auto row = [](const char* name, const char* edit, const char* button, const char* dim,
                            const char* bright) { QTest::newRow(name) << edit << button << dim << bright; };
        row("exposure", "EDIT_EXPOSURE", "BUTTON_EXPOSURE_COARSE_UP", "0x0C00", "0x1C00");
        row("gain", "EDIT_GAIN", "BUTTON_GAIN_FINE_UP", "0x0000", "0x000E");
        row("LED", "EDIT_LED", "BUTTON_LED_FINE_UP", "100", "220");
    }

    void thePictureGetsBrighter()
    {
        QFETCH(QString, edit);
        QFETCH(QString, button);
        QFETCH(QString, dim);
        QFETCH(QString, bright);
        makeNeutral();
        std::array<double, 2> levels{};
        const std::array<QString, 2> texts{dim, bright};
        for (std::size_t i = 0; i < texts.size(); ++i) {
            setText(qPrintable(edit), texts[i]);
            click(qPrintable(button));
            levels[i] = meanColour()[1];
        }
        QVERIFY2(levels[1] > 1.3 * levels[0], qPrintable(QString("%1 and %2").arg(levels[0]).arg(levels[1])));
        QVERIFY(levels[1] < 250.0);
    }

    void thePictureIsTinted_data()
    {
        QTest::addColumn<QString>("colour");
        QTest::addColumn<int>("channel");
        QTest::newRow("red") << "RED" << 0;
        QTest::newRow("green") << "GREEN" << 1;
        QTest::newRow("blue") << "BLUE" << 2;
    }

    void thePictureIsTinted()
    {
        QFETCH(QString, colour);
        QFETCH(int, channel);
        makeNeutral();
        const auto neutral = meanColour();
        setText(qPrintable("EDIT_COLOR_" + colour), "0x05F0");
        click(qPrintable("BUTTON_COLOR_" + colour + "_COARSE_UP"));
        const auto tinted = meanColour();
        for (int i = 0; i < 3; ++i) {
            const double ratio = tinted[std::size_t(i)] / neutral[std::size_t(i)];
            const QString text = QString("channel %1: %2").arg(i).arg(ratio);
            QVERIFY2(i == channel ? ratio > 1.25 : qAbs(ratio - 1.0) < 0.1, qPrintable(text));
        }
    }

    void switchingTheLedOffDarkensThePicture()
    {
        makeNeutral();
        const double lit = meanColour()[1];
        click("BUTTON_LED");
        const double dark = meanColour()[1];
        QVERIFY2(dark < 10.0 && lit > 50.0, qPrintable(QString("%1 and %2").arg(lit).arg(dark)));
    }

    void bothEndsOfEveryRangeAreReadable_data()
    {
        QTest::addColumn<bool>("atMaximum");
        QTest::newRow("least") << false;
        QTest::newRow("most") << true;
    }

    void bothEndsOfEveryRangeAreReadable()
    {
        QFETCH(bool, atMaximum);
        for (const Family& f : kFamilies)
            (window().*f.setter)(atMaximum ? f.maximum : 0);
        window().getCamera_reg();
        window().set_LED(atMaximum ? 999 : 1);
        click(atMaximum ? "BUTTON_LED_FINE_UP" : "BUTTON_LED_FINE_DOWN");
        for (const Family& f : kFamilies) {
            QCOMPARE(text(f.edit), shown(atMaximum ? f.maximum : 0));
            QCOMPARE(enabledOf(f), Enabled(atMaximum ? "1100" : "0011"));
        }
        QCOMPARE(ledEnabled(), Enabled(atMaximum ? "1100" : "0011"));
        QCOMPARE(layout::clippedTexts(&window()).join("; "), QString());
        QVERIFY(waitForFrames(3));
        keepPicture(QString("camera-tab-") + QTest::currentDataTag());
    }

private:
    /// A clear grey picture with room above and below.
    void makeNeutral()
    {
        const std::array<unsigned int, 5> values{0x1C00, 0x0000, 0x0400, 0x0400, 0x0400};
        for (std::size_t i = 0; i < kFamilies.size(); ++i)
            (window().*kFamilies[i].setter)(values[i]);
        window().set_LED(225);
    }

    /// Mean red, green and blue of the live view on the screen, once it shows the settings of
    /// now: frames that were under way before may take a few repaints.
    std::array<double, 3> meanColour()
    {
        if (!waitForFrames(8))
            qFatal("no frames");
        const QImage view = this->view();
        std::array<double, 3> sums{};
        for (int y = 0; y < view.height(); y += 4) {
            for (int x = 0; x < view.width(); x += 4) {
                const QRgb pixel = view.pixel(x, y);
                sums[0] += qRed(pixel);
                sums[1] += qGreen(pixel);
                sums[2] += qBlue(pixel);
            }
        }
        for (double& sum : sums)
            sum /= 160.0 * 120.0;
        return sums;
    }
};

QTEST_MAIN(TestWindowLed)
#include "test_window_led.moc"
