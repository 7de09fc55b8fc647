#include "utils/json/Json.h"

#include <stdexcept>
#include <utility>

#include "utils/Forever.h"
#include "utils/json/JsonChildren.h"

namespace libzel {

// A child that still has to receive its source's content.
struct Json::CopyStep {
  Json* target;
  const Json* source;
};

Json::Json() noexcept = default;
Json::Json(JsonType type) : type_(type) {}
Json::Json(bool value) : type_(JsonType::kBool), boolean_(value) {}
Json::Json(int32_t value) : type_(JsonType::kInt), integer_(value) {}
Json::Json(double value) : type_(JsonType::kDouble), number_(value) {}
Json::Json(std::string value) : type_(JsonType::kString), string_(std::move(value)) {}

Json::Json(const Json& other) { CopyFrom(other); }

Json::Json(Json&& other) noexcept
    : type_(std::exchange(other.type_, JsonType::kNull)),
      boolean_(std::exchange(other.boolean_, false)),
      integer_(std::exchange(other.integer_, 0)),
      number_(std::exchange(other.number_, 0)),
      string_(std::move(other.string_)),
      children_(std::move(other.children_)) {
  other.string_.clear();
}

Json::~Json() = default;

Json& Json::operator=(const Json& other) {
  if (this == &other) {
    ClearPayload();
    return *this;
  }
  return *this = Json(other);
}

Json& Json::operator=(Json&& other) noexcept {
  if (this == &other) {
    ClearPayload();
    return *this;
  }
  Json taken(std::move(other));
  ClearPayload();
  type_ = taken.type_;
  boolean_ = taken.boolean_;
  integer_ = taken.integer_;
  number_ = taken.number_;
  string_.swap(taken.string_);
  children_.swap(taken.children_);
  return *this;
}

void Json::ClearPayload() {
  boolean_ = false;
  integer_ = 0;
  number_ = 0;
  string_.clear();
  children_.reset();
}

Json::Children& Json::OwnChildren() {
  if (children_ == nullptr) children_ = std::make_unique<Children>();
  return *children_;
}

// A null value turns into the type that an operation wants; any other must have it.
void Json::Become(JsonType type, const char* fault) {
  if (type_ == JsonType::kNull) type_ = type;
  if (type_ != type) throw std::logic_error(fault);
}

Json& Json::operator[](const char* key) { return (*this)[std::string(key)]; }

Json& Json::operator[](const std::string& key) {
  Become(JsonType::kObject, "function Json::operator [const string &] requires object value");
  return OwnChildren().object[key];
}

Json& Json::operator[](int32_t index) {
  Become(JsonType::kArray, "function Json::operator [int] requires array value");
  if (index < 0) throw std::logic_error("function Json::operator [int] index less 0");
  const auto at = static_cast<size_t>(index);
  auto& array = OwnChildren().array;
  if (at >= array.size()) array.resize(at + 1);
  return array[at];
}

Json& Json::append(const Json& value) {
  Become(JsonType::kArray, "function Json::append requires array value");
  OwnChildren().array.push_back(Json(value));
  return *this;
}

const Json& Json::get(const char* key) const {
  static Forever<const Json> null;
  if (!isObject()) throw std::logic_error("function Json::get [const string &] requires object value");
  if (children_ == nullptr) return *null;
  const auto found = children_->object.find(key);
  return found != children_->object.end() ? found->second : *null;
}

Json::operator std::string() const {
  if (type_ != JsonType::kString)
    throw std::logic_error("function Json::operator (string) requires string value");
  return string_;
}

bool Json::has(const char* key) const {
  return isObject() && children_ != nullptr && children_->object.contains(key);
}

int32_t Json::size() const {
  if (children_ == nullptr) return 0;
  if (type_ == JsonType::kArray) return static_cast<int32_t>(children_->array.size());
  return isObject() ? static_cast<int32_t>(children_->object.size()) : 0;
}

// ---- Copying and dropping a tree level by level -----------------------------------------------------------

void Json::CopyFrom(const Json& source) {
  std::vector<CopyStep> pending;
  CopyLevel(source, pending);
  while (!pending.empty()) {
    const CopyStep step = pending.back();
    pending.pop_back();
    step.target->CopyLevel(*step.source, pending);
  }
}

// Copies the payload that the type names; children are made empty and left to `pending`.
void Json::CopyLevel(const Json& source, std::vector<CopyStep>& pending) {
  type_ = source.type_;
  switch (type_) {
    case JsonType::kNull: break;
    case JsonType::kBool: boolean_ = source.boolean_; break;
    case JsonType::kInt: integer_ = source.integer_; break;
    case JsonType::kDouble: number_ = source.number_; break;
    case JsonType::kString: string_ = source.string_; break;
    case JsonType::kArray:
    case JsonType::kObject:
      if (source.children_ != nullptr) OwnChildren().CopyLevel(*source.children_, type_, pending);
      break;
  }
}

void Json::Children::CopyLevel(const Children& source, JsonType type, std::vector<CopyStep>& pending) {
  if (type == JsonType::kArray) {
    array.resize(source.array.size());
    for (size_t i = 0; i < array.size(); ++i) pending.push_back({&array[i], &source.array[i]});
    return;
  }
  for (const auto& [key, value] : source.object) {
    pending.push_back({&object.try_emplace(object.end(), key)->second, &value});
  }
}

// Left to themselves the containers would destroy a deep tree by recursion, one stack frame per level.
Json::Children::~Children() {
  std::vector<std::unique_ptr<Children>> pending;
  MoveGrandchildrenTo(pending);
  while (!pending.empty()) {
    const auto next = std::move(pending.back());
    pending.pop_back();
    next->MoveGrandchildrenTo(pending);
  }
}

// Takes out what every child has of its own.
void Json::Children::MoveGrandchildrenTo(std::vector<std::unique_ptr<Children>>& pending) {
  for (Json& element : array) {
    if (element.children_ != nullptr) pending.push_back(std::move(element.children_));
  }
  for (auto& [key, member] : object) {
    if (member.children_ != nullptr) pending.push_back(std::move(member.children_));
  }
}

}  // namespace libzel
