#include <QFont>
#include <QtTest>

#include "PanelSetup.h"

/// What the environment asks for does not reach the form.
class TestPanelSetup : public QObject
{
    Q_OBJECT

private slots:
    void noScaleOfTheEnvironmentIsInForce_data()
    {
        QTest::addColumn<QByteArray>("variable");
        for (const char* variable :
             {"QT_SCALE_FACTOR", "QT_SCREEN_SCALE_FACTORS", "QT_AUTO_SCREEN_SCALE_FACTOR",
              "QT_ENABLE_HIGHDPI_SCALING", "QT_DEVICE_PIXEL_RATIO", "QT_USE_PHYSICAL_DPI"})
            QTest::newRow(variable) << QByteArray(variable);
    }

    void noScaleOfTheEnvironmentIsInForce()
    {
        QFETCH(QByteArray, variable);
        qputenv(variable.constData(), "2");
        setUpPanel();
        QVERIFY(!qEnvironmentVariableIsSet(variable.constData()));
    }

    void pointsAreOfNinetySixToTheInch()
    {
        qputenv("QT_FONT_DPI", "144");
        setUpPanel();
        QCOMPARE(qgetenv("QT_FONT_DPI"), QByteArray("96"));
    }

    void anotherFontIsAsNarrow()
    {
        setUpPanel();
        QCOMPARE(QFont::substitutes("DejaVu Sans"),
                 QStringList({"bitstream vera sans", "liberation sans", "noto sans", "freesans", "arial"}));
    }
};

QTEST_GUILESS_MAIN(TestPanelSetup)
#include "test_panel_setup.moc"
