// libFuzzer's entry. One program has all targets; $FUZZ_TARGET names the one to try.
#include <unistd.h>

#include <algorithm>
#include <string_view>

#include "tests/fuzz/target.h"

static const FuzzTarget& Chosen() {
  const char* name = getenv("FUZZ_TARGET");
  const auto found = std::ranges::find_if(Targets(), [&](const FuzzTarget& target) {
    return name != nullptr && std::string_view(name) == target.name;
  });
  if (found != Targets().end()) return *found;
  fprintf(stderr, "$FUZZ_TARGET names no target\n");
  _exit(2);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
  static const FuzzTarget& target = Chosen();
  target.run(Input({bytes, size}));
  return 0;
}
