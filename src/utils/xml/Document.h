// Reads a small subset of XML: elements, attributes in double quotes, text, comments and one declaration. No
// entities, no CDATA, no document types. Used by one thread, once: load, then parse.
//
// Open elements stand on a stack of the parser's own, so the depth of a text is limited by memory alone.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "utils/xml/Element.h"

namespace libzel::xml {

class Document {
 public:
  Document() = default;
  virtual ~Document() = default;

  // Reads the whole file and goes back to its start; false only when the file cannot be opened.
  bool loadFile(const std::string& path);
  // The same for a text that is already there.
  void load(std::string text);

  // Parses one element into `root`, which should be fresh, and leaves the position behind it. A syntax error
  // is logged and gives false, with whatever was built before it left in `root`; an attribute value without
  // double quotes throws std::logic_error. What follows the element is not looked at.
  //
  // Kept as they are: an element left open at the end of the text is accepted; an element with nothing
  // between its tags gets one nameless child; of several texts the last one stays; a text that starts with
  // something other than an element ("<!DOCTYPE", a second comment) succeeds without a root. Inside an element,
  // whose child it would become again and again without end, such a thing is a syntax error. An element whose end
  // tag stands behind another end tag makes the parse run for ever.
  bool parse(Element& root);

  size_t position() const { return position_; }

 protected:
  // Called over and over when the expected end tag stands behind another one; it takes its time. The parse
  // ends only if this throws.
  virtual void OnMismatchedNesting();

 private:
  enum class Start { kFailed, kNothing, kElement };
  enum class Step { kFailed, kGoOn, kChild, kFirstChild, kEnd };
  using OpenChildren = std::vector<Element>;

  Start StartElement(Element& element);
  Step StepInside(Element& element);
  Step StepAtMarkup(Element& element);
  Step EmptyElementTag();
  Step EndTag(const Element& element);
  Step Comment();
  Step Content(Element& element);
  Step Attribute(Element& element);
  bool StartChild(OpenChildren& open, Element& parent, Step reason);
  bool RefuseMarkup(const Element& parent);

  // The character at the position plus `ahead`, NUL behind the end of the text.
  char Peek(size_t ahead = 0) const;
  bool StartsWith(std::string_view what) const { return text_.compare(position_, what.size(), what) == 0; }
  void SkipBlanks();
  // Moves behind the next `end`; false when there is none.
  bool SkipPast(std::string_view end);
  std::string ReadName();
  std::string ReadAttributeValue();
  std::string ReadText();
  std::string TakeUpTo(char stop);

  std::string text_;
  size_t position_ = 0;
};

}  // namespace libzel::xml
