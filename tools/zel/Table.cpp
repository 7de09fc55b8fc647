#include "Table.h"

#include <algorithm>
#include <utility>

#include "Text.h"

namespace zeltool {
namespace {

constexpr size_t kGap = 2;
constexpr size_t kDetailIndent = 4;

}  // namespace

Table::Table(std::vector<TableColumn> columns, size_t leading, size_t lineWidth)
    : columns_(std::move(columns)), leading_(leading), lineWidth_(lineWidth) {
  for (TableColumn& column : columns_) column.width = std::max(column.width, DisplayWidth(column.title));
}

bool Table::Add(std::vector<std::string> row) {
  row.resize(columns_.size());
  bool changed = false;
  for (size_t i = 0; i < row.size(); ++i) {
    const size_t width = DisplayWidth(row[i]);
    if (width <= columns_[i].width) continue;
    columns_[i].width = width;
    changed = true;
  }
  rows_.push_back(std::move(row));
  return changed;
}

size_t Table::WidthOf(size_t count) const {
  size_t width = 0;
  for (size_t i = 0; i < count; ++i) width += columns_[i].width + kGap;
  return width - kGap;
}

size_t Table::Count() const {
  if (WidthOf(columns_.size()) < lineWidth_) return columns_.size();
  size_t count = leading_;
  while (count > 1 && WidthOf(count) >= lineWidth_) --count;
  return count;
}

std::string Table::Cells(const std::vector<std::string>& cells, size_t count) const {
  std::string line;
  for (size_t i = 0; i < count; ++i) line += PadRight(cells[i], columns_[i].width + kGap);
  line.erase(line.find_last_not_of(' ') + 1);
  return line;
}

std::string Table::Details(const std::vector<std::string>& cells, size_t first) const {
  std::string line;
  for (size_t i = first; i < cells.size(); ++i) {
    if (cells[i].empty()) continue;
    line += (line.empty() ? "" : ", ") + columns_[i].title + " " + cells[i];
  }
  return line.empty() ? line : std::string(kDetailIndent, ' ') + Wrapped(line, lineWidth_ - 1, kDetailIndent);
}

std::string Table::Header() const {
  std::vector<std::string> titles;
  for (const TableColumn& column : columns_) titles.push_back(column.title);
  return Cells(titles, Count());
}

std::string Table::Row(size_t index) const {
  const auto& cells = rows_[index];
  const size_t count = Count();
  const std::string details = Details(cells, count);
  return Cells(cells, count) + (details.empty() ? "" : "\n" + details);
}

size_t Table::LineCount() const {
  size_t lines = 1;
  for (size_t i = 0; i < rows_.size(); ++i) {
    const std::string row = Row(i);
    lines += 1 + static_cast<size_t>(std::count(row.begin(), row.end(), '\n'));
  }
  return lines;
}

}  // namespace zeltool
