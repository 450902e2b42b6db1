#include <dtm/support/Message.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

struct ShownMessage {
    std::string text;
    std::string caption;
    unsigned style;
};

// Every test leaves the default handler in place, whatever it installed.
class Message : public testing::Test {
protected:
    void TearDown() override { kor::SetMessageHandler(nullptr); }

    void Record() {
        kor::SetMessageHandler([this](const char* text, const char* caption, unsigned style) {
            m_shown.push_back({text, caption, style});
        });
    }

    std::vector<ShownMessage> m_shown;
};

}  // namespace

TEST_F(Message, CustomHandlerReceivesTextCaptionAndStyle) {
    Record();
    const char* text = "Riga uno\n\nRiga due: pu\xC3\xB2";
    kor::ShowMessage(text, "Titolo", kor::MESSAGE_STYLE_WARNING);
    ASSERT_EQ(m_shown.size(), 1u);
    EXPECT_EQ(m_shown[0].text, text);
    EXPECT_EQ(m_shown[0].caption, "Titolo");
    EXPECT_EQ(m_shown[0].style, 0x30u);
}

TEST_F(Message, CustomHandlerDoesNotWriteToStandardError) {
    Record();
    testing::internal::CaptureStderr();
    kor::ShowMessage("text", "caption", 0);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_EQ(m_shown.size(), 1u);
}

TEST_F(Message, DefaultHandlerWritesCaptionAndTextToStandardError) {
    testing::internal::CaptureStderr();
    kor::ShowMessage("Il testo\nsu due righe", "Il titolo", kor::MESSAGE_STYLE_WARNING);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "Il titolo: Il testo\nsu due righe\n");
}

TEST_F(Message, EmptyHandlerRestoresTheDefault) {
    Record();
    kor::SetMessageHandler(kor::MessageHandler());
    testing::internal::CaptureStderr();
    kor::ShowMessage("text", "caption", kor::MESSAGE_STYLE_WARNING);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "caption: text\n");
    EXPECT_TRUE(m_shown.empty());
}

TEST_F(Message, NullTextAndCaptionArriveAsEmptyTexts) {
    Record();
    kor::ShowMessage(nullptr, nullptr, 0);
    ASSERT_EQ(m_shown.size(), 1u);
    EXPECT_EQ(m_shown[0].text, "");
    EXPECT_EQ(m_shown[0].caption, "");
    kor::SetMessageHandler(nullptr);
    testing::internal::CaptureStderr();
    kor::ShowMessage(nullptr, nullptr, 0);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), ": \n");
}

TEST_F(Message, HandlerThatReplacesItselfFinishesItsCall) {
    // The handler's own state lives in its captures; replacing it mid-call must not free them.
    std::string seen;
    const std::string marker = "still alive";
    kor::SetMessageHandler([marker, &seen](const char* text, const char*, unsigned) {
        kor::SetMessageHandler(nullptr);
        seen = marker + ": " + text;
    });
    kor::ShowMessage("once", "", 0);
    EXPECT_EQ(seen, "still alive: once");
    testing::internal::CaptureStderr();
    kor::ShowMessage("twice", "c", 0);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "c: twice\n");
}
