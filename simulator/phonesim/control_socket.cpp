#include "simulator/phonesim/control_socket.h"

#include <fmt/format.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <fstream>
#include <stdexcept>
#include <utility>

#include "simulator/supervisor/guardian_link.h"

namespace simulator {
namespace {

constexpr size_t MAX_REQUEST = 1 << 16;
constexpr timeval PATIENCE = {5, 0};

std::string NamePrefix(uid_t user) {
  return fmt::format("phonesim/{}/", user);
}

struct Address {
  sockaddr_un socket = {};
  socklen_t size = 0;
};

Address AddressOf(const std::string& name) {
  Address address;
  address.socket.sun_family = AF_UNIX;
  // The zero before it makes it a name without file.
  const auto written = fmt::format_to_n(address.socket.sun_path + 1, sizeof address.socket.sun_path - 1,
                                        "{}{}", NamePrefix(geteuid()), name);
  if (written.size >= sizeof address.socket.sun_path)
    throw std::invalid_argument("The phone's name is too long.");
  address.size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + written.size);
  return address;
}

posix::FileDescriptor NewSocket() {
  posix::FileDescriptor made(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (!made.IsOpen()) throw std::runtime_error("no socket can be made");
  return made;
}

}  // namespace

posix::FileDescriptor ListenAs(const std::string& name) {
  const Address address = AddressOf(name);
  posix::FileDescriptor listening = NewSocket();
  if (bind(listening.Get(), reinterpret_cast<const sockaddr*>(&address.socket), address.size) != 0 ||
      listen(listening.Get(), 16) != 0) {
    listening.Reset();
  }
  return listening;
}

std::vector<std::string> RunningPhones() {
  const std::string prefix = "@" + NamePrefix(geteuid());
  std::vector<std::string> names;
  std::ifstream sockets("/proc/net/unix");
  for (std::string line; std::getline(sockets, line);) {
    const size_t start = line.find(prefix);
    if (start != std::string::npos) names.push_back(line.substr(start + prefix.size()));
  }
  // Each connection shows beside the socket that it came by.
  std::sort(names.begin(), names.end());
  names.erase(std::unique(names.begin(), names.end()), names.end());
  return names;
}

posix::FileDescriptor AcceptClient(const posix::FileDescriptor& listening) {
  posix::FileDescriptor client(accept4(listening.Get(), nullptr, nullptr, SOCK_CLOEXEC));
  ucred user = {};
  socklen_t size = sizeof user;
  if (!client.IsOpen() || getsockopt(client.Get(), SOL_SOCKET, SO_PEERCRED, &user, &size) != 0 ||
      (user.uid != geteuid() && user.uid != 0)) {
    client.Reset();
    return client;
  }
  setsockopt(client.Get(), SOL_SOCKET, SO_RCVTIMEO, &PATIENCE, sizeof PATIENCE);
  return client;
}

std::vector<std::string> ReceiveWords(const posix::FileDescriptor& client) {
  std::string request;
  char bytes[4096];
  ssize_t size;
  while (request.size() < MAX_REQUEST && (size = recv(client.Get(), bytes, sizeof bytes, 0)) > 0) {
    request.append(bytes, static_cast<size_t>(size));
  }
  std::vector<std::string> words;
  for (size_t start = 0; start < request.size();) {
    const size_t end = std::min(request.find('\0', start), request.size());
    words.push_back(request.substr(start, end - start));
    start = end + 1;
  }
  return words;
}

bool SendDescriptor(const posix::FileDescriptor& client, int descriptor) {
  return SendMessage(client.Get(), &ANSWER_GOOD, 1, &descriptor, 1);
}

bool SendSome(const posix::FileDescriptor& client, std::string& pending) {
  while (!pending.empty()) {
    const ssize_t sent = send(client.Get(), pending.data(), pending.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
    if (sent < 0) return errno == EAGAIN || errno == EINTR;
    pending.erase(0, static_cast<size_t>(sent));
  }
  return true;
}

posix::FileDescriptor ConnectTo(const std::string& name) {
  const Address address = AddressOf(name);
  posix::FileDescriptor phone = NewSocket();
  if (connect(phone.Get(), reinterpret_cast<const sockaddr*>(&address.socket), address.size) != 0)
    phone.Reset();
  return phone;
}

void SendWords(const posix::FileDescriptor& phone, const std::vector<std::string>& words) {
  std::string request;
  for (const std::string& word : words) request.append(word.c_str(), word.size() + 1);
  send(phone.Get(), request.data(), request.size(), MSG_NOSIGNAL);
  shutdown(phone.Get(), SHUT_WR);
}

Answer ReceiveStatus(const posix::FileDescriptor& phone) {
  Answer answer;
  char status = ANSWER_BAD;
  LinkMessage message = ReceiveMessage(phone.Get(), &status, 1);
  answer.good = message.size == 1 && status == ANSWER_GOOD;
  answer.descriptor.Reset(message.descriptors[0]);
  return answer;
}

Answer Request(const std::string& name, const std::vector<std::string>& words) {
  const posix::FileDescriptor phone = ConnectTo(name);
  if (!phone.IsOpen()) return {false, fmt::format("No simulated phone named {} runs.\n", name), {}};
  SendWords(phone, words);
  Answer answer = ReceiveStatus(phone);
  char bytes[1 << 14];
  ssize_t size;
  while ((size = read(phone.Get(), bytes, sizeof bytes)) > 0)
    answer.text.append(bytes, static_cast<size_t>(size));
  return answer;
}

}  // namespace simulator
