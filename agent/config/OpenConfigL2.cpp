#include "agent/config/Addresses.h"
#include "agent/config/Names.h"
#include "agent/config/OpenConfigEntryParts.h"
#include "agent/config/OpenConfigNames.h"

namespace agent::openconfig {

namespace {

void takeMac(Container& container, const std::string& side, Problems& problems, MacMatch& match) {
  const Member* const address = container.take(side + "-mac");
  const Member* const mask = container.take(side + "-mac-mask");
  if (address == nullptr) {
    if (mask != nullptr)
      problems.refuse(*mask->value, mask->place,
                      "the mask stands without an address; write the " + side +
                          "-mac, or leave the mask out");
    return;
  }
  const auto octets = address->value->is(JsonKind::string) ? macFromText(address->value->text) : std::nullopt;
  if (!octets)
    problems.refuse(*address->value, address->place,
                    describe(*address->value) + " is no MAC address; write it like \"aa:bb:cc:dd:ee:ff\"");
  // A bit of 1 in the mask is compared; a bit of 1 in a wildcard is not.
  MacAddress wildcard{};
  if (mask != nullptr) {
    const auto bits = mask->value->is(JsonKind::string) ? macFromText(mask->value->text) : std::nullopt;
    if (!bits)
      problems.refuse(
          *mask->value, mask->place,
          describe(*mask->value) +
              " is no mask of a MAC address; write it like \"ff:ff:ff:00:00:00\", where bits of 1 are "
              "compared");
    for (size_t i = 0; bits && i < wildcard.size(); ++i)
      wildcard[i] = static_cast<uint8_t>(~(*bits)[i]);
  }
  if (octets)
    match = macMatch(*octets, wildcard);
}

void takeEtherType(const Member& member, Problems& problems, Criteria& criteria) {
  const JsonValue& value = *member.value;
  const auto identity = value.is(JsonKind::string) ? etherTypeFromIdentity(value.text) : std::nullopt;
  if (identity) {
    criteria.etherType = *identity;
    return;
  }
  std::optional<uint32_t> plain;
  if (value.is(JsonKind::string) || value.is(JsonKind::number))
    plain = number(value.text, 0xFFFF);
  if (plain && *plain >= lowestEtherType) {
    criteria.etherType = static_cast<uint16_t>(*plain);
    return;
  }
  if (plain) {
    problems.refuse(value, member.place,
                    "EtherTypes start at 1536, and smaller numbers are lengths of frames; "
                    "write a number from 1536 to 65535");
    return;
  }
  NearestWord nearest(withoutModule(value.text));
  offerEtherTypeIdentities(nearest);
  problems.refuse(
      value, member.place,
      describe(value) +
          " is no EtherType that is known here; write its number, from 1536 to 65535, or an identity "
          "like ETHERTYPE_ARP" +
          nearest.suggestion());
}

} // namespace

void readL2(Container& entry, Problems& problems, EntryMatch& match) {
  const Member* const header = entry.take("l2");
  if (header == nullptr)
    return;
  Container container(*header->value, header->place, problems);
  takeMac(container, "source", problems, match.base.srcMac);
  takeMac(container, "destination", problems, match.base.dstMac);
  if (const Member* const etherType = container.take("ethertype"))
    takeEtherType(*etherType, problems, match.base);
  container.refuseRest(
      "this is no leaf of l2 that is known here, and the entry would match more frames without "
      "it; leave it out or correct it");
}

} // namespace agent::openconfig
