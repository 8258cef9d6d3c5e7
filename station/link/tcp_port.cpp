#include <fmt/format.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstring>
#include <memory>

#include "station/commands/errors.h"
#include "station/link/port_opening.h"

namespace station {

namespace {

constexpr int CONNECT_MILLISECONDS = 5000;

using AddressList = std::unique_ptr<addrinfo, decltype(&freeaddrinfo)>;

// Splits "HOST:PORT"; the last colon is the one before the port.
std::pair<std::string, std::string> SplitAddress(const std::string& address) {
  const std::size_t colon = address.rfind(':');
  if (colon == std::string::npos || colon == 0 || colon + 1 == address.size()) {
    throw LinkFailure(fmt::format("'{}{}' is not tcp:HOST:PORT", TCP_PREFIX, address));
  }
  std::string host = address.substr(0, colon);
  if (host.starts_with('[') && host.ends_with(']')) host = host.substr(1, host.size() - 2);
  return {host, address.substr(colon + 1)};
}

AddressList Resolve(const std::string& host, const std::string& port) {
  addrinfo wanted{};
  wanted.ai_socktype = SOCK_STREAM;
  wanted.ai_flags = AI_ADDRCONFIG;
  addrinfo* found = nullptr;
  const int error = getaddrinfo(host.c_str(), port.c_str(), &wanted, &found);
  if (error != 0) throw LinkFailure(fmt::format("cannot find {}:{}: {}", host, port, gai_strerror(error)));
  return {found, freeaddrinfo};
}

// 0, or the error number.
int Connect(const posix::FileDescriptor& socket, const addrinfo& to) {
  if (connect(socket.Get(), to.ai_addr, to.ai_addrlen) == 0) return 0;
  if (errno != EINPROGRESS) return errno;
  pollfd waiting{socket.Get(), POLLOUT, 0};
  if (poll(&waiting, 1, CONNECT_MILLISECONDS) != 1) return ETIMEDOUT;
  int error = 0;
  socklen_t size = sizeof error;
  getsockopt(socket.Get(), SOL_SOCKET, SO_ERROR, &error, &size);
  return error;
}

}  // namespace

posix::FileDescriptor OpenTcpPort(const std::string& address) {
  const auto [host, port] = SplitAddress(address);
  const AddressList found = Resolve(host, port);
  int error = 0;
  for (const addrinfo* to = found.get(); to != nullptr; to = to->ai_next) {
    posix::FileDescriptor socket(
        ::socket(to->ai_family, to->ai_socktype | SOCK_NONBLOCK | SOCK_CLOEXEC, to->ai_protocol));
    if (!socket.IsOpen()) continue;
    error = Connect(socket, *to);
    if (error != 0) continue;
    // Commands are small and each waits for its answer.
    const int on = 1;
    setsockopt(socket.Get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    return socket;
  }
  throw LinkFailure(fmt::format("cannot connect to {}:{}: {}", host, port, std::strerror(error)));
}

}  // namespace station
