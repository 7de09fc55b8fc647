// Small readers for the texts on the command line. All return nothing for a text that they do not
// accept.
#pragma once

#include <asio/ip/address_v4.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Bytes.h"

namespace zelsim {

// Splits at every separator; "a::b" gives three parts, "" gives one empty part.
std::vector<std::string_view> Split(std::string_view text, char separator);

// Splits at the first separator; nothing when there is none.
std::optional<std::pair<std::string_view, std::string_view>> SplitOnce(std::string_view text, char separator);

// Decimal, or hexadecimal with 0x in front; at most `limit`.
std::optional<uint64_t> ParseNumber(std::string_view text, uint64_t limit = UINT64_MAX);
std::optional<uint16_t> ParsePort(std::string_view text);
std::optional<asio::ip::address_v4> ParseAddress(std::string_view text);

// Pairs of hexadecimal digits, or @FILE for the content of a file.
std::optional<Bytes> ParseBytes(std::string_view text);

// As 127.0.0.1:9999, of TCP or UDP.
template <typename Endpoint>
std::string EndpointText(const Endpoint& endpoint) {
  return endpoint.address().to_string() + ":" + std::to_string(endpoint.port());
}

std::string ToHex(ByteView bytes);

// Printable ASCII stays; blanks, '%', '=', '"' and all other bytes become %XX.
std::string Escape(std::string_view text);

}  // namespace zelsim
