#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "sim/LookupBits.h"
#include "sim/LookupTail.h"
#include "sim/LookupWords.h"

// The search structure of a TCAM table: finds the lowest of the entered rows whose compared bits all agree
// with a key.
//
// Shape. Up to three trees and a tail, each row in exactly one of them. A node reads some bits of the key,
// which number one of its children; a leaf holds the numbers of up to 13 rows, in ascending order, with a
// signature of 16 bits of each: of the bits that tell the leaf's rows apart best and that other rows of the
// table differ in, so that keys do too. All signatures are compared with the key's at once; only rows that
// pass are compared as a whole. A row that ignores some of a node's bits stands in every child that agrees
// with the rest, which costs eight bytes a time. A row that ignores too many bits of a tree's root goes to
// the next tree, whose root reads bits that such rows do compare. What few rows are left over stand in the
// tail (LookupTail.h), where each is compared with every key: that is cheaper than going down another tree. A
// tail that has become too long becomes a tree; the last tree takes everything when the tail cannot.
//
// Writing. A row enters and leaves in place: the leaves that it belongs to change, nothing else. A leaf that
// grows too long becomes a node; a node that has kept few rows becomes a leaf again. A node whose rows have
// become several times as many since it was made is made anew from them, because bits that told a few rows
// apart rarely suit many; a root and the trees behind it are at twice as many rows. All trees are made anew
// when the table has doubled, a small one when it has grown by a half; when their leaves hold several times
// as much together, so that the bits suit the rows badly; and after less growth when many of the new rows
// went past the first tree, when a leaf has become very long, or when a further tree would have to be begun.
// So a row takes part in as many such makings as a growing array copies an element: a few.
//
// Rows that no bits tell apart share a leaf of several blocks, which are searched one after the other.
//
// Trees are values: a copy is independent. Searching changes nothing, so that threads may share a tree that
// nobody writes.

namespace sim {

// How keys are compared; all give the same answers.
enum class LookupPath : uint8_t { portable, avx2, avx512 };

// The fastest path that this processor can take. The environment variable XPACL_LOOKUP names a slower one:
// portable or avx2.
LookupPath bestLookupPath();

class LookupTree {
public:
  // Of keys of `keyLength` bytes (1..48).
  explicit LookupTree(unsigned keyLength);

  const LookupLayout& layout() const { return layout_; }

  // Enters a row that is not there.
  void enter(uint32_t row, const RowWords& words);
  // Takes out a row that was entered with these words.
  void leave(uint32_t row, const RowWords& words);

  // The lowest row that agrees with each key, or noTcamRow. `rows` is as long as `keys`.
  void search(std::span<const TcamKeyBytes> keys, std::span<uint32_t> rows) const;
  uint32_t search(const TcamKeyBytes& key) const;
  // The lowest at or behind `from` that agrees, or noTcamRow.
  uint32_t searchFrom(const TcamKeyBytes& key, uint32_t from) const;

  void pathIs(LookupPath path) { path_ = path; }

  // Whether exactly the rows of `rows` are entered, with the words of `words`, each in the leaves where
  // keys look for it and nowhere else, and all that stands beside them is consistent. Null, or what is not.
  const char* audit(std::span<const uint32_t> rows, std::span<const RowWords> words) const;

  // What the structure consists of, for whoever tunes it.
  struct Figures {
    unsigned trees = 0;
    std::size_t nodes = 0;
    std::size_t blocks = 0;
    std::size_t rows = 0;    // entered
    std::size_t inTail = 0;  // of those rows
    std::size_t copies = 0;  // of rows, in all leaves and in the tail
    std::size_t longest = 0; // rows of the longest leaf
    unsigned depth = 0;      // nodes on the longest way to a leaf
    std::size_t bytes = 0;   // of memory
  };
  Figures figures() const;

  // What follows is read by the search paths.

