// Every input that is kept for a fuzz target goes through it once: what broke something, or reached code that
// no other reached.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>

#include "tests/fuzz/target.h"

namespace {

class Corpus : public testing::Test {
 public:
  explicit Corpus(const FuzzTarget& target) : target_(target) {}

  void TestBody() override {
    size_t count = 0;
    for (const auto& file : std::filesystem::directory_iterator(CORPUS "/" + std::string(target_.name))) {
      std::ifstream content(file.path(), std::ios::binary);
      const std::vector<char> bytes(std::istreambuf_iterator<char>(content), {});
      target_.run(Input({reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size()}));
      ++count;
    }
    EXPECT_NE(count, 0u);
  }

 private:
  FuzzTarget target_;
};

}  // namespace

int main(int argument_count, char** arguments) {
  testing::InitGoogleTest(&argument_count, arguments);
  for (const FuzzTarget& target : Targets()) {
    testing::RegisterTest("Corpus", target.name, nullptr, nullptr, __FILE__, __LINE__,
                          [target] { return new Corpus(target); });
  }
  return RUN_ALL_TESTS();
}
