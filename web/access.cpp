#include "web/access.h"

#include <ifaddrs.h>
#include <net/if.h>
#include <netdb.h>
#include <netinet/in.h>
#include <strings.h>
#include <sys/random.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <memory>
#include <system_error>
#include <utility>

#include "posix/hex.h"
#include "posix/sha256.h"

namespace web {
namespace {

std::string RandomText() {
  std::array<uint8_t, 16> bytes;
  if (getrandom(bytes.data(), bytes.size(), 0) != static_cast<ssize_t>(bytes.size())) {
    throw std::system_error(errno, std::generic_category(), "getrandom");
  }
  return posix::HexText(bytes);
}

// Those of the network, IPv4 last: it is the one that people can read.
std::vector<std::string> AddressesOfThisComputer() {
  ifaddrs* first = nullptr;
  if (getifaddrs(&first) != 0) return {};
  const std::unique_ptr<ifaddrs, decltype(&freeifaddrs)> all(first, &freeifaddrs);
  std::vector<std::string> addresses;
  for (const int family : {AF_INET6, AF_INET}) {
    const socklen_t size = family == AF_INET ? sizeof(sockaddr_in) : sizeof(sockaddr_in6);
    for (const ifaddrs* one = first; one != nullptr; one = one->ifa_next) {
      char text[NI_MAXHOST];
      if (one->ifa_addr == nullptr || one->ifa_addr->sa_family != family) continue;
      if ((one->ifa_flags & IFF_LOOPBACK) != 0) continue;
      if (getnameinfo(one->ifa_addr, size, text, sizeof text, nullptr, 0, NI_NUMERICHOST) == 0)
        addresses.emplace_back(text);
    }
  }
  return addresses;
}

bool EqualNames(const std::string& left, const std::string& right) {
  return strcasecmp(left.c_str(), right.c_str()) == 0;
}

}  // namespace

Role NewRole(const std::string& name) {
  return {name, RandomText(), RandomText()};
}

Role RoleWithToken(const std::string& name, const std::string& token) {
  return {name, token, posix::Sha256("cookie " + token)};
}

bool EqualInConstantTime(const std::string& left, const std::string& right) {
  if (left.size() != right.size()) return false;  // the length is no secret
  unsigned difference = 0;
  for (size_t index = 0; index < left.size(); ++index) {
    difference |= static_cast<unsigned char>(left[index]) ^ static_cast<unsigned char>(right[index]);
  }
  return difference == 0;
}

Access::Access(std::vector<Role> roles, std::string cookie_name, std::string public_host)
    : roles_(std::move(roles)), cookie_name_(std::move(cookie_name)), public_host_(std::move(public_host)) {}

void Access::SetPlace(const std::string& address, int port) {
  const std::string number = std::to_string(port);
  // A browser sends a server's cookies to all ports of its host: the port in the name keeps pages apart.
  cookie_name_ += "-" + number;
  hosts_ = {"localhost:" + number, "[::1]:" + number, "127.0.0.1:" + number};
  const bool is_one = address != "0.0.0.0" && address != "::";
  for (const std::string& own : is_one ? std::vector<std::string>{address} : AddressesOfThisComputer()) {
    hosts_.push_back((own.find(':') == std::string::npos ? own : "[" + own + "]") + ":" + number);
  }
}

bool Access::KnowsHost(const std::string& host) const {
  if (!public_host_.empty() && EqualNames(host, public_host_)) return true;
  return std::ranges::any_of(hosts_, [&host](const std::string& own) { return EqualNames(host, own); });
}

bool Access::KnowsOrigin(const std::string& origin) const {
  if (!public_host_.empty() && EqualNames(origin, "https://" + public_host_)) return true;
  return std::ranges::any_of(
      hosts_, [&origin](const std::string& own) { return EqualNames(origin, "http://" + own); });
}

const Role* Access::RoleOfToken(const std::string& token) const {
  const Role* found = nullptr;
  for (const Role& role : roles_) {
    if (EqualInConstantTime(role.token, token)) found = &role;
  }
  return found;
}

const Role* Access::RoleOfCookies(const std::string& cookies) const {
  const Role* found = nullptr;
  for (size_t start = 0; start < cookies.size();) {
    const size_t end = std::min(cookies.find(';', start), cookies.size());
    const std::string cookie = cookies.substr(start, end - start);
    const size_t sign = cookie.find('=');
    if (sign != std::string::npos && cookie.substr(0, sign) == cookie_name_) {
      for (const Role& role : roles_) {
        if (EqualInConstantTime(role.cookie_value, cookie.substr(sign + 1))) found = &role;
      }
    }
    start = std::min(cookies.find_first_not_of("; ", end), cookies.size());
  }
  return found;
}

std::string Access::Cookie(const Role& role, const std::string& host) const {
  const bool over_tls = !public_host_.empty() && EqualNames(host, public_host_);
  return cookie_name_ + "=" + role.cookie_value + "; Path=/; HttpOnly; SameSite=Strict" +
         (over_tls ? "; Secure" : "");
}

}  // namespace web
