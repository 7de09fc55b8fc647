#include "RouteQueue.h"

#include <algorithm>

namespace zelgate {

bool RouteQueue::Line::IsFull(size_t size) const {
  if (waiting.empty()) return false;  // one always finds room, however large
  return waiting.size() >= kMostWaiting || bytes + size > kMostBytes;
}

void RouteQueue::Line::Append(Event&& event) {
  bytes += event.Size();
  waiting.push_back(std::move(event));
}

Event RouteQueue::Line::TakeFirst() {
  Event event = std::move(waiting.front());
  waiting.pop_front();
  bytes -= event.Size();
  return event;
}

bool RouteQueue::Put(Policy policy, Event&& event) {
  if (policy == Policy::kBlock) {
    if (ordered_.IsFull(event.Size())) return false;
    ordered_.Append(std::move(event));
    return true;
  }
  Line& line = lines_[event.route];
  const bool isLatest = policy == Policy::kLatestOnly;
  line.mostUnderWay = isLatest ? 1 : kMostUnderWay;
  while (isLatest ? !line.waiting.empty() : line.IsFull(event.Size())) {
    Drop(line, isLatest ? "replaced by a newer one" : "too many wait");
  }
  line.Append(std::move(event));
  return true;
}

void RouteQueue::PutLink(Event&& event) {
  if (event.isGap) ++gapsTold_;
  ordered_.Append(std::move(event));
}

void RouteQueue::AddGap(const std::string& route, const std::string& reason, uint64_t sequence,
                        uint64_t bytes) {
  Gap& gap = GapOf(route, reason, sequence);
  gap.bytes = std::max(gap.bytes, bytes);
  ++dropped_;
}

Gap& RouteQueue::GapOf(const std::string& route, const std::string& reason, uint64_t sequence) {
  Gap& gap = gaps_[{route, reason}];
  if (gap.count++ == 0) {
    gap.route = route;
    gap.reason = reason;
    gap.first = gap.last = sequence;
  }
  gap.first = std::min(gap.first, sequence);
  gap.last = std::max(gap.last, sequence);
  return gap;
}

void RouteQueue::Drop(Line& line, const char* reason) {
  const Event event = line.TakeFirst();
  AddGap(event.route, reason, event.sequence, event.data.size());
}

std::vector<Gap> RouteQueue::TakeGaps() {
  std::vector<Gap> taken;
  if (gapsTold_ != 0) return taken;
  for (auto& [name, gap] : gaps_) taken.push_back(std::move(gap));
  gaps_.clear();
  return taken;
}

// What keeps its order goes first: it has one under way at most, and the others go meanwhile, one after the
// other.
RouteQueue::Line* RouteQueue::NextLine() {
  if (ordered_.CanGo()) return &ordered_;
  auto at = lines_.upper_bound(lastServed_);
  for (size_t i = 0; i < lines_.size(); ++i, ++at) {
    if (at == lines_.end()) at = lines_.begin();
    if (!at->second.CanGo()) continue;
    lastServed_ = at->first;
    return &at->second;
  }
  return nullptr;
}

std::optional<Event> RouteQueue::Next() {
  Line* const line = NextLine();
  if (line == nullptr) return {};
  Event event = line->TakeFirst();
  event.isOrdered = line == &ordered_;
  line->underWay.insert(event.sequence);
  return event;
}

void RouteQueue::Acknowledge(const Event& event) {
  if (event.isGap) --gapsTold_;
  const auto found = lines_.find(event.route);
  if (!event.isOrdered && found == lines_.end()) return;
  auto& underWay = event.isOrdered ? ordered_.underWay : found->second.underWay;
  const bool hasOlder = !underWay.empty() && *underWay.begin() < event.sequence;
  underWay.erase(event.sequence);
  if (hasOlder) (void)GapOf(event.route, "order may be broken", event.sequence);
}

bool RouteQueue::IsEmpty() const {
  const auto isIdle = [](const Line& line) { return line.waiting.empty() && line.underWay.empty(); };
  return isIdle(ordered_) && gaps_.empty() &&
         std::all_of(lines_.begin(), lines_.end(), [&](const auto& line) { return isIdle(line.second); });
}

size_t RouteQueue::Waiting() const {
  size_t count = ordered_.waiting.size();
  for (const auto& [name, line] : lines_) count += line.waiting.size();
  return count;
}

}  // namespace zelgate
