#pragma once

#include <string>
#include <vector>

/// One key at a time of an INI file, as the settings loader and saver use it. File names are
/// fixed paths of the instrument; texts are UTF-8. GUI thread. Nothing is thrown.

/// Reads a key. A value that stands in the file as a list ("a,b") comes back joined with
/// ", " ("a, b"). Returns true and the text in value; or false and defaultValue if file,
/// section or key is missing or the value is empty, or the file holds an object that is not in
/// order (StoredObjects.h).
bool ini_read(std::string section, std::string key, std::string defaultValue, std::string& value,
              std::string fileName);

/// Writes a key; creates the file, and its directory, if missing. Afterwards the file holds
/// no "%20": each one, in keys and values alike, has become a blank, which is how the
/// instrument's other programs expect keys such as "Z reference". The file is replaced as
/// a whole (FileReplacement). If that is impossible, it stays as it was and one line in the
/// debug stream says why.
void ini_write(std::string section, std::string key, std::string value, std::string fileName);

/// A key with its new value.
struct IniEntry
{
    std::string section;
    std::string key;
    std::string value;
};

/// Leaves the same bytes as ini_write() of each entry in turn, but replaces the file once,
/// so that it holds all of the entries or none. Returns whether it could be replaced; with
/// no entries nothing is touched.
bool writeIniEntries(const std::vector<IniEntry>& entries, const std::string& fileName);
