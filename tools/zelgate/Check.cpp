// zelgate check
#include <chrono>
#include <cstdio>
#include <functional>
#include <memory>
#include <string>

#include "Commands.h"
#include "ConnectOnce.h"
#include "Journal.h"
#include "Nats.h"
#include "Streams.h"
#include "Subjects.h"

namespace zelgate {
namespace {

constexpr std::chrono::seconds kCheckPatience{5};
constexpr int64_t kCheckWaitMs = 3000;
constexpr int kStreamDoesNotMatch = 10060;  // JetStream's, for a message that expects another stream
constexpr const char* kExpectedStream = "Nats-Expected-Stream";
constexpr const char* kExpectedRevision = "Nats-Expected-Last-Subject-Sequence";
constexpr const char* kNoStream = "zelgate-check";
// A revision that no key ever has.
constexpr uint64_t kNoRevision = uint64_t{1} << 62;

// Looks at everything that zelgate needs, one line a finding, and changes nothing.
class Checker {
 public:
  explicit Checker(const Config& config) : config_(config), subjects_(config.site) {}

  int Run() {
    Ok("the configuration of the site " + config_.site);
    if (Connects()) {
      CheckJetStream();
      CheckStream();
      CheckSubscriptions();
      for (const char* const bucket : {kLeaseBucket, kDeviceBucket, kProfileBucket}) CheckBucket(bucket);
    }
    if (config_.find.seconds == 0 && config_.find.devices.empty()) {
      Note("find.seconds is 0 and there is no list find.device, so zelgate find finds nothing");
    }
    return failures_ == 0 ? kDone : kFailed;
  }

 private:
  static void Put(const char* what, const std::string& text) {
    (void)std::printf("%-6s  %s\n", what, text.c_str());  // the exit status says enough
  }
  static void Ok(const std::string& text) { Put("ok", text); }
  static void Note(const std::string& text) { Put("note", text); }
  void Failed(const std::string& text) {
    Put("FAILED", text);
    ++failures_;
  }

  bool Connects() {
    const NatsResult connected = ConnectOnce(nats_, config_, "check");
    if (connected) {
      Ok("a connection to " + nats_.Where() + (config_.nats.tlsCa.empty() ? ", without TLS" : ", with TLS"));
    } else {
      Failed(connected.why);
    }
    return connected.IsOk();
  }

  void CheckJetStream() {
    jsAccountInfo* raw = nullptr;
    jsErrCode jetStreamCode{};
    const natsStatus code = js_GetAccountInfo(&raw, nats_.JetStream(), nullptr, &jetStreamCode);
    const std::unique_ptr<jsAccountInfo, NatsDeleter<jsAccountInfo_Destroy>> info(raw);
    if (code != NATS_OK) {
      return Failed(
          MakeNatsResult(code, "no JetStream for this user at " + nats_.Where(), jetStreamCode).why);
    }
    Ok("JetStream, " + std::to_string(info->Streams) + " streams, " + std::to_string(info->Store) +
       " bytes on disk");
  }

  void CheckStream() {
    const std::string stream = EventStreamName(config_.site);
    StreamUse use;
    const NatsResult found = ReadStreamUse(nats_, stream, use);
    if (found.code == NATS_NOT_FOUND)
      return Note("no stream " + stream + " yet; zelgate run and zelgate find make it");
    if (!found) return Failed(found.why);
    Ok("the stream " + stream + ", " + std::to_string(use.messages) + " events");
    if (use.IsNearlyFull()) Note(NearlyFullText(stream, use));
    CheckPublication(stream);
  }

