#include "tool/Trace.h"

#include "packet/Capture.h"
#include "packet/PacketText.h"

#include "sim/Device.h"
#include "sim/Key.h"
#include "sim/Pipeline.h"

#include "tool/Command.h"
#include "tool/Commands.h"
#include "tool/Common.h"
#include "tool/Hits.h"
#include "tool/JsonDocument.h"
#include "tool/Session.h"

#include <nlohmann/json.hpp>

#include <iostream>
#include <memory>

namespace tool {

namespace {

constexpr unsigned othersShown = 5;

std::string place(const agent::RowOwner* owner) {
  if (owner == nullptr) {
    return "default row";
  }
  const agent::Rule* const rule = owner->rule();
  return owner->acl->source.name + " " +
         (rule == nullptr ? std::string() : rule->loc.file + ":" + std::to_string(rule->loc.line) + " ") +
         owner->acl->textOf(owner->origin);
}

class Tracer {
public:
  Tracer(Session& session, const TraceOptions& options)
      : session_(session), options_(options), packet_(packetOf(options)),
        in_(options.in.empty() ? session.onlyIngressPort() : session.port(options.in, "--in")) {
    if (!options.out.empty()) {
      out_ = session.port(options.out, "--out");
    }
  }

  void run() {
    const sim::Verdict verdict =
        session_.judge(packet_, in_, out_ ? &*out_ : nullptr,
                       options_.vlan == 0 ? std::nullopt : std::optional<uint16_t>(options_.vlan));
    if (options_.json) {
      printJson(verdict);
    } else {
      printText(verdict);
    }
  }

private:
  // Rows that would hit if the ones before them were not there.
  std::vector<uint32_t> others(const sim::LookupResult& lookup, const sim::TcamKeyBytes& key) {
    std::vector<uint32_t> rows;
    const sim::TcamTable& table = *deviceOf(lookup).tcam(lookup.table);
    uint32_t row = lookup.row;
    while (row != sim::TcamTable::noRow && row + 1 < table.numRows()) {
      row = table.lookupFrom(key, row + 1);
      if (row != sim::TcamTable::noRow) {
        rows.push_back(row);
      }
    }
    return rows;
  }

  bool isEgress(const sim::LookupResult& lookup) const {
    return XpAcl::tcamTable(tcamType(lookup.table)).direction == Acl::egress;
  }
  const PortRef& portOf(const sim::LookupResult& lookup) const {
    return isEgress(lookup) && out_ ? *out_ : in_;
  }
  sim::Device& deviceOf(const sim::LookupResult& lookup) {
    return *session_.system().device(portOf(lookup).chip);
  }

  const agent::RowOwner* owner(const sim::LookupResult& lookup, uint32_t row) {
    return session_.agent().rowOwner(portOf(lookup).chip, tcamType(lookup.table), row);
  }

  sim::TcamKeyBytes keyOf(const sim::LookupResult& lookup, const sim::Verdict& verdict) const {
    return sim::buildKey(lookup.table, packet_, lookup.aclId, lookup.role,
                         isEgress(lookup) ? verdict.outVlan : verdict.vlan);
  }

  void printJson(const sim::Verdict& verdict) {
    Json json{{"packet", packet::toText(packet_)},
              {"verdict", permitWord(verdict.permit())},
              {"fate", sim::fateText(verdict.fate)},
              {"vlan", verdict.vlan},
              {"lookups", Json::array()}};
    for (const sim::LookupResult& lookup : verdict.lookups()) {
      Json one = lookupJson(lookup, isHit(lookup) ? owner(lookup, lookup.row) : nullptr);
      one["others"] = Json::array();
      for (const uint32_t row : others(lookup, keyOf(lookup, verdict))) {
        const agent::RowOwner* const other = owner(lookup, row);
        one["others"].push_back({{"row", row}, {"rule", place(other)}});
      }
      json["lookups"].push_back(one);
    }
    tool::printJson("trace", std::move(json));
  }

  void printText(const sim::Verdict& verdict) {
    std::cout << bold("Packet") << "   " << packet::toText(packet_) << "\n"
              << bold("Enters") << "   " << in_.name << ", chip " << unsigned{in_.chip} << " port "
              << in_.number << ", VLAN " << verdict.vlan;
    if (verdict.vif != sim::noVif) {
      std::cout << ", VIF " << verdict.vif;
    }
    std::cout << "\n";
    printEntries(verdict);
    if (out_) {
      std::cout << bold("Leaves") << "   " << out_->name << ", chip " << unsigned{out_->chip} << " port "
                << out_->number << ", VLAN " << verdict.outVlan << "\n";
    }
    for (const sim::LookupResult& lookup : verdict.lookups()) {
      printLookup(lookup, verdict);
    }
    if (verdict.numLookups == 0) {
      std::cout << "No lookup is enabled there.\n";
    }
    std::cout << "\n"
              << bold("Verdict") << "  "
              << (verdict.permit() ? green("permit") : red(sim::fateText(verdict.fate))) << "\n";
  }

