#pragma once

#include <string>
#include <string_view>

// The library writes names and strings as they are. What comes from outside the program (the name
// of a process can be anything) goes through one of these first.

/** `text` as it stands between the quotes of a JSON string: quotes, backslashes and control
 * characters are escaped, and each byte that is not valid UTF-8 becomes U+FFFD. */
std::string jsonText(std::string_view text);

/** `text` as it can be shown on a terminal: '?' for control characters and invalid bytes. */
std::string terminalText(std::string_view text);
