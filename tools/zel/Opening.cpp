#include "Opening.h"

#include <algorithm>
#include <exception>
#include <memory>
#include <optional>
#include <set>
#include <thread>
#include <utility>
#include <vector>

#include "Lookup.h"
#include "Reasons.h"
#include "Text.h"

namespace zeltool {
namespace {

constexpr zel::Milliseconds kAskTime{1000};
// An identifier's own address answers at once, or is not the device's.
constexpr zel::Milliseconds kFirstAskTime{300};
// The first question of a scan leaves after a second, as a rule.
constexpr zel::Milliseconds kLookTime{3000};
constexpr zel::Milliseconds kProbeTime{500};
constexpr double kRetrySec = 1;

double Seconds(zel::Milliseconds time) { return std::chrono::duration<double>(time).count(); }

// The identifier that an address makes; nothing for what is no address.
std::optional<zel::DeviceId> IdentifierAt(const std::string& address) {
  return zel::DeviceId::Parse(address + ".0.1");
}

// Such as 1.2.3 or 0x7.0.0.1, which is neither an identifier nor an address, and no name either.
bool IsBrokenNumbers(const std::string& text) {
  const auto points = std::count(text.begin(), text.end(), '.');
  const bool onlyDecimals = text.find_first_not_of("0123456789.") == std::string::npos;
  const bool onlyNumbers = text.find_first_not_of("0123456789abcdefxABCDEFX.") == std::string::npos;
  const bool endsAsNumber = ParseNumber(text.substr(text.rfind('.') + 1), UINT64_MAX).has_value();
  return points > 0 && (onlyDecimals || (onlyNumbers && endsAsNumber && points >= 3));
}

bool IsSameName(const std::string& left, const std::string& right) {
  const auto lower = [](char letter) { return letter >= 'A' && letter <= 'Z' ? letter + 32 : letter; };
  return std::equal(left.begin(), left.end(), right.begin(), right.end(),
                    [&](char a, char b) { return lower(a) == lower(b); });
}

// The address of a host name, looked up on a thread of its own, as that may take long.
class NameLookup {
 public:
  explicit NameLookup(const std::string& name, Stopper& stopper)
      : stopper_(stopper), state_(std::make_shared<State>()) {
    std::thread([state = state_, name, &stopper] {
      auto address = LookUpHost(name);
      stopper.Update([&] {
        state->address = std::move(address);
        state->isOver = true;
      });
    }).detach();
  }
  // Nothing while it goes on, and when there is none.
  std::optional<std::string> Address() const {
    std::optional<std::string> address;
    stopper_.Update([&] { address = state_->address; });
    return address;
  }
  bool IsOver() const {
    bool isOver = false;
    stopper_.Update([&] { isOver = state_->isOver; });
    return isOver;
  }
  // Waits for its end, whatever that is.
  std::optional<std::string> Await(Deadline deadline) const {
    (void)stopper_.Wait(deadline, [this] { return state_->isOver; });
    return Address();
  }

 private:
  struct State {
    std::optional<std::string> address;
    bool isOver = false;
  };
  Stopper& stopper_;
  std::shared_ptr<State> state_;
};

class Opener {
 public:
  Opener(const std::string& device, const Patience& patience, const Budget& budget, Context& context,
         const zel::EventCallback& onEvent, WhenDown whenDown)
      : device_(device),
        patience_(patience),
        budget_(budget),
        context_(context),
        onEvent_(onEvent),
        whenDown_(whenDown) {}

  Opened Open() {
    if (const auto id = zel::DeviceId::Parse(device_)) return OpenIdentifier(*id);
    return OpenAddress(FindAddress());
  }

  // A remark, once however often the device is tried.
  void Say(const std::string& remark) {
    if (said_.insert(remark).second) context_.output.Note(remark);
  }

  std::string FindAddress() {
    if (const auto id = zel::DeviceId::Parse(device_)) {
      if (const auto found = Look(HasIdentifier(*id))) return found->address;
      return RouteOf(*id);
    }
    return IsAddress(device_) ? device_ : FindName();
  }

