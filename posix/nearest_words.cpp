#include "posix/nearest_words.h"

#include <algorithm>
#include <cctype>
#include <numeric>
#include <utility>

namespace posix {
namespace {

std::string Lower(std::string_view text) {
  std::string lower(text);
  for (char& letter : lower) letter = static_cast<char>(std::tolower(static_cast<unsigned char>(letter)));
  return lower;
}

// The optimal string alignment distance: letters removed, added, replaced, or exchanged with their neighbour.
std::size_t Distance(const std::string& from, const std::string& to) {
  std::vector<std::size_t> before_last, last(to.size() + 1), row(to.size() + 1);
  std::iota(last.begin(), last.end(), 0);
  for (std::size_t i = 1; i <= from.size(); ++i) {
    row[0] = i;
    for (std::size_t j = 1; j <= to.size(); ++j) {
      const std::size_t replaced = last[j - 1] + (from[i - 1] == to[j - 1] ? 0 : 1);
      row[j] = std::min({last[j] + 1, row[j - 1] + 1, replaced});
      const bool exchanged = i > 1 && j > 1 && from[i - 1] == to[j - 2] && from[i - 2] == to[j - 1];
      if (exchanged) row[j] = std::min(row[j], before_last[j - 2] + 1);
    }
    before_last = std::exchange(last, row);
  }
  return last.back();
}

}  // namespace

std::vector<std::string> NearestWords(std::string_view typed, const std::vector<std::string>& known) {
  constexpr std::size_t MOST = 3;
  constexpr std::size_t LONGEST = 64;  // the work grows with the square
  const std::string wanted = Lower(typed);
  if (wanted.empty() || wanted.size() > LONGEST) return {};
  // A third of the letters may be wrong. An option's hyphens are none.
  const std::size_t letters = wanted.size() - std::min(wanted.find_first_not_of('-'), wanted.size());
  const std::size_t allowed = std::max<std::size_t>(1, (letters + 1) / 3);
  std::vector<std::pair<std::size_t, std::string>> near;
  for (const std::string& word : known) {
    const std::string lower = Lower(word);
    const std::size_t distance = Distance(wanted, lower.substr(0, LONGEST));
    const bool begins = letters >= 2 && lower.starts_with(wanted);
    if (distance <= allowed && distance < letters) {
      near.emplace_back(distance, word);
    } else if (begins) {
      near.emplace_back(allowed + 1, word);
    }
  }
  std::ranges::stable_sort(near, {}, &std::pair<std::size_t, std::string>::first);
  std::vector<std::string> words;
  for (const auto& [distance, word] : near) {
    // A word that is much further than the first one is not what was meant.
    if (words.size() < MOST && distance <= near.front().first + 1 && std::ranges::count(words, word) == 0)
      words.push_back(word);
  }
  return words;
}

std::string DidYouMean(std::string_view typed, const std::vector<std::string>& known) {
  const std::vector<std::string> words = NearestWords(typed, known);
  std::string list;
  for (std::size_t i = 0; i < words.size(); ++i) {
    list += (i == 0 ? "" : i + 1 < words.size() ? ", " : " or ") + words[i];
  }
  return list.empty() ? "" : "; did you mean " + list + "?";
}

}  // namespace posix
