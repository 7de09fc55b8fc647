#include "Output.h"

#include <cerrno>
#include <cstdlib>
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

Record& Record::CompactPayload(std::span<const uint8_t> bytes) {
  Number("length", static_cast<int64_t>(bytes.size()));
  return IsText(bytes) ? Text("text", AsText(bytes)) : Text("base64", Base64(bytes));
}

Record& Record::Payload(std::span<const uint8_t> bytes) {
  Number("length", static_cast<int64_t>(bytes.size()));
  return IsText(bytes) ? Text("text", AsText(bytes)) : Text("hex", HexBytes(bytes));
}

namespace {

// One that does not know the sequences that draw a line again says so.
bool IsPlainTerminal() {
  // NOLINTNEXTLINE(concurrency-mt-unsafe): nobody here sets the environment
  const char* terminal = std::getenv("TERM");
  return terminal != nullptr && std::string_view(terminal) == "dumb";
}

}  // namespace

Output::Output(std::FILE* stream, bool json, Remarks remarks)
    : stream_(stream),
      json_(json),
      remarks_(remarks),
      live_(!json && remarks == Remarks::kShown && IsTerminal(stream) && !IsPlainTerminal()) {
  if (live_) PrepareTerminal(stream);
}

void Output::Write(std::string_view bytes) {
  if (std::fwrite(bytes.data(), 1, bytes.size(), stream_) != bytes.size() && error_ == 0) error_ = errno;
}

void Output::Flush() {
  if (std::fflush(stream_) != 0 && error_ == 0) error_ = errno;
}

void Output::Line(std::string_view text) { Raw(std::string(text) + "\n"); }

void Output::Words(std::string_view text) {
  Line(live_ ? Wrapped(text, Size().columns - 1, 0) : std::string(text));
}

void Output::Raw(std::string_view bytes) {
  ClearStatus();
  Write(bytes);
  Flush();
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
  Flush();
  status_ = true;
}

void Output::ClearStatus() {
  if (!status_) return;
  Write("\r\x1b[K");
  Flush();
  status_ = false;
}

void Output::Unwrite(size_t lines) {
  if (!live_ || lines == 0) return;
  ClearStatus();
  Write("\x1b[" + std::to_string(lines) + "A\r\x1b[J");
}

void Output::Note(std::string_view text) {
  if (remarks_ == Remarks::kShown) Remark(text);
}

void Output::Fail(const Failure& failure) {
  const std::string what = failure.what();
  if (json_) {
    Record record;
    if (failure.Code() != 0) record.Number("error", failure.Code()).Text("errorText", TextOf(failure.Code()));
    record.Text("what", what);
    if (!failure.Advice().empty()) record.Text("advice", failure.Advice());
    Object(record.Number("status", failure.Status()));
  }
  Remark(failure.Code() != 0 ? what + ": " + ErrorText(failure.Code()) : what);
  if (!failure.Advice().empty()) Note(failure.Advice());
}

void Output::Remark(std::string_view text) {
  ClearStatus();
  Flush();
  const std::string head = "zel: ";
  const std::string line =
      head +
      (IsTerminal(stderr) ? Wrapped(text, GetTerminalSize(stderr).columns - 1, head.size())
                          : std::string(text)) +
      "\n";
  (void)std::fwrite(line.data(), 1, line.size(), stderr);
  (void)std::fflush(stderr);
}

}  // namespace zeltool
