#include <dtm/support/IniFile.h>

#include <atomic>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <limits>
#include <mutex>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

// POSIX calls for the file replacement: the standard library cannot create a file exclusively,
// copy permissions to an open file or flush it to the disk.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace fs = std::filesystem;

namespace {

// ---------------------------------------------------------------------------------------------
// Text helpers

bool IsBlank(char c) {
    return c == ' ' || c == '\t' || c == '\v' || c == '\f';
}

std::string_view Trim(std::string_view text) {
    while (!text.empty() && IsBlank(text.front())) text.remove_prefix(1);
    while (!text.empty() && IsBlank(text.back())) text.remove_suffix(1);
    return text;
}

char FoldAscii(char c) {
    return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c;
}

bool EqualsIgnoreCase(std::string_view a, std::string_view b) {
    if (a.size() != b.size()) return false;
    for (std::size_t i = 0; i < a.size(); ++i)
        if (FoldAscii(a[i]) != FoldAscii(b[i])) return false;
    return true;
}

bool IsQuoted(std::string_view text) {
    return text.size() >= 2 && text.front() == '"' && text.back() == '"';
}

// Text is stored in double quotes when reading would change it otherwise: when it starts or
// ends with a blank, which reading trims, or is itself in double quotes, which reading strips.
std::string QuotedForStorage(std::string text) {
    const bool padded = !text.empty() && (IsBlank(text.front()) || IsBlank(text.back()));
    if (!padded && !IsQuoted(text)) return text;
    return '"' + text + '"';
}

// The text of a stored value: one pair of enclosing double quotes is taken off.
std::string_view UnquotedText(std::string_view value) {
    return IsQuoted(value) ? value.substr(1, value.size() - 2) : value;
}

bool HasLineBreak(std::string_view text) {
    return text.find_first_of("\r\n") != text.npos;
}

// ---------------------------------------------------------------------------------------------
// Numbers: std::from_chars and std::to_chars never look at the locale, so a host that set a
// locale with ',' as decimal separator still reads and writes '.'.

/// from_chars takes no '+'; the file may have one. "+-1" stays refused.
std::string_view WithoutPlus(std::string_view text) {
    if (text.size() > 1 && text[0] == '+' && text[1] != '+' && text[1] != '-')
        text.remove_prefix(1);
    return text;
}

/// True when the whole of @p text is one number of type T (std::int64_t or double).
template <class T>
bool ParseNumber(std::string_view text, T& value) {
    text = WithoutPlus(text);
    T parsed{};
    const char* end = text.data() + text.size();
    const auto result = std::from_chars(text.data(), end, parsed);
    if (result.ec != std::errc() || result.ptr != end) return false;
    value = parsed;
    return true;
}

bool ParseInteger(std::string_view text, std::int64_t low, std::int64_t high, std::int64_t& value) {
    std::int64_t parsed = 0;
    if (!ParseNumber(text, parsed) || parsed < low || parsed > high) return false;
    value = parsed;
    return true;
}

/// The shortest text that reads back as exactly @p value (for doubles: "inf", "-inf", "nan"
/// for the special values).
template <class T>
std::string FormatNumber(T value) {
    char buffer[64];
    const auto result = std::to_chars(buffer, buffer + sizeof(buffer), value);
    return std::string(buffer, result.ptr);
}

constexpr std::int64_t kLongMin = std::numeric_limits<std::int32_t>::min();
constexpr std::int64_t kLongMax = std::numeric_limits<std::int32_t>::max();

// ---------------------------------------------------------------------------------------------
// The file as lines. Each line keeps its own terminator so that the lines a write does not touch
// go back to the file byte for byte, whatever line ends the file uses.

struct Line {
    std::string text;  // without its terminator
    std::string end;   // "\n", "\r\n" or "" (last line without a terminator)
};

enum class LineKind { Blank, Comment, Section, Entry, Malformed };

struct ParsedLine {
    LineKind kind = LineKind::Malformed;
    std::string_view name;       // section or key name, trimmed
    std::string_view value;      // entry value, trimmed
    std::size_t valueStart = 0;  // where the trimmed value starts in the line's text
};

ParsedLine ParseLine(std::string_view text) {
    ParsedLine parsed;
    const std::string_view trimmed = Trim(text);
    if (trimmed.empty()) {
        parsed.kind = LineKind::Blank;
    } else if (trimmed[0] == ';' || trimmed[0] == '#') {
        parsed.kind = LineKind::Comment;
    } else if (trimmed[0] == '[') {
        const std::size_t close = trimmed.find(']');
        if (close != trimmed.npos) {
            parsed.kind = LineKind::Section;
            parsed.name = Trim(trimmed.substr(1, close - 1));
        }
    } else {
        const std::size_t equals = text.find('=');
        if (equals != text.npos) {
            parsed.name = Trim(text.substr(0, equals));
            std::size_t valueStart = equals + 1;
            while (valueStart < text.size() && IsBlank(text[valueStart])) ++valueStart;
            parsed.value = Trim(text.substr(valueStart));
            parsed.valueStart = valueStart;
            if (!parsed.name.empty()) parsed.kind = LineKind::Entry;
        }
    }
    return parsed;
}

/// Where a key is, or where it would go.
struct Location {
    bool entryFound = false;
    std::size_t entryLine = 0;
    bool sectionFound = false;
    /// Index of the line before which a new key of the section goes: after the last
    /// non-comment line of the section's first occurrence, so that a comment introducing the
    /// next section stays with it.
    std::size_t insertBefore = 0;
};

class Document {
public:
    enum class LoadResult { Loaded, Missing, Unreadable };

