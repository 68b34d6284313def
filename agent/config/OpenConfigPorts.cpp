#include "agent/config/OpenConfigInterfaces.h"

// Which VLANs ports carry, and which of them are one port-channel.

namespace agent::openconfig {

namespace {

constexpr const char* portsPath = "interfaces";

} // namespace

void InterfaceReader::readPort(const JsonValue& value) {
  Problems problems(lines_);
  const Place above(portsPath);
  const Place unnamed(above, "interface");
  Problems ignored(lines_);
  Container keys(value, unnamed, ignored);
  const Member* const name = keys.take("name");
  if (name == nullptr || !name->value->is(JsonKind::string))
    return; // an entry of no use to anybody
  const Place place(above, listSegment("interface", {{"name", name->value->text}}));
  Draft* const draft = draftOf(name->value->text, value, place, problems);
  if (draft != nullptr) {
    Container interface(value, place, ignored);
    for (const char* const container : {"ethernet", "aggregation"})
      if (const Member* const member = interface.take(container))
        readEthernet(*member, *draft, problems);
  }
  diagnostics_.addAll(problems.takeAll());
}

void InterfaceReader::readEthernet(const Member& member, Draft& draft, Problems& problems) {
  Problems ignored(lines_);
  Container ethernet(*member.value, member.place, ignored);
  if (const Member* const aggregate = ethernet.take("aggregate-id")) {
    const auto name = InterfaceName::fromText(aggregate->value->text);
    if (name && name->kind() == InterfaceKind::portChannel)
      draft.channelGroup = name->plainNumber();
    else
      problems.refuse(*aggregate->value, aggregate->place,
                      describe(*aggregate->value) +
                          " is no port-channel; write a name like \"Port-Channel1\"");
  }
  if (const Member* const vlans = ethernet.take("switched-vlan"))
    readVlans(*vlans, draft, problems);
}

void InterfaceReader::readVlans(const Member& member, Draft& draft, Problems& problems) {
  Container container(*member.value, member.place, problems);
  const Member* const mode = container.take("interface-mode");
  const Member* const access = container.take("access-vlan");
  const Member* const native = container.take("native-vlan");
  const Member* const trunk = container.take("trunk-vlans");
  if (container.isObject())
    container.refuseRest(
        "this is not known here, and without it the port may carry other VLANs; leave it out");
  const bool isTrunk = mode == nullptr ? trunk != nullptr : mode->value->text == "TRUNK";
  if (mode != nullptr && !isTrunk && mode->value->text != "ACCESS")
    problems.refuse(*mode->value, mode->place, describe(*mode->value) + " is no mode; write ACCESS or TRUNK");
  if (!isTrunk) {
    if (access != nullptr)
      if (const auto vlan = takeNumber(*access, "a VLAN", 1, maxVlan, problems))
        draft.accessVlan = static_cast<uint16_t>(*vlan);
    return;
  }
  if (native != nullptr && plainNumber(*native->value, 1) != 1u)
    problems.warn(*native->value, native->place,
                  "frames without a tag are in VLAN 1 on a trunk of this system; write 1");
  // A trunk carries every VLAN unless it is told otherwise.
  draft.trunkVlans = trunk == nullptr ? VlanSet().set() : trunkVlansOf(*trunk, problems);
}

VlanSet InterfaceReader::trunkVlansOf(const Member& leaf, Problems& problems) {
  VlanSet vlans;
  if (!leaf.value->is(JsonKind::array)) {
    problems.refuse(*leaf.value, leaf.place,
                    describe(*leaf.value) +
                        " stands where a list is needed; write numbers and ranges in [ and ]");
    return vlans;
  }
  if (leaf.value->children.empty())
    vlans.set();
  for (const JsonValue& value : leaf.value->children) {
    const size_t dots = value.text.find("..");
    const bool range = value.is(JsonKind::string) && dots != std::string::npos;
    const auto low =
        range ? decimal(std::string_view(value.text).substr(0, dots), maxVlan) : plainNumber(value, maxVlan);
    const auto high = range ? decimal(std::string_view(value.text).substr(dots + 2), maxVlan) : low;
    if (!low || !high || *low == 0 || *low > *high) {
      problems.refuse(value, leaf.place,
                      describe(value) +
                          " is no VLAN; write a number from 1 to 4094, or a range like \"10..20\"");
      continue;
    }
    for (uint32_t vlan = *low; vlan <= *high; ++vlan)
      vlans.set(vlan);
  }
  return vlans;
}

void InterfaceReader::chipIs(const std::string& interface, uint8_t chip, const Member& leaf,
                             Problems& problems) {
  Draft* const draft = draftOf(interface, *leaf.value, leaf.place, problems);
  if (draft == nullptr)
    return;
  if (draft->name.kind() == InterfaceKind::ethernet)
    draft->chip = chip;
  else
    problems.refuse(*leaf.value, leaf.place,
                    quotedWord(interface) + ": only Ethernet ports have a chip; name Ethernet ports here");
}

} // namespace agent::openconfig
