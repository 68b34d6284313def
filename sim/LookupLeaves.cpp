#include <algorithm>
#include <array>

#include "Vane/Assert.h"

#include "sim/LookupTree.h"

// Leaves of the search tree, and the memory that nodes, children and blocks stand in.

namespace sim {

using Ref = LookupTree::Ref;
using Block = LookupTree::Block;

namespace {
void placeIsUnused(Block& block, unsigned at) {
  block.value[at] = 0xFFFF;
  block.care[at] = 0;
  block.rows[at] = noTcamRow;
}
} // namespace

RowBits LookupTree::signatureOf(const Block& block, const RowWords& words) {
  return extractRow(words, {block.bitsA, block.bitsB, block.wordA, block.wordB, block.numBitsA});
}

std::size_t LookupTree::leafRows(Ref leaf) const {
  std::size_t rows = blocks_[leaf & indexBits].length;
  while ((leaf & moreBit) != 0) {
    leaf = blocks_[leaf & indexBits].next;
    rows += blocks_[leaf & indexBits].length;
  }
  return rows;
}

void LookupTree::rowSignatureIs(Block& block, unsigned at, const RowWords& words) {
  const RowBits bits = signatureOf(block, words);
  block.value[at] = static_cast<uint16_t>(bits.value);
  block.care[at] = static_cast<uint16_t>(bits.care);
}

// Fills a block with rows, which ascend, under the signature that suits them.
void LookupTree::signatureIs(Block& block, std::span<const uint32_t> rows, const Place& place) {
  std::array<RowWords, blockRows> words;
  for (std::size_t i = 0; i < rows.size(); ++i) {
    words[i] = wordsOf(rows[i]);
  }
  const BitChoice choice = chooseSignature({words.data(), rows.size()}, place.used, ranks_);
  block.bitsA = choice.bitsA;
  block.bitsB = choice.bitsB;
  block.wordA = choice.wordA;
  block.wordB = choice.wordB;
  block.numBitsA = choice.numBitsA;
  block.length = block.lengthSigned = rows.size() & 15;
  for (unsigned i = 0; i < blockRows; ++i) {
    if (i < rows.size()) {
      block.rows[i] = rows[i];
      rowSignatureIs(block, i, words[i]);
    } else {
      placeIsUnused(block, i);
    }
  }
}

// `block` has room.
void LookupTree::rowEnters(Block& block, uint32_t row, const RowWords& words) {
  unsigned at = block.length++;
  for (; at > 0 && block.rows[at - 1] > row; --at) {
    block.rows[at] = block.rows[at - 1];
    block.value[at] = block.value[at - 1];
    block.care[at] = block.care[at - 1];
  }
  block.rows[at] = row;
  rowSignatureIs(block, at, words);
}

void LookupTree::rowLeaves(Block& block, unsigned at) {
  const unsigned last = --block.length;
  for (; at < last; ++at) {
    block.rows[at] = block.rows[at + 1];
    block.value[at] = block.value[at + 1];
    block.care[at] = block.care[at + 1];
  }
  placeIsUnused(block, last);
}

Ref LookupTree::makeLeaf(const Numbers& rows, const Place& place) {
  Ref first = emptyLeaf;
  uint32_t before = 0;
  copies_ += rows.size();
  for (std::size_t begin = 0; begin < rows.size(); begin += blockRows) {
    const std::size_t count = std::min<std::size_t>(blockRows, rows.size() - begin);
    const uint32_t block = takeBlock();
    (begin == 0 ? first : blocks_[before].next) =
        leafBit | block | (begin + count < rows.size() ? moreBit : 0);
    signatureIs(blocks_[block], std::span(rows).subspan(begin, count), place);
    before = block;
  }
  return first;
}

// Makes room for a row in a full block, to which `ref` leads: gives the upper half to a new block behind it,
// or nothing when the row belongs there, so that rows that are written in order fill their blocks. Answers
// the block that has room at the row's place. The new one has the same signature, which suits its rows as
// well as the others; it gets one of its own when it has more than a few. A block that stays full gets one
// that suits most of its rows.
uint32_t LookupTree::parted(Ref& ref, uint32_t row, const Way& way) {
  constexpr unsigned few = 2;
  constexpr unsigned most = 10;
  const Ref more = ref & moreBit;
  const uint32_t index = ref & indexBits;
  ref |= moreBit;
  const uint32_t behind = takeBlock(); // moves the blocks, where `ref` may stand
  Block& from = blocks_[index];
  Block& to = blocks_[behind];
  to.next = from.next;
  from.next = leafBit | behind | more;
  to.bitsA = from.bitsA;
  to.bitsB = from.bitsB;
  to.wordA = from.wordA;
  to.wordB = from.wordB;
  to.numBitsA = from.numBitsA;
  to.lengthSigned = few;
  if (from.rows.back() < row) {
    if (from.lengthSigned < most) {
      const std::array<uint32_t, blockRows> rows = from.rows;
      signatureIs(from, rows, placeOf(way));
    }
    return behind;
  }
  constexpr unsigned kept = (blockRows + 1) / 2;
  for (unsigned at = kept; at < blockRows; ++at) {
    to.rows[to.length] = from.rows[at];
    to.value[to.length] = from.value[at];
    to.care[to.length++] = from.care[at];
    placeIsUnused(from, at);
  }
  from.length = kept;
  return row < to.rows.front() ? index : behind;
}

// Enters a row between its neighbours.
Ref LookupTree::enterLeaf(Ref leaf, uint32_t row, const RowWords& words, const Way& way) {
  if (leaf == emptyLeaf) {
    return makeLeaf({row}, placeOf(way));
  }
  ++copies_;
  Ref* ref = &leaf;
  while ((*ref & moreBit) != 0 && blocks_[blocks_[*ref & indexBits].next & indexBits].rows[0] < row) {
    ref = &blocks_[*ref & indexBits].next;
  }
  uint32_t index = *ref & indexBits;
  if (blocks_[index].length == blockRows) {
    index = parted(*ref, row, way);
  }
  Block& block = blocks_[index];
  rowEnters(block, row, words);
  // A signature that suits few rows may not suit many.
  if (block.length > 2 * block.lengthSigned) {
    const std::array<uint32_t, blockRows> rows = block.rows;
    signatureIs(block, std::span(rows).first(block.length), placeOf(way));
  }
  return leaf;
}

// Takes a row out. A block that is empty then leaves the leaf.
Ref LookupTree::leaveLeaf(Ref leaf, uint32_t row) {
  Ref* before = nullptr;
  Ref* ref = &leaf;
  Block* block = &blocks_[*ref & indexBits];
  while (block->rows[block->length - 1] < row) {
    VANE_ASSERT((*ref & moreBit) != 0);
    before = ref;
    ref = &block->next;
    block = &blocks_[*ref & indexBits];
  }
  const auto at = std::lower_bound(block->rows.begin(), block->rows.end(), row);
  VANE_ASSERT(*at == row);
  rowLeaves(*block, static_cast<unsigned>(at - block->rows.begin()));
  --copies_;
  if (block->length != 0) {
    return leaf;
  }
  freeBlocks_.push_back(*ref & indexBits);
  if ((*ref & moreBit) != 0) {
    *ref = block->next;
  } else if (before) {
    *before &= ~moreBit;
  } else {
    leaf = emptyLeaf;
  }
  return leaf;
}

uint32_t LookupTree::takeBlock() {
  uint32_t index;
  if (!freeBlocks_.empty()) {
    index = freeBlocks_.back();
    freeBlocks_.pop_back();
  } else {
    index = static_cast<uint32_t>(blocks_.size());
    VANE_ASSERT(index < indexBits);
    blocks_.emplace_back();
  }
  Block& block = blocks_[index];
  block = {};
  block.next = emptyLeaf;
  for (unsigned at = 0; at < blockRows; ++at) {
    placeIsUnused(block, at);
  }
  return index;
}

uint32_t LookupTree::takeNode() {
  if (freeNodes_.empty()) {
    nodes_.emplace_back();
    return static_cast<uint32_t>(nodes_.size() - 1);
  }
  const uint32_t node = freeNodes_.back();
  freeNodes_.pop_back();
  return node;
}

uint32_t LookupTree::takeRefs(unsigned numBits) {
  std::vector<uint32_t>& free = freeRefs_[numBits];
  if (free.empty()) {
    refs_.resize(refs_.size() + (std::size_t{1} << numBits), emptyLeaf);
    return static_cast<uint32_t>(refs_.size() - (std::size_t{1} << numBits));
  }
  const uint32_t first = free.back();
  free.pop_back();
  return first;
}

} // namespace sim
