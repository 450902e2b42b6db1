#include <dtm/support/IniFile.h>
#include <dtm/support/Tolerances.h>

#include <gtest/gtest.h>

#include <clocale>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <limits>
#include <locale>
#include <optional>
#include <random>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include <sys/inotify.h>
#include <unistd.h>

#include "Bits.h"
#include "TempDir.h"

namespace fs = std::filesystem;

namespace {

using dtm_test::Bits;

std::string ReadBytes(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    std::ostringstream content;
    content << file.rdbuf();
    return content.str();
}

void WriteBytes(const std::string& path, const std::string& content) {
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file << content;
}

std::vector<std::string> FolderEntries(const std::string& folder) {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(folder))
        names.push_back(entry.path().filename().string());
    return names;
}

/// Sets or removes an environment variable for one scope and restores the previous state.
class EnvironmentOverride {
public:
    EnvironmentOverride(const char* name, const char* value) : m_name(name) {
        if (const char* previous = std::getenv(name)) m_previous = std::string(previous);
        Apply(value);
    }
    ~EnvironmentOverride() { Apply(m_previous ? m_previous->c_str() : nullptr); }
    EnvironmentOverride(const EnvironmentOverride&) = delete;
    EnvironmentOverride& operator=(const EnvironmentOverride&) = delete;
    void Apply(const char* value) {
        if (value)
            ::setenv(m_name.c_str(), value, 1);
        else
            ::unsetenv(m_name.c_str());
    }

private:
    std::string m_name;
    std::optional<std::string> m_previous;
};

/// Restores the process-wide default path that a test changes.
class DefaultPathOverride {
public:
    DefaultPathOverride() : m_previous(CIniFile::GetDefaultPath()) {
        // GetDefaultPath falls back to the environment, so only an explicit setting is restored.
        EnvironmentOverride noIni("DTM_INI", nullptr);
        EnvironmentOverride noXdg("XDG_CONFIG_HOME", nullptr);
        EnvironmentOverride noHome("HOME", nullptr);
        m_wasSet = CIniFile::GetDefaultPath() != "dtm.ini";
        if (!m_wasSet) m_previous.clear();
    }
    ~DefaultPathOverride() { CIniFile::SetDefaultPath(m_wasSet ? m_previous : std::string()); }
    DefaultPathOverride(const DefaultPathOverride&) = delete;
    DefaultPathOverride& operator=(const DefaultPathOverride&) = delete;

private:
    std::string m_previous;
    bool m_wasSet = false;
};

/// Sets the first installed locale whose decimal separator is a comma, for the C library and
/// for the C++ global locale, and restores both afterwards.
class CommaLocale {
public:
    CommaLocale() : m_previousC(std::setlocale(LC_ALL, nullptr)) {
        for (const char* name : {"de_DE.UTF-8", "de_DE.utf8", "de_DE", "it_IT.UTF-8", "it_IT.utf8",
                                 "fr_FR.UTF-8", "fr_FR.utf8", "nl_NL.UTF-8", "es_ES.UTF-8"}) {
            if (!std::setlocale(LC_ALL, name)) continue;
            if (std::strcmp(std::localeconv()->decimal_point, ",") == 0) {
                m_active = true;
                try {
                    m_previousCpp = std::locale::global(std::locale(name));
                } catch (const std::runtime_error&) {
                }
                return;
            }
        }
        std::setlocale(LC_ALL, m_previousC.c_str());
    }
    ~CommaLocale() {
        if (!m_active) return;
        std::setlocale(LC_ALL, m_previousC.c_str());
        if (m_previousCpp) std::locale::global(*m_previousCpp);
    }
    CommaLocale(const CommaLocale&) = delete;
    CommaLocale& operator=(const CommaLocale&) = delete;
    bool Active() const { return m_active; }

private:
    std::string m_previousC;
    std::optional<std::locale> m_previousCpp;
    bool m_active = false;
};

/// A C++ locale with ',' as decimal separator that needs no installed locale.
struct CommaPunct : std::numpunct<char> {
    char do_decimal_point() const override { return ','; }
    char do_thousands_sep() const override { return '.'; }
    std::string do_grouping() const override { return "\3"; }
};

class IniFileTest : public ::testing::Test {
protected:
    dtm_test::TempDir m_dir;
    std::string m_path = m_dir.File("dtm.ini");
};

}  // namespace

