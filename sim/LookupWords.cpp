#include "sim/LookupWords.h"

namespace sim {

LookupLayout::LookupLayout(unsigned keyLength) {
  constexpr unsigned wordBytes = sizeof(uint64_t);
  offsets_[numWords_++] = 0;
  const unsigned atEnd = keyLength > wordBytes ? (keyLength - wordBytes) / wordBytes : 0;
  const unsigned gap = keyLength > wordBytes ? (keyLength - wordBytes) % wordBytes : 0;
  for (unsigned i = 0; i < atEnd; ++i) {
    offsets_[numWords_++] = wordBytes + gap + i * wordBytes;
  }
  if (gap != 0) {
    offsets_[numWords_++] = wordBytes;
  }
  std::array<bool, tcamKeyCapacity> taken{};
  for (unsigned word = 0; word < numWords_; ++word) {
    std::array<uint8_t, wordBytes> owned{};
    for (unsigned i = 0; i < wordBytes; ++i) {
      const unsigned byte = offsets_[word] + i;
      if (byte < keyLength && !taken[byte]) {
        taken[byte] = true;
        owned[i] = 0xFF;
      }
    }
    std::memcpy(&owned_[word], owned.data(), wordBytes);
  }
}

KeyWords LookupLayout::key(const TcamKeyBytes& bytes) const {
  KeyWords words;
  for (unsigned i = 0; i < maxLookupWords; ++i) {
    words[i] = word(bytes, i);
  }
  return words;
}

RowWords LookupLayout::row(const TcamRow& row) const {
  RowWords words;
  for (unsigned i = 0; i < numWords_; ++i) {
    words.care[i] = ~word(row.mask, i) & owned_[i];
    words.value[i] = word(row.value, i) & words.care[i];
  }
  return words;
}

} // namespace sim