 private:
  static DeviceTest HasIdentifier(const zel::DeviceId& id) {
    return [id](const zel::Device& device) { return device.id == id; };
  }

  std::string RouteOf(const zel::DeviceId& id) const { return context_.library->RouteOf(id); }

  void StopIfAsked() const {
    if (context_.stopper.IsRequested()) throw Failure(kInterrupted, "interrupted");
  }

  // Nothing when nobody is found. Throws when there are several.
  std::optional<zel::Device> Look(const DeviceTest& isWanted, const std::function<bool()>& isOver = {}) {
    const auto found = LookFor(context_, isWanted, budget_.Take(kLookTime, "look for " + device_), isOver);
    StopIfAsked();
    if (found.empty()) return std::nullopt;
    if (found.size() == 1) return found.front();
    std::string addresses;
    for (const zel::Device& device : found) addresses += (addresses.empty() ? "" : ", ") + device.address;
    throw SeveralDevices(Counted(found.size(), "device") + " answer to " + device_ + ": " + addresses);
  }

  Opened OpenIdentifier(const zel::DeviceId& id) {
    const std::string host = RouteOf(id);
    const auto told = AskIdentifier(host, budget_.Take(kFirstAskTime, "ask " + host));
    StopIfAsked();
    if (told && *told == id) return Connect(id, host);
    if (told) {
      Say(host + " is " + told->ToString() + ", not " + device_ + "; looking for that");
      return OpenFound(id, host, {});
    }
    Opened tried = Try(id, host);
    if (IsUp(tried.connection)) return tried;
    StopIfAsked();
    if (whenDown_ == WhenDown::kGoOn) {
      LookMeanwhile();
      return tried;
    }
    return OpenFound(id, host, ExplainConnect(host, tried.connection.LastFailure()));
  }

  // Goes where a scan finds the identifier, or to the host all the same unless that is known to be in vain.
  Opened OpenFound(const zel::DeviceId& id, const std::string& host, const Reason& vain) {
    std::optional<zel::Device> found;
    try {
      found = Look(HasIdentifier(id));
    } catch (const LibraryFailure& failure) {
      if (vain.sentence.empty()) throw;
    }
    if (found) return Connect(id, found->address);
    if (!vain.sentence.empty()) Fail(id, host, vain);
    return Connect(id, host);
  }

  // Reconnects follow what discovery finds.
  void LookMeanwhile() {
    context_.library->OnDevice([](const zel::Device&) {}).Ignore();
    context_.library->StartScan().Ignore();
  }

  Opened OpenAddress(const std::string& host) {
    const auto told = AskIdentifier(host, budget_.Take(kAskTime, "ask " + host));
    StopIfAsked();
    if (!told) {
      Say(host + " does not tell its identifier on UDP port 38898; trying TCP port 9999");
    }
    return Connect(told ? *told : PlaceholderId(host), host);
  }

  std::string FindName() {
    const NameLookup lookup(device_, context_.stopper);
    const zel::Milliseconds most = std::max(kLookTime, zel::Milliseconds(patience_.timeoutMs));
    const Deadline end = After(Seconds(budget_.Take(most, "look for " + device_)));
    const auto isNamed = [this](const zel::Device& device) { return IsCalled(device, device_); };
    const auto hasAddress = [&] { return lookup.Address().has_value(); };
    std::string problem;
    try {
      if (const auto found = Look(isNamed, hasAddress)) return found->address;
    } catch (const LibraryFailure& failure) {
      problem = std::string("; ") + failure.what();
    }
    // Where nothing can be looked for, that has ended at once.
    if (const auto address = lookup.Await(end)) return *address;
    StopIfAsked();
    if (!lookup.IsOver()) {
      throw NothingArrived(
          "no name server tells in time where " + device_ + " is, and no device calls itself so" + problem,
          "More time: --timeout. An address works without one.");
    }
    throw Failure(
        kFailed,
        device_ + " is no host name that this machine knows, and no device calls itself so" + problem,
        "zel scan shows who is there; an address or an identifier works, too.");
  }

