#include "Streams.h"

#include <array>
#include <memory>

#include "Subjects.h"

namespace zelgate {
namespace {

constexpr int64_t kDuplicatesNs = 60'000'000'000;
constexpr int64_t kBucketBytes = int64_t{256} << 20;
constexpr int kProfileHistory = 10;

using StreamInfo = std::unique_ptr<jsStreamInfo, NatsDeleter<jsStreamInfo_Destroy>>;

// JetStream's own refusals that somebody can do something about.
std::string CureOf(jsErrCode code) {
  switch (static_cast<int>(code)) {
    case 10047: return "lower stream.max_bytes of the configuration, or raise max_file_store of the server";
    case 10074:
    case 10005: return "lower stream.replicas of the configuration, or start as many servers in a cluster";
    case 10065: return "take the subjects out of the other stream, or delete it";
    case 10039: return "write \"jetstream: enabled\" into the account of this user";
    default: return "";
  }
}

NatsResult Outcome(natsStatus code, const std::string& what, jsErrCode jetStreamCode) {
  NatsResult result = MakeNatsResult(code, what, jetStreamCode);
  const std::string cure = CureOf(jetStreamCode);
  if (!result && !cure.empty()) result.why = result.why.substr(0, result.why.rfind("; ")) + "; " + cure;
  return result;
}

// Empty, with NATS_NOT_FOUND, when there is none.
NatsResult Read(Nats& nats, const std::string& stream, StreamInfo& info) {
  jsStreamInfo* raw = nullptr;
  jsErrCode jetStreamCode{};
  const natsStatus code = js_GetStreamInfo(&raw, nats.JetStream(), stream.c_str(), nullptr, &jetStreamCode);
  info.reset(raw);
  return Outcome(code, "cannot look at the stream " + stream + " at " + nats.Where(), jetStreamCode);
}

NatsResult Add(Nats& nats, jsStreamConfig& config) {
  jsErrCode jetStreamCode{};
  const natsStatus code = js_AddStream(nullptr, nats.JetStream(), &config, nullptr, &jetStreamCode);
  return Outcome(code, std::string("cannot make the stream ") + config.Name + " at " + nats.Where(),
                 jetStreamCode);
}

NatsResult Update(Nats& nats, jsStreamConfig& config) {
  jsErrCode jetStreamCode{};
  const natsStatus code = js_UpdateStream(nullptr, nats.JetStream(), &config, nullptr, &jetStreamCode);
  return Outcome(code, std::string("cannot change the stream ") + config.Name + " at " + nats.Where(),
                 jetStreamCode);
}

// What a fresh stream of events begins with.
jsStreamConfig EventConfig(const char* name, const StreamConfig& wanted) {
  jsStreamConfig config;
  (void)jsStreamConfig_Init(&config);  // only a null fails
  config.Name = name;
  config.Storage = js_FileStorage;
  config.Discard = js_DiscardNew;
  config.MaxBytes = wanted.maxBytes;
  config.Replicas = wanted.replicas;
  config.Duplicates = kDuplicatesNs;
  return config;
}

NatsResult Refusal(const std::string& why) { return {NATS_INVALID_ARG, {}, why}; }

// A server without a cluster takes any number of replicas for a stream that is there, and keeps one.
NatsResult CheckReplicas(Nats& nats, const jsStreamInfo& info, int replicas) {
  if (replicas <= 1 || info.Cluster != nullptr) return {};
  return Refusal(
      "the stream " + std::string(info.Config->Name) + " cannot have " + std::to_string(replicas) +
      " replicas: the server at " + nats.Where() +
      " is in no cluster; lower stream.replicas of the configuration, or start as many servers in a cluster");
}

NatsResult Adjust(Nats& nats, const jsStreamInfo& info, const std::string& subject,
                  const StreamConfig& wanted) {
  jsStreamConfig& present = *info.Config;
  if (present.SubjectsLen != 1 || present.Subjects[0] != subject) {
    return Refusal(std::string("the stream ") + present.Name + " at " + nats.Where() +
                   " does not take the subjects " + subject +
                   " and no others, so it is none of zelgate's; rename it, or delete it");
  }
  if (present.MaxBytes == wanted.maxBytes && present.Replicas == wanted.replicas) return {};
  NatsResult possible = CheckReplicas(nats, info, wanted.replicas);
  if (!possible) return possible;
  present.MaxBytes = wanted.maxBytes;
  present.Replicas = wanted.replicas;
  return Update(nats, present);
}

NatsResult MakeEventStream(Nats& nats, const Config& config) {
  const std::string name = EventStreamName(config.site);
  const std::string subject = Subjects(config.site).AllEvents();
  StreamInfo info;
  NatsResult found = Read(nats, name, info);
  if (found) return Adjust(nats, *info, subject, config.stream);
  if (found.code != NATS_NOT_FOUND) return found;
  jsStreamConfig fresh = EventConfig(name.c_str(), config.stream);
  std::array<const char*, 1> subjects = {subject.c_str()};
  fresh.Subjects = subjects.data();
  fresh.SubjectsLen = 1;
  return Add(nats, fresh);
}

NatsResult MakeBucket(Nats& nats, const std::string& bucket, int history, const StreamConfig& wanted) {
  StreamInfo info;
  NatsResult found = Read(nats, "KV_" + bucket, info);
  if (found) {
    NatsResult possible = CheckReplicas(nats, *info, wanted.replicas);
    if (!possible || info->Config->Replicas == wanted.replicas) return possible;
    info->Config->Replicas = wanted.replicas;
    return Update(nats, *info->Config);
  }
  if (found.code != NATS_NOT_FOUND) return found;
  kvConfig config;
  (void)kvConfig_Init(&config);  // only a null fails
  config.Bucket = bucket.c_str();
  config.History = static_cast<uint8_t>(history);
  config.MaxBytes = kBucketBytes;
  config.Replicas = wanted.replicas;
  kvStore* store = nullptr;
  const natsStatus code = js_CreateKeyValue(&store, nats.JetStream(), &config);
  kvStore_Destroy(store);
  return Outcome(code, "cannot make the bucket " + bucket + " at " + nats.Where(), {});
}

// What one site gives to the hub's stream. The texts live in it, and it must not be moved.
class SiteSource {
 public:
  explicit SiteSource(const std::string& site)
      : name_(EventStreamName(site)),
        filter_("zel." + site + ".>"),
        interface_("$JS." + site + ".API"),
        delivery_("zel.sourced." + site) {
    (void)jsStreamSource_Init(&source_);
    (void)jsExternalStream_Init(&external_);
    external_.APIPrefix = interface_.c_str();
    // Without it libnats 3.4.1 ends the process.
    external_.DeliverPrefix = delivery_.c_str();
    source_.Name = name_.c_str();
    source_.FilterSubject = filter_.c_str();
    source_.External = &external_;
  }
  SiteSource(const SiteSource&) = delete;
  SiteSource& operator=(const SiteSource&) = delete;

