#pragma once

#include <string>
#include <string_view>

// Control characters, bytes below 0x20 and 0x7f, in a text from outside could forge a log line, a
// report line or a line of a request.

/// True if the text holds a control character.
[[nodiscard]] bool hasControlCharacter(std::string_view sText);

/// The text with a question mark in place of each control character.
std::string printable(std::string_view sText);
