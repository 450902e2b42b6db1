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
///
/// File format, as read:
/// - "[Section]" starts a section; text after the closing ']' is ignored. Lines before the first
///   header belong to the section named "" (empty).
/// - "key=value" is an entry; the key is everything before the first '=', the value everything
///   after it, both trimmed of blanks and tabs. A ';' or '#' inside a value is part of the
///   value: there are no end-of-line comments. A text value in double quotes (key="  x  ")
///   reads as the text between them, blanks included.
/// - A line whose first non-blank character is ';' or '#' is a comment; blank lines are kept.
/// - Any other line (no '=', an empty key, a '[' without ']') is malformed and skipped.
/// - Section and key names compare case-insensitively (ASCII letters only, as INI files
///   usually do); the names given to the operations are trimmed like the file's.
/// - When a key appears twice in a section (or a section twice in the file), the first
///   occurrence wins, and a write updates that one.
/// - CRLF line ends and a UTF-8 byte-order mark are accepted and kept as they are.
///
/// Writes re-read the file first, so that several objects on the same file never lose each
/// other's values; no value is cached between calls. Only the written entry's line changes (the
/// part after '=' is replaced); a new key goes after the last entry of its section's first
/// occurrence, a new section at the end of the file after a blank line. Missing folders are
/// created. A file that exists but cannot be read is never overwritten: the write fails.
class DTM_API CIniFile {
public:
    /// Binds to the host's INI file (see GetDefaultPath), resolved now.
    CIniFile();
    /// Binds to the file at @p path.
    explicit CIniFile(std::string path);
    virtual ~CIniFile();

    /// Sets, once for the process, the file that default-constructed objects use. An empty
    /// @p path removes the setting, so that the environment decides again.
    static void SetDefaultPath(const std::string& path);
    /// The path set by SetDefaultPath; without one, the environment variable DTM_INI; without
    /// it, $XDG_CONFIG_HOME/dtm/dtm.ini, else ~/.config/dtm/dtm.ini. Empty variables are ignored,
    /// and so is a relative XDG_CONFIG_HOME (the XDG rule). Without HOME too, "dtm.ini" in the
    /// current folder.
    static std::string GetDefaultPath();

    /// The file this object reads and writes.
    const std::string& GetPath() const noexcept { return m_path; }

    /// The boolean under @p key: "1", "true", "yes", "on" are true and "0", "false", "no",
    /// "off" false, in any letter case; any other integer of 32 bits is true when non-zero.
    /// Anything else gives @p def.
    bool GetBool(const char* section, const char* key, bool def);
    /// A decimal integer with an optional sign. A value outside the 32-bit range counts as
    /// malformed and gives @p def, as does any other text (a fraction, a hexadecimal number).
    long GetLong(const char* section, const char* key, long def);
    /// A value outside the 16-bit range counts as malformed and gives @p def.
    short GetShort(const char* section, const char* key, short def);
    /// A decimal number with '.' as separator, whatever locale the process has set; "inf",
    /// "-inf" and "nan" are accepted. A value that overflows a double gives @p def.
    double GetDouble(const char* section, const char* key, double def);
    /// The value as written in the file, trimmed, and without one pair of enclosing double
    /// quotes. A null @p def counts as "".
    kor::String GetKorString(const char* section, const char* key, const char* def);

    /// Writes "1" or "0". False when the file cannot be written or a name is not storable (see
    /// WriteString).
    bool WriteBool(const char* section, const char* key, bool value);
    /// False, writing nothing, when @p value does not fit in 32 bits: GetLong would refuse it.
    bool WriteLong(const char* section, const char* key, long value);
    /// Writes the decimal value.
    bool WriteShort(const char* section, const char* key, short value);
    /// Writes the shortest decimal text that reads back as exactly @p value ('.' separator,
    /// exponent when shorter); infinities as "inf"/"-inf", NaN as "nan" (its payload and sign
    /// are not kept).
    bool WriteDouble(const char* section, const char* key, double value);
    /// Writes @p value (null counts as ""). A line cannot hold a line break, so each CR or LF
    /// becomes a blank. A value that starts or ends with a blank, or is itself enclosed in double
    /// quotes, is written in double quotes, so that GetKorString gives it back whole. False
    /// when the file cannot be written, or when a name cannot be stored: a null or empty key, a
    /// key with '=', a key starting with '[', ';' or '#', a section with ']', or a line break
    /// in either.
    bool WriteString(const char* section, const char* key, const char* value);

private:
    /// The trimmed text under @p key, or false when the file, section or key is missing.
    bool FindValue(const char* section, const char* key, std::string& value) const;
    /// Puts @p value under @p key and rewrites the file; false when that failed.
    bool StoreValue(const char* section, const char* key, const std::string& value) const;

    std::string m_path;
};
