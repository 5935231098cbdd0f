#pragma once

#include <QString>
#include <QStringList>
#include <QVector>

/// One run of the password script.
struct PasswordRun
{
    QString password;      ///< the serial number that the main settings file held
    QStringList arguments; ///< none, as the verifier passes none
};

/// The files that the verifier finds on a simulated instrument, below a private root
/// directory: settings files, password script, display driver parameter. GUI thread.
class InstrumentTree
{
public:
    /// root: machine path of the directory that stands in for "/"; need not exist.
    explicit InstrumentTree(const QString& root);

    /// Creates directories and files; a file that is there already stays as it is.
    /// settingsFolder: machine path of a user's own folder, whose ORLA3.ini,
    /// Calibration_CUS.ini, Calibration_BFN.ini and Orla2.ini are copied over the
    /// instrument's; a name it does not hold keeps the instrument's file, and the folder
    /// itself is never written. Empty: none. zigMode: how the instrument's own main file has it.
    /// False, and no more is done, if something cannot be written or settingsFolder is no
    /// directory that can be read.
    bool create(const QString& settingsFolder = QString(), bool zigMode = false);

    /// The fixed paths of the settings files, the main one first, and of the display driver's
    /// parameter. Any thread.
    static QStringList settingsFiles();
    static QString displayParameter();

    /// The runs of the password script so far, oldest first.
    QVector<PasswordRun> passwordRuns() const;

    /// The display driver's parameter, without white space: "1" until the verifier writes "0".
    QString displayLayerProtect() const;

private:
    QString m_root;
};
