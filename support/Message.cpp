#include <dtm/support/Message.h>

#include <cstdio>
#include <utility>

namespace kor {

namespace {

void WriteToStandardError(const char* text, const char* caption, unsigned /*style*/) {
    std::fprintf(stderr, "%s: %s\n", caption, text);
    std::fflush(stderr);
}

MessageHandler& CurrentHandler() {
    static MessageHandler handler = WriteToStandardError;
    return handler;
}

}  // namespace

void SetMessageHandler(MessageHandler handler) {
    CurrentHandler() = handler ? std::move(handler) : MessageHandler(WriteToStandardError);
}

void ShowMessage(const char* text, const char* caption, unsigned style) {
    // A copy, so that a handler that replaces itself while it runs is not destroyed mid-call.
    const MessageHandler handler = CurrentHandler();
    handler(text ? text : "", caption ? caption : "", style);
}

}  // namespace kor
