#include "simulator/control/control_socket.h"

#include <fmt/format.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <stdexcept>
#include <thread>
#include <utility>

#include "posix/message_socket.h"

namespace simulator {
namespace {

constexpr size_t MAX_REQUEST = 1 << 16;
constexpr int WAITING_CLIENTS = 64;

// Phones of one user see each other, unless $PHONESIM_GROUP keeps some to themselves.
std::string Prefix(const char* kind) {
  const char* group = getenv("PHONESIM_GROUP");
  return group == nullptr ? fmt::format("{}/{}/", kind, geteuid())
                          : fmt::format("{}/{}:{}/", kind, geteuid(), group);
}

std::string NamePrefix() {
  return Prefix("phonesim");
}

std::string PortPath(const std::string& device) {
  return Prefix("phonesim-port") + device;
}

// Calls `use(address, size)` with the address of a phone's socket. The zero byte before the path makes it one
// without a file.
template <typename Use>
int WithAddress(const std::string& path, Use use) {
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  if (path.size() >= sizeof address.sun_path) throw std::invalid_argument("The phone's name is too long.");
  memcpy(address.sun_path + 1, path.data(), path.size());
  return use(reinterpret_cast<const sockaddr*>(&address),
             static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + path.size()));
}

posix::FileDescriptor NewSocket() {
  posix::FileDescriptor made(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  if (!made.IsOpen()) posix::ThrowErrno("socket");
  return made;
}

posix::FileDescriptor ConnectTo(const std::string& path, const posix::Deadline& deadline) {
  posix::FileDescriptor phone = NewSocket();
  const auto connects = [&phone](const sockaddr* address, socklen_t size) {
    return connect(phone.Get(), address, size);
  };
  while (WithAddress(path, connects) != 0) {
    // EAGAIN: too many other clients wait for the phone. After the deadline the socket stays open without a
    // phone, and so without an answer.
    if (errno != EAGAIN) phone.Reset();
    if (!phone.IsOpen() || deadline.HasPassed()) break;
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  return phone;
}

// Not open if the address is taken.
posix::FileDescriptor ListenAt(const std::string& path) {
  posix::FileDescriptor listening = NewSocket();
  const auto binds = [&listening](const sockaddr* address, socklen_t size) {
    return bind(listening.Get(), address, size);
  };
  if (WithAddress(path, binds) != 0 || listen(listening.Get(), WAITING_CLIENTS) != 0) listening.Reset();
  return listening;
}

}  // namespace

posix::FileDescriptor ListenAs(const std::string& name) {
  return ListenAt(NamePrefix() + name);
}

posix::FileDescriptor ListenAtPort(const std::string& device) {
  return ListenAt(PortPath(device));
}

posix::FileDescriptor AcceptClient(const posix::FileDescriptor& listening) {
  posix::FileDescriptor client(accept4(listening.Get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
  ucred user = {};
  socklen_t size = sizeof user;
  if (!client.IsOpen() || getsockopt(client.Get(), SOL_SOCKET, SO_PEERCRED, &user, &size) != 0 ||
      (user.uid != geteuid() && user.uid != 0)) {
    client.Reset();
  }
  return client;
}

bool ReceiveRequest(const posix::FileDescriptor& client, std::string& request) {
  char bytes[4096];
  while (request.size() < MAX_REQUEST) {
    const ssize_t size = recv(client.Get(), bytes, sizeof bytes, 0);
    if (size < 0 && (errno == EAGAIN || errno == EINTR)) return false;
    if (size <= 0) return true;
    request.append(bytes, static_cast<size_t>(size));
  }
  return true;
}

std::vector<std::string> WordsOf(const std::string& request) {
  std::vector<std::string> words;
  for (size_t start = 0; start < request.size();) {
    const size_t end = std::min(request.find('\0', start), request.size());
    words.push_back(request.substr(start, end - start));
    start = end + 1;
  }
  return words;
}

bool SendDescriptor(const posix::FileDescriptor& client, int descriptor) {
  return posix::SendMessage(client.Get(), &ANSWER_GOOD, 1, &descriptor, 1);
}

bool SendSome(const posix::FileDescriptor& client, std::string& pending) {
  while (!pending.empty()) {
    const ssize_t sent = send(client.Get(), pending.data(), pending.size(), MSG_NOSIGNAL);
    if (sent < 0) return errno == EAGAIN || errno == EINTR;
    pending.erase(0, static_cast<size_t>(sent));
  }
  return true;
}

std::vector<std::string> RunningPhones() {
  const std::string prefix = "@" + NamePrefix();
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

PhoneRequest::PhoneRequest(const std::string& name, const std::vector<std::string>& words,
                           const posix::Deadline& deadline)
    : PhoneRequest(name, NamePrefix() + name, words, deadline) {}

PhoneRequest PhoneRequest::AtPort(const std::string& device, const std::vector<std::string>& words) {
  return {device, PortPath(device), words, posix::Deadline(CONTROL_TIME_OUT)};
}

PhoneRequest::PhoneRequest(const std::string& name, const std::string& path,
                           const std::vector<std::string>& words, const posix::Deadline& deadline)
    : name_(name), deadline_(deadline), socket_(ConnectTo(path, deadline_)) {
  std::string request;
  for (const std::string& word : words) request.append(word.c_str(), word.size() + 1);
  while (!IsRefused() && SendSome(socket_, request) && !request.empty() && !deadline_.HasPassed()) {
    deadline_.WaitFor(socket_.Get(), POLLOUT);
  }
  if (!IsRefused()) shutdown(socket_.Get(), SHUT_WR);
}

Answer PhoneRequest::NoAnswer() const {
  return {false, fmt::format("{}: does not answer\n", name_), {}};
}

Answer PhoneRequest::TakeStatus() {
  if (IsRefused()) return {false, fmt::format("No simulated phone named {} runs.\n", name_), {}};
  if (!deadline_.WaitFor(socket_.Get(), POLLIN)) return NoAnswer();
  char status = ANSWER_BAD;
  const posix::Message message = posix::ReceiveMessage(socket_.Get(), &status, 1);
  if (message.size != 1) return NoAnswer();
  return {status == ANSWER_GOOD, {}, posix::FileDescriptor(message.descriptors[0]), status == ANSWER_LOST};
}

Answer PhoneRequest::TakeText(Answer answer, const posix::Deadline& deadline) {
  if (!answer.text.empty()) return answer;
  char bytes[1 << 14];
  while (true) {
    if (!deadline.WaitFor(socket_.Get(), POLLIN)) return NoAnswer();
    const ssize_t size = read(socket_.Get(), bytes, sizeof bytes);
    if (size < 0 && (errno == EAGAIN || errno == EINTR)) continue;
    if (size <= 0) return answer;
    answer.text.append(bytes, static_cast<size_t>(size));
  }
}

}  // namespace simulator