TEST_F(IniFileTest, EveryTypeRoundTrips) {
    CIniFile ini(m_path);
    ASSERT_TRUE(ini.WriteBool("CURVE", "on", true));
    ASSERT_TRUE(ini.WriteBool("CURVE", "off", false));
    ASSERT_TRUE(ini.WriteLong("CURVE", "longMax", 2147483647L));
    ASSERT_TRUE(ini.WriteLong("CURVE", "longMin", -2147483647L - 1));
    ASSERT_TRUE(ini.WriteLong("CURVE", "longZero", 0));
    ASSERT_TRUE(ini.WriteShort("CURVE", "shortMax", 32767));
    ASSERT_TRUE(ini.WriteShort("CURVE", "shortMin", -32768));
    ASSERT_TRUE(ini.WriteDouble("CURVE", "double", -1234.5678));
    ASSERT_TRUE(ini.WriteString("CURVE", "string", "Quota m s.l.m. = 12; #3 è"));
    ASSERT_TRUE(ini.WriteString("CURVE", "empty", ""));

    CIniFile reader(m_path);
    EXPECT_TRUE(reader.GetBool("CURVE", "on", false));
    EXPECT_FALSE(reader.GetBool("CURVE", "off", true));
    EXPECT_EQ(reader.GetLong("CURVE", "longMax", 0), 2147483647L);
    EXPECT_EQ(reader.GetLong("CURVE", "longMin", 0), -2147483647L - 1);
    EXPECT_EQ(reader.GetLong("CURVE", "longZero", 9), 0);
    EXPECT_EQ(reader.GetShort("CURVE", "shortMax", 0), 32767);
    EXPECT_EQ(reader.GetShort("CURVE", "shortMin", 0), -32768);
    EXPECT_EQ(reader.GetDouble("CURVE", "double", 0.0), -1234.5678);
    EXPECT_EQ(reader.GetKorString("CURVE", "string", "x").str(), "Quota m s.l.m. = 12; #3 è");
    EXPECT_EQ(reader.GetKorString("CURVE", "empty", "x").str(), "");
}

TEST_F(IniFileTest, WrittenValuesHaveTheirDocumentedSpelling) {
    CIniFile ini(m_path);
    ASSERT_TRUE(ini.WriteBool("S", "t", true));
    ASSERT_TRUE(ini.WriteBool("S", "f", false));
    ASSERT_TRUE(ini.WriteLong("S", "l", -42));
    ASSERT_TRUE(ini.WriteShort("S", "s", 7));
    ASSERT_TRUE(ini.WriteDouble("S", "d", 0.1));
    ASSERT_TRUE(ini.WriteDouble("S", "u", UNDEFINED_QUOTE));
    EXPECT_EQ(ReadBytes(m_path), "[S]\nt=1\nf=0\nl=-42\ns=7\nd=0.1\nu=1.7e+200\n");
}

TEST_F(IniFileTest, DoublesRoundTripBitExactly) {
    std::vector<double> values = {0.0,
                                  -0.0,
                                  1e308,
                                  -1e308,
                                  std::numeric_limits<double>::max(),
                                  std::numeric_limits<double>::lowest(),
                                  std::numeric_limits<double>::min(),
                                  std::numeric_limits<double>::denorm_min(),
                                  -std::numeric_limits<double>::denorm_min(),
                                  std::nextafter(std::numeric_limits<double>::min(), 0.0),
                                  std::numeric_limits<double>::epsilon(),
                                  0.1,
                                  1.0 / 3.0,
                                  UNDEFINED_QUOTE,
                                  std::nextafter(1.0, 2.0)};
    const unsigned seed = 20240611;
    std::mt19937_64 random(seed);
    while (values.size() < 300) {
        // Random bit patterns cover every exponent, subnormals included; non-finite ones are
        // tested separately.
        const std::uint64_t bits = random();
        double value = 0.0;
        std::memcpy(&value, &bits, sizeof(value));
        if (std::isfinite(value)) values.push_back(value);
    }

    CIniFile writer(m_path);
    for (std::size_t i = 0; i < values.size(); ++i)
        ASSERT_TRUE(writer.WriteDouble("Doubles", ("v" + std::to_string(i)).c_str(), values[i]));

    CIniFile reader(m_path);
    for (std::size_t i = 0; i < values.size(); ++i) {
        const double read = reader.GetDouble("Doubles", ("v" + std::to_string(i)).c_str(), 42.0);
        EXPECT_EQ(Bits(read), Bits(values[i]))
            << "seed " << seed << ", value " << i << " = " << values[i];
    }
}

TEST_F(IniFileTest, InfinitiesAndNanAreWrittenAsWordsAndReadBack) {
    CIniFile ini(m_path);
    ASSERT_TRUE(ini.WriteDouble("S", "plus", std::numeric_limits<double>::infinity()));
    ASSERT_TRUE(ini.WriteDouble("S", "minus", -std::numeric_limits<double>::infinity()));
    ASSERT_TRUE(ini.WriteDouble("S", "nan", -std::numeric_limits<double>::quiet_NaN()));
    EXPECT_EQ(ReadBytes(m_path), "[S]\nplus=inf\nminus=-inf\nnan=nan\n");
    EXPECT_EQ(ini.GetDouble("S", "plus", 0.0), std::numeric_limits<double>::infinity());
    EXPECT_EQ(ini.GetDouble("S", "minus", 0.0), -std::numeric_limits<double>::infinity());
    EXPECT_TRUE(std::isnan(ini.GetDouble("S", "nan", 0.0)));
}