  void printEntries(const sim::Verdict& verdict) {
    const sim::Device& device = *session_.system().device(in_.chip);
    const XpXdk::xpPortConfigEntry& port = device.portConfig()[in_.number];
    std::cout << "  port-config entry " << in_.number << ": ACL id " << unsigned{port.portAclId}
              << ", enables" << ((port.aclEnBits & 1) != 0 ? " IPv4" : "")
              << ((port.aclEnBits & 2) != 0 ? " IPv6" : "") << (port.macAclEn != 0 ? " MAC" : "")
              << (port.aclEnBits == 0 && port.macAclEn == 0 ? " none" : "") << "\n";
    if (const auto* entry = device.portVlan().find(sim::portVlanKey(verdict.vif, verdict.vlan))) {
      std::cout << "  port-VLAN entry (VIF " << entry->keyIvif << ", VLAN " << entry->keyVlan << "): ACL id "
                << unsigned{entry->routeAclId} << ", enables" << ((entry->routeAclEn & 1) != 0 ? " IPv4" : "")
                << ((entry->routeAclEn & 2) != 0 ? " IPv6" : "") << "\n";
    }
  }

  void printLookup(const sim::LookupResult& lookup, const sim::Verdict& verdict) {
    std::cout << "\n"
              << bold("Lookup") << "   " << stringValue(tcamType(lookup.table)).charPtr() << ", role "
              << (lookup.role == sim::Role::routed ? "routed" : "port") << ", ACL id "
              << unsigned{lookup.aclId} << ": ";
    const sim::TcamKeyBytes key = keyOf(lookup, verdict);
    if (!isHit(lookup)) {
      std::cout << red("no row hits, deny") << "\n";
      return;
    }
    const agent::RowOwner* const winner = owner(lookup, lookup.row);
    std::cout << "row " << lookup.row << ", " << (lookup.forward ? green("permit") : red("deny")) << "\n  "
              << place(winner) << "\n";
    printFields(lookup, key);
    const std::vector<uint32_t> rows = others(lookup, key);
    for (std::size_t i = 0; i < rows.size() && i < othersShown; ++i) {
      std::cout << (i == 0 ? "  without the rows before it would have hit:\n" : "") << "    row " << rows[i]
                << "  " << place(owner(lookup, rows[i])) << "\n";
    }
    if (rows.size() > othersShown) {
      std::cout << "    and " << rows.size() - othersShown << " more\n";
    }
  }

  // Key, mask and packet side by side, field by field.
  void printFields(const sim::LookupResult& lookup, const sim::TcamKeyBytes& key) {
    const XpXdk::IaclKeyLayout& layout = sim::layoutOf(lookup.table);
    const sim::TcamRow row = deviceOf(lookup).tcam(lookup.table)->row(lookup.row);
    std::vector<std::vector<std::string>> rows{{"FIELD", "ROW KEY", "IGNORE MASK", "PACKET"}};
    for (unsigned i = 0; i < layout.numFields; ++i) {
      const XpXdk::IaclFieldLayout& field = layout.fields[i];
      rows.push_back({sim::fieldName(lookup.table, field.fieldId), hex(row.value, field),
                      hex(row.mask, field), hex(key, field)});
    }
    std::cout << columns(rows, "    ");
  }

  static std::string hex(const sim::TcamKeyBytes& bytes, const XpXdk::IaclFieldLayout& field) {
    static const char* const digits = "0123456789abcdef";
    std::string text = "x";
    for (unsigned i = 0; i < field.width; ++i) {
      const uint8_t byte = bytes[field.offset + i];
      text += digits[byte >> 4];
      text += digits[byte & 15];
    }
    return text;
  }

