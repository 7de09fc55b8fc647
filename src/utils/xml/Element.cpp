#include "utils/xml/Element.h"

namespace libzel::xml {

// A child that still has to receive its source's content.
struct Element::CopyStep {
  Element* target;
  const Element* source;
};

Element::Element(const Element& other) {
  std::vector<CopyStep> pending;
  CopyLevel(other, pending);
  while (!pending.empty()) {
    const CopyStep step = pending.back();
    pending.pop_back();
    step.target->CopyLevel(*step.source, pending);
  }
}

void Element::CopyLevel(const Element& source, std::vector<CopyStep>& pending) {
  name_ = source.name_;
  text_ = source.text_;
  attributes_ = source.attributes_;
  children_.resize(source.children_.size());
  for (size_t i = 0; i < children_.size(); ++i) pending.push_back({&children_[i], &source.children_[i]});
}

Element& Element::operator=(const Element& other) { return *this = Element(other); }

// `other` may be a part of this element.
Element& Element::operator=(Element&& other) noexcept {
  Element taken(std::move(other));
  name_.swap(taken.name_);
  text_.swap(taken.text_);
  children_.swap(taken.children_);
  attributes_.swap(taken.attributes_);
  return *this;
}

// Left to itself the vector would destroy a deep tree by recursion, one stack frame per level.
Element::~Element() {
  std::vector<Element> pending;
  MoveGrandchildrenTo(pending);
  while (!pending.empty()) {
    Element next = std::move(pending.back());
    pending.pop_back();
    next.MoveGrandchildrenTo(pending);
  }
}

// Takes out every child that has children of its own.
void Element::MoveGrandchildrenTo(std::vector<Element>& pending) {
  for (Element& child : children_) {
    if (!child.children_.empty()) pending.push_back(std::move(child));
  }
}

void Element::attribute(const std::string& key, const std::string& value) {
  if (value.empty()) {
    attributes_.erase(key);
  } else {
    attributes_[key] = value;
  }
}

}  // namespace libzel::xml