TEST_F(IniFileTest, WritesKeepEveryOtherLineByteForByte) {
    const std::string original =
        "; host settings\n"
        "Global = top\n"
        "\n"
        "[Other]\n"
        "  Alpha  =   spaced value   \n"
        "#comment=not a key\n"
        "\tBeta=2\n"
        "\n"
        "[CURVE]\n"
        "Step = 5 \n"
        "Colour=3\n"
        "; trailing comment of CURVE\n"
        "\n"
        "; introduces Last\n"
        "[Last]\n"
        "x=1";
    WriteBytes(m_path, original);

    CIniFile ini(m_path);
    ASSERT_TRUE(ini.WriteLong("CURVE", "Step", 10));
    ASSERT_TRUE(ini.WriteLong("CURVE", "NewKey", 7));
    ASSERT_TRUE(ini.WriteString("Last", "y", "two"));
    ASSERT_TRUE(ini.WriteBool("Added", "flag", true));

    const std::string expected =
        "; host settings\n"
        "Global = top\n"
        "\n"
        "[Other]\n"
        "  Alpha  =   spaced value   \n"
        "#comment=not a key\n"
        "\tBeta=2\n"
        "\n"
        "[CURVE]\n"
        "Step = 10\n"
        "Colour=3\n"
        "NewKey=7\n"
        "; trailing comment of CURVE\n"
        "\n"
        "; introduces Last\n"
        "[Last]\n"
        "x=1\n"
        "y=two\n"
        "\n"
        "[Added]\n"
        "flag=1\n";
    EXPECT_EQ(ReadBytes(m_path), expected);
    EXPECT_EQ(ini.GetKorString("Other", "Alpha", "").str(), "spaced value");
    EXPECT_EQ(ini.GetKorString("", "Global", "").str(), "top");
    EXPECT_EQ(ini.GetKorString("Other", "#comment", "none").str(), "none");
}

TEST_F(IniFileTest, CrLfLinesAndByteOrderMarkAreKept) {
    WriteBytes(m_path, "\xEF\xBB\xBF[A]\r\nk=1\r\n\r\n[B]\r\nm=2\r\n");
    CIniFile ini(m_path);
    EXPECT_EQ(ini.GetLong("A", "k", 0), 1);
    EXPECT_EQ(ini.GetLong("B", "m", 0), 2);
    ASSERT_TRUE(ini.WriteLong("A", "k", 5));
    ASSERT_TRUE(ini.WriteLong("A", "n", 6));
    ASSERT_TRUE(ini.WriteLong("C", "o", 7));
    EXPECT_EQ(ReadBytes(m_path),
              "\xEF\xBB\xBF[A]\r\nk=5\r\nn=6\r\n\r\n[B]\r\nm=2\r\n\r\n[C]\r\no=7\r\n");
}

// A file edited on two systems has both kinds of line end: every line keeps its own, and the
// lines the library adds take the first one the file has, not the last.
TEST_F(IniFileTest, AddedLinesTakeTheFirstLineEndOfAMixedFile) {
    WriteBytes(m_path, "[A]\r\nk=1\n[B]\nm=2\n");
    CIniFile ini(m_path);
    ASSERT_TRUE(ini.WriteLong("A", "n", 6));
    ASSERT_TRUE(ini.WriteLong("B", "o", 7));
    EXPECT_EQ(ReadBytes(m_path), "[A]\r\nk=1\nn=6\r\n[B]\nm=2\no=7\r\n");
}

TEST_F(IniFileTest, MalformedLinesAreSkippedAndKept) {
    const std::string original =
        "[S]\n"
        "no equals sign\n"
        "= value without key\n"
        "[unclosed\n"
        "after=3\n"
        "good=4\n";
    WriteBytes(m_path, original);
    CIniFile ini(m_path);
    // "[unclosed" does not open a section, so "after" still belongs to S.
    EXPECT_EQ(ini.GetLong("S", "after", 0), 3);
    EXPECT_EQ(ini.GetLong("S", "good", 0), 4);
    EXPECT_EQ(ini.GetLong("unclosed", "after", -1), -1);
    EXPECT_EQ(ini.GetKorString("S", "no equals sign", "def").str(), "def");
    EXPECT_EQ(ini.GetKorString("S", "", "def").str(), "def");

    ASSERT_TRUE(ini.WriteLong("S", "good", 5));
    ASSERT_TRUE(ini.WriteLong("S", "new", 6));
    EXPECT_EQ(ReadBytes(m_path),
              "[S]\nno equals sign\n= value without key\n[unclosed\nafter=3\ngood=5\nnew=6\n");
}

