#include "tool/Reference.h"

#include "tool/Command.h"
#include "tool/Commands.h"
#include "tool/Common.h"
#include "tool/ReferenceModel.h"

#include <filesystem>
#include <fstream>
#include <iostream>
#include <memory>

namespace tool {

namespace {

std::string replaced(std::string text, const std::string& from, const std::string& to) {
  for (std::size_t at = 0; (at = text.find(from, at)) != std::string::npos; at += to.size()) {
    text.replace(at, from.size(), to);
  }
  return text;
}

std::string upper(std::string text) {
  for (char& c : text) {
    c = c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
  }
  return text;
}

// "-h, --help" or "--from TEXT"
std::string shown(const ReferenceOption& option) {
  std::string text;
  for (const std::string& name : option.names) {
    text += (text.empty() ? "" : ", ") + name;
  }
  const bool positional = option.names.front().front() != '-';
  return text + (positional || option.value.empty() ? "" : " " + option.value) +
         (option.repeats ? "..." : "");
}

// A positional with a fixed choice says it behind its meaning; an option shows it beside its name.
std::string meaning(const ReferenceOption& option) {
  const bool positional = option.names.front().front() != '-';
  return option.text + (positional && !option.choices.empty() ? " (" + option.value + ")" : "");
}

// --- Manual pages
// ---------------------------------------------------------------------------------------------

// roff reads backslashes anywhere and dots and quotes at the beginning of a line; a bare dash is a hyphen.
std::string roff(const std::string& text) {
  std::string line = replaced(replaced(text, "\\", "\\e"), "-", "\\-");
  return !line.empty() && (line.front() == '.' || line.front() == '\'') ? "\\&" + line : line;
}

std::string manOptions(const std::string& heading, const std::vector<ReferenceOption>& options) {
  std::string page = options.empty() ? "" : ".SH " + heading + "\n";
  for (const ReferenceOption& option : options) {
    page += ".TP\n.B " + roff(shown(option)) + "\n" + roff(meaning(option)) + "\n";
  }
  return page;
}

// The footer of --help: paragraphs, of which examples and what the exit status means have sections of their
// own.
std::string manFooter(const std::string& footer) {
  std::string page;
  bool table = false;
  bool begins = true;
  for (const std::string& line : referenceLines(footer)) {
    if (line.empty()) {
      begins = true;
      continue;
    }
    const bool indented = line.front() == ' ';
    if (table && !indented) {
      page += ".fi\n";
      table = false;
    }
    if (line == "Examples:" || line == "Example:") {
      page += ".SH EXAMPLES\n";
    } else if (line.starts_with("Exit status")) {
      page += ".SH EXIT STATUS\n" + roff(line) + "\n";
    } else if (indented) {
      page += table ? "" : ".PP\n.nf\n";
      table = true;
      page += roff(line) + "\n";
    } else {
      page += (begins ? ".PP\n" : ".br\n") + roff(line) + "\n";
    }
    begins = false;
  }
  return page + (table ? ".fi\n" : "");
}

std::string manPage(const ReferenceCommand& command, const std::vector<ReferenceCommand>& commands,
                    const std::string& version) {
  const std::string name = command.name.empty() ? "xpacl" : "xpacl-" + command.name;
  std::string page = ".\\\" Made by xpacl reference; do not edit.\n";
  page += ".TH " + upper(name) + " 1 \"\" \"XpAclTcam " + version + "\" \"XpAclTcam\"\n";
  const std::string brief = command.name.empty() ? "access lists in TCAM rows" : command.text;
  page += ".SH NAME\n" + roff(name) + " \\- " + roff(brief) + "\n";
  page += ".SH SYNOPSIS\n.B " + roff(command.usage()) + "\n";
  page += ".SH DESCRIPTION\n" + roff(command.text) + "\n";
  page += manOptions("ARGUMENTS", command.positionals) + manOptions("OPTIONS", command.options);
  std::string related;
  if (command.name.empty()) {
    page += ".SH COMMANDS\n";
    for (const ReferenceCommand& each : commands) {
      page += ".TP\n.B " + roff(each.name) + "\n" + roff(each.text) + "\n";
      related += (related.empty() ? "" : ", ") + ("\\fBxpacl\\-" + roff(each.name)) + "\\fR(1)";
    }
  } else {
    related = "\\fBxpacl\\fR(1)";
  }
  return page + manFooter(command.footer) + ".SH SEE ALSO\n" + related + "\n";
}

// --- The command reference
// ------------------------------------------------------------------------------------

std::string cell(const std::string& text) {
  return replaced(text, "|", "\\|");
}

std::string markdownOptions(const std::string& heading, const std::vector<ReferenceOption>& options) {
  if (options.empty()) {
    return "";
  }
  std::string table = "| " + heading + " | |\n|---|---|\n";
  for (const ReferenceOption& option : options) {
    table += "| `" + cell(shown(option)) + "` | " + cell(meaning(option)) + " |\n";
  }
  return table + "\n";
}

std::string indented(const std::string& text) {
  std::string block;
  for (const std::string& line : referenceLines(text)) {
    block += (line.empty() ? "" : "    " + line) + "\n";
  }
  return block;
}

// --- Completion
// -----------------------------------------------------------------------------------------------

std::string joined(const std::vector<std::string>& words, const std::string& between = " ") {
  std::string text;
  for (const std::string& word : words) {
    text += (text.empty() ? "" : between) + word;
  }
  return text;
}

std::vector<std::string> optionNames(const std::vector<ReferenceOption>& options, bool withValue) {
  std::vector<std::string> names;
  for (const ReferenceOption& option : options) {
    if (!withValue || !option.value.empty()) {
      names.insert(names.end(), option.names.begin(), option.names.end());
    }
  }
  return names;
}

// What is behind an option, or stands at a place among the positionals, where the choice is fixed.
std::string bashChoices(const ReferenceCommand& command) {
  std::string cases;
  for (const ReferenceOption& option : command.options) {
    for (const std::string& name : option.names) {
      if (!option.choices.empty()) {
        cases += "    '" + command.name + " " + name + "') choices='" + joined(option.choices) + "' ;;\n";
      }
    }
  }
  std::size_t place = 0;
  for (const ReferenceOption& positional : command.positionals) {
    ++place;
    if (!positional.choices.empty()) {
      cases += "    '" + command.name + " " + std::to_string(place) + "') choices='" +
               joined(positional.choices) + "' ;;\n";
    }
  }
  return cases;
}

// What zsh's _arguments reads specially, inside single quotes.
std::string zshText(const std::string& text) {
  std::string safe = text;
  for (const char* special : {"\\", "[", "]", ":"}) {
    safe = replaced(safe, special, std::string("\\") + special);
  }
  return replaced(safe, "'", "'\\''");
}

std::string zshValue(const ReferenceOption& option) {
  const std::string action = !option.choices.empty() ? "(" + joined(option.choices) + ")"
                             : option.anyText        ? "_files"
                                                     : " ";
  return ":" + zshText(option.choices.empty() ? option.value : "one of") + ":" + action;
}

std::string zshArguments(const ReferenceCommand& command) {
  std::string lines;
  for (const ReferenceOption& option : command.options) {
    for (const std::string& name : option.names) {
      lines += " \\\n        '" + std::string(option.repeats ? "*" : "") + name + "[" + zshText(option.text) +
               "]" + (option.value.empty() ? "" : zshValue(option)) + "'";
    }
  }
  std::size_t place = 0;
  for (const ReferenceOption& positional : command.positionals) {
    ReferenceOption argument = positional;
    argument.value = positional.names.front();
    ++place;
    lines += " \\\n        '" + (positional.repeats ? "*" : std::to_string(place)) + zshValue(argument) + "'";
  }
  return lines;
}

// --- The command
// ----------------------------------------------------------------------------------------------

struct ReferenceOptions {
  std::string format;
  std::string folder;
};

int runReference(Command program, const ReferenceOptions& options) {
  if (options.format == "man") {
    if (options.folder.empty()) {
      throw Exit(exitBadInput, "--format man writes several pages: name their folder with --folder");
    }
    std::filesystem::create_directories(options.folder);
    for (const ReferenceFile& page : manPages(program, XPACL_VERSION)) {
      const std::filesystem::path path = std::filesystem::path(options.folder) / page.name;
      std::ofstream stream(path, std::ios::binary);
      stream << page.text << std::flush;
      if (!stream) {
        throw Exit(exitBadInput, path.string() + ": cannot be written");
      }
    }
    return exitDone;
  }
  std::cout << (options.format == "markdown" ? markdownReference(program)
                : options.format == "bash"   ? bashCompletion(program)
                                             : zshCompletion(program));
  return exitDone;
}

} // namespace

std::vector<ReferenceFile> manPages(Command program, const std::string& version) {
  const std::vector<ReferenceCommand> commands = referenceCommands(program);
  std::vector<ReferenceFile> pages{{"xpacl.1", manPage(referenceOf(program), commands, version)}};
  for (const ReferenceCommand& command : commands) {
    pages.push_back({"xpacl-" + command.name + ".1", manPage(command, commands, version)});
  }
  return pages;
}

std::string markdownReference(Command program) {
  const ReferenceCommand whole = referenceOf(program);
  const std::vector<ReferenceCommand> commands = referenceCommands(program);
  std::string text =
      "# Commands\n\n"
      "<!-- Made by `xpacl reference --format markdown` from what --help says; do not edit. -->\n\n" +
      whole.text + "\n\n| command | |\n|---|---|\n";
  for (const ReferenceCommand& command : commands) {
    text += "| [" + command.name + "](#xpacl-" + command.name + ") | " + cell(command.text) + " |\n";
  }
  text += "\n" + indented(whole.footer) + "\n" + markdownOptions("options", whole.options);
  for (const ReferenceCommand& command : commands) {
    text += "## xpacl " + command.name + "\n\n" + command.text + ".\n\n";
    if (command.text.back() == '?' || command.text.back() == '.') {
      text.erase(text.size() - 3, 1);
    }
    text += indented(command.usage()) + "\n" + markdownOptions("arguments", command.positionals) +
            markdownOptions("options", command.options);
    if (!command.footer.empty()) {
      text += indented(command.footer) + "\n";
    }
  }
  text.pop_back();
  return text;
}

std::string bashCompletion(Command program) {
  const std::vector<ReferenceCommand> commands = referenceCommands(program);
  std::vector<std::string> names;
  std::string options;
  std::string values;
  std::string choices;
  for (const ReferenceCommand& command : commands) {
    names.push_back(command.name);
    options += "    " + command.name + ") options='" + joined(optionNames(command.options, false)) + "' ;;\n";
    values +=
        "    " + command.name + ") takesValue=' " + joined(optionNames(command.options, true)) + " ' ;;\n";
    choices += bashChoices(command);
  }
  return "# Completion of xpacl for bash. Made by xpacl reference; do not edit.\n"
         "_xpacl() {\n"
         "  local current=${COMP_WORDS[COMP_CWORD]} command= before= place=0 word options= takesValue= "
         "choices=\n"
         "  COMPREPLY=()\n"
         "  for word in \"${COMP_WORDS[@]:1:COMP_CWORD-1}\"; do\n"
         "    if [[ -z $command ]]; then\n"
         "      [[ $word == -* ]] || command=$word\n"
         "      case $command in\n" +
         replaced(values, "    ", "        ") +
         "      esac\n"
         "    elif [[ -n $before ]]; then\n"
         "      before=\n"
         "    elif [[ $takesValue == *\" $word \"* ]]; then\n"
         "      before=$word\n"
         "    elif [[ $word != -* ]]; then\n"
         "      place=$((place + 1))\n"
         "    fi\n"
         "  done\n"
         "  if [[ -z $command ]]; then\n"
         "    mapfile -t COMPREPLY < <(compgen -W '" +
         joined(names) + " " + joined(optionNames(referenceOf(program).options, false)) +
         "' -- \"$current\")\n"
         "    return\n"
         "  fi\n"
         "  case $command in\n" +
         options +
         "  esac\n"
         "  case \"$command ${before:-$((place + 1))}\" in\n" +
         choices +
         "  esac\n"
         "  if [[ -n $choices ]]; then\n"
         "    mapfile -t COMPREPLY < <(compgen -W \"$choices\" -- \"$current\")\n"
         "  elif [[ -z $before && $current == -* ]]; then\n"
         "    mapfile -t COMPREPLY < <(compgen -W \"$options\" -- \"$current\")\n"
         "  else\n"
         "    mapfile -t COMPREPLY < <(compgen -f -- \"$current\")\n"
         "    compopt -o filenames 2>/dev/null || true\n"
         "  fi\n"
         "}\n"
         "complete -F _xpacl xpacl\n";
}

std::string zshCompletion(Command program) {
  std::string names;
  std::string cases;
  for (const ReferenceCommand& command : referenceCommands(program)) {
    names += "    '" + command.name + ":" + zshText(command.text) + "'\n";
    cases += "    " + command.name + ")\n      _arguments" + zshArguments(command) + "\n      ;;\n";
  }
  return "#compdef xpacl\n"
         "# Completion of xpacl for zsh. Made by xpacl reference; do not edit.\n"
         "_xpacl() {\n"
         "  local -a commands\n"
         "  commands=(\n" +
         names +
         "  )\n"
         "  if ((CURRENT == 2)); then\n"
         "    _describe -t commands 'xpacl command' commands\n"
         "    return\n"
         "  fi\n"
         "  local command=$words[2]\n"
         "  shift words\n"
         "  ((CURRENT--))\n"
         "  case $command in\n" +
         cases +
         "  esac\n"
         "}\n"
         "_xpacl \"$@\"\n";
}

void addReference(Command program, Run& run) {
  auto options = std::make_shared<ReferenceOptions>();
  const Command command = program.subcommand(
      "reference", "What --help says, as manual pages, a command reference or completion for a shell");
  // For packages and the documentation; not among the commands that people look for.
  command.hide();
  command.option("--format", options->format, "What to make")
      .oneOf({"man", "markdown", "bash", "zsh"})
      .required();
  command.option("--folder", options->folder, "Where the manual pages go; made when it does not stand yet");
  command.runs(run, [options, program] { return runReference(program, *options); });
}

} // namespace tool
