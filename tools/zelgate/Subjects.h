// Names of NATS subjects and keys for what devices call things otherwise. Nothing that a device says gets
// into one unescaped. Pure.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace zelgate {

// The server closes the connection over a longer one.
inline constexpr size_t kMaxSubject = 1024;

// Letters, digits, "-" and "_", 1 to 64.
bool IsSiteName(std::string_view text);

// "10.20.0.7.0.1" becomes "10-20-0-7-0-1", and back. The text must be an identifier; else nothing comes back.
std::optional<std::string> DeviceToken(std::string_view id);
std::optional<std::string> DeviceOfToken(std::string_view token);

// "a/b c" becomes "a.b=20c", and back: "/" becomes ".", letters, digits, "_" and "-" stay, every other byte
// becomes "=XX" in capitals, an empty level "=". What EscapeTopic never makes isn't taken back.
std::string EscapeTopic(std::string_view topic);
std::optional<std::string> UnescapeTopic(std::string_view tokens);

// The subjects of one site. `device` is a token of DeviceToken. Those with a topic are empty when they would
// be longer than kMaxSubject.
class Subjects {
 public:
  explicit Subjects(std::string site) : site_(std::move(site)) {}

  // zel.SITE.ev.DEV.t.TOPIC
  std::optional<std::string> Topic(std::string_view device, std::string_view topic) const;
  // zel.SITE.ev.DEV.p.PORT
  std::string Port(std::string_view device, uint16_t port) const;
  // zel.SITE.ev.DEV.link
  std::string Link(std::string_view device) const;
  // zel.SITE.ask.DEV.PORT.GROUP.OFFSET
  std::string Ask(std::string_view device, uint16_t port, uint32_t group, uint32_t offset) const;
  // zel.SITE.pub.DEV.t.TOPIC
  std::optional<std::string> Publication(std::string_view device, std::string_view topic) const;

  // What a stream and subscriptions take: zel.SITE.ev.>, zel.SITE.ask.DEV.>, zel.SITE.pub.DEV.t.>
  std::string AllEvents() const { return Prefix("ev") + ">"; }
  std::string AllAsks(std::string_view device) const { return Prefix("ask") + std::string(device) + ".>"; }
  std::string AllPublications(std::string_view device) const {
    return Prefix("pub") + std::string(device) + ".t.>";
  }

  // What the subjects of requests begin with.
  std::string AskPrefix() const { return Prefix("ask"); }

  struct AskTarget {
    std::string device;  // the token
    uint16_t port = 0;
    uint32_t group = 0;
    uint32_t offset = 0;
  };
  struct PublicationTarget {
    std::string device;  // the token
    std::string topic;   // as the device has it
  };
  // Nothing for a subject that is none of this site's requests or publications.
  std::optional<AskTarget> ParseAsk(std::string_view subject) const;
  std::optional<PublicationTarget> ParsePublication(std::string_view subject) const;

 private:
  std::string Prefix(std::string_view kind) const { return "zel." + site_ + "." + std::string(kind) + "."; }

  std::string site_;
};

}  // namespace zelgate