    LoadResult Load(const std::string& path) {
        std::FILE* file = std::fopen(path.c_str(), "rb");
        if (!file)
            return (errno == ENOENT || errno == ENOTDIR) ? LoadResult::Missing
                                                         : LoadResult::Unreadable;
        std::string content;
        char buffer[4096];
        std::size_t count = 0;
        while ((count = std::fread(buffer, 1, sizeof(buffer), file)) > 0)
            content.append(buffer, count);
        const bool failed = std::ferror(file) != 0;  // for example a folder at the path
        std::fclose(file);
        if (failed) return LoadResult::Unreadable;
        Split(content);
        return LoadResult::Loaded;
    }

    Location Locate(std::string_view section, std::string_view key) const {
        Location location;
        // Lines before the first header form the section named "".
        bool inSection = section.empty();
        bool inFirstOccurrence = inSection;
        location.sectionFound = inSection;
        for (std::size_t i = 0; i < m_lines.size(); ++i) {
            const ParsedLine parsed = ParseLine(TextOf(i));
            switch (parsed.kind) {
                case LineKind::Section:
                    inSection = EqualsIgnoreCase(parsed.name, section);
                    inFirstOccurrence = inSection && !location.sectionFound;
                    if (inFirstOccurrence) {
                        location.sectionFound = true;
                        location.insertBefore = i + 1;
                    }
                    break;
                case LineKind::Entry:
                    if (inSection && EqualsIgnoreCase(parsed.name, key)) {
                        location.entryFound = true;
                        location.entryLine = i;
                        return location;
                    }
                    if (inFirstOccurrence) location.insertBefore = i + 1;
                    break;
                case LineKind::Malformed:
                    if (inFirstOccurrence) location.insertBefore = i + 1;
                    break;
                case LineKind::Blank:
                case LineKind::Comment:
                    break;
            }
        }
        return location;
    }

    std::string_view ValueAt(std::size_t line) const { return ParseLine(TextOf(line)).value; }

    void Set(std::string_view section, std::string_view key, const std::string& value) {
        const Location location = Locate(section, key);
        if (location.entryFound) {
            std::string& text = m_lines[location.entryLine].text;
            text.resize(ParseLine(text).valueStart);
            text += value;
        } else if (location.sectionFound) {
            Insert(location.insertBefore, std::string(key) + "=" + value);
        } else {
            if (!m_lines.empty() && !Trim(m_lines.back().text).empty())
                Insert(m_lines.size(), std::string());
            Insert(m_lines.size(), "[" + std::string(section) + "]");
            Insert(m_lines.size(), std::string(key) + "=" + value);
        }
    }

    std::string Join() const {
        std::string content = m_byteOrderMark;
        for (const Line& line : m_lines) content += line.text + line.end;
        return content;
    }

private:
    void Split(const std::string& content) {
        std::string_view rest(content);
        static constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
        if (rest.substr(0, kByteOrderMark.size()) == kByteOrderMark) {
            m_byteOrderMark = std::string(kByteOrderMark);
            rest.remove_prefix(kByteOrderMark.size());
        }
        bool sawLineEnd = false;
        while (!rest.empty()) {
            const std::size_t newline = rest.find('\n');
            Line line;
            if (newline == rest.npos) {
                line.text = std::string(rest);
                rest = {};
            } else {
                line.text = std::string(rest.substr(0, newline));
                line.end = "\n";
                rest.remove_prefix(newline + 1);
                if (!line.text.empty() && line.text.back() == '\r') {
                    line.text.pop_back();
                    line.end = "\r\n";
                }
            }
            // New lines follow the first line end of the file.
            if (!sawLineEnd && !line.end.empty()) {
                m_newLine = line.end;
                sawLineEnd = true;
            }
            m_lines.push_back(std::move(line));
        }
    }

