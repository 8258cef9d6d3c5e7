// Waiting for a descriptor on a libc whose `select` leaves the time value alone, as POSIX allows.
#include "server/base/wait.h"

#include <gtest/gtest.h>
#include <sys/select.h>
#include <unistd.h>

#include <chrono>

namespace {

bool keepsTime = false;

}  // namespace

// The test program is linked with --wrap=select.
extern "C" int __real_select(int count, fd_set* read, fd_set* write, fd_set* except, timeval* left);
extern "C" int __wrap_select(int count, fd_set* read, fd_set* write, fd_set* except, timeval* left) {
  const timeval given = left != nullptr ? *left : timeval{};
  const int ready = __real_select(count, read, write, except, left);
  if (keepsTime && left != nullptr) *left = given;
  return ready;
}

namespace {

TEST(WaitReadable, LowersTheTimeLeftOnEveryLibc) {
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  for (const bool keeps : {false, true}) {
    keepsTime = keeps;
    timeval left = {0, 100000};
    EXPECT_EQ(WaitReadable(ends[0], &left), 0);
    EXPECT_EQ(left.tv_sec, 0);
    EXPECT_EQ(left.tv_usec, 0) << keeps;
    left = {0, 50000};
    EXPECT_EQ(WaitReadable(-1, &left), 0) << "never readable";
    EXPECT_EQ(left.tv_usec, 0);

    ASSERT_EQ(write(ends[1], "x", 1), 1);
    left = {0, 2000000};  // more than a second, all of it in the microseconds
    EXPECT_EQ(WaitReadable(ends[0], &left), 1);
    const auto micros = static_cast<long>(left.tv_sec) * 1000000 + left.tv_usec;
    EXPECT_GT(left.tv_usec, 0) << "0 would be the end of the time";
    EXPECT_LE(micros, 2000000);
    EXPECT_GT(micros, 1500000);
    char byte;
    ASSERT_EQ(read(ends[0], &byte, 1), 1);
  }
  keepsTime = false;
  close(ends[0]);
  close(ends[1]);
}

}  // namespace
