#include "utils/xml/Document.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <memory>
#include <stdexcept>
#include <thread>

#include "platform/Platform.h"
#include "utils/Log.h"

namespace libzel::xml {

namespace {

constexpr std::string_view kBlanks = " \r\n\t";
constexpr std::string_view kCommentStart = "<!--";
constexpr std::string_view kCommentEnd = "-->";

// Letters and digits are those of ASCII, whatever the process's locale.
bool StartsName(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_'; }
bool IsInName(char c) { return StartsName(c) || (c >= '0' && c <= '9') || c == '-' || c == ':'; }

}  // namespace

// All lines carry the name of the operation that the user called.
#define ZEL_LOG_XML_ERROR(...) ZEL_LOG_AS("libzel::xml::Document::parse", kError, __VA_ARGS__)

bool Document::loadFile(const std::string& path) {
  const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(
      platform::OpenForReading(path.c_str(), platform::FileKind::kText), std::fclose);
  if (file == nullptr) return false;
  // What opens but cannot be read, a directory on Linux, is empty.
  std::string text;
  std::array<char, 4096> piece;
  while (const size_t count = std::fread(piece.data(), 1, piece.size(), file.get())) {
    text.append(piece.data(), count);
  }
  load(std::move(text));
  return true;
}

void Document::load(std::string text) {
  text_ = std::move(text);
  position_ = 0;
}

bool Document::parse(Element& root) {
  const Start start = StartElement(root);
  if (start != Start::kElement) return start == Start::kNothing;

  OpenChildren open;
  for (;;) {
    Element& current = open.empty() ? root : open.back();
    const Step step = StepInside(current);
    if (step == Step::kFailed) return false;
    if (step == Step::kChild || step == Step::kFirstChild) {
      if (!StartChild(open, current, step)) return false;
    } else if (step == Step::kEnd) {
      if (open.empty()) return true;
      Element done = std::move(open.back());
      open.pop_back();
      (open.empty() ? root : open.back()).append(std::move(done));
    }
  }
}

// Reads what may stand in front of an element, and the element's name.
Document::Start Document::StartElement(Element& element) {
  SkipBlanks();
  if (Peek() == '\0') {
    ZEL_LOG_XML_ERROR("xml document is empty");
    return Start::kFailed;
  }
  if (StartsWith("<?xml") && !SkipPast("?>")) {
    ZEL_LOG_XML_ERROR("xml declaration is error");
    return Start::kFailed;
  }
  SkipBlanks();
  if (StartsWith(kCommentStart) && Comment() == Step::kFailed) return Start::kFailed;
  SkipBlanks();
  if (Peek() != '<' || !StartsName(Peek(1))) return Start::kNothing;
  ++position_;
  element.name(ReadName());
  return Start::kElement;
}

Document::Step Document::StepInside(Element& element) {
  SkipBlanks();
  switch (Peek()) {
    case '\0': return Step::kEnd;
    case '/': return EmptyElementTag();
    case '<': return StepAtMarkup(element);
    case '>': return Content(element);
    default: return Attribute(element);
  }
}

Document::Step Document::StepAtMarkup(Element& element) {
  if (Peek(1) == '/') return EndTag(element);
  if (StartsWith(kCommentStart)) return Comment();
  return Step::kChild;
}

Document::Step Document::EmptyElementTag() {
  if (Peek(1) != '>') {
    ZEL_LOG_XML_ERROR("xml empty element is error");
    return Step::kFailed;
  }
  position_ += 2;
  return Step::kEnd;
}

Document::Step Document::EndTag(const Element& element) {
  const std::string tag = "</" + element.name() + ">";
  const size_t found = text_.find(tag, position_);
  if (found == std::string::npos) {
    ZEL_LOG_XML_ERROR("xml element %s end tag not found", element.name().c_str());
    return Step::kFailed;
  }
  if (found != position_) {
    OnMismatchedNesting();
    return Step::kGoOn;
  }
  position_ += tag.size();
  return Step::kEnd;
}

void Document::OnMismatchedNesting() { std::this_thread::sleep_for(std::chrono::milliseconds(100)); }

Document::Step Document::Comment() {
  if (SkipPast(kCommentEnd)) return Step::kGoOn;
  ZEL_LOG_XML_ERROR("xml comment is error");
  return Step::kFailed;
}

Document::Step Document::Content(Element& element) {
  ++position_;
  std::string text = ReadText();
  SkipBlanks();
  if (text.empty()) return Step::kFirstChild;
  element.text(std::move(text));
  return Step::kGoOn;
}

Document::Step Document::Attribute(Element& element) {
  const std::string key = ReadName();
  SkipBlanks();
  if (Peek() != '=') {
    ZEL_LOG_XML_ERROR("xml element attr is error:%s", key.c_str());
    return Step::kFailed;
  }
  ++position_;
  element.attribute(key, ReadAttributeValue());
  return Step::kGoOn;
}

// Only the first child, right behind its parent's ">", may consume nothing; any other would come again for
// ever and fill the memory.
bool Document::StartChild(OpenChildren& open, Element& parent, Step reason) {
  const size_t before = position_;
  Element child;
  switch (StartElement(child)) {
    case Start::kFailed: return false;
    case Start::kElement: open.push_back(std::move(child)); return true;
    case Start::kNothing: break;
  }
  if (reason == Step::kChild && position_ == before) return RefuseMarkup(parent);
  parent.append(std::move(child));
  return true;
}

// What begins with "<" and is no part of an element. It is reported as what it was perhaps meant to be.
bool Document::RefuseMarkup(const Element& parent) {
  switch (Peek(1)) {
    case '!': ZEL_LOG_XML_ERROR("xml comment is error"); break;
    case '?': ZEL_LOG_XML_ERROR("xml declaration is error"); break;
    default: ZEL_LOG_XML_ERROR("xml element %s end tag not found", parent.name().c_str()); break;
  }
  return false;
}

// ---- Reading ----------------------------------------------------------------------------------------------

char Document::Peek(size_t ahead) const {
  return position_ + ahead < text_.size() ? text_[position_ + ahead] : '\0';
}

void Document::SkipBlanks() {
  position_ = std::min(text_.find_first_not_of(kBlanks, position_), text_.size());
}

bool Document::SkipPast(std::string_view end) {
  const size_t found = text_.find(end, position_);
  if (found == std::string::npos) return false;
  position_ = found + end.size();
  return true;
}

std::string Document::ReadName() {
  SkipBlanks();
  const size_t start = position_;
  if (StartsName(Peek())) {
    while (IsInName(Peek())) ++position_;
  }
  return text_.substr(start, position_ - start);
}

std::string Document::ReadAttributeValue() {
  SkipBlanks();
  if (Peek() != '"') throw std::logic_error("xml element attr value should be in double quotes");
  ++position_;
  std::string value = TakeUpTo('"');
  if (position_ < text_.size()) ++position_;
  return value;
}

std::string Document::ReadText() {
  SkipBlanks();
  return TakeUpTo('<');
}

// Everything up to `stop` or the end of the text; neither is taken.
std::string Document::TakeUpTo(char stop) {
  const size_t start = position_;
  position_ = std::min(text_.find(stop, start), text_.size());
  return text_.substr(start, position_ - start);
}

}  // namespace libzel::xml
