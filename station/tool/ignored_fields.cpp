#include "station/tool/ignored_fields.h"

#include <fmt/format.h>

#include <algorithm>

#include "posix/nearest_words.h"
#include "station/commands/command.h"
#include "station/commands/errors.h"

namespace station {

namespace {

std::vector<std::string> NamesOf(const Command& command) {
  std::vector<std::string> names = {command.name};
  for (const Verb& verb : command.verbs) names.push_back(verb.words);
  return names;
}

const Command& CommandNamed(const std::string& name) {
  std::vector<std::string> known;
  for (const Command& command : CommandTable()) {
    for (std::string& one : NamesOf(command)) {
      if (one == name) return command;
      known.push_back(std::move(one));
    }
  }
  throw UsageError(
      fmt::format("--ignore: there is no command \"{}\"{}", name, posix::DidYouMean(name, known)));
}

}  // namespace

IgnoredFields::IgnoredFields(const std::vector<std::string>& texts) {
  for (const std::string& text : texts) {
    const std::size_t dot = text.rfind('.');
    const Command& command = CommandNamed(text.substr(0, dot));
    const std::string wanted = dot == std::string::npos ? "" : text.substr(dot + 1);
    const std::size_t before = places_.size();
    std::size_t offset = 0;
    std::vector<std::string> known;
    for (const protocol::Field& field : command.answer) {
      if (dot == std::string::npos || wanted == field.name)
        places_.push_back({command.code, offset, field.size});
      offset += field.size;
      known.emplace_back(field.name);
    }
    if (places_.size() != before) continue;
    throw UsageError(fmt::format("--ignore: the answer to \"{}\" has no field \"{}\"{}", text.substr(0, dot),
                                 wanted, posix::DidYouMean(wanted, known)));
  }
}

void IgnoredFields::Equate(std::span<const std::uint8_t> sent, std::span<const std::uint8_t> recorded,
                           Bytes& came) const {
  if (sent.size() < 4) return;
  const std::uint32_t code = WordAt(sent, 0);
  for (const Place& place : places_) {
    if (place.code != code) continue;
    const std::size_t end = std::min({place.offset + place.size, recorded.size(), came.size()});
    for (std::size_t at = place.offset; at < end; ++at) came[at] = recorded[at];
  }
}

}  // namespace station
