// A phone whose flash a test looks at: partitions by name, and the journal's lines about them.
#pragma once

#include <span>
#include <string>

#include "simulator/models/flash.h"
#include "tests/phone/phone_test.h"

const Bytes IGNORED = Words({0});

// Status, then data.
Bytes Answer(int32_t status, const Bytes& data);
std::string AsText(const Bytes& bytes);
std::span<const uint8_t> AsBytes(const std::string& text);
std::string Erased(size_t size);

// What accesses to a partition leave in the journal.
const std::string LOOKUP = "shell cat /proc/mtd";
std::string EraseOf(int number);
std::string OpenOf(int number, const std::string& mode);
Lines ReadOf(int number);
Lines RewriteOf(int number);

class FlashTest : public PhoneTest {
 protected:
  FlashTest();

  std::string Flash(const std::string& name);
  void SetFlash(const std::string& name, const std::string& start);
  void SetListed(const std::string& name, bool listed);
  // A command's status when the server gets no more memory from the moment it has opened a file.
  int32_t AskWithoutMemory(const std::string& path, uint32_t code, const Bytes& request);
  // Partitions looked up, erased, and opened by their block devices, since the last mark, in order.
  Lines FlashLines();
};
