#pragma once

#include <QFile>
#include <QFileInfo>
#include <QSettings>

#include "settings/SettingsFiles.h"
#include "support/FileBytes.h"
#include "support/WindowFixture.h"

/// The instrument's settings files, in the order of SettingsFiles.h.
inline constexpr const char* kSettingsFiles[] = {kMainSettingsFile, kCusCalibrationFile, kBfnCalibrationFile,
                                                 kStageFile};

/// The settings files of a running window's instrument, as a test lays them down and reads
/// them. Files go by their fixed paths.
class SettingsFolder
{
public:
    explicit SettingsFolder(WindowFixture& fixture) : m_fixture(fixture) {}

    QByteArray content(const char* file) const { return bytesOf(m_fixture.machinePath(file)); }

    void put(const char* file, const QByteArray& content) { putBytes(m_fixture.machinePath(file), content); }

    void remove(const char* file) { QFile::remove(m_fixture.machinePath(file)); }

    /// Lays down all four files from a directory that holds them under their own names.
    void putAll(const QString& directory)
    {
        for (const char* file : kSettingsFiles)
            put(file, bytesOf(directory + '/' + QFileInfo(file).fileName()));
    }

    /// Loads the files into record and window, as the window's construction does.
    void load()
    {
        QSettings settings(m_fixture.machinePath(kMainSettingsFile), QSettings::IniFormat);
        m_fixture.window().get_INI_value(settings);
    }

private:
    WindowFixture& m_fixture;
};
