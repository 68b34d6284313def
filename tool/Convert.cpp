#include "tool/Convert.h"

#include "agent/config/ConfigReader.h"
#include "agent/config/Lexer.h"
#include "agent/config/ListDrafts.h"
#include "agent/config/OpenConfigText.h"

#include "packet/PacketText.h"

#include "verify/ListDiff.h"

#include "agent/Aggregate.h"
#include "tool/Command.h"
#include "tool/Commands.h"
#include "tool/Common.h"
#include "tool/JsonDocument.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cerrno>
#include <fstream>
#include <iostream>
#include <memory>
#include <system_error>

namespace tool {

namespace {

struct ConvertOptions : CommonOptions {
  std::string config;
  std::string to;
  std::string output;
};

// The list that permits what this one logs.
agent::AccessList logged(agent::AccessList list) {
  for (agent::Rule& rule : list.rules.edit()) {
    rule.permit = rule.log;
  }
  return list;
}

std::string packetsDiffer(const agent::AccessList& before, const agent::AccessList& after) {
  verify::PacketSpace space(before.family);
  const verify::ListDiff diff = verify::diff(space, &before, &after, space.all());
  if (diff.isEmpty()) {
    return "";
  }
  const verify::VerdictChange& change = diff.denied.packets.isEmpty() ? diff.permitted : diff.denied;
  return packet::toText(change.witness);
}

std::string listsDiffer(const agent::AccessList& before, const agent::AccessList& after) {
  if (sameRules(before, after)) {
    return "";
  }
  const std::string where = std::string(familyName(before.family)) + " list " + before.name;
  if (before.rules.empty() != after.rules.empty()) {
    return where + ": one of the two has no lines";
  }
  const std::string verdict = packetsDiffer(before, after);
  if (!verdict.empty()) {
    return where + " judges this packet differently: " + verdict;
  }
  const std::string log = packetsDiffer(logged(before), logged(after));
  return log.empty() ? "" : where + " does not log the same, such as " + log;
}

std::string listsText(const agent::Config& config) {
  std::vector<std::string> names;
  for (const agent::AccessList& list : config.lists) {
    names.push_back(std::string(familyName(list.family)) + " list " + list.name + "\n");
  }
  std::sort(names.begin(), names.end());
  std::string text;
  for (const std::string& name : names) {
    text += name;
  }
  return text;
}

// Where lists are applied, which VLANs are carried, what is on which chip.
std::string placesText(const agent::Config& config) {
  std::string text;
  for (const agent::Interface& intf : config.interfaces) {
    if (intf.kind == agent::InterfaceKind::unsupported) {
      continue;
    }
    std::vector<std::string> bindings;
    for (const agent::Binding& binding : intf.bindings) {
      bindings.push_back(std::string(" ") + familyName(binding.family) + " " + binding.list + " " +
                         directionName(binding.direction));
    }
    std::sort(bindings.begin(), bindings.end());
    text += intf.name + " " + intf.portName + " chip " + std::to_string(intf.chip);
    text += intf.channelGroup ? " in Port-Channel" + std::to_string(*intf.channelGroup) : "";
    // An access VLAN is the only one, whatever else stands there.
    text += intf.accessVlan ? " VLAN " + std::to_string(*intf.accessVlan) : intf.trunk ? " trunk" : "";
    for (const agent::PortRange& range : intf.accessVlan ? agent::PortSet{} : intf.allowedVlans) {
      text += " " + std::to_string(range.low) + "-" + std::to_string(range.high);
    }
    for (const std::string& binding : bindings) {
      text += binding;
    }
    text += "\n";
  }
  for (const uint16_t vlan : config.vlans) {
    text += "VLAN " + std::to_string(vlan) + "\n";
  }
  for (const auto& [table, rows] : config.tcamRows) {
    text += std::string(agent::tableName(table)) + " " + std::to_string(rows) + "\n";
  }
  return text + std::to_string(config.numChips) + " chips\n";
}

std::string firstDifferentLine(const std::string& before, const std::string& after) {
  std::size_t at = 0;
  while (at < before.size() && at < after.size() && before[at] == after[at]) {
    ++at;
  }
  const auto lineOf = [at](const std::string& text) {
    const std::size_t start = at == 0 ? 0 : text.rfind('\n', std::min(at, text.size()) - 1);
    const std::size_t first = start == std::string::npos || at == 0 ? 0 : start + 1;
    const std::string line = text.substr(first, text.find('\n', first) - first);
    return line.empty() ? "nothing" : "'" + line + "'";
  };
  return lineOf(before) + " becomes " + lineOf(after);
}

bool hasErrors(const agent::Config& config) {
  return config.hasErrors() || std::any_of(config.lists.begin(), config.lists.end(),
                                           [](const agent::AccessList& list) { return list.hasErrors; });
}

// What is written says the same when it is read again.
void checkConverted(const agent::Config& config, agent::InputFormat target, Converted& result) {
  agent::ReadOptions options;
  options.format = target;
  const agent::Config again = agent::readConfigText(result.text, "the result", options);
  const bool wrong = hasErrors(again); // of a list that is applied nowhere a warning says it
  for (const agent::Diagnostic& diagnostic : again.diagnostics) {
    if (wrong) {
      result.losses.push_back("what is written would not be read: " + diagnostic.text());
    }
  }
  if (!result.losses.empty()) {
    return;
  }
  const std::string differs = difference(config, again);
  if (!differs.empty()) {
    result.losses.push_back("what is written would not say the same: " + differs);
  }
}

bool comparesSourceOnly(const agent::AccessList& list) {
  return std::all_of(list.rules.begin(), list.rules.end(), [](const agent::Rule& rule) {
    return std::all_of(rule.alternatives.begin(), rule.alternatives.end(),
                       [](const agent::Criteria& criteria) {
                         agent::Criteria source;
                         source.srcV4 = criteria.srcV4;
                         source.srcMac = criteria.srcMac;
                         return criteria == source;
                       });
  });
}

// In configuration text a number for a name says what kind a list is; answers whether the list can have it.
bool numberFits(agent::AccessList& list) {
  if (!agent::allDigits(list.name) || list.family == agent::Family::ipv6) {
    return true;
  }
  const bool mac = list.family == agent::Family::mac;
  const agent::ListNumber number = agent::listNumber(list.name);
  if (number == (mac ? agent::ListNumber::macStandard : agent::ListNumber::standard)) {
    list.standard = comparesSourceOnly(list);
    return list.standard;
  }
  return number == (mac ? agent::ListNumber::macExtended : agent::ListNumber::extended) && !list.standard;
}

// The configuration with its lists of the kinds that configuration text wants for their names.
agent::Config forText(agent::Config config, std::vector<std::string>& losses) {
  for (agent::AccessList& list : config.lists) {
    const auto lose = [&losses, &list](const std::string& why) {
      losses.push_back(list.loc.text() + ": " + why);
    };
    const std::string name = agent::quotedWord(list.name);
    if (list.name.empty() || list.name[0] == '!' || list.name[0] == '#' ||
        std::any_of(list.name.begin(), list.name.end(),
                    [](unsigned char c) { return c <= ' ' || c == 0x7F; })) {
      lose("the name " + name +
           " is no single word, which names are in configuration text; give the list another name");
    } else if (!numberFits(list)) {
      lose(
          "the name " + name +
          " is a number that configuration text keeps for lists of another kind; give the list another name");
    }
    if (list.hasErrors) {
      lose("the list " + name + " has lines with errors, which are not converted; mend or delete them");
      list.hasErrors = false; // which is said now
    }
  }
  for (const agent::Interface& intf : config.interfaces) {
    for (const agent::Binding& refused : intf.refusedBindings) {
      losses.push_back(refused.loc.text() + ": the list " + agent::quotedWord(refused.list) +
                       " was refused at " + intf.name + "; mend that first");
    }
  }
  return config;
}

std::string statusText(const std::vector<std::string>& lines) {
  std::string text;
  for (const std::string& line : lines) {
    text += line + "\n";
  }
  return text;
}

void writeOut(const ConvertOptions& options, const std::string& text) {
  if (options.output.empty()) {
    std::cout << text;
    return;
  }
  errno = 0;
  std::ofstream stream(options.output, std::ios::binary | std::ios::trunc);
  stream << text;
  stream.close();
  if (!stream) {
    throw Exit(exitBadInput,
               options.output + ": cannot be written: " + std::generic_category().message(errno));
  }
}

int runConvert(const ConvertOptions& options) {
  const agent::Config config = loadConfig(options.config, options);
  const Converted result = convert(config, *agent::inputFormatFromName(options.to));
  std::cerr << statusText(result.losses);
  if (options.json) {
    const bool hasText = result.losses.empty() && options.output.empty();
    printJson("convert", {{"to", options.to},
                          {"losses", result.losses},
                          {"notes", result.notes},
                          {"output", options.output.empty() ? Json(nullptr) : Json(options.output)},
                          {"text", hasText ? Json(result.text) : Json(nullptr)}});
  }
  if (!result.losses.empty()) {
    throw Exit(exitNo,
               options.config + ": cannot be said as " + options.to + " without loss; nothing was written");
  }
  std::cerr << statusText(result.notes);
  if (!options.json || !options.output.empty()) {
    writeOut(options, result.text);
  }
  return exitDone;
}

} // namespace

std::string difference(const agent::Config& before, const agent::Config& after) {
  const std::string listsBefore = listsText(before);
  const std::string listsAfter = listsText(after);
  if (listsBefore != listsAfter) {
    return firstDifferentLine(listsBefore, listsAfter);
  }
  for (const agent::AccessList& list : before.lists) {
    const std::string differs = listsDiffer(list, *after.list(list.family, list.name));
    if (!differs.empty()) {
      return differs;
    }
  }
  const std::string placesBefore = placesText(before);
  const std::string placesAfter = placesText(after);
  return placesBefore == placesAfter ? "" : firstDifferentLine(placesBefore, placesAfter);
}

Converted convert(const agent::Config& config, agent::InputFormat target) {
  Converted result;
  if (target == agent::InputFormat::openconfig) {
    result.text = agent::toOpenConfig(config, result.losses, result.notes);
  } else {
    std::vector<std::string> leftOut;
    result.text = agent::toText(forText(config, result.losses), &leftOut);
    for (const std::string& line : leftOut) {
      result.losses.push_back(line +
                              ": configuration text has no words for this line; write it in other words");
    }
  }
  if (result.losses.empty()) {
    checkConverted(config, target, result);
  }
  return result;
}

void addConvert(Command program, Run& run) {
  auto options = std::make_shared<ConvertOptions>();
  const Command command = program.subcommand(
      "convert", "Write a configuration in another form, without loss of meaning or not at all");
  command.option("CONFIG", options->config, "The configuration").required();
  command.option("--to", options->to, "The form to write: cli or openconfig")
      .required()
      .oneOf({"cli", "openconfig"});
  command.option("-o,--output", options->output, "The file to write; without it, standard output")
      .valueName("FILE");
  addCommonOptions(command, *options);
  command.footer(
      "What is written is read again and judged to say the same, packet by packet; what the form\n"
      "has no words for is an error, and nothing is written. Remarks and descriptions are not kept.\n"
      "Exit status: 0 written, 1 cannot be said without loss, 2 bad input or usage.\n"
      "Examples:\n"
      "  xpacl convert campus.conf --to openconfig -o campus.json\n"
      "  xpacl convert campus.json --to cli");
  command.runs(run, [options] { return runConvert(*options); });
}

} // namespace tool