  // The event says that it is for another stream, so the server refuses it after all else is in order.
  void CheckPublication(const std::string& stream) {
    const std::string subject = subjects_.Link("0-0-0-0-0-0");
    if (IsProbeForbidden(subject, kExpectedStream, kNoStream))
      return Forbid("publish", subjects_.AllEvents());
    jsPubOptions options;
    (void)jsPubOptions_Init(&options);  // only a null fails
    options.MaxWait = kCheckWaitMs;
    options.ExpectStream = kNoStream;
    jsErrCode jetStreamCode{};
    const natsStatus code =
        js_Publish(nullptr, nats_.JetStream(), subject.c_str(), "", 0, &options, &jetStreamCode);
    if (static_cast<int>(jetStreamCode) == kStreamDoesNotMatch) return Ok("events are taken by " + stream);
    Failed(MakeNatsResult(code, "events are not taken by " + stream, jetStreamCode).why);
  }

  void CheckSubscriptions() {
    for (const char* const kind : {"ask", "pub"}) {
      const std::string subject = "zel." + config_.site + "." + kind + ".>";
      natsSubscription* raw = nullptr;
      const natsStatus code =
          natsConnection_QueueSubscribeSync(&raw, nats_.Raw(), subject.c_str(), "zelgate-check");
      const std::unique_ptr<natsSubscription, NatsDeleter<natsSubscription_Destroy>> owned(raw);
      const NatsResult flushed = nats_.Flush(kCheckPatience);
      if (code != NATS_OK || !flushed) {
        Failed(code != NATS_OK ? MakeNatsResult(code, "cannot subscribe to " + subject).why : flushed.why);
      } else if (IsForbidden(subject)) {
        Forbid("subscribe to", subject);
      } else {
        Ok("a subscription to " + subject);
      }
    }
  }

  void CheckBucket(const std::string& name) {
    KeyValue bucket;
    const NatsResult opened = bucket.Open(nats_, name);
    if (opened.code == NATS_NOT_FOUND)
      return Note("no bucket " + name + " yet; zelgate run and zelgate find make it");
    if (!opened) return Failed(opened.why);
    if (IsProbeForbidden("$KV." + name + ".check", kExpectedRevision, std::to_string(kNoRevision))) {
      return Forbid("publish", "$KV." + name + ".>");
    }
    uint64_t revision = 0;
    const NatsResult written = bucket.Update("check", "", kNoRevision, revision);
    if (IsConflict(written)) return Ok("the bucket " + name);
    Failed(written.why);
  }

  // Of a message that no stream takes because of its header.
  bool IsProbeForbidden(const std::string& subject, const char* header, const std::string& value) {
    NatsMessage probe(subject, "", "");
    probe.SetHeader(header, value);
    return nats_.Publish(probe) && nats_.Flush(kCheckPatience) && IsForbidden(subject);
  }

  // The server says so before it answers what comes behind.
  bool IsForbidden(const std::string& subject) {
    const char* text = nullptr;
    (void)natsConnection_GetLastError(nats_.Raw(), &text);
    if (text == nullptr) return false;
    const std::string said = text;
    return said.find("ermissions") != std::string::npos &&
           said.find("\"" + subject + "\"") != std::string::npos;
  }
  void Forbid(const std::string& verb, const std::string& subject) {
    Failed("this user may not " + verb + " " + subject + " at " + nats_.Where() +
           "; give it the permission in the server's configuration");
  }

  const Config& config_;
  Subjects subjects_;
  Nats nats_;
  int failures_ = 0;
};

constexpr const char* kCheckHelp = R"(Example:
  zelgate check --config /etc/zelgate/zelgate.toml

Reads the configuration, connects, and tries every permission that zelgate needs, without
changing anything: one line for each, ok, note or FAILED with what to do. Exit status 0
when nothing failed. zel doctor looks at the way to the devices.)";

}  // namespace

void AddCheck(CLI::App& app, Task& task) {
  CLI::App* command = app.add_subcommand("check", "Check configuration, server and permissions");
  command->footer(kCheckHelp);
  command->callback(
      [&task] { task.run = [](const Config& config) { return std::make_unique<Checker>(config)->Run(); }; });
}

}  // namespace zelgate
