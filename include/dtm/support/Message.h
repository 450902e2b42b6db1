#pragma once

/// @file
/// The one message the library shows to a user goes through a handler the host can replace.

#include <dtm/support/Export.h>

#include <functional>

namespace kor {

/// Message-box style of a warning with an OK button.
constexpr unsigned MESSAGE_STYLE_WARNING = 0x30;

/// Receives a message: its UTF-8 text, its UTF-8 caption and its message-box style. The
/// pointers are valid only during the call and are never null.
using MessageHandler = std::function<void(const char* text, const char* caption, unsigned style)>;

/// Replaces the handler (the library keeps its own copy); an empty function restores the
/// default, which writes "caption: text" and a line break to standard error.
///
/// The handler is process-wide, as the library is single-threaded: set it from the host's
/// thread, before or between library calls.
DTM_API void SetMessageHandler(MessageHandler handler);

/// Shows a message through the current handler; a null @p text or @p caption is passed on as
/// an empty text. An exception thrown by the handler propagates to the caller.
DTM_API void ShowMessage(const char* text, const char* caption, unsigned style);

}  // namespace kor
