// The readers on the way of discovery: one device's answer, from the JSON text to the callback, and
// identifiers.
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <nlohmann/json.hpp>
#include <string>

#include "utils/json/JsonParser.h"
#include "zelclient/ZelScanClient.h"
#include "zelcomm/DeviceId.h"

namespace {

std::string AnswerText() {
  std::string text =
      R"({"device":{"zelDeviceId":"192.168.100.120.0.17","zelVersion":"1.4.2-release","rteVersion":"3.11.0.7",)"
      R"("serialNo":"SN-2024-0711-000417","vorlinVersion":"Vorlin 5.15.0-rt17 #3 SMP PREEMPT_RT x86_64",)"
      R"("hostName":"press-line-4-controller","sn":"4711-07"},"frames":[)";
  for (int frame = 0; frame < 4; ++frame) {
    if (frame != 0) text += ',';
    text += R"({"frameIp":"192.168.100.12)" + std::to_string(frame) +
            R"(","frameMacAddr":"02-00-5E-00-53-0)" + std::to_string(frame) + R"("})";
  }
  return text + "]}";
}

void ParseAnswer(benchmark::State& state) {
  const std::string text = AnswerText();
  libzel::JsonParser parser;
  for (auto _ : state) {
    libzel::Json root;
    parser.load(text);
    parser.parse(root);
    if (!root.isObject()) std::abort();
    benchmark::DoNotOptimize(root);
  }
  state.counters["bytes"] = static_cast<double>(text.size());
}
BENCHMARK(ParseAnswer);

// The same with a well-known parser, to measure the machine by.
void ParseAnswerElsewhere(benchmark::State& state) {
  const std::string text = AnswerText();
  for (auto _ : state) {
    const nlohmann::json root = nlohmann::json::parse(text);
    if (!root.is_object()) std::abort();
    benchmark::DoNotOptimize(root);
  }
}
BENCHMARK(ParseAnswerElsewhere);

// What an answer costs behind its receive: document, record, router table, callback.
void HandleAnswer(benchmark::State& state) {
  const std::string text = AnswerText();
  static uint64_t found;
  libzel::CZelScanClient client;
  client.registerScanEvent([](ZelScanResult, void*) { ++found; }, nullptr);
  client.startScan();
  for (auto _ : state)
    client.notify(reinterpret_cast<const uint8_t*>(text.data()), text.size(), "192.168.100.123");
  if (found == 0) std::abort();
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(HandleAnswer);

void ParseIdentifier(benchmark::State& state) {
  const std::string text = "192.168.100.120.0.17";
  for (auto _ : state) benchmark::DoNotOptimize(libzel::ParseDeviceId(text));
}
BENCHMARK(ParseIdentifier);

void PrintIdentifier(benchmark::State& state) {
  const ZelDeviceId id{{192, 168, 100, 120, 0, 17}};
  for (auto _ : state) benchmark::DoNotOptimize(libzel::DeviceIdText(id));
}
BENCHMARK(PrintIdentifier);

}  // namespace

BENCHMARK_MAIN();
