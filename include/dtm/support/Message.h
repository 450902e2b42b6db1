#pragma once

/// @file
/// The one message the library shows to a user goes through a handler the host can replace.

#include <dtm/support/Export.h>

#include <functional>

namespace kor {

/// Message-box style of a warning with an OK button.
constexpr unsigned MESSAGE_STYLE_WARNING = 0x30;

/// Receives a message: its text, its caption and its message-box style.
using MessageHandler = std::function<void(const char* text, const char* caption, unsigned style)>;

/// Replaces the handler; an empty function restores the default, which writes the caption and
/// the text to standard error.
DTM_API void SetMessageHandler(MessageHandler handler);

/// Shows a message through the current handler.
DTM_API void ShowMessage(const char* text, const char* caption, unsigned style);

}  // namespace kor
