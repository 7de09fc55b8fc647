#include "LinkEvent.h"

#include <nlohmann/json.hpp>

#include "Journal.h"

namespace zelgate {
namespace {

nlohmann::ordered_json Begin(const LinkNote& note, const std::string& kind) {
  return {{"event", kind}, {"device", note.device}, {"time", note.time}, {"by", note.holder}};
}

}  // namespace

std::string LinkEventText(const LinkNote& note, const std::string& kind, const std::string& reason) {
  auto object = Begin(note, kind);
  if (!reason.empty()) object["reason"] = Printable(reason);
  return object.dump();
}

std::string GapText(const LinkNote& note, const Gap& gap) {
  auto object = Begin(note, "gap");
  object["route"] = Printable(gap.route);
  object["reason"] = Printable(gap.reason);
  object["count"] = gap.count;
  object["first"] = gap.first;
  object["last"] = gap.last;
  if (gap.bytes != 0) object["bytes"] = gap.bytes;
  return object.dump();
}

}  // namespace zelgate
