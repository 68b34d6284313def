#include "sim/LookupTree.h"

#include <algorithm>
#include <numeric>

// What the search tree is checked for, and what it consists of.

namespace sim {

using Ref = LookupTree::Ref;

// The leaf's rows ascend, and no block but the shared one is empty.
const char* LookupTree::auditLeaf(Ref leaf, Tally& tally) const {
  if (leaf == emptyLeaf) {
    return blocks_[0].length == 0 ? nullptr : "the block of all empty leaves holds a row";
  }
  uint32_t least = 0;
  for (;; leaf = blocks_[leaf & indexBits].next) {
    const Block& block = blocks_[leaf & indexBits];
    if (block.length == 0) {
      return "a leaf has an empty block";
    }
    if (numPairs_ == 1 && (block.wordA != 0 || block.wordB != 1)) {
      return "a block reads other words than the search";
    }
    for (unsigned at = 0; at < blockRows; ++at) {
      const uint32_t row = block.rows[at];
      if (at >= block.length) {
        if (row != noTcamRow || block.care[at] != 0 || block.value[at] == 0) {
          return "an unused place of a block could agree with a key";
        }
        continue;
      }
      if (row < least || row >= tally.copies.size()) {
        return "the rows of a leaf do not ascend";
      }
      least = row + 1;
      ++tally.copies[row];
      const RowWords words = wordsOf(row);
      const RowBits bits = signatureOf(block, words);
      if (block.care[at] != bits.care || block.value[at] != bits.value) {
        return "a row's signature differs from the row";
      }
    }
    if ((leaf & moreBit) == 0) {
      return nullptr;
    }
  }
}

const char* LookupTree::auditBelow(Ref ref, Tally& tally) const {
  if ((ref & leafBit) != 0) {
    return auditLeaf(ref, tally);
  }
  const Node& node = nodes_[ref];
  if (numPairs_ == 1 && (node.wordA != 0 || node.wordB != 1)) {
    return "a node reads other words than the search";
  }
  for (uint32_t child = 0; child < 1u << node.numBits; ++child) {
    if (const char* wrong = auditBelow(refs_[node.children + child], tally)) {
      return wrong;
    }
  }
  return nullptr;
}

// Takes each of the row's copies that keys can come to off the tally; what is left over is one too many.
const char* LookupTree::auditWay(Ref ref, uint32_t row, const RowWords& words, Tally& tally) const {
  if ((ref & leafBit) == 0) {
    ++tally.passing[ref];
    const Node& node = nodes_[ref];
    const char* wrong = nullptr;
    uint32_t fixed;
    const uint32_t ignored = ignoredBits(node, words, fixed);
    for (uint32_t child = 0; child < 1u << node.numBits && !wrong; ++child) {
      if ((child & ~ignored) == (fixed & ~ignored)) {
        wrong = auditWay(refs_[node.children + child], row, words, tally);
      }
    }
    return wrong;
  }
  for (;; ref = blocks_[ref & indexBits].next) {
    const Block& block = blocks_[ref & indexBits];
    if (std::find(block.rows.begin(), block.rows.begin() + block.length, row) !=
        block.rows.begin() + block.length) {
      --tally.copies[row];
      return nullptr;
    }
    if ((ref & moreBit) == 0) {
      return "a row is missing in a leaf that its keys come to";
    }
  }
}

const char* LookupTree::audit(std::span<const uint32_t> rows, std::span<const RowWords> words) const {
  Tally tally{std::vector<std::size_t>(treeOf_.size()), std::vector<uint32_t>(nodes_.size())};
  for (const Ref root : roots_) {
    if (const char* wrong = auditBelow(root, tally)) {
      return wrong;
    }
  }
  if (std::accumulate(tally.copies.begin(), tally.copies.end(), std::size_t{0}) != copies_) {
    return "the number of rows in all leaves is wrong";
  }
  std::vector<RowWords> tailWords;
  for (const uint32_t row : tail_.rows()) {
    if (row >= treeOf_.size() || treeOf_[row] != maxTrees) {
      return "a row stands in the tail that is not its own";
    }
    tailWords.push_back(wordsOf(row));
  }
  if (const char* wrong = tail_.audit(tailWords)) {
    return wrong;
  }
  std::size_t inTail = 0;
  std::array<uint32_t, maxTrees> inTree{};
  for (std::size_t i = 0; i < rows.size(); ++i) {
    if (rows[i] >= treeOf_.size()) {
      return "a row was never entered";
    }
    if (wordsOf(rows[i]) != words[i]) {
      return "the record of a row differs from the row";
    }
    const unsigned tree = treeOf_[rows[i]];
    if (tree == maxTrees) {
      ++inTail;
      continue;
    }
    ++inTree[tree];
    if (lowest_[tree] > rows[i]) {
      return "a tree holds a row below its lowest";
    }
    if (const char* wrong = auditWay(roots_[tree], rows[i], words[i], tally)) {
      return wrong;
    }
  }
  if (std::any_of(tally.copies.begin(), tally.copies.end(), [](std::size_t n) { return n != 0; })) {
    return "a row stands in a leaf that is not its own";
  }
  for (uint32_t node = 0; node < nodes_.size(); ++node) {
    if (tally.passing[node] != 0 && tally.passing[node] != nodes_[node].rows) {
      return "the number of rows below a node is wrong";
    }
  }
  if (inTail != tail_.rows().size()) {
    return "a row of the tail is missing there";
  }
  return inTree == numRows_ ? nullptr : "the number of rows of a tree is wrong";
}

void LookupTree::figures(Ref ref, unsigned depth, Figures& figures) const {
  figures.depth = std::max(figures.depth, depth);
  if ((ref & leafBit) != 0) {
    const std::size_t rows = leafRows(ref);
    figures.copies += rows;
    figures.longest = std::max(figures.longest, rows);
    return;
  }
  ++figures.nodes;
  const Node& node = nodes_[ref];
  for (uint32_t child = 0; child < 1u << node.numBits; ++child) {
    this->figures(refs_[node.children + child], depth + 1, figures);
  }
}

LookupTree::Figures LookupTree::figures() const {
  Figures result;
  for (unsigned tree = 0; tree < maxTrees; ++tree) {
    if (numRows_[tree] != 0) {
      ++result.trees;
      result.rows += numRows_[tree];
      figures(roots_[tree], 0, result);
    }
  }
  result.inTail = tail_.rows().size();
  result.rows += result.inTail;
  result.copies += result.inTail;
  result.blocks = blocks_.size() - freeBlocks_.size();
  result.bytes = nodes_.size() * sizeof(Node) + refs_.size() * sizeof(Ref) + blocks_.size() * sizeof(Block) +
                 numPairs_ * treeOf_.size() * sizeof(Record) + treeOf_.size() + tail_.bytes();
  return result;
}

} // namespace sim
