#include "TopicTable.h"

#include <algorithm>

namespace zelsim {

bool TopicTable::Subscribe(std::string_view topic, Connection& connection) {
  auto found = topics_.find(topic);
  if (found == topics_.end()) found = topics_.emplace(std::string(topic), std::vector<Connection*>()).first;
  auto& subscribers = found->second;
  if (std::find(subscribers.begin(), subscribers.end(), &connection) != subscribers.end()) return false;
  subscribers.push_back(&connection);
  return true;
}

bool TopicTable::Unsubscribe(std::string_view topic, Connection& connection) {
  const auto found = topics_.find(topic);
  if (found == topics_.end() || std::erase(found->second, &connection) == 0) return false;
  if (found->second.empty()) topics_.erase(found);
  return true;
}

void TopicTable::Forget(Connection& connection) {
  for (auto& [topic, subscribers] : topics_) std::erase(subscribers, &connection);
  std::erase_if(topics_, [](const auto& entry) { return entry.second.empty(); });
}

const std::vector<Connection*>& TopicTable::Subscribers(std::string_view topic) const {
  static const std::vector<Connection*> kNobody;
  const auto found = topics_.find(topic);
  return found == topics_.end() ? kNobody : found->second;
}

}  // namespace zelsim
