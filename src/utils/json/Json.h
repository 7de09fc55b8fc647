// A JSON value. It owns all that it holds and is used by one thread at a time.
//
// The value has one field for every kind of payload, and its type says which one is meaningful. A null value
// becomes an object or an array when it is first used as one. Misuse throws std::logic_error with a fixed
// message, quoted at each operation. Nesting is limited by memory alone: nothing here recurses.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace libzel {

enum class JsonType : uint32_t {
  kNull = 0,
  kBool = 1,
  kInt = 2,
  kDouble = 3,
  kString = 4,
  kArray = 5,
  kObject = 6,
};

class Json {
 public:
  Json() noexcept;
  // An empty value of the type: an empty array, an empty object, 0 and so on.
  explicit Json(JsonType type);
  Json(bool value);
  Json(int32_t value);
  Json(double value);
  Json(std::string value);
  // A literal would quietly become a boolean.
  Json(const char*) = delete;

  Json(const Json& other);
  // Leaves `other` null.
  Json(Json&& other) noexcept;
  ~Json();

  // A value assigned to itself keeps its type and loses its payload. Deliberate. A part of the value may be
  // assigned to the whole: it is taken out first.
  Json& operator=(const Json& other);
  Json& operator=(Json&& other) noexcept;

  // The member under the key, inserted as null when it is absent. A null value becomes an object.
  // "function Json::operator [const string &] requires object value"
  Json& operator[](const char* key);
  Json& operator[](const std::string& key);

  // The element at the index; nulls are appended until it exists. A null value becomes an array.
  // "function Json::operator [int] requires array value", then "function Json::operator [int] index less 0"
  Json& operator[](int32_t index);

  // Adds a copy at the end and gives this value. A null value becomes an array.
  // "function Json::append requires array value"
  Json& append(const Json& value);

  // The member under the key, or a null value that lives for ever. Null values are refused like every other
  // kind. "function Json::get [const string &] requires object value"
  const Json& get(const char* key) const;

  // "function Json::operator (string) requires string value"
  operator std::string() const;

  // False for every kind but an object that holds the key.
  bool has(const char* key) const;
  bool isNull() const { return type_ == JsonType::kNull; }
  bool isObject() const { return type_ == JsonType::kObject; }
  // Elements of an array, members of an object, 0 for every other kind.
  int32_t size() const;

  // The fields as they are, meaningful or not.
  JsonType type() const { return type_; }
  bool boolean() const { return boolean_; }
  int32_t integer() const { return integer_; }
  double number() const { return number_; }
  const std::string& string() const { return string_; }

 private:
  friend class JsonParser;

  // The payloads of arrays and objects. They stand apart to keep scalars, by far the most, small.
  struct Children;
  struct CopyStep;

  void Become(JsonType type, const char* fault);
  void ClearPayload();
  void CopyFrom(const Json& source);
  void CopyLevel(const Json& source, std::vector<CopyStep>& pending);
  Children& OwnChildren();

  JsonType type_ = JsonType::kNull;
  bool boolean_ = false;
  int32_t integer_ = 0;
  double number_ = 0;
  std::string string_;
  std::unique_ptr<Children> children_;  // none while the value has had no child
};

}  // namespace libzel