TEST_F(IniFileTest, SectionHeadersAreTrimmedAndIgnoreTextAfterTheBracket) {
    WriteBytes(m_path, "  [ CURVE ]  ; options of the contour lines\nk=1\n");
    CIniFile ini(m_path);
    EXPECT_EQ(ini.GetLong("CURVE", "k", 0), 1);
    ASSERT_TRUE(ini.WriteLong("CURVE", "j", 2));
    EXPECT_EQ(ReadBytes(m_path), "  [ CURVE ]  ; options of the contour lines\nk=1\nj=2\n");
}

// The space, the tab, the vertical tab and the form feed count as blanks around a name and a
// value; a section header takes the same trimming.
TEST_F(IniFileTest, EveryBlankAroundNamesAndValuesIsTrimmed) {
    for (const char* blank : {" ", "\t", "\v", "\f"}) {
        const std::string b = blank;
        WriteBytes(m_path, b + "[" + b + "S" + b + "]" + b + "\n" + b + "k" + b + "=" + b + "7" +
                               b + "\n" + "t=" + b + "word" + b + "\n");
        CIniFile ini(m_path);
        EXPECT_EQ(ini.GetLong("S", "k", 0), 7) << int{blank[0]};
        EXPECT_EQ(ini.GetKorString("S", "t", "").str(), "word") << int{blank[0]};
    }
}

TEST_F(IniFileTest, MissingFileGivesDefaults) {
    CIniFile ini(m_dir.File("absent/none.ini"));
    EXPECT_TRUE(ini.GetBool("S", "k", true));
    EXPECT_FALSE(ini.GetBool("S", "k", false));
    EXPECT_EQ(ini.GetLong("S", "k", -7), -7);
    EXPECT_EQ(ini.GetShort("S", "k", 12), 12);
    EXPECT_EQ(ini.GetDouble("S", "k", 2.5), 2.5);
    EXPECT_EQ(ini.GetKorString("S", "k", "def").str(), "def");
    EXPECT_EQ(ini.GetKorString("S", "k", nullptr).str(), "");
    EXPECT_FALSE(fs::exists(m_dir.File("absent")));
}

TEST_F(IniFileTest, MissingSectionOrKeyGivesDefaults) {
    WriteBytes(m_path, "[S]\nk=1\n");
    CIniFile ini(m_path);
    EXPECT_EQ(ini.GetLong("T", "k", 9), 9);
    EXPECT_EQ(ini.GetLong("S", "j", 9), 9);
    EXPECT_EQ(ini.GetLong(nullptr, "k", 9), 9);
    EXPECT_EQ(ini.GetLong("S", nullptr, 9), 9);
}

TEST_F(IniFileTest, FolderAtThePathGivesDefaultsAndRefusesWrites) {
    fs::create_directory(m_path);
    CIniFile ini(m_path);
    EXPECT_EQ(ini.GetLong("S", "k", 3), 3);
    EXPECT_FALSE(ini.WriteLong("S", "k", 4));
    EXPECT_TRUE(fs::is_directory(m_path));
    EXPECT_EQ(FolderEntries(m_dir.Path()), std::vector<std::string>{"dtm.ini"});
}

TEST_F(IniFileTest, WrongTypeValuesGiveDefaults) {
    WriteBytes(m_path,
               "[S]\n"
               "word=abc\n"
               "fraction=12.5\n"
               "hex=0x10\n"
               "trailing=12 abc\n"
               "empty=\n"
               "doubleSign=+-3\n"
               "above32=2147483648\n"
               "below32=-2147483649\n"
               "above16=32768\n"
               "below16=-32769\n"
               "comma=1,5\n"
               "overflow=1e999\n"
               "maybe=maybe\n");
    CIniFile ini(m_path);
    for (const char* key : {"word", "fraction", "hex", "trailing", "empty", "doubleSign", "above32",
                            "below32", "comma", "maybe"}) {
        EXPECT_EQ(ini.GetLong("S", key, -5), -5) << key;
        EXPECT_EQ(ini.GetShort("S", key, -5), -5) << key;
    }
    for (const char* key : {"above16", "below16"}) EXPECT_EQ(ini.GetShort("S", key, -5), -5) << key;
    EXPECT_EQ(ini.GetLong("S", "above16", 0), 32768);
    EXPECT_EQ(ini.GetLong("S", "below16", 0), -32769);
    for (const char* key :
         {"word", "trailing", "empty", "doubleSign", "comma", "overflow", "maybe"})
        EXPECT_EQ(ini.GetDouble("S", key, -5.5), -5.5) << key;
    EXPECT_EQ(ini.GetDouble("S", "fraction", 0.0), 12.5);
    for (const char* key : {"word", "fraction", "empty", "maybe", "above32"}) {
        EXPECT_TRUE(ini.GetBool("S", key, true)) << key;
        EXPECT_FALSE(ini.GetBool("S", key, false)) << key;
    }
}

