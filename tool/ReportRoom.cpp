#include "tool/ReportData.h"

#include <algorithm>

namespace tool {

namespace {

constexpr uint64_t idsPerKind = 255;

using Place = std::pair<uint8_t, XpAcl::TcamType>; // a table of a chip

XpAcl::TcamType tableOf(const Plex::AclKey& key) {
  return XpAcl::getTcamType(key.direction(), key.aclType());
}

std::string placeText(const Place& place) {
  return std::string(stringValue(place.second).charPtr()) + " of chip " + std::to_string(place.first);
}

class RoomFinder {
public:
  explicit RoomFinder(const agent::Agent& agent) : agent_(agent) {
    for (const auto& [key, live] : agent.liveIndexKeys()) {
      ++ids_[kindOf(key, live)];
      for (const Plex::AclKey& member : agent::members(key)) {
        for (const uint8_t chip : live.chips) {
          used_[{chip, tableOf(member)}] += rows(member);
        }
      }
    }
  }

  Room of(const agent::AclName& name) const {
    std::map<Place, uint64_t> others; // rows that the others under the same ids take again
    std::map<Place, uint64_t> copies; // versions of the list itself
    std::map<XpAcl::AclIntfTypeAndDir, uint64_t> newIds;
    uint64_t now = 0;
    for (const auto& [key, live] : agent_.liveIndexKeys()) {
      const std::vector<Plex::AclKey> members = agent::members(key);
      if (std::none_of(members.begin(), members.end(),
                       [&](const Plex::AclKey& member) { return agent::aclName(member) == name; })) {
        continue;
      }
      ++newIds[kindOf(key, live)];
      for (const Plex::AclKey& member : members) {
        const bool itself = agent::aclName(member) == name;
        now = itself ? rows(member) : now;
        for (const uint8_t chip : live.chips) {
          (itself ? copies : others)[{chip, tableOf(member)}] += itself ? 1 : rows(member);
        }
      }
    }
    return judged(others, copies, newIds, now);
  }

private:
  static XpAcl::AclIntfTypeAndDir kindOf(const XpAcl::HwAclIndexKey& key, const agent::LiveIndexKey& live) {
    return agent::idKind(live.routed, agent::directionOf(key));
  }

  Room judged(const std::map<Place, uint64_t>& others, const std::map<Place, uint64_t>& copies,
              const std::map<XpAcl::AclIntfTypeAndDir, uint64_t>& newIds, uint64_t now) const {
    Room room;
    for (const auto& [kind, count] : newIds) {
      if (ids_.at(kind) + count > idsPerKind) {
        room.limit = std::string("hardware ACL ids of kind ") + stringValue(kind).charPtr();
        return room;
      }
    }
    const auto rowsFor = [&](const Place& place) {
      const auto found = others.find(place);
      return found == others.end() ? 0 : found->second;
    };
    for (const auto& [place, needed] : others) {
      if (needed > free(place)) {
        room.limit = placeText(place);
        return room;
      }
    }
    room.rows = UINT64_MAX;
    for (const auto& [place, versions] : copies) {
      const uint64_t most = (free(place) - rowsFor(place)) / versions;
      if (most < room.rows) {
        room.rows = most;
        room.limit = placeText(place);
      }
    }
    room.replaceable = now <= room.rows;
    return room;
  }

  uint64_t rows(const Plex::AclKey& key) const { return agent_.acl(key)->rows.size(); }

  uint64_t free(const Place& place) const {
    const uint64_t rows = agent_.setup().rows(static_cast<agent::Table>(place.second));
    const auto used = used_.find(place);
    const uint64_t taken = used == used_.end() ? 0 : used->second;
    return rows <= taken + 1 ? 0 : rows - 1 - taken; // the last row holds the default entry
  }

  const agent::Agent& agent_;
  std::map<Place, uint64_t> used_;
  std::map<XpAcl::AclIntfTypeAndDir, uint64_t> ids_;
};

} // namespace

std::map<agent::AclName, Room> roomToReplace(const agent::Agent& agent) {
  const RoomFinder finder(agent);
  std::map<agent::AclName, Room> rooms;
  for (const auto& [key, live] : agent.liveIndexKeys()) {
    for (const Plex::AclKey& member : agent::members(key)) {
      rooms.try_emplace(agent::aclName(member), finder.of(agent::aclName(member)));
    }
  }
  return rooms;
}

} // namespace tool
