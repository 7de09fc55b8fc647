// Reads a reduced JSON: strings have no escapes, integers are held in 32 bits (larger ones saturate),
// exponents are no part of a number, keywords need nothing behind them, and what follows the first complete
// value is not looked at.
//
// Every fault throws std::logic_error with a fixed message; the position then stands where the fault was
// found, and the value that was to be filled is untouched. Used by one thread at a time. Independent of the
// process's locale.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "utils/json/Json.h"

namespace libzel {

class JsonParser {
 public:
  // Copies the text and goes back to its start.
  void load(const std::string& text);

  // Parses the value at the position into `out` and gives `out`; the position is left just behind the value.
  Json& parse(Json& out);

  size_t position() const { return position_; }

 private:
  using OpenContainers = std::vector<Json*>;

  [[noreturn]] static void Fail(const char* message);
  // The character under the position, NUL at the end of the text.
  char Peek() const { return text_.c_str()[position_]; }
  char NextSignificant();
  bool TakeKeyword(std::string_view keyword);

  bool BeginValue(Json& value);
  Json* FirstChild(Json& container);
  Json* NextChild(OpenContainers& open);
  Json* AddMember(Json& object);

  void ParseNull(Json& value);
  void ParseBool(Json& value);
  void ParseNumber(Json& value);
  void SkipDigits();
  std::string_view ParseString();

  std::string text_;
  size_t position_ = 0;
};

}  // namespace libzel
