#include "Nats.h"

namespace zelgate {
namespace {

constexpr int kWrongLastSequenceCode = 10071;  // JetStream's, for a write by revision that came too late

KeyEntry TakeEntry(kvEntry* raw) {
  const std::unique_ptr<kvEntry, NatsDeleter<kvEntry_Destroy>> owned(raw);
  KeyEntry entry;
  entry.key = kvEntry_Key(raw);
  const auto* const value = static_cast<const char*>(kvEntry_Value(raw));
  if (value != nullptr) entry.value.assign(value, static_cast<size_t>(kvEntry_ValueLen(raw)));
  entry.revision = kvEntry_Revision(raw);
  entry.isDeleted = kvEntry_Operation(raw) != kvOp_Put;
  return entry;
}

}  // namespace

bool IsConflict(const NatsResult& result) {
  return result.jetStreamCode == static_cast<jsErrCode>(kWrongLastSequenceCode) ||
         result.why.find("wrong last sequence") != std::string::npos;
}

std::string KeyValue::About(const std::string& verb, const std::string& key) const {
  return "cannot " + verb + " the key " + key + " of the bucket " + bucket_;
}

NatsResult KeyValue::Open(Nats& nats, const std::string& bucket) {
  bucket_ = bucket;
  kvStore* store = nullptr;
  const natsStatus code = js_KeyValue(&store, nats.JetStream(), bucket.c_str());
  raw_.reset(store);
  return code == NATS_OK ? NatsResult()
                         : MakeNatsResult(code, "cannot use the bucket " + bucket + " at " + nats.Where());
}

NatsResult KeyValue::Get(const std::string& key, KeyEntry& entry) {
  kvEntry* raw = nullptr;
  const natsStatus code = kvStore_Get(&raw, raw_.get(), key.c_str());
  if (code != NATS_OK) return MakeNatsResult(code, About("read", key));
  entry = TakeEntry(raw);
  return {};
}

NatsResult KeyValue::Put(const std::string& key, const std::string& value, uint64_t* revision) {
  const natsStatus code =
      kvStore_Put(revision, raw_.get(), key.c_str(), value.data(), static_cast<int>(value.size()));
  return code == NATS_OK ? NatsResult() : MakeNatsResult(code, About("write", key));
}

NatsResult KeyValue::Create(const std::string& key, const std::string& value, uint64_t& revision) {
  const natsStatus code =
      kvStore_Create(&revision, raw_.get(), key.c_str(), value.data(), static_cast<int>(value.size()));
  return code == NATS_OK ? NatsResult() : MakeNatsResult(code, About("create", key));
}

NatsResult KeyValue::Update(const std::string& key, const std::string& value, uint64_t last,
                            uint64_t& revision) {
  const natsStatus code =
      kvStore_Update(&revision, raw_.get(), key.c_str(), value.data(), static_cast<int>(value.size()), last);
  return code == NATS_OK ? NatsResult() : MakeNatsResult(code, About("change", key));
}

NatsResult KeyValue::Delete(const std::string& key) {
  const natsStatus code = kvStore_Delete(raw_.get(), key.c_str());
  return code == NATS_OK ? NatsResult() : MakeNatsResult(code, About("delete", key));
}

NatsResult KeyValue::Keys(std::vector<std::string>& keys) {
  kvKeysList list{};
  const natsStatus code = kvStore_Keys(&list, raw_.get(), nullptr);
  keys.clear();
  if (code == NATS_NOT_FOUND) return {};
  if (code != NATS_OK) return MakeNatsResult(code, "cannot list the keys of the bucket " + bucket_);
  for (int i = 0; i < list.Count; ++i) keys.emplace_back(list.Keys[i]);
  kvKeysList_Destroy(&list);
  return {};
}

NatsResult KeyValue::Watch(const std::string& keys, KeyWatcher& watcher) {
  kvWatcher* raw = nullptr;
  const natsStatus code = kvStore_Watch(&raw, raw_.get(), keys.c_str(), nullptr);
  watcher.bucket_ = bucket_;
  watcher.raw_.reset(raw);
  return code == NATS_OK ? NatsResult() : MakeNatsResult(code, "cannot watch the bucket " + bucket_);
}

NatsResult KeyWatcher::Next(std::chrono::milliseconds timeout, std::optional<KeyEntry>& entry,
                            bool& isComplete) {
  entry.reset();
  kvEntry* raw = nullptr;
  const natsStatus code = kvWatcher_Next(&raw, raw_.get(), timeout.count());
  if (code == NATS_TIMEOUT) return {};
  if (code != NATS_OK) return MakeNatsResult(code, "cannot watch the bucket " + bucket_ + " any more");
  if (raw == nullptr) {
    isComplete = true;
  } else {
    entry = TakeEntry(raw);
  }
  return {};
}

}  // namespace zelgate
