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

/// Reads what a dialog shows that is open over a window. GUI thread.
SeenBox recordOf(const QDialog& dialog, const QWidget& window);

/// A record as a JSON object, and back from it. Any thread.
QJsonObject boxToJson(const SeenBox& box);
SeenBox boxFromJson(const QJsonObject& object);

/// Presses the visible button with this caption (without mnemonic), as a finger would; false
/// if there is none. GUI thread.
bool pressButton(QDialog& dialog, const QString& caption);

/// Gives a dialog for a file's name that name, and saves; false if it takes none. GUI thread.
bool giveFileName(QDialog& dialog, const QString& name);
