// Which connections have subscribed to which topic.
#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace zelsim {

class Connection;

// Holds plain pointers: whoever removes a connection calls Forget() first.
class TopicTable {
 public:
  // False when the connection has the topic already.
  bool Subscribe(std::string_view topic, Connection& connection);
  // False when the connection does not have the topic.
  bool Unsubscribe(std::string_view topic, Connection& connection);
  void Forget(Connection& connection);
  // In order of subscription.
  const std::vector<Connection*>& Subscribers(std::string_view topic) const;

 private:
  std::map<std::string, std::vector<Connection*>, std::less<>> topics_;
};

}  // namespace zelsim
