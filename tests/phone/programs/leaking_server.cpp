// A server with a planted leak, built with the address sanitizer: at its end one block of memory is lost
// while a second thread waits in a system call.
#include <poll.h>
#include <unistd.h>

#include <cstdio>
#include <thread>

namespace {

[[gnu::noinline]] void Lose() {
  char* volatile lost = new char[1234];
  lost[0] = 1;
  lost = nullptr;
}

}  // namespace

int main() {
  std::thread([] { sleep(1000); }).detach();
  poll(nullptr, 0, 200);  // until the thread waits
  Lose();
  puts("done");
}
