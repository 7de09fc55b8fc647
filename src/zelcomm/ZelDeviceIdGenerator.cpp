#include "zelcomm/ZelDeviceIdGenerator.h"

#include <algorithm>
#include <utility>

#include "utils/Forever.h"
#include "utils/Log.h"
#include "utils/Options.h"
#include "utils/xml/Document.h"
#include "zelcomm/DeviceId.h"

namespace libzel {

namespace {

constexpr const char* kDeviceInfo = "deviceInfo";
constexpr const char* kDeviceId = "deviceId";
constexpr std::string_view kNoAddress = "0.0.0.0";

struct BadNesting {};

// A file that would be read for ever is refused, if that is wanted.
class Description : public xml::Document {
 protected:
  void OnMismatchedNesting() override {
    if (OptionsOfProcess().checkXml != 0) throw BadNesting();
    Document::OnMismatchedNesting();
  }
};

std::string HardwareText(std::span<const uint8_t> bytes) {
  constexpr std::string_view kDigits = "0123456789ABCDEF";
  std::string text;
  for (const uint8_t byte : bytes) {
    if (!text.empty()) text += '-';
    text += kDigits[byte >> 4];
    text += kDigits[byte & 15];
  }
  return text;
}

}  // namespace

CZelDeviceIdGenerator::CZelDeviceIdGenerator(std::string descriptionFile)
    : descriptionFile_(std::move(descriptionFile)) {}

ZelDeviceId CZelDeviceIdGenerator::GetLocalDeviceId() {
  if (!loaded_) Load();
  const MutexLock lock(mutex_);
  return id_;
}

int32_t CZelDeviceIdGenerator::Reload() {
  Load();
  return 0;
}

void CZelDeviceIdGenerator::Load() {
  isFromFile_ = LoadZelDeviceIdFromXml() == 0;
  if (!isFromFile_) (void)LoadZelDeviceIdFromNetAdapters();  // never anything but -1
}

void CZelDeviceIdGenerator::Store(const ZelDeviceId& id) {
  const MutexLock lock(mutex_);
  id_ = id;
  loaded_ = true;
}

AdapterTable CZelDeviceIdGenerator::GetAdapterTable() {
  const MutexLock lock(mutex_);
  return adapters_;
}

int32_t CZelDeviceIdGenerator::LoadZelDeviceIdFromXml() {
  Description document;
  if (!document.loadFile(descriptionFile_)) return -1;
  xml::Element root;
  try {
    (void)document.parse(root);  // what was read in front of a fault counts
  } catch (const BadNesting&) {
    ZEL_LOG(kError, "%s is refused:an element is closed by another one's end tag", descriptionFile_.c_str());
    return -1;
  }
  for (xml::Element& child : root.children()) {
    if (child.name() != kDeviceInfo) continue;
    const std::string& text = child.attribute(kDeviceId);
    Store(ParseDeviceId(text));
    ZEL_LOG(kDebug, "xml name:%s,deviceId:%s", child.name().c_str(), text.c_str());
    return 0;
  }
  return -1;
}

AdapterTable CZelDeviceIdGenerator::MakeAdapterTable(std::span<const platform::Adapter> adapters,
                                                     Adapters which) {
  AdapterTable table;
  for (const platform::Adapter& adapter : adapters) {
    if (adapter.ip.starts_with(kNoAddress)) continue;
    AdapterRecord record{adapter.type, HardwareText(adapter.hardwareAddress), adapter.name, adapter.ip};
    const auto same =
        which == Adapters::kAll ? table.end() : std::ranges::find(table, record.mac, &AdapterRecord::mac);
    if (same != table.end()) {
      *same = std::move(record);
    } else {
      table.push_back(std::move(record));
    }
  }
  return table;
}

AdapterTable CZelDeviceIdGenerator::BuildAdapterTable(Adapters which) {
  return MakeAdapterTable(platform::ListAdapters(), which);
}

int32_t CZelDeviceIdGenerator::LoadZelDeviceIdFromNetAdapters() {
  AdapterTable table = BuildAdapterTable();
  if (table.empty()) return -1;
  const ZelDeviceId id = DeviceIdFromAdapterIp(table.front().ip);
  {
    const MutexLock lock(mutex_);
    adapters_ = std::move(table);
  }
  Store(id);
  return -1;
}

CZelDeviceIdGenerator& DeviceIdGenerator() {
  static Forever<CZelDeviceIdGenerator> generator;
  return *generator;
}

CZelDeviceIdGenerator& LocalDeviceIdSource() {
  [[maybe_unused]] static const int32_t once = DeviceIdGenerator().Reload();
  return DeviceIdGenerator();
}

}  // namespace libzel
