#include "sim/Managers.h"

#include "Vane/Bytes.h"

#include <algorithm>
#include <cstring>

namespace sim {

using namespace XpXdk;

namespace {

// Lays the listed fields out as the packed key; fields that are not listed ignore everything.
XP_STATUS pack(const xpIaclkeyFieldList& list, const IaclKeyLayout& layout, TcamRow& row) {
  if (list.numFields > list.fields.size()) {
    return statusInvalidField;
  }
  unsigned seen = 0;
  for (unsigned i = 0; i < list.numFields; ++i) {
    const IaclFieldLayout& given = list.fields[i];
    const IaclFieldLayout* field = iaclField(layout, given.fieldId);
    if (!field || (seen & 1u << given.fieldId) != 0) {
      return statusInvalidField;
    }
    seen |= 1u << given.fieldId;
    const std::size_t length = std::min<std::size_t>(list.length, list.value.size());
    if (given.width != field->width || std::size_t{given.offset} + given.width > length) {
      return statusInvalidWidth;
    }
    Vane::copyNarrow(row.value.data() + field->offset, list.value.data() + given.offset, given.width);
    Vane::copyNarrow(row.mask.data() + field->offset, list.mask.data() + given.offset, given.width);
  }
  return statusOk;
}

void unpack(const TcamRow& row, const IaclKeyLayout& layout, xpIaclkeyFieldList& list) {
  list = {};
  list.keyType = layout.keyType;
  list.numFields = layout.numFields;
  list.length = layout.length;
  list.fields = layout.fields;
  std::copy_n(row.value.begin(), layout.length, list.value.begin());
  std::copy_n(row.mask.begin(), layout.length, list.mask.begin());
}

// The key as the log shows it; a key that would be refused is shown as far as it can be read.
std::string listText(xpIaclType_e table, const xpIaclkeyFieldList* key) {
  if (!key) {
    return "null";
  }
  TcamRow row;
  if (!iaclTable(table) || key->keyType != layoutOf(table).keyType ||
      pack(*key, layoutOf(table), row) != statusOk) {
    return "keyType=" + std::to_string(key->keyType) + " numFields=" + std::to_string(key->numFields);
  }
  return keyText(table, row.value, row.mask);
}

std::string rowArgument(xpIaclType_e table, uint32_t tcamIdx) {
  return tableText(table) + " " + std::to_string(tcamIdx);
}

} // namespace

XP_STATUS TcamManager::find(uint8_t device, xpIaclType_e table, uint32_t tcamIdx, TcamTable*& tcam) {
  Device* d = system_.device(device);
  if (!d) {
    return statusInvalidDevice;
  }
  tcam = d->tcam(table);
  if (!tcam) {
    return statusInvalidTable;
  }
  if (tcam->numRows() == 0) {
    return statusNotPresent;
  }
  return tcamIdx < tcam->numRows() ? statusOk : statusRowOutOfRange;
}

XP_STATUS TcamManager::writeKeyMask(uint8_t device, xpIaclType_e table, uint32_t tcamIdx, uint32_t,
                                    const xpIaclkeyFieldList* key) {
  const auto arguments = [&] {
    const std::string text = listText(table, key);
    return rowArgument(table, tcamIdx) + (text.empty() ? "" : " ") + text;
  };
  return system_.perform(Op::writeKeyMask, device, {table, tcamIdx}, arguments, [&]() -> XP_STATUS {
    TcamTable* tcam = nullptr;
    if (const XP_STATUS status = find(device, table, tcamIdx, tcam); status != statusOk) {
      return status;
    }
    const IaclKeyLayout& layout = layoutOf(table);
    if (!key || key->keyType != layout.keyType) {
      return statusInvalidArgument;
    }
    TcamRow row;
    if (const XP_STATUS status = pack(*key, layout, row); status != statusOk) {
      return status;
    }
    tcam->keyMaskIs(tcamIdx, row.value, row.mask);
    return statusOk;
  });
}

XP_STATUS TcamManager::writeData(uint8_t device, xpIaclType_e table, uint8_t tblNum, uint32_t tcamIdx,
                                 const xpIaclData_t* data) {
  const auto arguments = [&] {
    return rowArgument(table, tcamIdx) + " copy " + std::to_string(tblNum) + " " +
           (data ? dataText(*data) : "null");
  };
  return system_.perform(Op::writeData, device, {table, tcamIdx, tblNum}, arguments, [&]() -> XP_STATUS {
    TcamTable* tcam = nullptr;
    if (const XP_STATUS status = find(device, table, tcamIdx, tcam); status != statusOk) {
      return status;
    }
    if (!data || tblNum >= tcam->numCopies()) {
      return statusInvalidArgument;
    }
    tcam->dataIs(tcamIdx, tblNum, data->word());
    return statusOk;
  });
}

XP_STATUS TcamManager::setEntryValid(uint8_t device, xpIaclType_e table, uint32_t tcamIdx, uint8_t valid) {
  const auto arguments = [&] { return rowArgument(table, tcamIdx) + (valid ? " 1" : " 0"); };
  return system_.perform(Op::setEntryValid, device, {table, tcamIdx}, arguments, [&]() -> XP_STATUS {
    TcamTable* tcam = nullptr;
    if (const XP_STATUS status = find(device, table, tcamIdx, tcam); status != statusOk) {
      return status;
    }
    tcam->validIs(tcamIdx, valid != 0);
    return statusOk;
  });
}

XP_STATUS TcamManager::readEntry(uint8_t device, xpIaclType_e table, uint32_t tcamIdx, uint32_t& isValid,
                                 xpIaclkeyFieldList* key, xpIaclData_t* data, uint8_t tblNum) {
  const auto arguments = [&] { return rowArgument(table, tcamIdx) + " copy " + std::to_string(tblNum); };
  return system_.perform(Op::readEntry, device, arguments, [&]() -> XP_STATUS {
    TcamTable* tcam = nullptr;
    if (const XP_STATUS status = find(device, table, tcamIdx, tcam); status != statusOk) {
      return status;
    }
    const IaclKeyLayout& layout = layoutOf(table);
    if (!key || !data || key->keyType != layout.keyType || tblNum >= tcam->numCopies()) {
      return statusInvalidArgument;
    }
    const TcamRow row = tcam->row(tcamIdx);
    isValid = row.valid ? 1 : 0;
    unpack(row, layout, *key);
    *data = xpIaclData_t::fromWord(tcam->data(tcamIdx, tblNum));
    return statusOk;
  });
}

XP_STATUS TcamManager::getNumOfEntry(uint8_t device, xpIaclType_e table, uint32_t& count) {
  const auto arguments = [&] { return tableText(table); };
  return system_.perform(Op::getNumOfEntry, device, arguments, [&] {
    return system_.numOfEntry(device, count, [&](const Device& d, uint32_t& result) -> XP_STATUS {
      const TcamTable* tcam = d.tcam(table);
      if (!tcam) {
        system_.sdkLog_ += "The tabletype " + std::to_string(table) + " is not valid\n";
        return statusInvalidTable;
      }
      result = tcam->numRows();
      return statusOk;
    });
  });
}

XP_STATUS CounterManager::readCounter(uint8_t device, xpAcmClient_e client, uint32_t index, uint64_t& count) {
  const auto arguments = [&] { return "client " + std::to_string(client) + " " + std::to_string(index); };
  return system_.perform(Op::readCounter, device, arguments, [&]() -> XP_STATUS {
    const Device* d = system_.device(device);
    if (!d) {
      return statusInvalidDevice;
    }
    if (index >= numCounters) {
      return statusRowOutOfRange;
    }
    if (client != acmClientIngressAcl && client != acmClientEgressAcl) {
      return statusInvalidArgument;
    }
    count = d->counter(client, index);
    return statusOk;
  });
}

} // namespace sim
