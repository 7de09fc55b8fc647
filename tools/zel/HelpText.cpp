#include "HelpText.h"

#include <algorithm>

#include "Text.h"

namespace zeltool {
namespace {

constexpr size_t kGap = 2;
constexpr size_t kIndent = 2;
constexpr size_t kDeepIndent = 6;

HelpRow ReadHelpRow(std::string_view line) {
  line.remove_prefix(std::min(line.find_first_not_of(' '), line.size()));
  const size_t gap = std::min(line.find("  "), line.size());
  const size_t right = std::min(line.find_first_not_of(' ', gap), line.size());
  return {std::string(line.substr(0, gap)), std::string(line.substr(right))};
}

std::string Blanks(size_t count) { return std::string(count, ' '); }

// The width of the column for what is on the left.
size_t LeftWidth(const std::vector<HelpRow>& rows, size_t widest) {
  size_t width = 0;
  for (const HelpRow& row : rows) {
    const size_t own = DisplayWidth(row.left);
    if (!row.right.empty() && own <= widest) width = std::max(width, own);
  }
  return width;
}

bool IsExample(const HelpPart& part) {
  return std::any_of(part.rows.begin(), part.rows.end(),
                     [](const HelpRow& row) { return row.left.find("zel ") != std::string::npos; });
}

}  // namespace

std::vector<HelpPart> ReadHelp(std::string_view text) {
  std::vector<HelpPart> parts;
  bool isNew = true;
  while (!text.empty()) {
    const size_t end = std::min(text.find('\n'), text.size());
    const std::string_view line = text.substr(0, end);
    text.remove_prefix(std::min(end + 1, text.size()));
    const bool isRow = line.starts_with("  ");
    if (line.empty()) {
      isNew = true;
      continue;
    }
    if (isNew || isRow != parts.back().paragraph.empty()) parts.emplace_back();
    isNew = false;
    if (isRow) {
      parts.back().rows.push_back(ReadHelpRow(line));
    } else {
      parts.back().paragraph += (parts.back().paragraph.empty() ? "" : " ") + std::string(line);
    }
  }
  return parts;
}

std::string ShowParagraph(std::string_view paragraph, size_t columns) {
  return Wrapped(paragraph, columns, 0) + "\n";
}

std::string ShowRows(const std::vector<HelpRow>& rows, size_t columns, size_t widest) {
  const size_t left = LeftWidth(rows, widest);
  std::string out;
  for (const HelpRow& row : rows) {
    const bool isBeside = DisplayWidth(row.left) <= left;
    const size_t indent = isBeside ? kIndent + left + kGap : kDeepIndent;
    out += Blanks(kIndent) + row.left;
    if (!row.right.empty()) {
      out += isBeside ? Blanks(indent - kIndent - DisplayWidth(row.left)) : "\n" + Blanks(indent);
      out += Wrapped(row.right, columns, indent);
    }
    out += "\n";
  }
  return out;
}

std::string ShowHelp(std::string_view text, size_t columns) {
  std::string out;
  bool wasTitle = true;
  for (const HelpPart& part : ReadHelp(text)) {
    if (!wasTitle) out += "\n";
    wasTitle = part.paragraph.ends_with(':');
    // An example is longer than a word.
    out += part.rows.empty() ? ShowParagraph(part.paragraph, columns)
                             : ShowRows(part.rows, columns, columns / 2 + 2);
  }
  return out;
}

std::string EscapeForMan(std::string_view text) {
  std::string out;
  for (size_t i = 0; i < text.size(); ++i) {
    const char character = text[i];
    const bool isLineStart = i == 0 || text[i - 1] == '\n';
    if (isLineStart && (character == '.' || character == '\'')) out += "\\&";
    if (character == '\\') {
      out += "\\e";
    } else if (character == '-') {
      out += "\\-";
    } else {
      out += character;
    }
  }
  return out;
}

std::string ShowHelpForMan(std::string_view text) {
  std::string out;
  for (const HelpPart& part : ReadHelp(text)) {
    if (part.rows.empty()) {
      out += ".PP\n" + EscapeForMan(part.paragraph) + "\n";
      continue;
    }
    for (const HelpRow& row : part.rows) {
      const std::string left = "\\fB" + EscapeForMan(row.left) + "\\fR";
      out += row.right.empty() ? ".PP\n.RS 4\n" + left + "\n.RE\n"
                               : ".TP 8\n" + left + "\n" + EscapeForMan(row.right) + "\n";
    }
  }
  return out;
}

std::string EscapeForMarkdown(std::string_view text) {
  std::string out;
  while (!text.empty()) {
    const size_t end = std::min(text.find(' '), text.size());
    const std::string_view word = text.substr(0, end);
    const size_t length =
        word.size() - (word.ends_with('.') || word.ends_with(',') || word.ends_with(';') ? 1 : 0);
    const bool isCode = word.starts_with("--") || word.find_first_of("<>*_\\%|") != std::string_view::npos;
    out += isCode ? "`" + std::string(word.substr(0, length)) + "`" + std::string(word.substr(length))
                  : std::string(word);
    if (end < text.size()) out += ' ';
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  return out;
}

std::string ShowHelpInMarkdown(std::string_view text) {
  std::string out;
  for (const HelpPart& part : ReadHelp(text)) {
    if (part.rows.empty()) {
      out += "\n" + Wrapped(EscapeForMarkdown(part.paragraph), 110, 0) + "\n";
      continue;
    }
    const size_t left = LeftWidth(part.rows, 60);
    const bool isExample = IsExample(part);
    out += isExample ? "\n```sh\n" : "\n```\n";
    for (const HelpRow& row : part.rows) {
      const std::string mark = isExample ? " # " : "  ";
      out += (row.right.empty() ? row.left : PadRight(row.left, left) + mark + row.right) + "\n";
    }
    out += "```\n";
  }
  return out;
}

}  // namespace zeltool
