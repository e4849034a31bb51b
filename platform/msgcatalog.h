// The message catalog: localisable messages and pending error messages.
//
// A localisable message is the text "@&!*@*@(" id ")" default-text. The
// catalog resolves it to the user's language, falling back to the default
// text. Text without the marker is returned as it stands.
#pragma once

#include <string>
#include <string_view>

namespace gp::msg {

inline constexpr std::string_view kMarker = "@&!*@*@(";

// Splits a localisable message into its id and default text. Returns false
// (and leaves the outputs empty) when `message` lacks the marker form.
bool split(std::string_view message, std::string_view &id,
           std::string_view &defaultText);

// The message in the user's language, or its default text.
std::string get(std::string_view message);

// Like get(), as a malloc'ed string that the caller frees.
char *getHeap(std::string_view message);

// Pending error messages: platform services that fail leave a message
// here; callers append takePending() to their log lines.
void appendPending(std::string_view text);
std::string takePending();

}  // namespace gp::msg
