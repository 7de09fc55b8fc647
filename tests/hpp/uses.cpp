// What a program may write, for every compiler and every C++ that the header is for.
#include <filesystem>
#include <iostream>
#include <libzel/libzel.hpp>
#include <unordered_map>

namespace {

using zel::Milliseconds;

void Ask(zel::Connection& connection) {
  const zel::Answer answer = connection.Request(600, {1, 2}, "what", Milliseconds(10));
  std::cout << answer << answer.value_or(std::vector<uint8_t>()).size() << answer.Reason();
  const auto asked =
      connection.RequestAsync(600, {}, std::string("what"), Milliseconds(10), [](const zel::Answer&) {});
  (void)connection.Cancel(*asked);
  zel::PendingAnswer pending = connection.RequestAsync(600, {}, {}, Milliseconds(10));
  (void)connection.Cancel(pending.Ticket());
  std::future<zel::Answer> plain = connection.RequestAsync(600, {}, {}, Milliseconds(10));
  if (plain.get().ErrorCode() == std::errc::timed_out) connection.StopLoop();
}

void Publish(zel::Connection& connection) {
  const uint8_t bytes[] = {1, 2, 3};
  connection.Publish(std::string_view("a/b"), bytes, {3, 4}).Ignore();
  connection.PublishWithin("a/b", std::vector<uint8_t>(3), Milliseconds(10)).Ignore();
  connection.PublishMany({{"a", "1", {}}, {"b", bytes, {1, 2}}}, std::chrono::seconds(1)).Ignore();
  if (const zel::LinkResult flushed = connection.Flush(Milliseconds(10)); !flushed)
    std::cout << flushed << flushed.Reason();
  connection.Subscribe("a", [](const zel::TopicMessage& message) { std::cout << message.data.AsText(); })
      .Ignore();
  std::cout << connection.IsUp() << connection.Stats()->framesOut;
}

void Send(const zel::DeviceId& device) {
  zel::SendFile(device, 700, "local", "remote").Cancel();
  zel::SendFile(device, 700, std::filesystem::path("local"), "remote").Wait().Ignore();
  (void)zel::SendFile(device, 700, std::string("local"), "remote", [](const zel::FileProgress& step) {
    return step.progress < 1;
  }).Wait(Milliseconds(10));
}

}  // namespace

int main() {
  using namespace std::chrono_literals;
  static_assert(zel::DeviceId::Parse("1.2.3.4.5.6").has_value());
  zel::Library library(
      zel::Options().Set(zel::TimeOption::kWriteStall, 2s).Set(zel::Option::kFileWorkers, 8).Log(nullptr));
  const zel::DeviceId device = zel::DeviceId::Parse("1.2.3.4.5.6").value_or(zel::DeviceId());
  std::unordered_map<zel::DeviceId, int>{{device, 1}}.clear();
  library.OnDevice([](const zel::Device& found) { std::cout << found.idText; });
  library.StartScan().Ignore();
  library.StopScan();
  library.ForgetRoute(device);
  auto connection = zel::Connection::Create(device, {Milliseconds(100), nullptr});
  if (!connection) return 1;
  Ask(*connection);
  Publish(*connection);
  Send(device);
  return 0;
}
