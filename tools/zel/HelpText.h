// The words of the help, and how they look on a terminal, in a manual and on a page. Everything
// here is a pure function.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace zeltool {

// A word or an example, and what it means; that may be empty.
struct HelpRow {
  std::string left;
  std::string right;
};

// A paragraph, or else rows.
struct HelpPart {
  std::string paragraph;
  std::vector<HelpRow> rows;
};

// Takes a text apart: lines that begin with two blanks are rows, whose meaning stands behind two blanks or
// more; the others are paragraphs, ended by an empty line or by rows.
std::vector<HelpPart> ReadHelp(std::string_view text);

// Lines of at most `columns` characters, where words allow it, each ended by a line feed.
std::string ShowParagraph(std::string_view paragraph, size_t columns);
// What the rows mean stands in one column beside what is no longer than `widest`, and below what is.
std::string ShowRows(const std::vector<HelpRow>& rows, size_t columns, size_t widest);
std::string ShowHelp(std::string_view text, size_t columns);

// The same for man (groff) and in Markdown.
std::string EscapeForMan(std::string_view text);
std::string ShowHelpForMan(std::string_view text);
std::string EscapeForMarkdown(std::string_view text);
std::string ShowHelpInMarkdown(std::string_view text);

}  // namespace zeltool