    std::string_view TextOf(std::size_t line) const { return m_lines[line].text; }

    void Insert(std::size_t before, std::string text) {
        // The line before may be the file's last one, written without a terminator.
        if (before > 0 && m_lines[before - 1].end.empty()) m_lines[before - 1].end = m_newLine;
        m_lines.insert(m_lines.begin() + static_cast<std::ptrdiff_t>(before),
                       Line{std::move(text), m_newLine});
    }

    std::vector<Line> m_lines;
    std::string m_byteOrderMark;
    std::string m_newLine = "\n";
};

// ---------------------------------------------------------------------------------------------
// Atomic replacement of the file

/// Writes all of @p content to @p fd, resuming after partial writes and interruptions.
bool WriteAll(int fd, const std::string& content) {
    std::size_t written = 0;
    while (written < content.size()) {
        const ssize_t count = ::write(fd, content.data() + written, content.size() - written);
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0) return false;
        written += static_cast<std::size_t>(count);
    }
    return true;
}

/// Creates a new, empty temporary file beside @p target; answers its descriptor and name, or
/// -1. The name is unique in this process by a counter and across processes by the process id;
/// a leftover of a crashed process with the same id is stepped over.
int CreateTemporary(const fs::path& target, std::string& name) {
    static std::atomic<unsigned> counter{0};
    for (int attempt = 0; attempt < 100; ++attempt) {
        name = target.string() + ".tmp." + std::to_string(::getpid()) + "." +
               std::to_string(counter.fetch_add(1));
        // 0666 lets the process umask decide, as for any file the user creates.
        const int fd = ::open(name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
        if (fd >= 0 || errno != EEXIST) return fd;
    }
    return -1;
}

/// Replaces the file at @p path by @p content: readers see either the old or the new file,
/// never a part. The folder is created when missing.
bool ReplaceFile(const std::string& path, const std::string& content) {
    std::error_code error;
    fs::path target(path);
    // A linked INI file (a common way to share settings) stays linked: the link's target is
    // replaced, not the link.
    if (fs::is_symlink(target, error)) {
        const fs::path resolved = fs::weakly_canonical(target, error);
        if (!error) target = resolved;
    }
    const fs::path folder = target.parent_path();
    if (!folder.empty()) {
        fs::create_directories(folder, error);
        if (error) return false;
    }

    std::string temporary;
    const int fd = CreateTemporary(target, temporary);
    if (fd < 0) return false;
    struct stat existing;
    bool written =
        ::stat(target.c_str(), &existing) != 0 || ::fchmod(fd, existing.st_mode & 07777) == 0;
    // fsync before the rename: otherwise a crash right after it may leave an empty file
    // where the old settings were.
    written = written && WriteAll(fd, content) && ::fsync(fd) == 0;
    written = (::close(fd) == 0) && written;
    written = written && std::rename(temporary.c_str(), target.c_str()) == 0;
    if (!written) ::unlink(temporary.c_str());
    return written;
}

// ---------------------------------------------------------------------------------------------
// Names given by the caller

/// Trims the caller's names; false when one is null.
bool NamesOf(const char* section, const char* key, std::string_view& sectionName,
             std::string_view& keyName) {
    if (!section || !key) return false;
    sectionName = Trim(section);
    keyName = Trim(key);
    return true;
}

/// True when the names would read back as the same section and key.
bool StorableNames(std::string_view section, std::string_view key) {
    if (key.empty() || HasLineBreak(key) || HasLineBreak(section)) return false;
    if (key.find('=') != key.npos || section.find(']') != section.npos) return false;
    return key[0] != '[' && key[0] != ';' && key[0] != '#';
}

std::mutex& DefaultPathMutex() {
    static std::mutex mutex;
    return mutex;
}

std::string& DefaultPathSetting() {
    static std::string path;
    return path;
}

std::string Environment(const char* name) {
    const char* value = std::getenv(name);
    return value ? value : "";
}

}  // namespace

CIniFile::CIniFile() : m_path(GetDefaultPath()) {}

CIniFile::CIniFile(std::string path) : m_path(std::move(path)) {}

CIniFile::~CIniFile() = default;