TEST_F(IniFileTest, AcceptedSpellingsOfNumbersAndBooleans) {
    WriteBytes(m_path,
               "[S]\n"
               "plus=+42\n"
               "spaced=   -17   \n"
               "exp=1.5e3\n"
               "dot=.25\n"
               "negZero=-0\n"
               "T1=TRUE\nT2=Yes\nT3=on\nT4=1\nT5=-3\n"
               "F1=False\nF2=NO\nF3=Off\nF4=0\n");
    CIniFile ini(m_path);
    EXPECT_EQ(ini.GetLong("S", "plus", 0), 42);
    EXPECT_EQ(ini.GetShort("S", "plus", 0), 42);
    EXPECT_EQ(ini.GetLong("S", "spaced", 0), -17);
    EXPECT_EQ(ini.GetDouble("S", "plus", 0.0), 42.0);
    EXPECT_EQ(ini.GetDouble("S", "exp", 0.0), 1500.0);
    EXPECT_EQ(ini.GetDouble("S", "dot", 0.0), 0.25);
    EXPECT_TRUE(std::signbit(ini.GetDouble("S", "negZero", 1.0)));
    for (const char* key : {"T1", "T2", "T3", "T4", "T5"})
        EXPECT_TRUE(ini.GetBool("S", key, false)) << key;
    for (const char* key : {"F1", "F2", "F3", "F4"})
        EXPECT_FALSE(ini.GetBool("S", key, true)) << key;
}

TEST_F(IniFileTest, SectionAndKeyNamesIgnoreCase) {
    WriteBytes(m_path, "[Curve]\nColour=5\n");
    CIniFile ini(m_path);
    EXPECT_EQ(ini.GetLong("CURVE", "colour", 0), 5);
    EXPECT_EQ(ini.GetLong(" curve ", " COLOUR ", 0), 5);
    ASSERT_TRUE(ini.WriteLong("curve", "COLOUR", 7));
    // The existing line is updated in place, keeping the file's spelling of the names.
    EXPECT_EQ(ReadBytes(m_path), "[Curve]\nColour=7\n");
    // Both ends of the alphabet fold, and nothing next to them.
    WriteBytes(m_path, "[AZ@[]\nZoneA=1\n");
    CIniFile edges(m_path);
    EXPECT_EQ(edges.GetLong("az@[", "zONEa", 0), 1);
    EXPECT_EQ(edges.GetLong("az`{", "zONEa", 0), 0);
}

// A key for a section that is there but holds no entry yet goes right under its header, even
// when other sections follow.
TEST_F(IniFileTest, AKeyOfAnEmptySectionGoesUnderItsHeader) {
    WriteBytes(m_path, "[A]\na=1\n[S]\n[B]\nb=2\n");
    CIniFile ini(m_path);
    ASSERT_TRUE(ini.WriteLong("S", "k", 5));
    EXPECT_EQ(ReadBytes(m_path), "[A]\na=1\n[S]\nk=5\n[B]\nb=2\n");
    EXPECT_EQ(ini.GetLong("S", "k", 0), 5);
}

TEST_F(IniFileTest, NonAsciiNamesCompareByBytes) {
    CIniFile ini(m_path);
    ASSERT_TRUE(ini.WriteLong("Sezione", "Qualità", 1));
    ASSERT_TRUE(ini.WriteLong("Sezione", "QUALITÀ", 2));
    EXPECT_EQ(ini.GetLong("sezione", "qualità", 0), 1);
    EXPECT_EQ(ini.GetLong("sezione", "qualitÀ", 0), 2);
}

TEST_F(IniFileTest, FirstOccurrenceOfDuplicatesWins) {
    WriteBytes(m_path, "[S]\nk=1\nk=2\n[T]\nx=0\n[s]\nk=3\nj=4\n");
    CIniFile ini(m_path);
    EXPECT_EQ(ini.GetLong("S", "k", 0), 1);
    EXPECT_EQ(ini.GetLong("S", "j", 0), 4);
    ASSERT_TRUE(ini.WriteLong("S", "k", 9));
    ASSERT_TRUE(ini.WriteLong("S", "new", 8));
    EXPECT_EQ(ReadBytes(m_path), "[S]\nk=9\nk=2\nnew=8\n[T]\nx=0\n[s]\nk=3\nj=4\n");
}

TEST_F(IniFileTest, StringsKeepTheirBlanksAndLineBreaksBecomeBlanks) {
    CIniFile ini(m_path);
    ASSERT_TRUE(ini.WriteString("S", "multi", "  first\nsecond\r\nthird  "));
    ASSERT_TRUE(ini.WriteString("S", "null", nullptr));
    ASSERT_TRUE(ini.WriteString("S", "verbatim", "a=b ; c # d [e]"));
    ASSERT_TRUE(ini.WriteString("S", "suffix", " m"));
    EXPECT_EQ(ReadBytes(m_path),
              "[S]\nmulti=\"  first second  third  \"\nnull=\nverbatim=a=b ; c # d [e]\n"
              "suffix=\" m\"\n");
    EXPECT_EQ(ini.GetKorString("S", "multi", "").str(), "  first second  third  ");
    EXPECT_EQ(ini.GetKorString("S", "null", "x").str(), "");
    EXPECT_EQ(ini.GetKorString("S", "verbatim", "").str(), "a=b ; c # d [e]");
    EXPECT_EQ(ini.GetKorString("S", "suffix", "").str(), " m");
}

