// The commands that return to the loop, from the protocol's statement, with a request for each that succeeds.
#pragma once

#include <iosfwd>
#include <vector>

#include "protocol/commands.h"
#include "tests/phone/host_line.h"

namespace protocol {

// The name of a test's parameter in messages.
void PrintTo(const CommandDescription& command, std::ostream* out);

}  // namespace protocol

// All but those that end the service or hold it, which tests of their own send.
std::vector<protocol::CommandDescription> CommandsThatReturn();

Bytes RequestFor(const protocol::CommandDescription& command);

// The answer's first word is a status that the command's statement knows, or no failure.
bool IsStatedAnswer(const protocol::CommandDescription& command, const Bytes& answer);
