#include "mirevo/completion_command.h"

#include <algorithm>
#include <iostream>
#include <memory>

#include "mirevo/exit_codes.h"

namespace mirevo {
namespace {

using Words = std::vector<std::string>;

std::string Joined(const Words& words) {
  std::string text;
  for (const std::string& word : words) {
    text += (text.empty() ? "" : " ") + word;
  }
  return text;
}

Words CommandsOf(const CLI::App& app) {
  Words names;
  for (const CLI::App* command : app.get_subcommands(nullptr)) {
    if (!command->get_group().empty()) {
      names.push_back(command->get_name());
    }
  }
  return names;
}

Words OptionsOf(const CLI::App& command) {
  Words names;
  for (const CLI::Option* option : command.get_options()) {
    for (const std::string& name : option->get_lnames()) {
      names.push_back("--" + name);
    }
  }
  return names;
}

// The subcommands of a command, its options, and the options of its subcommands.
Words WordsOf(const CLI::App& command) {
  Words words = CommandsOf(command);
  const Words options = OptionsOf(command);
  words.insert(words.end(), options.begin(), options.end());
  for (const CLI::App* below : command.get_subcommands(nullptr)) {
    for (const std::string& word : WordsOf(*below)) {
      if (std::find(words.begin(), words.end(), word) == words.end()) {
        words.push_back(word);
      }
    }
  }
  return words;
}

void PrintBash(const CLI::App& app) {
  std::cout << "# Completion for mirevo in bash.\n"
               "_mirevo() {\n"
               "  local word=${COMP_WORDS[COMP_CWORD]} command=${COMP_WORDS[1]} words=\n"
               "  if [ \"$COMP_CWORD\" -eq 1 ]; then\n"
               "    words='"
            << Joined(CommandsOf(app)) << " " << Joined(OptionsOf(app))
            << "'\n  else\n    case $command in\n";
  for (const CLI::App* command : app.get_subcommands(nullptr)) {
    std::cout << "      " << command->get_name() << ") words='" << Joined(WordsOf(*command))
              << "' ;;\n";
  }
  std::cout << "    esac\n"
               "  fi\n"
               "  mapfile -t COMPREPLY < <(compgen -W \"$words\" -- \"$word\")\n"
               "  if [[ $COMP_CWORD -gt 1 && $word != -* ]]; then\n"
               "    compopt -o filenames 2> /dev/null\n"
               "    mapfile -t -O ${#COMPREPLY[@]} COMPREPLY < <(compgen -f -- \"$word\")\n"
               "  fi\n"
               "}\n"
               "complete -F _mirevo mirevo\n";
}

void PrintZsh(const CLI::App& app) {
  std::cout << "#compdef mirevo\n"
               "# Completion for mirevo in zsh.\n"
               "if (( CURRENT == 2 )); then\n"
               "  compadd -- "
            << Joined(CommandsOf(app)) << "\n  return\nfi\ncase $words[2] in\n";
  for (const CLI::App* command : app.get_subcommands(nullptr)) {
    std::cout << "  " << command->get_name() << ") compadd -- " << Joined(WordsOf(*command))
              << " ;;\n";
  }
  std::cout << "esac\n[[ $PREFIX == -* ]] || _files\n";
}

// The description in single quotes, as fish reads them.
std::string Quoted(const std::string& text) {
  std::string quoted = "'";
  for (const char c : text) {
    quoted += c == '\'' || c == '\\' ? std::string("\\") + c : std::string(1, c);
  }
  return quoted + "'";
}

void PrintFish(const CLI::App& app) {
  std::cout << "# Completion for mirevo in fish.\n";
  for (const CLI::App* command : app.get_subcommands(nullptr)) {
    std::cout << "complete -c mirevo -n __fish_use_subcommand -f -a " << command->get_name()
              << " -d " << Quoted(command->get_description()) << "\n";
    for (const CLI::Option* option : command->get_options()) {
      for (const std::string& name : option->get_lnames()) {
        std::cout << "complete -c mirevo -n '__fish_seen_subcommand_from " << command->get_name()
                  << "' -l " << name << " -d " << Quoted(option->get_description()) << "\n";
      }
    }
  }
}

struct Shell {
  const char* name;
  void (*print)(const CLI::App& app);
};
constexpr Shell kShells[] = {{"bash", PrintBash}, {"zsh", PrintZsh}, {"fish", PrintFish}};

void Print(const CLI::App& app, const std::string& name) {
  for (const Shell& shell : kShells) {
    if (name == shell.name) {
      shell.print(app);
    }
  }
}

}  // namespace

void AddCompletionCommand(CLI::App& app, int& exitCode) {
  auto shell = std::make_shared<std::string>();
  CLI::App* const command = app.add_subcommand(
      "completion", "Print a script with which a shell completes command lines of mirevo");
  std::vector<std::string> names;
  for (const Shell& row : kShells) {
    names.emplace_back(row.name);
  }
  command->add_option("shell", *shell, "The shell")->required()->check(CLI::IsMember(names));
  command->callback([&app, shell, &exitCode] {
    Print(app, *shell);
    exitCode = kOk;
  });
}

}  // namespace mirevo
