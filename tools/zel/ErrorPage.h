// The tables of the documents' pages on errors, which the program carries with it: one source for both.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace zeltool {

struct ErrorEntry {
  int32_t code = 0;
  std::vector<std::string> names;  // in C; may be empty
  std::string cause;
  std::string cure;
};

// The rows "| 4104<br>0x1008 | `ZEL_E_TIMEOUT`<br>"text" | cause | cure |" of a page.
std::vector<ErrorEntry> ReadErrorPage(std::string_view page);

// Those of all pages.
const std::vector<ErrorEntry>& AllErrors();

}  // namespace zeltool
