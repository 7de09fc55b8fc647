// A table that grows by rows while people look at it.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace zeltool {

struct TableColumn {
  std::string title;
  // Room that is kept from the beginning, so that most rows fit without drawing the table again.
  size_t width = 0;
};

// Lays rows out; knows no terminal. A table too wide for its line gets more lines a row: the first `leading`
// columns, or as many as fit, and below them, indented, the others that are not empty, each behind its title.
class Table {
 public:
  Table(std::vector<TableColumn> columns, size_t leading, size_t lineWidth);

  // True when what was laid out so far no longer fits: lay everything out again.
  bool Add(std::vector<std::string> row);

  std::string Header() const;
  // One line, or several joined by line feeds.
  std::string Row(size_t index) const;
  size_t RowCount() const { return rows_.size(); }
  // Lines of header and rows.
  size_t LineCount() const;

 private:
  size_t WidthOf(size_t count) const;
  // How many columns stand in one line.
  size_t Count() const;
  std::string Cells(const std::vector<std::string>& cells, size_t count) const;
  std::string Details(const std::vector<std::string>& cells, size_t first) const;

  std::vector<TableColumn> columns_;
  size_t leading_;
  size_t lineWidth_;
  std::vector<std::vector<std::string>> rows_;
};

}  // namespace zeltool
