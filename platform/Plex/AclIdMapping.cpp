#include "Plex/AclIdMapping.h"

namespace XpAcl {

namespace {
using Getter = const Plex::AclKey& (HwAclIndexKey::*)() const;
using Setter = void (HwAclIndexKey::*)(const Plex::AclKey&);
constexpr Getter getters[HwAclIndexKey::numSlots] = {
    &HwAclIndexKey::slot0, &HwAclIndexKey::slot1, &HwAclIndexKey::slot2, &HwAclIndexKey::slot3,
    &HwAclIndexKey::slot4, &HwAclIndexKey::slot5, &HwAclIndexKey::slot6, &HwAclIndexKey::slot7,
    &HwAclIndexKey::slot8, &HwAclIndexKey::slot9};
constexpr Setter setters[HwAclIndexKey::numSlots] = {
    &HwAclIndexKey::slot0Is, &HwAclIndexKey::slot1Is, &HwAclIndexKey::slot2Is, &HwAclIndexKey::slot3Is,
    &HwAclIndexKey::slot4Is, &HwAclIndexKey::slot5Is, &HwAclIndexKey::slot6Is, &HwAclIndexKey::slot7Is,
    &HwAclIndexKey::slot8Is, &HwAclIndexKey::slot9Is};
} // namespace

const Plex::AclKey& HwAclIndexKey::slot(unsigned index) const {
  VANE_ASSERT(index < numSlots);
  return (this->*getters[index])();
}

void HwAclIndexKey::slotIs(unsigned index, const Plex::AclKey& key) {
  VANE_ASSERT(index < numSlots);
  (this->*setters[index])(key);
}

bool HwAclIndexKey::isDefault() const {
  return *this == HwAclIndexKey();
}

VANE_REGISTERED(AclIdMapping)

} // namespace XpAcl
