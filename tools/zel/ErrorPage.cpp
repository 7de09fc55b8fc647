#include "ErrorPage.h"

#include <cstdlib>
#include <optional>

#include "ErrorPages.h"

namespace zeltool {
namespace {

// The cells of a row, without the bars around them.
std::vector<std::string> Cells(std::string_view row) {
  std::vector<std::string> cells;
  for (size_t at = row.find("| "); at != std::string_view::npos;) {
    const size_t end = row.find(" |", at + 2);
    if (end == std::string_view::npos) break;
    cells.emplace_back(row.substr(at + 2, end - at - 2));
    at = end + 1;
  }
  return cells;
}

// What stands between backticks.
std::vector<std::string> Names(const std::string& cell) {
  std::vector<std::string> names;
  for (size_t at = cell.find('`'); at != std::string::npos;) {
    const size_t end = cell.find('`', at + 1);
    if (end == std::string::npos) break;
    names.push_back(cell.substr(at + 1, end - at - 1));
    at = cell.find('`', end + 1);
  }
  return names;
}

// Without backticks and " ([...](...))".
std::string Plain(const std::string& cell) {
  std::string text;
  for (size_t i = 0; i < cell.size(); ++i) {
    if (cell.compare(i, 3, " ([") == 0) {
      const size_t end = cell.find("))", i);
      if (end == std::string::npos) break;
      i = end + 1;
    } else if (cell[i] != '`') {
      text += cell[i];
    }
  }
  return text;
}

std::optional<ErrorEntry> ReadRow(std::string_view row) {
  const auto cells = Cells(row);
  if (cells.size() != 4) return std::nullopt;
  const size_t digits = cells[0].find("<br>0x");
  if (digits == 0 || digits == std::string::npos) return std::nullopt;
  return ErrorEntry{std::atoi(cells[0].c_str()), Names(cells[1].substr(0, cells[1].find("<br>"))),
                    Plain(cells[2]), Plain(cells[3])};
}

}  // namespace

std::vector<ErrorEntry> ReadErrorPage(std::string_view page) {
  std::vector<ErrorEntry> entries;
  while (!page.empty()) {
    const size_t end = page.find('\n');
    if (auto entry = ReadRow(page.substr(0, end))) entries.push_back(*std::move(entry));
    page.remove_prefix(end == std::string_view::npos ? page.size() : end + 1);
  }
  return entries;
}

const std::vector<ErrorEntry>& AllErrors() {
  static const std::vector<ErrorEntry> all = [] {
    auto entries = ReadErrorPage(kErrorsPage);
    for (auto& entry : ReadErrorPage(kBeyondPage)) entries.push_back(std::move(entry));
    return entries;
  }();
  return all;
}

}  // namespace zeltool
