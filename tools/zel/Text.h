// Bytes and numbers as people read and write them. Everything here is a pure function.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace zeltool {

using Bytes = std::vector<uint8_t>;

Bytes ToBytes(std::string_view text);
std::string_view AsText(std::span<const uint8_t> bytes);

bool IsUtf8(std::string_view text);

// True for UTF-8 without control characters other than tab, line feed and carriage return.
bool IsText(std::span<const uint8_t> bytes);

// Fit for one line of a terminal: control characters and what is no UTF-8 appear as \xNN, a backslash as it
// is.
std::string Printable(std::string_view text);

// Characters, not bytes, of UTF-8.
size_t DisplayWidth(std::string_view text);
std::string PadRight(std::string_view text, size_t width);
std::string PadLeft(std::string_view text, size_t width);

std::string Fixed(double value, int digits);
// As short as it can be: "0.1", "1000000".
std::string Brief(double value);
// "17 B", "1.2 KiB", "3.4 MiB".
std::string ReadableSize(double bytes);
// "0:07", "12:30", "1:00:00"; rounded up to whole seconds.
std::string ReadableDuration(double seconds);
// Lines of at most `width` characters, where words allow it. The text begins in column `indent`; so do the
// further lines, with blanks before them.
std::string Wrapped(std::string_view text, size_t width, size_t indent);
// "1 device", "2 devices".
std::string Counted(uint64_t count, std::string_view thing);

// "01 ff"
std::string HexBytes(std::span<const uint8_t> bytes);
// Lines of offset, bytes and their ASCII characters, each ended by a line feed. 16, 8 and 4 bytes take 77, 44
// and 28 columns.
std::string HexDump(std::span<const uint8_t> bytes, size_t perLine = 16);
// Pairs of hexadecimal digits; blanks, ":" and a leading "0x" of a pair are skipped. Nothing for anything
// else.
std::optional<Bytes> ParseHex(std::string_view text);
// As RFC 4648 has it, with padding.
std::string Base64(std::span<const uint8_t> bytes);
// Nothing for anything else.
std::optional<Bytes> ParseBase64(std::string_view text);
// As in "2", "0.5" or "1e3"; nothing for anything else, such as "nan".
std::optional<double> ParseReal(std::string_view text);
// Decimal, or hexadecimal after "0x"; nothing for anything else, or a number above `limit`.
std::optional<uint64_t> ParseNumber(std::string_view text, uint64_t limit);

}  // namespace zeltool
