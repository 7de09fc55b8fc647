// What must not compile: each line that says so, and no other.
#include <libzel/libzel.hpp>

void Call(zel::Connection& connection) {
  constexpr zel::Milliseconds kTime(10);
  char text[4] = {0, 1, 2, 3};
  const wchar_t* const wide = L"abc";
  const std::vector<uint32_t> words(4);

  connection.Publish("t", std::string_view(text)).Ignore();
  connection.Publish("t", {text, 4}).Ignore();
  connection.Publish("t", {"text", 4}).Ignore();
  connection.Request(600, {}, {}, kTime).Ignore();

  connection.Publish("t", text).Ignore();          // refused
  connection.Publish("t", 0).Ignore();             // refused
  connection.Publish("t", nullptr).Ignore();       // refused
  connection.Publish("t", {nullptr, 5}).Ignore();  // refused
  connection.Publish("t", {0, 5}).Ignore();        // refused
  connection.Publish("t", wide).Ignore();          // refused
  connection.Publish("t", L"abc").Ignore();        // refused
  connection.Publish("t", words).Ignore();         // refused
  connection.Publish("t", 'x').Ignore();           // refused
  (void)zel::Bytes(0);                             // refused

  connection.Request(600, {}, "x", 10).Ignore();                             // refused
  connection.Request(600, {}, "x", std::chrono::microseconds(10)).Ignore();  // refused
  connection.Request(600, {}, "x", kTime, 65536).Ignore();                   // refused
  connection.Request(600, {}, "x", kTime);                                   // refused
  const zel::Connection copy = connection;                                   // refused
}