TEST_F(IniFileTest, EveryTextComesBackAsItWasWritten) {
    CIniFile ini(m_path);
    for (const char* text : {"", " ", "\t", "\"", "\"\"", "\"quoted\"", "\" padded \"", "\"open",
                             "close\"", "in \"the\" middle", "'single'", " \"\" ", "x"}) {
        SCOPED_TRACE(text);
        ASSERT_TRUE(ini.WriteString("S", "k", text));
        EXPECT_EQ(ini.GetKorString("S", "k", "default").str(), text);
    }
}

TEST_F(IniFileTest, AQuotedValueInTheFileReadsAsTheTextBetweenTheQuotes) {
    WriteBytes(m_path, "[S]\na = \"  x  \"  \nb=\"\"\nc=\"x\nd=x\"\ne=\"1\"\n");
    CIniFile ini(m_path);
    EXPECT_EQ(ini.GetKorString("S", "a", "").str(), "  x  ");
    EXPECT_EQ(ini.GetKorString("S", "b", "default").str(), "");
    EXPECT_EQ(ini.GetKorString("S", "c", "").str(), "\"x");
    EXPECT_EQ(ini.GetKorString("S", "d", "").str(), "x\"");
    // Numbers are not text: a quoted one does not parse.
    EXPECT_EQ(ini.GetLong("S", "e", 7), 7);
}

TEST_F(IniFileTest, UnstorableNamesAreRefusedWithoutTouchingTheFile) {
    CIniFile ini(m_path);
    EXPECT_FALSE(ini.WriteLong("S", "", 1));
    EXPECT_FALSE(ini.WriteLong("S", "   ", 1));
    EXPECT_FALSE(ini.WriteLong("S", "a=b", 1));
    EXPECT_FALSE(ini.WriteLong("S", "[k", 1));
    EXPECT_FALSE(ini.WriteLong("S", ";k", 1));
    EXPECT_FALSE(ini.WriteLong("S", "#k", 1));
    EXPECT_FALSE(ini.WriteLong("S", "a\nb", 1));
    EXPECT_FALSE(ini.WriteLong("a]b", "k", 1));
    EXPECT_FALSE(ini.WriteLong("a\rb", "k", 1));
    EXPECT_FALSE(ini.WriteLong(nullptr, "k", 1));
    EXPECT_FALSE(ini.WriteLong("S", nullptr, 1));
    EXPECT_FALSE(fs::exists(m_path));
}

TEST_F(IniFileTest, KeysBeforeTheFirstSectionFormTheEmptySection) {
    WriteBytes(m_path, "top=1\n[S]\nk=2\n");
    CIniFile ini(m_path);
    EXPECT_EQ(ini.GetLong("", "top", 0), 1);
    EXPECT_EQ(ini.GetLong("", "k", 0), 0);
    ASSERT_TRUE(ini.WriteLong("", "second", 3));
    EXPECT_EQ(ReadBytes(m_path), "top=1\nsecond=3\n[S]\nk=2\n");
}

TEST_F(IniFileTest, LongOutside32BitsIsRefused) {
    if (sizeof(long) <= 4) GTEST_SKIP() << "long has 32 bits here";
    CIniFile ini(m_path);
    const long big = static_cast<long>(std::numeric_limits<std::int32_t>::max()) + 1;
    EXPECT_FALSE(ini.WriteLong("S", "k", big));
    EXPECT_FALSE(ini.WriteLong("S", "k", -big - 1));
    EXPECT_FALSE(fs::exists(m_path));
}

TEST_F(IniFileTest, ObjectsOnTheSameFileDoNotLoseEachOthersWrites) {
    CIniFile first(m_path);
    CIniFile second(m_path);
    for (int i = 0; i < 10; ++i) {
        ASSERT_TRUE(first.WriteLong("A", ("a" + std::to_string(i)).c_str(), i));
        ASSERT_TRUE(second.WriteLong("B", ("b" + std::to_string(i)).c_str(), 100 + i));
    }
    for (int i = 0; i < 10; ++i) {
        EXPECT_EQ(second.GetLong("A", ("a" + std::to_string(i)).c_str(), -1), i);
        EXPECT_EQ(first.GetLong("B", ("b" + std::to_string(i)).c_str(), -1), 100 + i);
    }
}