void CIniFile::SetDefaultPath(const std::string& path) {
    const std::lock_guard<std::mutex> lock(DefaultPathMutex());
    DefaultPathSetting() = path;
}

std::string CIniFile::GetDefaultPath() {
    {
        const std::lock_guard<std::mutex> lock(DefaultPathMutex());
        if (!DefaultPathSetting().empty()) return DefaultPathSetting();
    }
    const std::string fromEnvironment = Environment("DTM_INI");
    if (!fromEnvironment.empty()) return fromEnvironment;
    const std::string configHome = Environment("XDG_CONFIG_HOME");
    if (!configHome.empty() && configHome[0] == '/') return configHome + "/dtm/dtm.ini";
    const std::string home = Environment("HOME");
    if (!home.empty()) return home + "/.config/dtm/dtm.ini";
    return "dtm.ini";
}

bool CIniFile::FindValue(const char* section, const char* key, std::string& value) const {
    std::string_view sectionName;
    std::string_view keyName;
    if (!NamesOf(section, key, sectionName, keyName)) return false;
    Document document;
    if (document.Load(m_path) != Document::LoadResult::Loaded) return false;
    const Location location = document.Locate(sectionName, keyName);
    if (!location.entryFound) return false;
    value = std::string(document.ValueAt(location.entryLine));
    return true;
}

bool CIniFile::StoreValue(const char* section, const char* key, const std::string& value) const {
    std::string_view sectionName;
    std::string_view keyName;
    if (!NamesOf(section, key, sectionName, keyName) || !StorableNames(sectionName, keyName))
        return false;
    // Re-read every time: another object, or another process, may have written since.
    Document document;
    if (document.Load(m_path) == Document::LoadResult::Unreadable) return false;
    document.Set(sectionName, keyName, value);
    return ReplaceFile(m_path, document.Join());
}

bool CIniFile::GetBool(const char* section, const char* key, bool def) {
    std::string text;
    if (!FindValue(section, key, text)) return def;
    for (const char* word : {"1", "true", "yes", "on"})
        if (EqualsIgnoreCase(text, word)) return true;
    for (const char* word : {"0", "false", "no", "off"})
        if (EqualsIgnoreCase(text, word)) return false;
    std::int64_t number = 0;
    return ParseInteger(text, kLongMin, kLongMax, number) ? number != 0 : def;
}

long CIniFile::GetLong(const char* section, const char* key, long def) {
    std::string text;
    std::int64_t number = 0;
    if (!FindValue(section, key, text) || !ParseInteger(text, kLongMin, kLongMax, number))
        return def;
    return static_cast<long>(number);
}

short CIniFile::GetShort(const char* section, const char* key, short def) {
    std::string text;
    std::int64_t number = 0;
    if (!FindValue(section, key, text) || !ParseInteger(text, std::numeric_limits<short>::min(),
                                                        std::numeric_limits<short>::max(), number))
        return def;
    return static_cast<short>(number);
}

double CIniFile::GetDouble(const char* section, const char* key, double def) {
    std::string text;
    double number = 0.0;
    if (!FindValue(section, key, text) || !ParseNumber(std::string_view(text), number)) return def;
    return number;
}

kor::String CIniFile::GetKorString(const char* section, const char* key, const char* def) {
    std::string text;
    if (!FindValue(section, key, text)) return kor::String(def ? def : "");
    return kor::String(std::string(UnquotedText(text)));
}

bool CIniFile::WriteBool(const char* section, const char* key, bool value) {
    return StoreValue(section, key, value ? "1" : "0");
}

bool CIniFile::WriteLong(const char* section, const char* key, long value) {
    const auto wide = static_cast<std::int64_t>(value);
    if (wide < kLongMin || wide > kLongMax) return false;
    return StoreValue(section, key, FormatNumber(wide));
}

bool CIniFile::WriteShort(const char* section, const char* key, short value) {
    return StoreValue(section, key, FormatNumber(static_cast<std::int64_t>(value)));
}

bool CIniFile::WriteDouble(const char* section, const char* key, double value) {
    // to_chars keeps a NaN's sign ("-nan"); the sign of a NaN means nothing to a reader.
    return StoreValue(section, key, std::isnan(value) ? std::string("nan") : FormatNumber(value));
}

bool CIniFile::WriteString(const char* section, const char* key, const char* value) {
    std::string text(value ? value : "");
    for (char& c : text)
        if (c == '\r' || c == '\n') c = ' ';
    return StoreValue(section, key, QuotedForStorage(std::move(text)));
}