  // A child: a node's number, or a leaf's first block with leafBit, and moreBit when others follow it.
  using Ref = uint32_t;
  static constexpr Ref leafBit = 1u << 31;
  static constexpr Ref moreBit = 1u << 30;
  static constexpr Ref indexBits = moreBit - 1;
  static constexpr Ref emptyLeaf = leafBit; // block 0 is empty and belongs to all empty leaves

  struct alignas(32) Node {
    uint64_t bitsA = 0;
    uint64_t bitsB = 0;
    uint32_t children = 0; // the first of them in refs
    uint8_t wordA : 4 = 0;
    uint8_t wordB : 4 = 0;
    uint8_t numBitsA = 0;
    uint8_t numBits = 0;
    uint8_t copies = 0; // of each row in the children when its bits were chosen, on average, in 1/copyUnits
    uint32_t rows = 0;  // below the node
    uint32_t rowsWhenMade = 0; // the same when its bits were chosen
  };
  static constexpr double copyUnits = 64;
  static_assert(sizeof(Node) == 32);
  // Part of a leaf, two cache lines.
  static constexpr unsigned blockRows = 13;
  struct alignas(128) Block {
    uint64_t bitsA; // of the signature
    uint64_t bitsB;
    // A row's signature has its bits of word A at the low end, then those of word B; in `value` those are 0
    // that the row does not compare. Unused places, at the end, compare nothing and have a value all the
    // same, with which no key agrees.
    std::array<uint16_t, blockRows> value;
    std::array<uint16_t, blockRows> care;
    std::array<uint32_t, blockRows> rows; // ascending, then noTcamRow
    uint8_t wordA;
    uint8_t wordB;
    uint8_t numBitsA;
    uint8_t length : 4;       // rows in use
    uint8_t lengthSigned : 4; // the same when the signature was chosen
    Ref next;                 // the leaf's next block, when moreBit says that there is one
  };
  static_assert(sizeof(Block) == 128);
  // What a row compares in a pair of words.
  struct alignas(32) Record {
    std::array<uint64_t, 2> value;
    std::array<uint64_t, 2> care;
  };
  struct View {
    const Node* nodes;
    const Ref* refs;
    const Block* blocks;
    std::array<const Record*, maxLookupPairs> records; // by row number
    unsigned numPairs;                                 // that some row compares
    unsigned numTrees;                                 // that hold rows
    std::array<Ref, 3> roots;
    std::array<uint32_t, 3> lowest; // no tree holds a row below
    std::array<const LookupTail::Group*, maxLookupPairs> tail;
    const uint32_t* tailRows; // their numbers, which ascend
    unsigned numTailRows;
    unsigned tailGroups;
    std::array<unsigned, maxLookupWords> offsets;
  };

private:
  static constexpr unsigned maxTrees = 3;
  static constexpr double maxRowCopies = 8;
  using Numbers = std::vector<uint32_t>; // of rows, ascending
  // Where a child is: the bits that all keys which come there have been asked for, and how many copies of
  // each row the nodes below may still make on average.
  struct Place {
    KeyWords used{};
    unsigned depth = 0;
    double copies = maxRowCopies;
    Place below(const Node& node) const;
  };
  // The nodes above a place. Most rows enter and leave without anybody asking what a place says.
  struct Way {
    const Way* above = nullptr; // null: the place of a root
    Ref node = 0;               // the lowest of them
    bool isRoot() const { return above == nullptr; }
  };
  Place placeOf(const Way& way) const;

  RowWords wordsOf(uint32_t row) const;
  void recordIs(uint32_t row, const RowWords& words);

  // Children.
  static uint32_t ignoredBits(const Node& node, const RowWords& words, uint32_t& fixed);
  bool fits(unsigned tree, const RowWords& words) const;
  void enterTail(uint32_t row, const RowWords& words);
  Ref enter(Ref ref, uint32_t row, const RowWords& words, const Way& way);
  Ref leave(Ref ref, uint32_t row, const RowWords& words, const Way& way);
  Ref grown(Ref leaf, const Way& way);
  bool isWorthRemaking() const;
  bool hasGrown() const;
  bool hasOutgrown(unsigned tree) const;
  static void ascend(Numbers& rows);
  void remake(uint32_t another);
  void remakeFrom(unsigned tree, uint32_t another, bool lastTakesAll);

