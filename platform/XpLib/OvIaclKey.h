#pragma once

#include "Vane/Assert.h"
#include "Vane/Bytes.h"
#include "XpXdk/IaclTypes.h"

#include <cstdint>

// The agent's key-building library for ACL TCAM rows.

namespace XpAcl {

// Key and ignore-mask of one TCAM row (a mask bit of 1 is not compared). Lives on the stack of one
// programming or dump call: built, filled, finalized, written. A field that is never added matches
// anything; a field added again replaces what was there.
class OvIaclKey {
public:
  explicit OvIaclKey(XpXdk::xpIaclKeyType keyType) { reinitialize(keyType); }

  // Discards all fields and takes the layout of `keyType`.
  void reinitialize(XpXdk::xpIaclKeyType keyType);
  void clear();
  // Packs the added fields into sdkKey; called once, after the last field.
  void finalize();

  // What writeKeyMask and readEntry take.
  XpXdk::xpIaclkeyFieldList sdkKey;

private:
  friend void addIaclKeyField(XpXdk::xpIaclKeyType, uint8_t, const void*, const void*, unsigned, OvIaclKey&);

  struct OvIaclKeyField {
    uint8_t fieldId;
    uint8_t width; // bytes
    uint8_t value[XpXdk::maxIaclFieldBytes];
    uint8_t mask[XpXdk::maxIaclFieldBytes];
  };
  OvIaclKeyField fields_[XpXdk::maxIaclKeyFields];
  unsigned numFields_ = 0;
};

// Sets field `fieldId` to `length` (at most 16) bytes of value and ignore-mask. The chip refuses a
// field that the key type does not have, or one of another width. In place, because callers know the length.
inline void addIaclKeyField(XpXdk::xpIaclKeyType keyType, uint8_t fieldId, const void* value,
                            const void* mask, unsigned length, OvIaclKey& key) {
  VANE_ASSERT(keyType == key.sdkKey.keyType);
  VANE_ASSERT(length <= XpXdk::maxIaclFieldBytes);
  unsigned at = 0;
  while (at < key.numFields_ && key.fields_[at].fieldId != fieldId) {
    ++at;
  }
  if (at == key.numFields_) {
    VANE_ASSERT(key.numFields_ < XpXdk::maxIaclKeyFields);
    ++key.numFields_;
  }
  OvIaclKey::OvIaclKeyField& field = key.fields_[at];
  field.fieldId = fieldId;
  field.width = static_cast<uint8_t>(length);
  Vane::copyNarrow(field.value, value, length);
  Vane::copyNarrow(field.mask, mask, length);
}

// Copies field `fieldId` of a key that was read back into `length` bytes of value and mask. A field
// that is not there reads as value 0, mask all ones.
void readIaclKeyField(XpXdk::xpIaclKeyType keyType, uint8_t fieldId, const OvIaclKey& key, unsigned length,
                      void* value, void* mask);

// Sets every field of the data word to zero.
void clearIaclData(XpXdk::xpIaclData_t& data);

} // namespace XpAcl
