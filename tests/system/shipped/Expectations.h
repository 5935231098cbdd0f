#pragma once

#include <QtTest>

#include "ShippedProgram.h"

// What the tests of the shipped program expect in common.

inline const QString kChosen = "background-color: rgb(0, 170, 255);";
inline const QString kNotChosen = "background-color: none;";
inline const QString kMainSettings = "opt/ORLA3/conf/ORLA3.ini";

/// What the tests of the shipped program are; skipped where it cannot run.
class ShippedProgramTest : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        if (const QString hindrance = ShippedProgram::hindrance(); !hindrance.isEmpty())
            QSKIP(qPrintable(hindrance));
    }
};

/// Of the calls, those that begin so, without that beginning.
QStringList only(const QStringList& calls, const QString& start);
/// What one opening of the camera asks of the device, and what every later one asks where the
/// buffers of the stream before hold the format.
QStringList opening(int width, int height);
QStringList reopening(int width, int height);
/// And what its closing does.
QStringList closing(int width, int height);
/// The ten register writes of a calibration set whose values count up from the first.
QStringList registerWrites(int first);
/// Writes of a register's value; a read sends the two address bytes only.
QStringList valueWrites(const QStringList& calls);

/// A message box's icon and title: "critical: Error"; and its buttons in alphabetical order.
QString titleOf(const SeenBox& box);
QString buttonsOf(const SeenBox& box);

/// Ends a test whose box has another icon and title, text or buttons.
#define VERIFY_BOX(BOX, TITLE, TEXT, BUTTONS)                                                                \
    do {                                                                                                     \
        const SeenBox seen = (BOX);                                                                          \
        QCOMPARE(titleOf(seen), QString(TITLE));                                                             \
        QCOMPARE(seen.text, QString(TEXT));                                                                  \
        QCOMPARE(buttonsOf(seen), QString(BUTTONS));                                                         \
    } while (false)