TEST_F(IniFileTest, WritesLeaveNoTemporaryFileAndKeepPermissions) {
    CIniFile ini(m_path);
    ASSERT_TRUE(ini.WriteLong("S", "k", 1));
    fs::permissions(m_path, fs::perms::owner_read | fs::perms::owner_write | fs::perms::group_read);
    for (int i = 0; i < 5; ++i) ASSERT_TRUE(ini.WriteLong("S", "k", i));
    EXPECT_EQ(FolderEntries(m_dir.Path()), std::vector<std::string>{"dtm.ini"});
    EXPECT_EQ(fs::status(m_path).permissions(),
              fs::perms::owner_read | fs::perms::owner_write | fs::perms::group_read);
    EXPECT_EQ(ini.GetLong("S", "k", -1), 4);
}

// The counter in the name of the temporary file that one write through @p ini makes beside it,
// as the folder saw the file created: "dtm.ini.tmp.<process>.<counter>".
unsigned long TemporaryCounterOfOneWrite(CIniFile& ini, const std::string& folder) {
    const int watch = ::inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    EXPECT_GE(watch, 0);
    EXPECT_GE(::inotify_add_watch(watch, folder.c_str(), IN_CREATE), 0);
    EXPECT_TRUE(ini.WriteLong("S", "watched", 1));
    alignas(inotify_event) char events[4096];
    const ssize_t size = ::read(watch, events, sizeof(events));
    ::close(watch);
    const std::string prefix = "dtm.ini.tmp." + std::to_string(::getpid()) + ".";
    for (ssize_t at = 0; at < size;) {
        const auto* event = reinterpret_cast<const inotify_event*>(events + at);
        const std::string name = event->len > 0 ? event->name : "";
        if (name.compare(0, prefix.size(), prefix) == 0)
            return std::stoul(name.substr(prefix.size()));
        at += static_cast<ssize_t>(sizeof(inotify_event) + event->len);
    }
    ADD_FAILURE() << "no temporary file was seen";
    return 0;
}

// A crashed process of the same id may have left temporary files under the names this one
// takes next: a write steps over them, leaves them alone, and gives up only after a hundred.
TEST_F(IniFileTest, LeftoverTemporaryFilesAreSteppedOver) {
    CIniFile ini(m_path);
    const unsigned long next = TemporaryCounterOfOneWrite(ini, m_dir.Path()) + 1;
    const auto leftover = [&](unsigned long counter) {
        return m_path + ".tmp." + std::to_string(::getpid()) + "." + std::to_string(counter);
    };
    for (unsigned long c = next; c < next + 3; ++c) WriteBytes(leftover(c), "left over");
    ASSERT_TRUE(ini.WriteLong("S", "k", 1));
    EXPECT_EQ(ini.GetLong("S", "k", 0), 1);
    for (unsigned long c = next; c < next + 3; ++c) EXPECT_EQ(ReadBytes(leftover(c)), "left over");
    EXPECT_EQ(FolderEntries(m_dir.Path()).size(), 4u);  // the file and the three leftovers

    // The write took the fourth name; the hundred after it are all taken.
    const std::string before = ReadBytes(m_path);
    for (unsigned long c = next + 4; c < next + 104; ++c) WriteBytes(leftover(c), "left over");
    EXPECT_FALSE(ini.WriteLong("S", "k", 2));
    EXPECT_EQ(ReadBytes(m_path), before);
    EXPECT_EQ(FolderEntries(m_dir.Path()).size(), 104u);
    // The next write starts past them.
    EXPECT_TRUE(ini.WriteLong("S", "k", 3));
    EXPECT_EQ(ini.GetLong("S", "k", 0), 3);
}

TEST_F(IniFileTest, MissingFoldersAreCreated) {
    const std::string path = m_dir.File("config/dtm/nested/dtm.ini");
    CIniFile ini(path);
    ASSERT_TRUE(ini.WriteDouble("S", "d", 2.25));
    EXPECT_EQ(ReadBytes(path), "[S]\nd=2.25\n");
}

TEST_F(IniFileTest, UnwritableLocationMakesEverySetterFail) {
    // A regular file where a folder should be: no user, not even root, can create the INI file.
    WriteBytes(m_dir.File("plain"), "not a folder");
    CIniFile ini(m_dir.File("plain/dtm.ini"));
    EXPECT_FALSE(ini.WriteBool("S", "k", true));
    EXPECT_FALSE(ini.WriteLong("S", "k", 1));
    EXPECT_FALSE(ini.WriteShort("S", "k", 1));
    EXPECT_FALSE(ini.WriteDouble("S", "k", 1.0));
    EXPECT_FALSE(ini.WriteString("S", "k", "v"));
    EXPECT_EQ(ini.GetLong("S", "k", 8), 8);
    EXPECT_EQ(ReadBytes(m_dir.File("plain")), "not a folder");
}

