#pragma once

#include <QJsonObject>
#include <QMessageBox>
#include <QString>
#include <QStringList>

class QDialog;
class QWidget;

/// A message box or a dialog for a file's name that came up, and what was done about it.
struct SeenBox
{
    QString title;
    QString text;        ///< of a dialog for a file's name: the directory it starts in, a fixed path
    QStringList buttons; ///< their captions without mnemonics, in the box's order
    QString answer;      ///< caption of the button that was pressed, or the name that was given
    bool expected = false;
    QMessageBox::Icon icon = QMessageBox::NoIcon;
    bool hadDefaultButton = false;
    bool windowWasEnabled = false;    ///< the window that it came up over
    bool controlsWereEnabled = false; ///< that window's tabs
    bool isFileDialog = false;
    bool saves = false;  ///< of a dialog for a file's name: whether for a file to be written
    QStringList filters; ///< of such a dialog
};

/// What stands on a dialog that is open over a window. GUI thread.
SeenBox recordOf(const QDialog& dialog, const QWidget& window);

/// The record as an object for a protocol or a file, and back from it.
QJsonObject boxToJson(const SeenBox& box);
SeenBox boxFromJson(const QJsonObject& object);

/// Presses the visible button with this caption (without mnemonic), as a finger would; false
/// if there is none. GUI thread.
bool pressButton(QDialog& dialog, const QString& caption);

/// Gives a dialog for a file's name that name, and saves; false if it takes none. GUI thread.
bool giveFileName(QDialog& dialog, const QString& name);
