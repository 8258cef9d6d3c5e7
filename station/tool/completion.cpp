#include "station/tool/completion.h"

#include <fmt/format.h>

namespace station {

namespace {

std::string Words(const CLI::App& app) {
  std::string words;
  for (const CLI::App* subcommand : app.get_subcommands({})) words += subcommand->get_name() + " ";
  for (const CLI::Option* option : app.get_options()) {
    for (const std::string& name : option->get_lnames()) words += "--" + name + " ";
  }
  return words;
}

// A case for the words behind each chain of subcommands.
void AddCases(const CLI::App& app, const std::string& path, std::string& cases) {
  cases += fmt::format("    '{}') words='{}' ;;\n", path, Words(app));
  for (const CLI::App* subcommand : app.get_subcommands({})) {
    AddCases(*subcommand, path.empty() ? subcommand->get_name() : path + " " + subcommand->get_name(), cases);
  }
}

// The words before the cursor that are subcommands make the path; global options are offered everywhere.
constexpr const char* SCRIPT = R"(# bash completion for phonetest; printed by "phonetest completion".
_phonetest() {{
  local path= word words
  for word in "${{COMP_WORDS[@]:1:COMP_CWORD-1}}"; do
    [[ $word == -* ]] && continue
    _phonetest_words "${{path:+$path }}$word"
    [[ -n $words ]] && path="${{path:+$path }}$word"
  done
  _phonetest_words "$path"
  COMPREPLY=($(compgen -W "$words{}" -- "${{COMP_WORDS[COMP_CWORD]}}"))
}}
_phonetest_words() {{
  words=
  case $1 in
{}  esac
}}
complete -o default -F _phonetest phonetest
)";

}  // namespace

std::string BashCompletion(const CLI::App& app) {
  std::string cases;
  AddCases(app, "", cases);
  std::string globals;
  for (const CLI::Option* option : app.get_options()) {
    for (const std::string& name : option->get_lnames()) globals += " --" + name;
  }
  return fmt::format(SCRIPT, globals, cases);
}

}  // namespace station
