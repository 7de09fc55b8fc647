// The events of one device that wait to be published or acknowledged: in which order they go, how many may be
// under way, and what becomes of those that are too many. It knows no clock and no NATS. Pure.
#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "Profile.h"

namespace zelgate {

struct Event {
  std::string subject;
  std::string data;
  std::string time;  // RFC 3339
  uint64_t sequence = 0;
  std::optional<uint32_t> group;  // of topics
  std::optional<uint32_t> offset;
  std::string route;       // its name; empty for what happens to the link
  bool isGap = false;      // it tells of one
  bool isOrdered = false;  // set by Next: it goes one at a time

  size_t Size() const { return subject.size() + data.size(); }
};

// Messages of a route that were dropped, or whose order was broken, since that was last told.
struct Gap {
  std::string route;
  std::string reason;
  uint64_t count = 0;
  uint64_t first = 0;  // sequence numbers, both included
  uint64_t last = 0;
  uint64_t bytes = 0;  // of the largest
};

class RouteQueue {
 public:
  // How many events of one route, or of all with Policy::kBlock together, may wait, and how many bytes.
  static constexpr size_t kMostWaiting = 64;
  static constexpr size_t kMostBytes = 262144;
  // How many of a route that may drop are under way at a time.
  static constexpr size_t kMostUnderWay = 16;

  // The number of the next message of the device, counted from 1. Each one that comes has one, also one that
  // is dropped.
  uint64_t NextSequence() { return ++sequence_; }

  // False: it is full, and the policy is to wait. The event is untouched then.
  bool Put(Policy policy, Event&& event);
  // What happens to the link is never dropped and waits behind what blocks.
  void PutLink(Event&& event);
  // One that cannot be published at all.
  void AddGap(const std::string& route, const std::string& reason, uint64_t sequence, uint64_t bytes);
  // The gaps that nobody was told of yet, one for each route and reason: an event for each is the caller's to
  // make, for PutLink. None while such events wait or are under way, so that many gaps become one.
  std::vector<Gap> TakeGaps();

  // The next event that may be published now. It is under way then, until it is acknowledged.
  std::optional<Event> Next();
  // When an older one of its route is still under way the order may be broken, which is a gap, too.
  void Acknowledge(const Event& event);

  // Neither waiting nor under way.
  bool IsEmpty() const;
  size_t Waiting() const;
  uint64_t Dropped() const { return dropped_; }

 private:
  struct Line {
    std::deque<Event> waiting;
    size_t bytes = 0;  // of those that wait
    std::set<uint64_t> underWay;
    size_t mostUnderWay = 1;

    bool IsFull(size_t size) const;
    void Append(Event&& event);
    Event TakeFirst();
    bool CanGo() const { return !waiting.empty() && underWay.size() < mostUnderWay; }
  };

  void Drop(Line& line, const char* reason);
  Gap& GapOf(const std::string& route, const std::string& reason, uint64_t sequence);
  Line* NextLine();

  Line ordered_;                       // with Policy::kBlock, and of the link
  std::map<std::string, Line> lines_;  // of the routes that may drop
  std::string lastServed_;             // of these, the one that had the last turn
  std::map<std::pair<std::string, std::string>, Gap> gaps_;
  size_t gapsTold_ = 0;  // events that tell of gaps and are not acknowledged yet
  uint64_t sequence_ = 0;
  uint64_t dropped_ = 0;
};

}  // namespace zelgate