  jsStreamSource* Raw() { return &source_; }

 private:
  std::string name_, filter_, interface_, delivery_;
  jsExternalStream external_{};
  jsStreamSource source_{};
};

}  // namespace

std::string EventStreamName(const std::string& site) { return "ZEL_EV_" + site; }

std::string NearlyFullText(const std::string& stream, const StreamUse& use) {
  return "the stream " + stream + " is full to " + std::to_string(use.bytes * 100 / use.maxBytes) + " % (" +
         std::to_string(use.bytes) + " of " + std::to_string(use.maxBytes) +
         " bytes); a full one takes no event: raise stream.max_bytes of the configuration, or purge what is "
         "not needed any more";
}

NatsResult MakeSiteStreams(Nats& nats, const Config& config) {
  NatsResult result = MakeEventStream(nats, config);
  if (result) result = MakeBucket(nats, kLeaseBucket, 1, config.stream);
  if (result) result = MakeBucket(nats, kDeviceBucket, 1, config.stream);
  if (result) result = MakeBucket(nats, kProfileBucket, kProfileHistory, config.stream);
  return result;
}

NatsResult MakeHubStream(Nats& nats, const std::vector<std::string>& sites, const StreamConfig& config) {
  std::vector<std::unique_ptr<SiteSource>> sources;
  std::vector<jsStreamSource*> list;
  for (const std::string& site : sites) {
    sources.push_back(std::make_unique<SiteSource>(site));
    list.push_back(sources.back()->Raw());
  }
  jsStreamConfig wanted = EventConfig(kHubStream, config);
  wanted.Sources = list.data();
  wanted.SourcesLen = static_cast<int>(list.size());
  StreamInfo info;
  NatsResult found = Read(nats, kHubStream, info);
  if (found) return Update(nats, wanted);
  return found.code == NATS_NOT_FOUND ? Add(nats, wanted) : found;
}

NatsResult ReadStreamUse(Nats& nats, const std::string& stream, StreamUse& use) {
  StreamInfo info;
  NatsResult found = Read(nats, stream, info);
  if (!found) return found;
  use.messages = info->State.Msgs;
  use.bytes = info->State.Bytes;
  use.maxBytes = info->Config->MaxBytes > 0 ? static_cast<uint64_t>(info->Config->MaxBytes) : 0;
  return {};
}

}  // namespace zelgate