  Session& session_;
  const TraceOptions& options_;
  packet::Packet packet_;
  PortRef in_;
  std::optional<PortRef> out_;
};

} // namespace

packet::Packet packetOf(const TraceOptions& options) {
  if (!options.pcap.empty()) {
    if (options.number == 0 || !options.words.empty()) {
      throw Exit(exitBadInput,
                 "--pcap FILE goes with --packet N (packets count from 1), and with no packet text");
    }
    packet::CaptureReader capture(options.pcap);
    packet::Frame frame;
    while (capture.next(frame)) {
      if (frame.number == options.number) {
        return capture.dissect(frame);
      }
    }
    throw Exit(exitBadInput, options.pcap + " has no packet " + std::to_string(options.number));
  }
  std::string text;
  for (const std::string& word : options.words) {
    text += (text.empty() ? "" : " ") + word;
  }
  if (text.empty()) {
    throw Exit(exitBadInput,
               "give the packet, e.g. 'tcp 10.1.2.3:1234 > 10.9.8.7:80 ack', or --pcap FILE --packet N");
  }
  try {
    return packet::fromText(text);
  } catch (const packet::PacketTextError& error) {
    throw Exit(exitBadInput, "the packet text '" + text + "', " + error.what());
  }
}

void trace(Session& session, const TraceOptions& options) {
  Tracer(session, options).run();
}

namespace {

struct WhoOptions : CommonOptions {
  std::string config;
  std::string table;
  uint32_t row = 0;
  unsigned chip = 0;
};

int runWho(const WhoOptions& options) {
  Session session(loadConfig(options.config, options), options);
  const auto table = agent::tableFromName(options.table);
  const auto type = static_cast<XpAcl::TcamType>(*table);
  const auto chip = static_cast<uint8_t>(options.chip);
  sim::Device* const device = session.system().device(chip);
  if (device == nullptr) {
    throw Exit(exitBadInput,
               "there is no chip " + std::to_string(options.chip) + "; chips are numbered from 0");
  }
  const auto sdkTable = XpAcl::tcamTable(type).table;
  const uint32_t rows = device->tcam(sdkTable)->numRows();
  if (options.row >= rows) {
    throw Exit(exitBadInput,
               "table " + options.table + " has rows 0 to " + std::to_string(int64_t{rows} - 1));
  }
  const agent::RowOwner* const owner = session.agent().rowOwner(chip, type, options.row);
  const bool valid = device->tcam(sdkTable)->valid(options.row);
  const std::string what = owner != nullptr ? place(owner)
                           : valid          ? "the default row: drops what no list has"
                                            : "free";
  if (options.json) {
    Json json{{"table", options.table}, {"row", options.row}, {"valid", valid}, {"what", what}};
    if (owner != nullptr) {
      json["acl"] = owner->acl->source.name;
      json["aclId"] = owner->version.aclId();
      json["line"] = owner->rule() == nullptr ? Json(nullptr) : Json(owner->rule()->loc.line);
      json["rule"] = owner->acl->textOf(owner->origin);
    }
    printJson("who", std::move(json));
    return exitDone;
  }
  std::cout << options.table << " row " << options.row << ": " << what << "\n";
  if (owner != nullptr) {
    std::cout << "  rule " << owner->ruleNum << "." << owner->subRuleNum << ", ACL id "
              << owner->version.aclId()
              << (owner->version.type() == XpAcl::aclKeyTypeRouted ? ", routed" : ", port") << "\n  "
              << sim::rowText(*device, sdkTable, options.row) << "\n";
  }
  return exitDone;
}

} // namespace

void addTraceOptions(Command command, TraceOptions& options) {
  command.option("PACKET", options.words, "The packet: tcp 10.1.2.3:1234 > 10.9.8.7:80 ack ttl 64 vlan 10");
  command.option("--in", options.in, "The port that it enters");
  command.option("--out", options.out, "The port that it leaves by");
  command.option("--pcap", options.pcap, "Take the packet from this capture");
  command.option("--packet", options.number, "Its number in the capture, from 1");
  command.option("--vlan", options.vlan, "The VLAN of a frame without a tag").range(1, 4094);
}

void addTrace(Command program, Run& run) {
  auto options = std::make_shared<TraceOptions>();
  const Command command = program.subcommand("trace", "Follow one packet through the chip's tables");
  command.option("CONFIG", options->config, "The configuration").required();
  addTraceOptions(command, *options);
  addCommonOptions(command, *options);
  command.footer(
      "Examples:\n"
      "  xpacl trace campus.conf --in Gi1/0/1 'tcp 10.20.10.9:40000 > 10.20.40.80:443 syn vlan 10'\n"
      "  xpacl trace campus.conf --in Gi1/0/1 --pcap lan.pcap --packet 17");
  command.runs(run, [options] {
    Session& session = lastingSession(loadConfig(options->config, *options), *options);
    trace(session, *options);
    return exitDone;
  });
}

void addWho(Command program, Run& run) {
  auto options = std::make_shared<WhoOptions>();
  const Command command = program.subcommand("who", "Which configured line does a row hold?");
  command.option("CONFIG", options->config, "The configuration").required();
  command.option("TABLE", options->table, "ingressV4, ingressV6, egressV4, egressV6 or ingressMac")
      .required()
      .oneOf({"ingressV4", "ingressV6", "egressV4", "egressV6", "ingressMac"});
  command.option("ROW", options->row, "The row, from 0").required();
  command.option("--chip", options->chip, "The chip, from 0").range(0, 63);
  addCommonOptions(command, *options);
  command.footer("Example:\n  xpacl who campus.conf ingressV4 12");
  command.runs(run, [options] { return runWho(*options); });
}

} // namespace tool