  Opened Try(const zel::DeviceId& id, const std::string& host) {
    if (host != RouteOf(id)) context_.library->PinRoute(id, host).Ignore();
    zel::Connection::Options options;
    options.timeout = budget_.Take(zel::Milliseconds(patience_.connectMs), "connect to " + host);
    options.onEvent = onEvent_;
    auto made = zel::Connection::Create(id, std::move(options));
    if (!made) throw LibraryFailure("cannot create a connection", made.Code());
    return {id, host, *std::move(made)};
  }

  Opened Connect(const zel::DeviceId& id, const std::string& host) {
    Opened opened = Try(id, host);
    if (IsUp(opened.connection) || whenDown_ == WhenDown::kGoOn) return opened;
    Fail(id, host, ExplainConnect(host, opened.connection.LastFailure()));
  }

  [[noreturn]] void Fail(const zel::DeviceId& id, const std::string& host, const Reason& reason) const {
    StopIfAsked();
    const std::string at = device_ == host ? "" : " at " + host;
    const std::string name = device_ == host ? host : zel::DeviceId::Parse(device_) ? id.ToString() : device_;
    throw LibraryFailure("cannot connect to " + name + at + ": " + reason.sentence, ZEL_E_DISCONNECTED,
                         reason.advice);
  }

  const std::string& device_;
  const Patience& patience_;
  const Budget& budget_;
  Context& context_;
  const zel::EventCallback& onEvent_;
  WhenDown whenDown_;
  std::set<std::string> said_;
};

}  // namespace

bool IsAddress(const std::string& text) { return IdentifierAt(text).has_value(); }

std::string CheckDevice(const std::string& text) {
  if (zel::DeviceId::Parse(text) || IsAddress(text)) return {};
  if (!text.empty() && Printable(text) == text && !IsBrokenNumbers(text)) return {};
  return "'" + text +
         "' is neither an identifier (192.168.1.20.0.1) nor an address (192.168.1.20) nor a name";
}

std::string CheckDeviceId(const std::string& text) {
  if (zel::DeviceId::Parse(text)) return {};
  return "'" + text +
         "' is no identifier: six numbers from 0 to 255 joined by points, as in 192.168.1.20.0.1";
}

Opened OpenDevice(const std::string& device, const Patience& patience, const Budget& budget, Context& context,
                  const zel::EventCallback& onEvent, WhenDown whenDown) {
  Opener opener(device, patience, budget, context, onEvent, whenDown);
  std::exception_ptr before;
  for (uint32_t tries = 0;; ++tries) {
    try {
      return opener.Open();
    } catch (const SeveralDevices&) {
      throw;
    } catch (const NoTimeLeft&) {
      // Why the last try failed is of more use.
      if (before) std::rethrow_exception(before);
      throw;
    } catch (const Failure& failure) {
      const bool isLast = !patience.isEndless && tries == patience.retries;
      if (isLast || budget.IsBelow(kRetrySec) || context.stopper.IsRequested()) throw;
      opener.Say(std::string(failure.what()) + "; trying again");
      before = std::current_exception();
    }
    if (context.stopper.Sleep(kRetrySec)) throw Failure(kInterrupted, "interrupted");
  }
}

std::string FindHost(const std::string& device, const Patience& patience, const Budget& budget,
                     Context& context) {
  const zel::EventCallback none;
  return Opener(device, patience, budget, context, none, WhenDown::kFail).FindAddress();
}

zel::DeviceId PlaceholderId(const std::string& address) {
  return IdentifierAt(address).value_or(zel::DeviceId());
}

bool IsCalled(const zel::Device& device, const std::string& name) {
  return IsSameName(device.hostName, name) || device.serialNumber == name ||
         device.secondSerialNumber == name;
}

bool IsServerThere(const std::string& host, zel::Library& library) {
  const zel::DeviceId id = PlaceholderId(host);
  library.PinRoute(id, host).Ignore();
  const auto made = zel::Connection::Create(id, {kProbeTime, {}});
  return made && IsUp(*made);
}

bool IsUp(const zel::Connection& connection) {
  libzelx_Stats stats{};
  stats.size = sizeof stats;
  return libzelx_getStats(connection.Handle(), &stats) == ZEL_OK && stats.connected != 0;
}

}  // namespace zeltool
