#include "web/http_setup.h"

#include <fcntl.h>
#include <sys/socket.h>

#include <functional>
#include <utility>

#include "web/connection_threads.h"

namespace web {
namespace {

// Beside the streams: a browser opens up to six connections and keeps them for a moment.
constexpr size_t COMMAND_THREADS = 32;
constexpr time_t KEEP_ALIVE_SECONDS = 2;
// A viewer that takes nothing for so long is gone.
constexpr time_t WRITE_SECONDS = 20;
// A slow viewer gets old events from the connection's buffer before new ones: keep it small.
constexpr int SEND_BUFFER = 256 << 10;

const httplib::Headers HEADERS = {
    {"Content-Security-Policy",
     "default-src 'none'; script-src 'self'; style-src 'self'; img-src 'self' data: blob:; connect-src "
     "'self'; "
     "form-action 'self'; base-uri 'none'; frame-ancestors 'none'"},
    {"X-Content-Type-Options", "nosniff"},
    {"Referrer-Policy", "same-origin"},
    {"Cross-Origin-Opener-Policy", "same-origin"},
    {"Cross-Origin-Resource-Policy", "same-origin"},
};

class Threads : public httplib::TaskQueue {
 public:
  explicit Threads(size_t most) : threads_(most) {}
  void enqueue(std::function<void()> work) override {
    threads_.Enqueue(std::move(work));
  }
  void shutdown() override {
    threads_.Join();
  }

 private:
  ConnectionThreads threads_;
};

void PrepareSocket(socket_t socket) {
  const int on = 1;
  setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  setsockopt(socket, SOL_SOCKET, SO_SNDBUF, &SEND_BUFFER, sizeof SEND_BUFFER);
  fcntl(socket, F_SETFD, FD_CLOEXEC);
}

}  // namespace

void SetUp(httplib::Server& server, std::size_t most_streams, std::size_t most_request_bytes) {
  server.new_task_queue = [most_streams] { return new Threads(COMMAND_THREADS + most_streams); };
  server.set_socket_options(PrepareSocket);
  server.set_tcp_nodelay(true);
  server.set_keep_alive_timeout(KEEP_ALIVE_SECONDS);
  server.set_keep_alive_max_count(1000);
  server.set_write_timeout(WRITE_SECONDS);
  server.set_payload_max_length(most_request_bytes);
  server.set_default_headers(HEADERS);
}

}  // namespace web
