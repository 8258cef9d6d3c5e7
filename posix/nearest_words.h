// For a mistyped word: the known ones that are nearest to it.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace posix {

// At most three, the nearest first; none if no known word is near enough to be meant. A word counts as near
// if it begins with what was typed, or few letters are missing, wrong, too many or exchanged with their
// neighbour.
std::vector<std::string> NearestWords(std::string_view typed, const std::vector<std::string>& known);

// "; did you mean clock?", "; did you mean led or lcd?", or nothing.
std::string DidYouMean(std::string_view typed, const std::vector<std::string>& known);

}  // namespace posix
