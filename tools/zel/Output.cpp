#include "Output.h"

#include <nlohmann/json.hpp>

#include "Text.h"

namespace zeltool {

Record& Record::Text(std::string name, std::string_view value) {
  members_.emplace_back(std::move(name), std::string(value));
  return *this;
}

Record& Record::Number(std::string name, int64_t value) {
  members_.emplace_back(std::move(name), value);
  return *this;
}

Record& Record::Real(std::string name, double value) {
  members_.emplace_back(std::move(name), value);
  return *this;
}

Record& Record::Flag(std::string name, bool value) {
  members_.emplace_back(std::move(name), value);
  return *this;
}

Record& Record::Payload(std::span<const uint8_t> bytes) {
  Number("length", static_cast<int64_t>(bytes.size()));
  return IsText(bytes) ? Text("text", AsText(bytes)) : Text("hex", HexBytes(bytes));
}

Output::Output(std::FILE* stream, bool json)
    : stream_(stream), json_(json), live_(!json && IsTerminal(stream)) {
  if (live_) PrepareTerminal(stream);
}

void Output::Write(std::string_view bytes) {
  if (std::fwrite(bytes.data(), 1, bytes.size(), stream_) != bytes.size()) good_ = false;
}

void Output::Line(std::string_view text) { Raw(std::string(text) + "\n"); }

void Output::Raw(std::string_view bytes) {
  ClearStatus();
  Write(bytes);
  if (std::fflush(stream_) != 0) good_ = false;
}

void Output::Object(const Record& record) {
  nlohmann::ordered_json object = nlohmann::ordered_json::object();
  for (const auto& [name, value] : record.Members()) {
    std::visit([&object, &key = name](const auto& member) { object[key] = member; }, value);
  }
  // Devices may send what is no UTF-8.
  Line(object.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace));
}

void Output::Status(std::string_view text) {
  if (!live_) return;
  const size_t columns = Size().columns;
  Write("\r\x1b[K");
  Write(DisplayWidth(text) < columns ? text : text.substr(0, columns - 1));
  (void)std::fflush(stream_);
  status_ = true;
}

void Output::ClearStatus() {
  if (!status_) return;
  Write("\r\x1b[K");
  status_ = false;
}

void Output::Unwrite(size_t lines) {
  if (!live_ || lines == 0) return;
  ClearStatus();
  Write("\x1b[" + std::to_string(lines) + "A\r\x1b[J");
}

void Output::Note(std::string_view text) {
  ClearStatus();
  (void)std::fflush(stream_);
  (void)std::fprintf(stderr, "zel: %.*s\n", static_cast<int>(text.size()), text.data());
  (void)std::fflush(stderr);
}

}  // namespace zeltool
