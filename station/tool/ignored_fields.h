// Fields of answers that a replay does not compare, since time or chance changes them.
#pragma once

#include <span>
#include <string>
#include <vector>

#include "station/commands/bytes.h"

namespace station {

class IgnoredFields {
 public:
  IgnoredFields() = default;
  // Each as "COMMAND.FIELD": words of the command line or the command's name in the trace, and a field of its
  // answer; "COMMAND" alone for all fields. Throws UsageError.
  explicit IgnoredFields(const std::vector<std::string>& texts);

  // Puts the recorded bytes of these fields in the place of those that came.
  void Equate(std::span<const std::uint8_t> sent, std::span<const std::uint8_t> recorded, Bytes& came) const;

 private:
  struct Place {
    std::uint32_t code;
    std::size_t offset;
    std::size_t size;
  };

  std::vector<Place> places_;
};

}  // namespace station
