#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "sim/TcamRow.h"

// Keys and rows as the search tree reads them: a few 64-bit words instead of up to 48 bytes.
//
// A word is eight successive bytes of the key, in the machine's byte order, read from a fixed place. The
// first word begins the key, the others lie back to back at its end, and one more covers the bytes
// between, if there are any. A byte that two words cover belongs to the earlier one. That puts the fields
// that rows of the chip's IPv4 table compare into words 0 and 1 and the rarely compared TTL into word 2,
// which the search leaves out while no row compares it.

namespace sim {

// Words of the longest key; two words make a pair, which is what the search compares at a time.
constexpr unsigned maxLookupWords = 6;
constexpr unsigned maxLookupPairs = maxLookupWords / 2;

using KeyWords = std::array<uint64_t, maxLookupWords>;

struct RowWords {
  KeyWords value{}; // 0 where not compared
  KeyWords care{};  // a bit of 1 is compared
  bool operator==(const RowWords&) const = default;
};

class LookupLayout {
public:
  // Of keys of `keyLength` bytes, 1..48.
  explicit LookupLayout(unsigned keyLength);

  unsigned numWords() const { return numWords_; }
  unsigned numPairs() const { return (numWords_ + 1) / 2; }
  unsigned offset(unsigned word) const { return offsets_[word]; }

  uint64_t word(const TcamKeyBytes& bytes, unsigned word) const {
    uint64_t result;
    std::memcpy(&result, bytes.data() + offsets_[word], sizeof result);
    return result;
  }
  KeyWords key(const TcamKeyBytes& bytes) const;
  RowWords row(const TcamRow& row) const;

private:
  unsigned numWords_ = 0;
  // All six, so that a key is read without asking which words there are; the unused ones read word 0.
  std::array<unsigned, maxLookupWords> offsets_{};
  KeyWords owned_{}; // the bytes of the key that belong to each word
};

} // namespace sim
