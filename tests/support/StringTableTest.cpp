#include "resources/StringTable.h"

#include <dtm/support/String.h>

#include <gtest/gtest.h>

#include <cstring>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

// The texts spelled with byte escapes, so that the comparison does not depend on how either
// source file was saved: \xC3\xB2 is UTF-8 'o' grave, \xC3\xA8 is UTF-8 'e' grave.
const char EXPECTED_TEXT_BEFORE_NAME[] = "La triangolazione ";
const char EXPECTED_TEXT_AFTER_NAME[] =
    " fa riferimento a una nuvola di punti non esistente o non aggiornata. Pertanto la "
    "triangolazione non pu\xC3\xB2 essere n\xC3\xA8 visualizzata n\xC3\xA8 utilizzata.\x0A\x0A"
    "Sostituire il file *.zlx con uno corretto, o ricalcolare la triangolazione.";
const char EXPECTED_CAPTION[] = "Triangolazione su nuvola di punti";

std::string ExpectedText(const std::string& name) {
    return EXPECTED_TEXT_BEFORE_NAME + name + EXPECTED_TEXT_AFTER_NAME;
}

}  // namespace

TEST(StringTable, IdsAreTheResourceNumbers) {
    EXPECT_EQ(dtm::STRING_ID_CLOUD_BROKEN_TEXT, 1000u);
    EXPECT_EQ(dtm::STRING_ID_CLOUD_BROKEN_CAPTION, 1001u);
}

TEST(StringTable, CloudBrokenTextIsExactBytes) {
    const char* text = dtm::LoadLibraryString(dtm::STRING_ID_CLOUD_BROKEN_TEXT);
    ASSERT_NE(text, nullptr);
    EXPECT_EQ(std::string(text), ExpectedText("%s"));
    // Two accented letters, each two bytes, and exactly one placeholder.
    EXPECT_EQ(std::strlen(text),
              std::strlen(EXPECTED_TEXT_BEFORE_NAME) + 2 + std::strlen(EXPECTED_TEXT_AFTER_NAME));
    EXPECT_NE(std::strstr(text, "pu\xC3\xB2 essere"), nullptr);
    EXPECT_NE(std::strstr(text, ".\n\nSostituire"), nullptr);
    const char* placeholder = std::strstr(text, "%");
    ASSERT_NE(placeholder, nullptr);
    EXPECT_EQ(placeholder[1], 's');
    EXPECT_EQ(std::strstr(placeholder + 1, "%"), nullptr);
}

TEST(StringTable, CloudBrokenCaptionIsExactBytes) {
    const char* caption = dtm::LoadLibraryString(dtm::STRING_ID_CLOUD_BROKEN_CAPTION);
    ASSERT_NE(caption, nullptr);
    EXPECT_STREQ(caption, EXPECTED_CAPTION);
}

TEST(StringTable, UnknownIdsGiveNull) {
    for (unsigned id : {0u, 1u, 999u, 1002u, 65535u, ~0u})
        EXPECT_EQ(dtm::LoadLibraryString(id), nullptr) << "id " << id;
}

TEST(StringTable, TextFormatsWithKorSprintfWhenMeasuredFirst) {
    const char* format = dtm::LoadLibraryString(dtm::STRING_ID_CLOUD_BROKEN_TEXT);
    ASSERT_NE(format, nullptr);
    const char* name = "Rilievo 2024";
    const int length = kor_sprintf(nullptr, 0, format, name);
    ASSERT_GT(length, 0);
    std::vector<char> buffer(static_cast<std::size_t>(length) + 1, 'x');
    EXPECT_EQ(kor_sprintf(buffer.data(), buffer.size(), format, name), length);
    EXPECT_EQ(std::string(buffer.data()), ExpectedText(name));
}

TEST(StringTable, FormatPutsTheProjectNameInPlaceOfThePlaceholder) {
    EXPECT_EQ(dtm::FormatLibraryString(dtm::STRING_ID_CLOUD_BROKEN_TEXT, "Cava nord"),
              ExpectedText("Cava nord"));
    EXPECT_EQ(dtm::FormatLibraryString(dtm::STRING_ID_CLOUD_BROKEN_CAPTION, "ignored"),
              EXPECTED_CAPTION);
}

TEST(StringTable, FormatNeverCutsALongProjectName) {
    // Far longer than any fixed buffer a message box would be given, with multi-byte letters.
    std::string name;
    for (int i = 0; i < 5000; ++i) name += i % 2 ? "\xC3\xA8" : "progetto-";
    const std::string text =
        dtm::FormatLibraryString(dtm::STRING_ID_CLOUD_BROKEN_TEXT, name.c_str());
    EXPECT_EQ(text, ExpectedText(name));
    EXPECT_EQ(text.size(), std::strlen(EXPECTED_TEXT_BEFORE_NAME) + name.size() +
                               std::strlen(EXPECTED_TEXT_AFTER_NAME));
}

TEST(StringTable, FormatKeepsPercentSignsOfTheName) {
    // The name is an argument, never a format: its own % signs come out unchanged.
    EXPECT_EQ(dtm::FormatLibraryString(dtm::STRING_ID_CLOUD_BROKEN_TEXT, "100%s %d"),
              ExpectedText("100%s %d"));
}

TEST(StringTable, FormatTakesNullNameAsEmpty) {
    EXPECT_EQ(dtm::FormatLibraryString(dtm::STRING_ID_CLOUD_BROKEN_TEXT, nullptr),
              ExpectedText(""));
}

TEST(StringTable, FormatOfUnknownIdThrows) {
    EXPECT_THROW(dtm::FormatLibraryString(1002, "x"), std::invalid_argument);
}
