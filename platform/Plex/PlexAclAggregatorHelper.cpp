#include "Plex/PlexAclAggregatorHelper.h"

namespace PlexHelper {

void AclHelper::publishUnitErrorIs(const Vane::String& text, bool on) {
  unitErrorTextIs(on ? text : Vane::String(""));
  unitErrorPublishedIs(on);
}

void AclHelper::unitErrorIs(const Vane::String& text, Plex::AclCreateError error) {
  unitErrorTextIs(text);
  unitErrorCodeIs(error);
}

} // namespace PlexHelper

namespace XpAcl {

PlexAclAggregatorHelper::PlexAclAggregatorHelper(const Vane::Ptr<PlexAclAggregatorHelperInfo>& helperInfo,
                                                 const Vane::Ptr<AclIdMapping>& aclIdMapping,
                                                 const Vane::Ptr<Acl::ParamConfig const>& paramConfig)
    : helperInfo_(helperInfo), aclIdMapping_(aclIdMapping), paramConfig_(paramConfig),
      capabilities_(aclCapabilitiesFactory()) {}

bool PlexAclAggregatorHelper::allocateAndCommitAcl(const Plex::IntfPairKey& intfPair,
                                                   const Vane::Ptr<Plex::AclData>& aclData,
                                                   const HwAclIndexKey& indexKey) {
  const IntfIdDirection key(intfPair.intf(), aclData->aclKey().direction());
  if (indexKey.isDefault()) {
    aclIdMapping()->intfDirectionToIndexKeyDel(key);
    return true;
  }
  if (!assignedAclIdHas(indexKey)) {
    return false;
  }
  aclIdMapping()->keyToAclIdMappingIs(indexKey, assignedAclId(indexKey));
  aclIdMapping()->intfDirectionToIndexKeyIs(key, indexKey);
  return true;
}

VANE_REGISTERED(PlexAclAggregatorHelperInfo)
VANE_REGISTERED(AclCapabilities)

} // namespace XpAcl
