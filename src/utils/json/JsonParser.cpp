#include "utils/json/JsonParser.h"

#include <algorithm>
#include <charconv>
#include <limits>
#include <stdexcept>

#include "utils/json/JsonChildren.h"

namespace libzel {

namespace {

constexpr size_t kUsualDepth = 8;

bool IsBlank(char c) { return c == ' ' || c == '\r' || c == '\n' || c == '\t'; }
bool IsDigit(char c) { return c >= '0' && c <= '9'; }

// `text` is an optional minus sign and digits.
int32_t ToInteger(std::string_view text) {
  int32_t value = 0;
  if (std::from_chars(text.data(), text.data() + text.size(), value).ec == std::errc()) return value;
  return text.front() == '-' ? std::numeric_limits<int32_t>::min() : std::numeric_limits<int32_t>::max();
}

// Whether a number that no double can hold is too large rather than too small: compares the place of its
// first significant digit with its exponent. `text` has no sign.
bool IsTooLarge(std::string_view text) {
  const size_t point = text.find('.');
  const size_t exponentAt = std::min(text.find_first_of("eE"), text.size());
  const size_t first = text.find_first_of("123456789");
  if (first >= exponentAt) return false;
  const auto place = static_cast<int64_t>(point) - static_cast<int64_t>(first);

  std::string_view exponentText = text.substr(exponentAt);
  if (!exponentText.empty()) exponentText.remove_prefix(1);
  if (exponentText.starts_with('+')) exponentText.remove_prefix(1);
  int64_t exponent = 0;
  const auto result =
      std::from_chars(exponentText.data(), exponentText.data() + exponentText.size(), exponent);
  if (result.ec == std::errc::result_out_of_range) return !exponentText.starts_with('-');
  return exponent > -place;
}

// Reads the longest decimal number at the start of `text`, an exponent included. Unlike from_chars it gives
// infinity and zero for what a double cannot hold.
double ToDouble(std::string_view text) {
  double value = 0;
  const auto result = std::from_chars(text.data(), text.data() + text.size(), value);
  if (result.ec != std::errc::result_out_of_range) return value;
  const bool negative = text.front() == '-';
  text = text.substr(0, static_cast<size_t>(result.ptr - text.data()));
  const double magnitude =
      IsTooLarge(text.substr(negative ? 1 : 0)) ? std::numeric_limits<double>::infinity() : 0.0;
  return negative ? -magnitude : magnitude;
}

}  // namespace

void JsonParser::load(const std::string& text) {
  text_ = text;
  position_ = 0;
}

// The containers that are still open stand on a stack of our own, and every value is built at its final
// place: no recursion, whatever the depth, and no copies.
Json& JsonParser::parse(Json& out) {
  Json root;
  OpenContainers open;
  open.reserve(kUsualDepth);
  for (Json* value = &root; value != nullptr;) {
    Json* child = nullptr;
    if (BeginValue(*value)) child = FirstChild(*value);
    if (child != nullptr) {
      open.push_back(value);
      value = child;
    } else {
      value = NextChild(open);
    }
  }
  return out = std::move(root);
}

void JsonParser::Fail(const char* message) { throw std::logic_error(message); }

char JsonParser::NextSignificant() {
  while (IsBlank(Peek())) ++position_;
  if (position_ == text_.size()) Fail("unexpected end of input");
  return text_[position_++];
}

bool JsonParser::TakeKeyword(std::string_view keyword) {
  if (text_.compare(position_, keyword.size(), keyword) != 0) return false;
  position_ += keyword.size();
  return true;
}

// Reads a whole scalar, or opens a container and gives true.
bool JsonParser::BeginValue(Json& value) {
  const char first = NextSignificant();
  switch (first) {
    case 'n': ParseNull(value); return false;
    case 't':
    case 'f': ParseBool(value); return false;
    case '"':
      value.string_ = ParseString();
      value.type_ = JsonType::kString;
      return false;
    case '[': value.type_ = JsonType::kArray; return true;
    case '{': value.type_ = JsonType::kObject; return true;
    default: break;
  }
  if (first != '-' && !IsDigit(first)) Fail("unexpected character in parse json");
  --position_;
  ParseNumber(value);
  return false;
}

// The place of an opened container's first child; null when the container closes at once.
Json* JsonParser::FirstChild(Json& container) {
  const char next = NextSignificant();
  if (container.isObject()) {
    if (next == '}') return nullptr;
    if (next != '"') Fail("expected '\"' in object");
    return AddMember(container);
  }
  if (next == ']') return nullptr;
  --position_;
  return &container.OwnChildren().array.emplace_back();
}

// Called behind a complete value: closes containers until one goes on, and gives the place of its next child;
// null when none is open any more.
Json* JsonParser::NextChild(OpenContainers& open) {
  while (!open.empty()) {
    Json& container = *open.back();
    const bool isObject = container.isObject();
    const char next = NextSignificant();
    if (next == (isObject ? '}' : ']')) {
      open.pop_back();
      continue;
    }
    if (next != ',') Fail(isObject ? "expected ',' in object" : "expected ',' in array");
    if (!isObject) return &container.OwnChildren().array.emplace_back();
    if (NextSignificant() != '"') Fail("expected '\"' in object");
    return AddMember(container);
  }
  return nullptr;
}

// Reads a key, behind its opening quote, and its colon. A repeated key starts anew.
Json* JsonParser::AddMember(Json& object) {
  const std::string_view key = ParseString();
  if (NextSignificant() != ':') Fail("expected ':' in object");
  auto& members = object.OwnChildren().object;
  const auto at = members.lower_bound(key);
  if (at != members.end() && at->first == key) {
    at->second = Json();
    return &at->second;
  }
  return &members.try_emplace(at, std::string(key))->second;
}

void JsonParser::ParseNull(Json& value) {
  --position_;
  if (!TakeKeyword("null")) Fail("parse null error");
  value.type_ = JsonType::kNull;
}

void JsonParser::ParseBool(Json& value) {
  --position_;
  if (TakeKeyword("true")) {
    value.boolean_ = true;
  } else if (!TakeKeyword("false")) {
    Fail("parse bool error");
  }
  value.type_ = JsonType::kBool;
}

void JsonParser::SkipDigits() {
  while (IsDigit(Peek())) ++position_;
}

void JsonParser::ParseNumber(Json& value) {
  const size_t start = position_;
  if (Peek() == '-') ++position_;
  if (Peek() == '0') {
    ++position_;
    if (IsDigit(Peek())) Fail("leading 0s not permitted in numbers");
  } else if (!IsDigit(Peek())) {
    Fail("invalid character in number");
  }
  SkipDigits();
  const std::string_view rest = std::string_view(text_).substr(start);
  if (Peek() != '.') {
    value.integer_ = ToInteger(rest.substr(0, position_ - start));
    value.type_ = JsonType::kInt;
    return;
  }
  ++position_;
  if (!IsDigit(Peek())) Fail("at least one digit required in fractional part");
  SkipDigits();
  // From the start and to the end of the text: the conversion takes an exponent that the position stays in
  // front of. Deliberate.
  value.number_ = ToDouble(rest);
  value.type_ = JsonType::kDouble;
}

// Reads up to the closing quote, the position being behind the opening one; the result points into the text.
std::string_view JsonParser::ParseString() {
  const size_t start = position_;
  while (position_ < text_.size() && text_[position_] != '"' && text_[position_] != '\\') ++position_;
  if (position_ == text_.size()) Fail("unexpected end of input in string");
  const size_t end = position_++;
  if (text_[end] == '\\') Fail("not support escaped characters in string");
  return std::string_view(text_).substr(start, end - start);
}

}  // namespace libzel
