#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "sim/LookupWords.h"

// The few rows of a table that no bits of the key part well, because they ignore most of it: each key is
// compared with all of them as a whole, one key with eight rows at a time or, in batches, many keys with one.

namespace sim {

class LookupTail {
public:
  static constexpr unsigned capacity = 32;
  static constexpr unsigned groupRows = 8;

  // What eight rows compare in a pair of words, row beside row.
  struct alignas(64) Group {
    std::array<std::array<uint64_t, groupRows>, 2> value;
    std::array<std::array<uint64_t, groupRows>, 2> care;
  };

  // The rows' numbers, which ascend.
  const std::vector<uint32_t>& rows() const { return rows_; }
  bool full() const { return rows_.size() == capacity; }

  // Rows compare bits of the first `numPairs` pairs of words only; fewer pairs become more, never less.
  void numPairsIs(unsigned numPairs);
  // Enters a row that is not there when the tail is not full.
  void enter(uint32_t row, const RowWords& words);
  // Takes out a row that is there.
  void leave(uint32_t row);
  void clear();

  // Groups of one of the pairs that rows compare. Places behind the last row agree with no key.
  const Group* groups(unsigned pair) const { return groups_[pair].data(); }
  unsigned numGroups() const { return static_cast<unsigned>(groups_[0].size()); }

  // The first row at or behind `from` that agrees with the key, or noTcamRow.
  uint32_t first(const KeyWords& key, uint32_t from) const;
  // Null, or what is not consistent. `words` are the rows' words.
  const char* audit(const std::vector<RowWords>& words) const;
  std::size_t bytes() const;

private:
  void numGroupsIs(unsigned numGroups);
  void placeIs(unsigned place, const RowWords& words);
  RowWords at(unsigned place) const;

  std::vector<uint32_t> rows_;
  unsigned numPairs_ = 1;
  std::array<std::vector<Group>, maxLookupPairs> groups_; // the first numPairs_ equally long, others empty
};

} // namespace sim