  // Making of subtrees.
  std::vector<RowWords> sampleOf(const Numbers& rows, std::size_t most) const;
  BitChoice choose(const Numbers& rows, const BitLimits& limits) const;
  Ref make(const Numbers& rows, const Place& place);
  unsigned freeTree(unsigned tree) const;
  void makeTrees(Numbers rows, bool lastTakesAll);
  static double worthOf(const BitChoice& choice, std::size_t rows);
  BitChoice chooseRoot(const Numbers& rows, unsigned& maxIgnored) const;
  Ref makeRoot(Numbers rows, unsigned tree, std::size_t maxRest, Numbers& rest);
  Ref makeNode(const Numbers& rows, const BitChoice& choice, const Place& place);
  Ref makeLeaf(const Numbers& rows, const Place& place);
  void gather(Ref ref, Numbers& rows) const;
  Numbers released(Ref ref);
  void release(Ref ref);

  // Leaves.
  Ref enterLeaf(Ref leaf, uint32_t row, const RowWords& words, const Way& way);
  uint32_t parted(Ref& ref, uint32_t row, const Way& way);
  Ref leaveLeaf(Ref leaf, uint32_t row);
  std::size_t leafRows(Ref leaf) const;
  static RowBits signatureOf(const Block& block, const RowWords& words);
  static void rowSignatureIs(Block& block, unsigned at, const RowWords& words);
  static void rowEnters(Block& block, uint32_t row, const RowWords& words);
  static void rowLeaves(Block& block, unsigned at);
  void signatureIs(Block& block, std::span<const uint32_t> rows, const Place& place);
  bool agrees(uint32_t row, const KeyWords& key) const;

  // Memory.
  void clear();
  uint32_t takeBlock();
  uint32_t takeNode();
  uint32_t takeRefs(unsigned numBits);

  View view() const;
  // What audit() counts: how often each row stands in leaves, and how many rows pass each node.
  struct Tally {
    std::vector<std::size_t> copies;
    std::vector<uint32_t> passing;
  };
  const char* auditBelow(Ref ref, Tally& tally) const;
  const char* auditLeaf(Ref leaf, Tally& tally) const;
  const char* auditWay(Ref ref, uint32_t row, const RowWords& words, Tally& tally) const;
  void figures(Ref ref, unsigned depth, Figures& figures) const;

  LookupLayout layout_;
  BitRanks ranks_; // by the rows from which all trees were made last
  LookupPath path_ = bestLookupPath();
  std::vector<Node> nodes_;
  std::vector<Ref> refs_;
  std::vector<Block> blocks_;
  std::array<std::vector<Record>, maxLookupPairs> records_; // empty for pairs that no row compares
  unsigned numPairs_ = 1;                                   // that some row has compared
  std::vector<uint32_t> freeBlocks_;
  std::vector<uint32_t> freeNodes_;
  std::array<std::vector<uint32_t>, 16> freeRefs_; // by number of bits
  std::array<Ref, maxTrees> roots_{};
  std::array<uint32_t, maxTrees> numRows_{};
  std::array<unsigned, maxTrees> maxIgnored_{}; // bits of the root, by the tree's rows
  std::array<uint32_t, maxTrees> lowest_{};
  std::vector<uint8_t> treeOf_; // by row number, as far as rows were entered; maxTrees: the tail
  LookupTail tail_;
  // Of rows in all leaves, now and when all trees were made last.
  std::size_t copies_ = 0;
  std::size_t copiesWhenMade_ = 0;
  uint32_t numEntered_ = 0;
  uint32_t enteredWhenMade_ = 0;
  uint32_t outsideWhenMade_ = 0;
  bool hasLongLeaf_ = false; // that has grown since
};

} // namespace sim
