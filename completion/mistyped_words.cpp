#include "completion/mistyped_words.h"

#include <fmt/format.h>

#include <algorithm>

#include "posix/nearest_words.h"

namespace completion {

namespace {

using Path = std::vector<const CLI::App*>;

std::vector<std::string> CommandNames(const CLI::App& app) {
  std::vector<std::string> names;
  for (const CLI::App* subcommand : app.get_subcommands({})) names.push_back(subcommand->get_name());
  return names;
}

// Options may follow any of the commands that they belong to.
const CLI::Option* FindOption(const Path& path, const std::string& name) {
  for (const CLI::App* app : path) {
    if (const CLI::Option* option = app->get_option_no_throw(name)) return option;
  }
  return nullptr;
}

std::vector<std::string> OptionNames(const Path& path) {
  std::vector<std::string> names;
  for (const CLI::App* app : path) {
    for (const CLI::Option* option : app->get_options()) {
      for (const std::string& name : option->get_lnames()) names.push_back("--" + name);
    }
  }
  return names;
}

std::string CommandWords(const Path& path) {
  std::string words;
  for (std::size_t i = 1; i < path.size(); ++i) words += (i == 1 ? "" : " ") + path[i]->get_name();
  return words;
}

}  // namespace

std::string Mistyped(const CLI::App& app, const std::vector<std::string>& words,
                     const std::optional<std::vector<std::string>>& more_commands) {
  Path path = {&app};
  for (std::size_t i = 0; i < words.size() && words[i] != "--"; ++i) {
    const std::string& word = words[i];
    if (word.starts_with("--")) {
      const std::size_t equals = word.find('=');
      const std::string name = word.substr(0, equals);
      const CLI::Option* option = FindOption(path, name);
      if (option == nullptr) {
        return fmt::format("there is no option {}{}", name, posix::DidYouMean(name, OptionNames(path)));
      }
      if (option == app.get_help_ptr() || name == "--help" || name == "--version") return "";
      if (option->get_items_expected_max() > 0 && equals == std::string::npos) ++i;
      continue;
    }
    if (word == "-h") return "";
    const std::vector<std::string> names = CommandNames(*path.back());
    // Numbers may be negative, and short options are left to the parser.
    if (names.empty() || word.starts_with('-')) continue;
    if (std::ranges::find(names, word) == names.end()) {
      std::vector<std::string> known = names;
      if (path.size() == 1) {
        if (!more_commands || std::ranges::find(*more_commands, word) != more_commands->end()) return "";
        known.insert(known.end(), more_commands->begin(), more_commands->end());
      }
      const std::string before = CommandWords(path);
      return fmt::format("there is no command {}{}{}{}", before, before.empty() ? "" : " ", word,
                         posix::DidYouMean(word, known));
    }
    path.push_back(
        path.back()->get_subcommands([&](const CLI::App* each) { return each->get_name() == word; }).front());
  }
  const std::vector<std::string> names = CommandNames(*path.back());
  if (path.size() == 1 || names.empty()) return "";
  return fmt::format("{} needs one of {}", CommandWords(path), fmt::join(names, ", "));
}

}  // namespace completion
