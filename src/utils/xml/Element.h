// One element of a parsed XML text: a value that owns its subtree. Copying copies the whole subtree. Used by
// one thread at a time. Trees of any depth are copied and destroyed without recursion.
#pragma once

#include <map>
#include <string>
#include <utility>
#include <vector>

namespace libzel::xml {

class Element {
 public:
  using Attributes = std::map<std::string, std::string>;

  Element() = default;
  Element(const Element& other);
  Element(Element&& other) noexcept = default;
  Element& operator=(const Element& other);
  Element& operator=(Element&& other) noexcept;
  ~Element();

  const std::string& name() const { return name_; }
  void name(std::string name) { name_ = std::move(name); }
  const std::string& text() const { return text_; }
  void text(std::string text) { text_ = std::move(text); }

  // The attribute's value. A missing attribute is inserted with the empty value first.
  const std::string& attribute(const std::string& key) { return attributes_[key]; }
  // Sets the attribute; the empty value removes it.
  void attribute(const std::string& key, const std::string& value);
  const Attributes& attributes() const { return attributes_; }

  void append(const Element& child) { children_.push_back(child); }
  void append(Element&& child) { children_.push_back(std::move(child)); }
  // In document order.
  const std::vector<Element>& children() const { return children_; }
  std::vector<Element>& children() { return children_; }

 private:
  struct CopyStep;

  void CopyLevel(const Element& source, std::vector<CopyStep>& pending);
  void MoveGrandchildrenTo(std::vector<Element>& pending);

  std::string name_;
  std::string text_;
  std::vector<Element> children_;
  Attributes attributes_;
};

}  // namespace libzel::xml
