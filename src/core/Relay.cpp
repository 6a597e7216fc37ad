#include "core/Relay.h"

#include <array>
#include <cstddef>
#include <optional>
#include <string>

#include "core/Text.h"

namespace tovi {

namespace {

using Address = std::array<int, 4>;

std::optional<Address> dottedAddress(std::string_view host) {
  Address parts{};
  for (std::size_t i = 0; i < parts.size(); ++i) {
    const auto dot = i + 1 < parts.size() ? host.find('.') : host.size();
    if (dot == std::string_view::npos) return std::nullopt;
    const auto number = text::decimal<int>(host.substr(0, dot));
    if (host.starts_with('+') || !number || *number < 0 || *number > 255) return std::nullopt;
    parts[i] = *number;
    host.remove_prefix(std::min(dot + 1, host.size()));
  }
  return parts;
}

bool isPrivate(const Address& a) {
  return a[0] == 127 || a[0] == 10 || (a[0] == 172 && a[1] >= 16 && a[1] <= 31) || (a[0] == 192 && a[1] == 168) ||
         (a[0] == 169 && a[1] == 254) ||
         (a[0] == 100 && a[1] >= 64 && a[1] <= 127);  // the last: shared, as VPNs use it
}

bool isPrivateHost(const std::string& host) {
  if (const auto address = dottedAddress(host)) return isPrivate(*address);
  if (host.starts_with('[')) {
    return host == "[::1]" || host.starts_with("[fc") || host.starts_with("[fd") || host.starts_with("[fe80:");
  }
  // "localhost", and names that only a local network knows; "134744072" is an address of the whole world.
  const bool isShort = host.find('.') == std::string::npos && host.front() >= 'a' && host.front() <= 'z';
  return isShort || host.ends_with(".localhost") || host.ends_with(".local");
}

}  // namespace

std::string_view defaultRelay() { return TOVI_RELAY; }

std::string_view defaultPage() { return TOVI_PAGE; }

bool isAcceptableRelay(std::string_view server) {
  for (const char c : server) {
    if (c <= 0x20 || c >= 0x7F) return false;
  }
  const bool secure = server.starts_with("https://");
  if (!secure && !server.starts_with("http://")) return false;
  std::string_view rest = server.substr(server.find("//") + 2);
  rest = rest.substr(0, rest.find_first_of("/?#"));
  // A name and a password are for a relay behind a lock. Without encryption they would be for all to read, and
  // "http://127.0.0.1@elsewhere/" leads elsewhere.
  if (const auto at = rest.rfind('@'); at != std::string_view::npos) {
    if (!secure) return false;
    rest.remove_prefix(at + 1);
  }
  if (rest.empty()) return false;
  const auto bracket = rest.find(']');
  const auto colon = rest.find(':', bracket == std::string_view::npos ? 0 : bracket);
  const std::string host = text::lowercased(rest.substr(0, colon));
  return !host.empty() && (secure || isPrivateHost(host));
}

}  // namespace tovi