TEST_F(IniFileTest, WritingThroughALinkUpdatesTheLinkedFile) {
    fs::create_directory(m_dir.File("real"));
    const std::string target = m_dir.File("real/shared.ini");
    WriteBytes(target, "[S]\nk=1\n");
    fs::create_symlink(target, m_path);
    CIniFile ini(m_path);
    ASSERT_TRUE(ini.WriteLong("S", "k", 2));
    EXPECT_TRUE(fs::is_symlink(m_path));
    EXPECT_EQ(ReadBytes(target), "[S]\nk=2\n");
}

TEST_F(IniFileTest, DoublesUseAPointWhateverTheCppGlobalLocale) {
    const std::locale previous =
        std::locale::global(std::locale(std::locale::classic(), new CommaPunct));
    CIniFile ini(m_path);
    const bool written = ini.WriteDouble("S", "d", 1234.5);
    const double read = ini.GetDouble("S", "d", 0.0);
    std::locale::global(previous);
    ASSERT_TRUE(written);
    EXPECT_EQ(read, 1234.5);
    EXPECT_EQ(ReadBytes(m_path), "[S]\nd=1234.5\n");
}

TEST_F(IniFileTest, DoublesUseAPointUnderAnInstalledCommaLocale) {
    CIniFile ini(m_path);
    WriteBytes(m_path, "[S]\ncomma=2,5\n");
    std::string text;
    double read = 0.0;
    double comma = 0.0;
    bool written = false;
    {
        const CommaLocale locale;
        if (!locale.Active()) GTEST_SKIP() << "no installed locale uses a decimal comma";
        written = ini.WriteDouble("S", "d", -0.125);
        read = ini.GetDouble("S", "d", 0.0);
        comma = ini.GetDouble("S", "comma", -1.0);
    }
    ASSERT_TRUE(written);
    EXPECT_EQ(read, -0.125);
    EXPECT_EQ(comma, -1.0);
    EXPECT_EQ(ReadBytes(m_path), "[S]\ncomma=2,5\nd=-0.125\n");
}

namespace {

/// Saves every input of the default path, so that a test can change them freely.
class DefaultPathTest : public IniFileTest {
protected:
    DefaultPathOverride m_default;
    EnvironmentOverride m_ini{"DTM_INI", nullptr};
    EnvironmentOverride m_xdg{"XDG_CONFIG_HOME", nullptr};
    EnvironmentOverride m_home{"HOME", nullptr};
};

}  // namespace

TEST_F(DefaultPathTest, ResolutionOrderIsSetPathThenDtmIniThenXdgThenHome) {
    m_ini.Apply("/env/ini/file.ini");
    m_xdg.Apply("/xdg");
    m_home.Apply("/home/user");
    CIniFile::SetDefaultPath("/set/by/host.ini");
    EXPECT_EQ(CIniFile::GetDefaultPath(), "/set/by/host.ini");
    EXPECT_EQ(CIniFile().GetPath(), "/set/by/host.ini");

    CIniFile::SetDefaultPath("");
    EXPECT_EQ(CIniFile::GetDefaultPath(), "/env/ini/file.ini");

    m_ini.Apply("");
    EXPECT_EQ(CIniFile::GetDefaultPath(), "/xdg/dtm/dtm.ini");
    m_ini.Apply(nullptr);
    EXPECT_EQ(CIniFile::GetDefaultPath(), "/xdg/dtm/dtm.ini");

    m_xdg.Apply("relative/config");
    EXPECT_EQ(CIniFile::GetDefaultPath(), "/home/user/.config/dtm/dtm.ini");
    m_xdg.Apply(nullptr);
    EXPECT_EQ(CIniFile::GetDefaultPath(), "/home/user/.config/dtm/dtm.ini");

    m_home.Apply(nullptr);
    EXPECT_EQ(CIniFile::GetDefaultPath(), "dtm.ini");
}

TEST_F(DefaultPathTest, DefaultConstructedObjectCreatesTheConfigFolder) {
    m_xdg.Apply(m_dir.Path().c_str());
    CIniFile ini;
    EXPECT_EQ(ini.GetPath(), m_dir.File("dtm/dtm.ini"));
    ASSERT_TRUE(ini.WriteShort("CURVE", "k", 3));
    EXPECT_EQ(ReadBytes(m_dir.File("dtm/dtm.ini")), "[CURVE]\nk=3\n");

    // The object keeps the path it was bound to.
    m_xdg.Apply("/elsewhere");
    EXPECT_EQ(ini.GetShort("CURVE", "k", 0), 3);
}

TEST_F(DefaultPathTest, HomeFallbackUsesDotConfig) {
    m_home.Apply(m_dir.Path().c_str());
    CIniFile ini;
    ASSERT_TRUE(ini.WriteBool("S", "b", true));
    EXPECT_TRUE(fs::exists(m_dir.File(".config/dtm/dtm.ini")));
}
