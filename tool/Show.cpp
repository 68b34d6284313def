#include "tool/Show.h"

#include "tool/Command.h"
#include "tool/Commands.h"
#include "tool/JsonDocument.h"
#include "tool/JsonShow.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <any>
#include <iostream>
#include <memory>
#include <unistd.h>

namespace tool {

namespace {

[[noreturn]] void badArgument(const ShowOptions& options, const std::string& argument, const char* expected) {
  throw Exit(exitBadInput, "show " + options.what + ": '" + argument + "' is not understood; " + expected);
}

// The dumps go to the descriptor themselves, byte for byte.
void showTcam(const ShowOptions& options, Session& session) {
  bool families[3] = {false, false, false};
  bool directions[2] = {false, false};
  for (const std::string& argument : options.arguments) {
    if (argument == "ipv4" || argument == "ipv6" || argument == "mac") {
      families[argument == "ipv4" ? 0 : argument == "ipv6" ? 1 : 2] = true;
    } else if (argument == "in" || argument == "out") {
      directions[argument == "in" ? 0 : 1] = true;
    } else {
      badArgument(options, argument, "give ipv4, ipv6 or mac, and in or out");
    }
  }
  if (families[2] && directions[1]) {
    throw Exit(exitBadInput, "show tcam mac out: MAC lists stand at ingress only; ask for mac in");
  }
  const bool allFamilies = !families[0] && !families[1] && !families[2];
  const bool allDirections = !directions[0] && !directions[1];
  if (options.json) {
    std::vector<XpAcl::TcamType> tables;
    for (const XpAcl::TcamTableInfo& info : XpAcl::tcamTables) {
      if ((allFamilies || families[info.aclType]) && (allDirections || directions[info.direction])) {
        tables.push_back(info.tcamType);
      }
    }
    showTcamJson(session, static_cast<uint8_t>(options.chip), tables);
    return;
  }
  const auto helper = session.agent().helper(static_cast<uint8_t>(options.chip));
  std::cout.flush();
  for (const Acl::AclDirection direction : {Acl::ingress, Acl::egress}) {
    if (!allDirections && !directions[direction]) {
      continue;
    }
    if (allFamilies || families[0]) {
      helper->showV4AclTable(STDOUT_FILENO, direction);
    }
    if (allFamilies || families[1]) {
      helper->showV6AclTable(STDOUT_FILENO, direction);
    }
    if (direction == Acl::ingress && (allFamilies || families[2])) {
      helper->showMacAclTable(STDOUT_FILENO, direction);
    }
  }
}

// Invoked by name through the machine's type record, as a show command of a real agent would.
void showPortTable(const ShowOptions& options, Session& session) {
  const char* const operation = options.what == "ports"   ? "doShowPortCfgTblEntries"
                                : options.what == "vlans" ? "doShowPortVlanIvifTblEntries"
                                                          : "doShowEgressBdEvifTblEntries";
  const auto machine = session.agent().chipMachine(static_cast<uint8_t>(options.chip));
  if (!machine) {
    throw Exit(exitBadInput, "chip " + std::to_string(options.chip) + " is not active");
  }
  if (options.json) {
    showPortTableJson(session, static_cast<uint8_t>(options.chip), options.what);
    return;
  }
  std::cout.flush();
  machine->fwkType().operation(operation).invoke(
      machine, {Vane::U32{STDOUT_FILENO}, XpXdk::XpDeviceId(static_cast<Vane::U8>(options.chip))});
}

std::string listNames(const XpAcl::HwAclIndexKey& key) {
  std::string names;
  for (const Plex::AclKey& member : agent::members(key)) {
    const agent::AclName name = agent::aclName(member);
    names += (names.empty() ? "" : " ") + name.name + "(" + familyName(name.family) + ")";
  }
  return names;
}

void showIds(const ShowOptions& options, Session& session) {
  agent::Agent& agent = session.agent();
  std::vector<std::vector<std::string>> rows{{"ID", "KIND", "ROWS", "SAVED", "LISTS", "INTERFACES"}};
  Json ids = Json::array();
  uint64_t total = 0;
  uint64_t saved = 0;
  for (const auto& [key, live] : agent.liveIndexKeys()) {
    std::vector<std::string> users;
    for (const auto& [attachment, used] : agent.attachments()) {
      if (used == key) {
        users.emplace_back(session.portName(attachment.intf));
      }
    }
    uint64_t rowsOfOne = 0;
    for (const Plex::AclKey& member : agent::members(key)) {
      rowsOfOne += agent.acl(member)->rows.size();
    }
    const uint64_t held = rowsOfOne * live.chips.size();
    // What the same interfaces would take if each had a copy of its own.
    const uint64_t unshared = live.routed ? held * users.size() : rowsOfOne * users.size();
    const uint64_t spared = unshared > held ? unshared - held : 0;
    total += held;
    saved += spared;
    const std::string kind = stringValue(agent::idKind(live.routed, agent::directionOf(key))).charPtr();
    std::string names;
    for (const std::string& user : users) {
      names += (names.empty() ? "" : " ") + user;
    }
    rows.push_back(
        {std::to_string(live.id), kind, std::to_string(held), std::to_string(spared), listNames(key), names});
    ids.push_back({{"id", live.id},
                   {"kind", kind},
                   {"rows", held},
                   {"saved", spared},
                   {"lists", listNames(key)},
                   {"interfaces", users}});
  }
  if (options.json) {
    printJson("show", {{"what", "ids"}, {"ids", ids}, {"rows", total}, {"saved", saved}});
    return;
  }
  if (rows.size() == 1) {
    std::cout << "No list is applied, so no hardware ACL id is in use.\n";
    return;
  }
  std::cout << columns(rows) << "\n" << total << " rows in use; sharing saves " << saved << ".\n";
}

void showLines(const ShowOptions& options, const std::vector<std::string>& lines) {
  if (options.json) {
    showLinesJson(options.what, lines);
    return;
  }
  for (const std::string& line : lines) {
    std::cout << line << '\n';
  }
}

void showState(Session& session, const ShowOptions& options) {
  std::vector<std::string> lines;
  session.agent().helper(static_cast<uint8_t>(options.chip))->debugState([&](const std::string& line) {
    lines.push_back(line);
  });
  showLines(options, lines);
}

// The statements of the library that the ring still has.
void showTrace(const ShowOptions& options) {
  const Ringlog::RingBuf& ring = Ringlog::defaultRinglogHandle.ring();
  showLines(options, options.last == 0 ? ring.dump() : ring.dump(options.last));
}

} // namespace

void show(Session& session, const ShowOptions& options) {
  if (!session.agent().helper(static_cast<uint8_t>(options.chip))) {
    throw Exit(exitBadInput,
               "there is no chip " + std::to_string(options.chip) + "; chips are numbered from 0");
  }
  if (options.what != "tcam" && !options.arguments.empty()) {
    badArgument(options, options.arguments.front(), "it takes no further words");
  }
  const bool sends =
      !options.pcap.empty() || !options.in.empty() || !options.out.empty() || options.vlan != 0;
  if (options.what != "counters" && options.byHits) {
    throw Exit(exitBadInput, "--by-hits belongs to show counters");
  }
  if (options.what != "counters" && options.what != "openconfig" && sends) {
    throw Exit(exitBadInput, "--pcap, --in, --out and --vlan belong to show counters and show openconfig");
  }
  if (options.pcap.empty() && sends) {
    throw Exit(exitBadInput, "show " + options.what +
                                 ": --in, --out and --vlan say where packets go; give them with --pcap");
  }
  if (options.what == "tcam") {
    showTcam(options, session);
  } else if (options.what == "ids") {
    showIds(options, session);
  } else if (options.what == "state") {
    showState(session, options);
  } else if (options.what == "counters") {
    showCounters(session, options);
  } else if (options.what == "openconfig") {
    showOpenConfig(session, options);
  } else if (options.what == "trace") {
    showTrace(options);
  } else {
    showPortTable(options, session);
  }
}

void addShowOptions(Command command, ShowOptions& options) {
  command
      .option(
          "WHAT", options.what,
          "tcam [ipv4|ipv6|mac] [in|out]: the TCAM rows; ports, vlans, egress: the port tables; ids: who "
          "uses which hardware ACL id; counters: hits of every line; openconfig: the running state in the "
          "OpenConfig models; state: the driver's books; trace: what the driver did")
      .required()
      .oneOf({"tcam", "ports", "vlans", "egress", "ids", "counters", "openconfig", "state", "trace"});
  command.option("ARGS", options.arguments, "What of it");
  command.option("--chip", options.chip, "The chip, from 0").range(0, 63);
  command.option("--pcap", options.pcap, "counters, openconfig: judge the packets of this capture first");
  command.option("--in", options.in, "The port that they enter");
  command.option("--out", options.out, "The port that they leave by");
  command.option("--vlan", options.vlan, "The VLAN of frames without a tag").range(1, 4094);
  command.flag("--by-hits", options.byHits, "counters: the lines with most hits first");
  command.option("--last", options.last, "trace: only the last statements").positive();
}

void addShow(Command program, Run& run) {
  auto options = std::make_shared<ShowOptions>();
  const Command command = program.subcommand("show", "Print what the chip and the driver hold");
  command.option("CONFIG", options->config, "The configuration").required();
  addShowOptions(command, *options);
  addCommonOptions(command, *options);
  command.footer("Examples:\n"
                 "  xpacl show campus.conf tcam ipv4 in\n"
                 "  xpacl show campus.conf ids\n"
                 "  xpacl show campus.conf counters --pcap lan.pcap --in Gi1/0/1 --by-hits\n"
                 "  xpacl show campus.conf openconfig --pcap lan.pcap --in Gi1/0/1\n"
                 "  xpacl show campus.conf trace --last 20");
  command.runs(run, [options] {
    Session& session = lastingSession(loadConfig(options->config, *options), *options);
    show(session, *options);
    return exitDone;
  });
}

} // namespace tool
