#pragma once

/// @file
/// Access to the host's INI file, where the display and computation options live.

#include <dtm/support/Export.h>
#include <dtm/support/String.h>

#include <string>

/// One INI file: sections of "key=value" lines. The default constructor binds to the host's INI
/// file. Getters answer the given default when the file, the section or the key is missing, or
/// when the value does not parse as the asked type. Every write updates the file at once and
/// atomically (a temporary file renamed over the old one), keeping every other section, key and
/// comment; doubles are written so that they read back exactly.
class DTM_API CIniFile {
public:
    /// Binds to the host's INI file (see GetDefaultPath).
    CIniFile();
    /// Binds to the file at @p path.
    explicit CIniFile(std::string path);
    virtual ~CIniFile();

    /// Sets, once for the process, the file that default-constructed objects use.
    static void SetDefaultPath(const std::string& path);
    /// The path set by SetDefaultPath; without one, the environment variable DTM_INI; without
    /// it, $XDG_CONFIG_HOME/dtm/dtm.ini, else ~/.config/dtm/dtm.ini.
    static std::string GetDefaultPath();

    /// The file this object reads and writes.
    const std::string& GetPath() const noexcept { return m_path; }

    bool GetBool(const char* section, const char* key, bool def);
    /// A value outside the 32-bit range counts as malformed and gives @p def.
    long GetLong(const char* section, const char* key, long def);
    /// A value outside the 16-bit range counts as malformed and gives @p def.
    short GetShort(const char* section, const char* key, short def);
    double GetDouble(const char* section, const char* key, double def);
    kor::String GetKorString(const char* section, const char* key, const char* def);

    bool WriteBool(const char* section, const char* key, bool value);
    bool WriteLong(const char* section, const char* key, long value);
    bool WriteShort(const char* section, const char* key, short value);
    bool WriteDouble(const char* section, const char* key, double value);
    bool WriteString(const char* section, const char* key, const char* value);

private:
    std::string m_path;
};
