// As program.c, by the C++ header.
#include <iostream>
#include <libzel/libzel.hpp>

int main() {
  const std::string question = "hello from C++";
  zel::Library library;
  auto connection = zel::Connection::Create(*zel::DeviceId::Parse("127.0.0.1.0.1"));
  if (!connection) return 1;
  const auto answer = connection->Request(600, {1, 2}, question, std::chrono::seconds(2));
  std::cerr << "libzel answers: " << zel::Bytes(*answer).AsText() << " (" << answer.Text() << ")\n";
  return answer && zel::Bytes(*answer).AsText() == question ? 0 : 1;
}
