// What arrays and objects hold; for the JSON value and its parser only.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "utils/json/Json.h"

namespace libzel {

struct Json::Children {
  Children() = default;
  Children(const Children&) = delete;
  Children& operator=(const Children&) = delete;
  // Destroys a tree of any depth without recursion.
  ~Children();

  void CopyLevel(const Children& source, JsonType type, std::vector<CopyStep>& pending);
  void MoveGrandchildrenTo(std::vector<std::unique_ptr<Children>>& pending);

  std::vector<Json> array;
  std::map<std::string, Json, std::less<>> object;
};

}  // namespace libzel
