// The two tokens of a line's page in a file, so that they stay the same when the program starts again and
// can be handed to the people.
#pragma once

#include <map>
#include <string>

namespace station {

// Reads "operator TOKEN" and "manager TOKEN", a line each. If there is no such file, makes it, with new
// tokens, for this user alone. Returns the tokens by role. Throws UsageError, also for a file that others can
// read.
std::map<std::string, std::string> ReadTokens(const std::string& path);

}  // namespace station
