#include "sim/LookupTail.h"

#include <algorithm>

#include "Vane/Assert.h"

namespace sim {

namespace {
// What a place without row holds: it compares nothing, and has a value all the same.
RowWords nothing() {
  RowWords words;
  words.value[0] = ~uint64_t{0};
  return words;
}
} // namespace

RowWords LookupTail::at(unsigned place) const {
  RowWords words;
  for (unsigned pair = 0; pair < numPairs_; ++pair) {
    const Group& group = groups_[pair][place / groupRows];
    for (unsigned half = 0; half < 2; ++half) {
      words.value[2 * pair + half] = group.value[half][place % groupRows];
      words.care[2 * pair + half] = group.care[half][place % groupRows];
    }
  }
  return words;
}

void LookupTail::placeIs(unsigned place, const RowWords& words) {
  for (unsigned pair = 0; pair < numPairs_; ++pair) {
    Group& group = groups_[pair][place / groupRows];
    for (unsigned half = 0; half < 2; ++half) {
      group.value[half][place % groupRows] = words.value[2 * pair + half];
      group.care[half][place % groupRows] = words.care[2 * pair + half];
    }
  }
}

void LookupTail::numPairsIs(unsigned numPairs) {
  for (; numPairs_ < numPairs; ++numPairs_) {
    groups_[numPairs_].resize(groups_[0].size());
  }
}

void LookupTail::numGroupsIs(unsigned numGroups) {
  for (unsigned pair = 0; pair < numPairs_; ++pair) {
    groups_[pair].resize(numGroups);
  }
}

void LookupTail::enter(uint32_t row, const RowWords& words) {
  VANE_ASSERT(!full());
  const auto size = static_cast<unsigned>(rows_.size());
  if (size % groupRows == 0) {
    numGroupsIs(size / groupRows + 1);
    for (unsigned place = size; place < size + groupRows; ++place) {
      placeIs(place, nothing());
    }
  }
  const auto place = std::lower_bound(rows_.begin(), rows_.end(), row);
  const auto number = static_cast<unsigned>(place - rows_.begin());
  rows_.insert(place, row);
  for (unsigned other = size; other > number; --other) {
    placeIs(other, at(other - 1));
  }
  placeIs(number, words);
}

void LookupTail::leave(uint32_t row) {
  const auto place = std::lower_bound(rows_.begin(), rows_.end(), row);
  VANE_ASSERT(place != rows_.end() && *place == row);
  const auto number = static_cast<unsigned>(place - rows_.begin());
  rows_.erase(place);
  const auto size = static_cast<unsigned>(rows_.size());
  for (unsigned other = number; other < size; ++other) {
    placeIs(other, at(other + 1));
  }
  placeIs(size, nothing());
  if (size % groupRows == 0) {
    numGroupsIs(size / groupRows);
  }
}

void LookupTail::clear() {
  rows_.clear();
  numGroupsIs(0);
}

uint32_t LookupTail::first(const KeyWords& key, uint32_t from) const {
  for (unsigned place = 0; place < rows_.size(); ++place) {
    const RowWords words = at(place);
    uint64_t differing = 0;
    for (unsigned word = 0; word < 2 * numPairs_; ++word) {
      differing |= (key[word] & words.care[word]) ^ words.value[word];
    }
    if (rows_[place] >= from && differing == 0) {
      return rows_[place];
    }
  }
  return noTcamRow;
}

const char* LookupTail::audit(const std::vector<RowWords>& words) const {
  if (rows_.size() > capacity || numGroups() != (rows_.size() + groupRows - 1) / groupRows) {
    return "the tail has more or fewer groups than its rows need";
  }
  for (unsigned place = 0; place < numGroups() * groupRows; ++place) {
    if (place >= rows_.size() ? at(place) != nothing() : at(place) != words[place]) {
      return "a place of the tail differs from its row";
    }
    if (place > 0 && place < rows_.size() && rows_[place] <= rows_[place - 1]) {
      return "the rows of the tail do not ascend";
    }
  }
  return nullptr;
}

std::size_t LookupTail::bytes() const {
  std::size_t result = rows_.size() * sizeof(uint32_t);
  for (const std::vector<Group>& groups : groups_) {
    result += groups.size() * sizeof(Group);
  }
  return result;
}

} // namespace sim
