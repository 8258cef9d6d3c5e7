#include "completion/bash_completion.h"

#include <fmt/format.h>

#include <map>

namespace completion {

namespace {

// The words before the cursor that are subcommands make the path. Words that the program tells are never
// expanded: the name of a file may be anything.
constexpr const char* SCRIPT = R"bash(# bash completion for {program}; printed by "{program} completion".
_{program}() {{
  local current=${{COMP_WORDS[COMP_CWORD]}} path= word value= names options valued source free
  _{program}_at ''
  for word in "${{COMP_WORDS[@]:1:COMP_CWORD-1}}"; do
    if [[ -n $value ]]; then
      [[ $word == = ]] || value=
    elif [[ $word == -* ]]; then
      [[ "$valued{global_valued} " != *" $word "* ]] || value=$word
    elif [[ "$names " == *" $word "* ]]; then
      path="${{path:+$path }}$word"
      _{program}_at "$path"
    fi
  done
  [[ $current != = ]] || current=
  if [[ -n $value ]]; then
    names= source=
    case $value in
{kinds}    esac
  elif [[ $current == -* || -z $names$source$free ]]; then
    names="$options{globals}" source=
  fi
  COMPREPLY=($(compgen -W "$names" -- "$current"))
  [[ -n $source ]] || return 0
  while IFS= read -r word; do
    [[ $word != "$current"* ]] || COMPREPLY+=("$(printf %q "$word")")
  done < <("${{COMP_WORDS[0]}}" completion "$source" 2>/dev/null)
}}
_{program}_at() {{
  names= options= valued= source= free=
  case $1 in
{cases}  esac
}}
complete -o default -F _{program} {program}
)bash";

std::string KindOf(const CLI::Option& option, const std::vector<Source>& sources) {
  for (const Source& source : sources) {
    if (option.get_type_name() == source.form) return source.kind;
  }
  return "";
}

struct Words {
  std::string options;
  std::string valued;  // those of the options that a value follows
};

Words OptionWords(const CLI::App& app) {
  Words words;
  for (const CLI::Option* option : app.get_options()) {
    std::string names;
    for (const std::string& name : option->get_snames()) names += " -" + name;
    for (const std::string& name : option->get_lnames()) names += " --" + name;
    words.options += names;
    if (option->get_items_expected_max() != 0) words.valued += names;
  }
  return words;
}

class Script {
 public:
  explicit Script(const std::vector<Source>& sources) : sources_(sources) {}

  // A case for the words after each chain of subcommands.
  void AddCases(const CLI::App& app, const std::string& path, const std::vector<std::string>& more_words) {
    std::string names;
    for (const CLI::App* subcommand : app.get_subcommands({})) names += " " + subcommand->get_name();
    for (const std::string& word : more_words) names += " " + word;
    std::string source;
    bool free = false;
    for (const CLI::Option* option : app.get_options()) {
      const std::string kind = KindOf(*option, sources_);
      for (const std::string& name : option->get_lnames()) {
        if (!kind.empty()) kinds_["--" + name] = kind;
      }
      if (!option->get_positional()) continue;
      free = true;
      if (!kind.empty()) source = kind;
    }
    const auto [options, valued] = OptionWords(app);
    cases_ += fmt::format("    '{}') names='{}' options='{}' valued='{}' source={} free={} ;;\n", path, names,
                          options, valued, source, free ? "1" : "");
    for (const CLI::App* subcommand : app.get_subcommands({})) {
      AddCases(*subcommand, path.empty() ? subcommand->get_name() : path + " " + subcommand->get_name(), {});
    }
  }

  std::string Text(const CLI::App& app) const {
    std::string kinds;
    for (const auto& [option, kind] : kinds_) kinds += fmt::format("      {}) source={} ;;\n", option, kind);
    const auto [globals, global_valued] = OptionWords(app);
    return fmt::format(SCRIPT, fmt::arg("program", app.get_name()), fmt::arg("globals", globals),
                       fmt::arg("global_valued", global_valued), fmt::arg("kinds", kinds),
                       fmt::arg("cases", cases_));
  }

 private:
  const std::vector<Source>& sources_;
  std::string cases_;
  std::map<std::string, std::string> kinds_;  // by option
};

}  // namespace

std::string BashScript(const CLI::App& app, const std::vector<Source>& sources,
                       const std::vector<std::string>& more_words) {
  Script script(sources);
  script.AddCases(app, "", more_words);
  return script.Text(app);
}

}  // namespace completion
