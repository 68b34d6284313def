#include "agent/config/Names.h"
#include "agent/config/OpenConfigEntryParts.h"
#include "agent/config/OpenConfigNames.h"

#include <set>

namespace agent::openconfig {

namespace {

constexpr uint8_t tcp = 6;

constexpr const char* flagReason =
    "a row can compare TCP flags only as established (ACK or RST is set); write the builtin-detail "
    "TCP_ESTABLISHED, or match by addresses and ports";

class TransportReader {
public:
  TransportReader(const Member& transport, bool v6, bool permit, DefinedSets& sets, Problems& problems,
                  EntryMatch& match)
      : v6_(v6), permit_(permit), sets_(sets), problems_(problems), match_(match),
        container_(*transport.value, transport.place, problems) {}

  void read() {
    takePortsOf("source-port", match_.base.srcPorts);
    takePortsOf("destination-port", match_.base.dstPorts);
    takeDetail();
    container_.refuseRest("this is no leaf of transport that is known here, and the entry would match more "
                          "packets without it; leave it out or correct it");
  }

private:
  void takePortsOf(const std::string& leaf, PortSet& ports);
  bool hasPorts() const { return match_.base.protocol && portProtocolOf(*match_.base.protocol) != 0; }
  void takeDetail();
  void takeBuiltin(const Member& detail);
  void takeEstablished(const Member& detail);
  void takeFragment(const Member& detail);
  void takeFlags(const Member& flags, const Member* mode);

  bool v6_;
  bool permit_;
  DefinedSets& sets_;
  Problems& problems_;
  EntryMatch& match_;
  Container container_;
  const Member* ports_ = nullptr; // that compares ports
};

void TransportReader::takePortsOf(const std::string& leaf, PortSet& ports) {
  const Member* const port = container_.take(leaf);
  const Member* const set = container_.take(leaf + "-set");
  if (port == nullptr && set == nullptr)
    return;
  const Member& given = port == nullptr ? *set : *port;
  if (port != nullptr && set != nullptr) {
    problems_.refuse(*set->value, set->place,
                     "the entry has a " + leaf +
                         " as well, and only one can be meant; leave one of them out");
    return;
  }
  if (set != nullptr) {
    const DefinedSet* const found = sets_.find(SetKind::ports, *set, problems_);
    if (found == nullptr)
      return;
    ports = found->ports;
  } else {
    const auto taken = takePorts(*port->value, port->place, problems_);
    if (!taken)
      return;
    ports = *taken;
  }
  if (isAnyPort(ports))
    return;
  ports_ = &given;
  if (hasPorts())
    return;
  problems_.refuse(
      *given.value, given.place,
      std::string(match_.base.protocol ? "protocol " + std::to_string(*match_.base.protocol) + " has no ports"
                                       : "the entry compares ports and does not say of which "
                                         "protocol") +
          "; write the protocol IP_TCP, IP_UDP or 132 (SCTP), with an entry for each, or leave the "
          "ports out");
}

void TransportReader::takeDetail() {
  const Member* const mode = container_.take("detail-mode");
  const Member* const builtin = container_.take("builtin-detail");
  const Member* const flags = container_.take("explicit-tcp-flags");
  const Member* const flagMode = container_.take("explicit-detail-match-mode");
  const std::string_view chosen = mode == nullptr ? "" : withoutModule(mode->value->text);
  if (mode != nullptr && chosen != "EXPLICIT" && chosen != "BUILTIN") {
    problems_.refuse(*mode->value, mode->place,
                     describe(*mode->value) + " is no mode; write BUILTIN or EXPLICIT");
    return;
  }
  const bool hasFlags = flags != nullptr && saysSomething(*flags->value);
  if (builtin != nullptr && (chosen == "EXPLICIT" || hasFlags)) {
    problems_.refuse(
        *builtin->value, builtin->place,
        "the entry has explicit details as well, and only one of the two can be meant; leave one "
        "out");
  } else if (builtin != nullptr) {
    takeBuiltin(*builtin);
  } else if (hasFlags && chosen == "BUILTIN") {
    problems_.refuse(*flags->value, flags->place,
                     "the detail-mode is BUILTIN, and flags are explicit; write the detail-mode EXPLICIT, or "
                     "leave the flags out");
  } else if (hasFlags) {
    takeFlags(*flags, flagMode);
  } else if (mode != nullptr || flagMode != nullptr) {
    const Member& alone = mode == nullptr ? *flagMode : *mode;
    problems_.refuse(
        *alone.value, alone.place,
        "the entry says that it compares details, but not which; write the builtin-detail, or leave "
        "this out");
  }
}

void TransportReader::takeBuiltin(const Member& detail) {
  const std::string_view name = withoutModule(detail.value->text);
  if (name == "TCP_ESTABLISHED")
    takeEstablished(detail);
  else if (name == "FRAGMENT")
    takeFragment(detail);
  else if (name == "TCP_INITIAL")
    problems_.refuse(*detail.value, detail.place, flagReason);
  else
    problems_.refuse(*detail.value, detail.place,
                     describe(*detail.value) +
                         " is no detail that is known here; write TCP_ESTABLISHED or FRAGMENT");
}

void TransportReader::takeEstablished(const Member& detail) {
  if (match_.base.protocol != tcp)
    problems_.refuse(
        *detail.value, detail.place,
        "only TCP connections are established; write the protocol IP_TCP, or leave the detail out");
  match_.base.established = true;
}

void TransportReader::takeFragment(const Member& detail) {
  if (v6_) {
    problems_.refuse(*detail.value, detail.place,
                     "a row does not see whether an IPv6 packet is a fragment; leave the detail out");
    return;
  }
  if (ports_ != nullptr || match_.base.icmpType)
    problems_.refuse(*detail.value, detail.place,
                     std::string("a row tells the fragments behind the first one, and those carry no ") +
                         (ports_ != nullptr ? "ports" : "ICMP type") + "; leave one of the two out");
  if (!permit_)
    problems_.warn(
        *detail.value, detail.place,
        "a row tells the fragments behind the first one only, so that this entry does not drop the "
        "first fragment of a packet; write an entry for that by addresses, protocol and ports where "
        "it matters");
  match_.base.fragments = true;
}

// Any of ACK and RST is what established means; nothing else can be said of flags.
void TransportReader::takeFlags(const Member& flags, const Member* mode) {
  std::set<std::string_view> named;
  for (const JsonValue& flag : flags.value->children)
    named.insert(withoutModule(flag.text));
  const bool any = mode != nullptr && withoutModule(mode->value->text) == "ANY";
  if (!any || named != std::set<std::string_view>{"TCP_ACK", "TCP_RST"})
    problems_.refuse(*flags.value, flags.place,
                     std::string(flagReason) + "; ANY of the flags TCP_ACK and TCP_RST says the same");
  else
    takeEstablished(flags);
}

} // namespace

void readTransport(Container& entry, bool v6, bool permit, DefinedSets& sets, Problems& problems,
                   EntryMatch& match) {
  if (const Member* const transport = entry.take("transport"))
    TransportReader(*transport, v6, permit, sets, problems, match).read();
}

} // namespace agent::openconfig
