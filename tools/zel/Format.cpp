#include "Format.h"

#include <string_view>

namespace zeltool {
namespace {

constexpr std::string_view kConversions = "tpTndxslgo%";
constexpr std::string_view kEscapes = "nt0\\";
constexpr std::string_view kEscaped("\n\t\0\\", 4);

std::string Convert(char conversion, const Message& message, const ClockText& clock) {
  switch (conversion) {
    case 't': return message.topic;
    case 'p': return std::to_string(message.port);
    case 'T': return clock(message.time);
    case 'n': return "\n";
    case 'd': return std::string(AsText(message.data));
    case 'x': return HexBytes(message.data);
    case 's': return Printable(AsText(message.data));
    case 'l': return std::to_string(message.data.size());
    case 'g': return std::to_string(message.group);
    case 'o': return std::to_string(message.offset);
    default: return "%";
  }
}

}  // namespace

std::string CheckFormat(const std::string& format) {
  for (size_t i = 0; i < format.size(); ++i) {
    if (format[i] != '%' && format[i] != '\\') continue;
    const std::string_view known = format[i] == '%' ? kConversions : kEscapes;
    if (i + 1 >= format.size() || known.find(format[i + 1]) == std::string_view::npos) {
      return std::string("'").append(format, i, 2).append("' means nothing; see zel sub --help");
    }
    ++i;
  }
  return {};
}

std::string FormatMessage(const std::string& format, const Message& message, const ClockText& clock) {
  std::string out;
  for (size_t i = 0; i < format.size(); ++i) {
    const bool pair = i + 1 < format.size();
    if (pair && format[i] == '%') {
      out += Convert(format[++i], message, clock);
    } else if (pair && format[i] == '\\') {
      out += kEscaped[kEscapes.find(format[++i])];
    } else {
      out += format[i];
    }
  }
  return out;
}

std::string DefaultLine(const Message& message) {
  const std::string from = message.routed ? std::to_string(message.port) : Printable(message.topic);
  if (IsText(message.data)) {
    std::string_view text = AsText(message.data);
    while (text.ends_with('\n') || text.ends_with('\r')) text.remove_suffix(1);
    return from + "  " + Printable(text);
  }
  return from + "  [" + Counted(message.data.size(), "byte") + "] " + HexBytes(message.data);
}

}  // namespace zeltool
