// What the program says: plain lines on standard error, each with the priority that journald takes from it.
#pragma once

#include <string>
#include <string_view>

namespace zelgate {

enum class Priority { kError = 3, kWarning = 4, kNotice = 5, kInfo = 6 };

// Writes "<4>text" in one piece. Bytes that could steer a terminal or begin a line of their own are escaped,
// so that names from devices may stand in it. Any thread.
void Say(Priority priority, std::string_view text);

// As Say writes it: control bytes as \xNN, and what is no UTF-8 as well.
std::string Printable(std::string_view text);

}  // namespace zelgate
