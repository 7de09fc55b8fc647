#include "Subjects.h"

#include <libzel/libzel.hpp>

#include <algorithm>
#include <charconv>
#include <utility>

namespace zelgate {
namespace {

constexpr size_t kMaxSiteName = 64;

bool IsPlain(char letter) {
  return (letter >= 'a' && letter <= 'z') || (letter >= 'A' && letter <= 'Z') ||
         (letter >= '0' && letter <= '9') || letter == '_' || letter == '-';
}

void AppendEscaped(std::string& text, char letter) {
  constexpr const char* kDigits = "0123456789ABCDEF";
  const auto byte = static_cast<uint8_t>(letter);
  text += '=';
  text += kDigits[byte >> 4];
  text += kDigits[byte & 15];
}

// The value of a digit in capitals, -1 for another letter.
int HexDigit(char letter) {
  if (letter >= '0' && letter <= '9') return letter - '0';
  return letter >= 'A' && letter <= 'F' ? letter - 'A' + 10 : -1;
}

// One level, without the lone "=" that an empty one is.
bool UnescapeLevel(std::string_view level, std::string& text) {
  for (size_t i = 0; i < level.size(); ++i) {
    if (IsPlain(level[i])) {
      text += level[i];
      continue;
    }
    const int high = level[i] == '=' && i + 2 < level.size() ? HexDigit(level[i + 1]) : -1;
    const int low = high >= 0 ? HexDigit(level[i + 2]) : -1;
    if (low < 0) return false;
    const char letter = static_cast<char>(high * 16 + low);
    if (IsPlain(letter) || letter == '/') return false;
    text += letter;
    i += 2;
  }
  return true;
}

// A decimal without sign or leading zeros.
template <typename Number>
bool ParseNumber(std::string_view text, Number& number) {
  const auto [end, problem] = std::from_chars(text.data(), text.data() + text.size(), number);
  return problem == std::errc() && end == text.data() + text.size() && (text == "0" || text[0] != '0');
}

// Takes the text up to the next "." away.
std::string_view TakeToken(std::string_view& rest) {
  const size_t size = std::min(rest.find('.'), rest.size());
  const std::string_view token = rest.substr(0, size);
  rest.remove_prefix(std::min(size + 1, rest.size()));
  return token;
}

std::optional<std::string> IfShortEnough(std::string subject) {
  if (subject.size() > kMaxSubject) return {};
  return subject;
}

}  // namespace

bool IsSiteName(std::string_view text) {
  return !text.empty() && text.size() <= kMaxSiteName && std::all_of(text.begin(), text.end(), IsPlain);
}

std::optional<std::string> DeviceToken(std::string_view id) {
  const auto parsed = zel::DeviceId::Parse(id);
  if (!parsed) return {};
  std::string token = parsed->ToString();
  std::replace(token.begin(), token.end(), '.', '-');
  return token;
}

std::optional<std::string> DeviceOfToken(std::string_view token) {
  std::string id(token);
  if (id.find('.') != std::string::npos) return {};
  std::replace(id.begin(), id.end(), '-', '.');
  const auto parsed = zel::DeviceId::Parse(id);
  if (!parsed || parsed->ToString() != id) return {};
  return id;
}

std::string EscapeTopic(std::string_view topic) {
  std::string text;
  size_t levelStart = 0;
  for (const char letter : topic) {
    if (letter == '/') {
      if (text.size() == levelStart) text += '=';
      text += '.';
      levelStart = text.size();
    } else if (IsPlain(letter)) {
      text += letter;
    } else {
      AppendEscaped(text, letter);
    }
  }
  if (text.size() == levelStart) text += '=';
  return text;
}

std::optional<std::string> UnescapeTopic(std::string_view tokens) {
  std::string topic;
  bool isFirst = true;
  if (tokens.empty() || tokens.back() == '.') return {};
  while (!tokens.empty()) {
    const std::string_view level = TakeToken(tokens);
    if (!std::exchange(isFirst, false)) topic += '/';
    if (level.empty()) return {};
    if (level != "=" && !UnescapeLevel(level, topic)) return {};
  }
  return topic;
}

std::optional<std::string> Subjects::Topic(std::string_view device, std::string_view topic) const {
  return IfShortEnough(Prefix("ev") + std::string(device) + ".t." + EscapeTopic(topic));
}

std::string Subjects::Port(std::string_view device, uint16_t port) const {
  return Prefix("ev") + std::string(device) + ".p." + std::to_string(port);
}

std::string Subjects::Link(std::string_view device) const {
  return Prefix("ev") + std::string(device) + ".link";
}

std::string Subjects::Ask(std::string_view device, uint16_t port, uint32_t group, uint32_t offset) const {
  return Prefix("ask") + std::string(device) + "." + std::to_string(port) + "." + std::to_string(group) +
         "." + std::to_string(offset);
}

std::optional<std::string> Subjects::Publication(std::string_view device, std::string_view topic) const {
  return IfShortEnough(Prefix("pub") + std::string(device) + ".t." + EscapeTopic(topic));
}

std::optional<Subjects::AskTarget> Subjects::ParseAsk(std::string_view subject) const {
  const std::string prefix = Prefix("ask");
  if (!subject.starts_with(prefix) || subject.back() == '.') return {};
  subject.remove_prefix(prefix.size());
  AskTarget target;
  target.device = TakeToken(subject);
  if (!DeviceOfToken(target.device)) return {};
  if (!ParseNumber(TakeToken(subject), target.port)) return {};
  if (!ParseNumber(TakeToken(subject), target.group)) return {};
  if (!ParseNumber(TakeToken(subject), target.offset) || !subject.empty()) return {};
  return target;
}

std::optional<Subjects::PublicationTarget> Subjects::ParsePublication(std::string_view subject) const {
  const std::string prefix = Prefix("pub");
  if (!subject.starts_with(prefix)) return {};
  subject.remove_prefix(prefix.size());
  PublicationTarget target;
  target.device = TakeToken(subject);
  if (!DeviceOfToken(target.device) || TakeToken(subject) != "t") return {};
  const auto topic = UnescapeTopic(subject);
  if (!topic) return {};
  target.topic = *topic;
  return target;
}

}  // namespace zelgate
