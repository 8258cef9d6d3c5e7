#include "tests/fuzz/target.h"

std::vector<FuzzTarget>& Targets() {
  static std::vector<FuzzTarget> targets;
  return targets;
}
