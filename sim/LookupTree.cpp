#include "sim/LookupTree.h"

#include <algorithm>
#include <bit>
#include <cmath>

namespace sim {

namespace {
using Ref = LookupTree::Ref;
using Node = LookupTree::Node;

// Longer leaves become nodes when there are bits that tell their rows apart.
constexpr std::size_t maxLeaf = LookupTree::blockRows;
// A node with no more rows becomes a leaf.
constexpr uint32_t leastNode = 6;
// A node is made anew when its rows are so many times as many as when it was made, a root and the trees
// behind it earlier, all trees together when what their leaves hold is.
constexpr uint32_t nodeGrowth = 6;
constexpr uint32_t rootGrowth = 2;
constexpr std::size_t copyGrowth = 3;
// Rows that a key meets in a leaf: fewer are not worth another bit. In tables that processors do not keep in
// their nearer memory more are as good, as fewer leaves are fetched faster.
constexpr double enoughRows = 5;
constexpr double enoughRowsOfLarge = 9;
constexpr uint32_t largeTable = 32768; // rows
// Tables of fewer rows are made anew with every half that they grow, others with every doubling.
constexpr uint32_t smallTable = 8192;
// A leaf of more rows is a reason to make all trees anew earlier.
constexpr std::size_t longLeaf = 6 * maxLeaf;
constexpr unsigned maxDepth = 12;
// Bits of a root that a row may ignore before it goes to the next tree: some, or few when that tells the
// others apart much better. Rows of which some compare one address only and some the other are best parted
// at once, as each ignores whatever tells the others apart.
constexpr unsigned someIgnored = 3;
constexpr unsigned fewIgnored = 1;
constexpr unsigned unlimited = 64;
// A further bit of a root is worth a smaller gain than one of another node, and where a key meets fewer rows:
// every key passes roots, and many leave the tree there.
constexpr double leastRootGain = 0.003;
constexpr double enoughRootRows = 2;
// Rows that a key may meet behind a root, or a share of them: fewer are no better. Below this worth of a root
// others are tried.
constexpr double wellParted = 8;
constexpr double parting = 16;
constexpr double goodWorth = 0.9;
// Rows by which bits are ranked at most.
constexpr std::size_t rankSample = 256;

Node nodeOf(const BitChoice& choice) {
  Node node;
  node.bitsA = choice.bitsA;
  node.bitsB = choice.bitsB;
  node.wordA = choice.wordA & 15;
  node.wordB = choice.wordB & 15;
  node.numBitsA = choice.numBitsA;
  node.numBits = choice.numBits;
  return node;
}

uint32_t childNumber(const Node& node, const KeyWords& words) {
  return static_cast<uint32_t>(extractBits(words[node.wordA], node.bitsA) |
                               extractBits(words[node.wordB], node.bitsB) << node.numBitsA);
}

// Of the rows of a leaf: each time they have doubled.
bool isWorthParting(std::size_t rows) {
  return rows >= 2 * maxLeaf && rows % maxLeaf == 0 && std::has_single_bit(rows / maxLeaf);
}

// Calls visit(child) for every child number made of `fixed` and any subset of `ignored`.
template <class Visit>
void forEachChild(uint32_t fixed, uint32_t ignored, Visit visit) {
  uint32_t subset = 0;
  do {
    visit(fixed | subset);
    subset = (subset - ignored) & ignored;
  } while (subset != 0);
}

// At most so many children for each row.
enum class Children : uint8_t { two, four };
unsigned maxBitsFor(std::size_t rows, Children children, unsigned most) {
  return std::min<unsigned>(most, static_cast<unsigned>(std::bit_width(rows)) + (children == Children::four));
}
} // namespace

LookupTree::LookupTree(unsigned keyLength) : layout_(keyLength) {
  clear();
}

// Leaves nothing but the block of all empty leaves, and the records of rows.
void LookupTree::clear() {
  nodes_.clear();
  refs_.clear();
  blocks_.clear();
  freeNodes_.clear();
  freeBlocks_.clear();
  copies_ = 0;
  hasLongLeaf_ = false;
  for (std::vector<uint32_t>& free : freeRefs_) {
    free.clear();
  }
  takeBlock();
  roots_.fill(emptyLeaf);
  numRows_.fill(0);
  lowest_.fill(noTcamRow);
  maxIgnored_.fill(someIgnored);
  tail_.clear();
}

LookupTree::Place LookupTree::Place::below(const Node& node) const {
  Place place = *this;
  place.used[node.wordA] |= node.bitsA;
  place.used[node.wordB] |= node.bitsB;
  ++place.depth;
  place.copies /= std::max(node.copies / copyUnits, 1.0);
  return place;
}

LookupTree::Place LookupTree::placeOf(const Way& way) const {
  return way.isRoot() ? Place() : placeOf(*way.above).below(nodes_[way.node]);
}

RowWords LookupTree::wordsOf(uint32_t row) const {
  RowWords words;
  for (unsigned pair = 0; pair < numPairs_; ++pair) {
    const Record& record = records_[pair][row];
    for (unsigned half = 0; half < 2; ++half) {
      words.value[2 * pair + half] = record.value[half];
      words.care[2 * pair + half] = record.care[half];
    }
  }
  return words;
}

void LookupTree::recordIs(uint32_t row, const RowWords& words) {
  for (unsigned pair = numPairs_; pair < maxLookupPairs; ++pair) {
    if ((words.care[2 * pair] | words.care[2 * pair + 1]) != 0) {
      numPairs_ = pair + 1;
    }
  }
  tail_.numPairsIs(numPairs_);
  if (row >= treeOf_.size()) {
    treeOf_.resize(row + 1);
  }
  for (unsigned pair = 0; pair < numPairs_; ++pair) {
    std::vector<Record>& records = records_[pair];
    if (records.size() < treeOf_.size()) {
      records.resize(treeOf_.size());
    }
    records[row] = {{words.value[2 * pair], words.value[2 * pair + 1]},
                    {words.care[2 * pair], words.care[2 * pair + 1]}};
  }
}

bool LookupTree::agrees(uint32_t row, const KeyWords& key) const {
  uint64_t differing = 0;
  for (unsigned pair = 0; pair < numPairs_; ++pair) {
    const Record& record = records_[pair][row];
    for (unsigned half = 0; half < 2; ++half) {
      differing |= (key[2 * pair + half] & record.care[half]) ^ record.value[half];
    }
  }
  return differing == 0;
}

// The node's bits that the row ignores, as bits of child numbers; `fixed` becomes those it compares.
uint32_t LookupTree::ignoredBits(const Node& node, const RowWords& words, uint32_t& fixed) {
  const RowBits bits = extractRow(words, {node.bitsA, node.bitsB, node.wordA, node.wordB, node.numBitsA});
  fixed = bits.value;
  return ~bits.care & ((1u << node.numBits) - 1);
}

bool LookupTree::fits(unsigned tree, const RowWords& words) const {
  if ((roots_[tree] & leafBit) != 0) {
    return roots_[tree] != emptyLeaf;
  }
  uint32_t fixed;
  const uint32_t ignored = ignoredBits(nodes_[roots_[tree]], words, fixed);
  return static_cast<unsigned>(std::popcount(ignored)) <= maxIgnored_[tree];
}

void LookupTree::enter(uint32_t row, const RowWords& words) {
  recordIs(row, words);
  ++numEntered_;
  if (isWorthRemaking()) {
    remake(row);
    return;
  }
  unsigned tree = 0;
  while (tree < maxTrees && !fits(tree, words)) {
    ++tree;
  }
  if (tree == maxTrees) {
    enterTail(row, words);
    return;
  }
  if (hasOutgrown(tree)) {
    remakeFrom(tree, row, false);
    return;
  }
  treeOf_[row] = static_cast<uint8_t>(tree);
  ++numRows_[tree];
  lowest_[tree] = std::min(lowest_[tree], row);
  roots_[tree] = enter(roots_[tree], row, words, Way{});
}

// Whether there are so many more rows, or leaves hold so much more, than when all trees were made that other
// trees would suit the rows better. Where many of the new rows went past the first tree a few more are
// enough.
bool LookupTree::isWorthRemaking() const {
  const std::size_t mostCopies =
      hasLongLeaf_ && hasGrown() ? copiesWhenMade_ + copiesWhenMade_ / 4 : copyGrowth * copiesWhenMade_;
  const uint32_t mostRows = enteredWhenMade_ + enteredWhenMade_ / (enteredWhenMade_ < smallTable ? 2 : 1);
  if (copies_ > std::max<std::size_t>(mostCopies, LookupTail::capacity) ||
      numEntered_ > std::max(mostRows, LookupTail::capacity)) {
    return true;
  }
  const uint32_t outside = numEntered_ - numRows_[0];
  return hasGrown() && outside > outsideWhenMade_ + outsideWhenMade_ / 4 + numEntered_ / 32;
}

bool LookupTree::hasGrown() const {
  // Small tables are soon made anew.
  const uint32_t growth = enteredWhenMade_ / (enteredWhenMade_ < smallTable ? 8 : 4);
  return numEntered_ > enteredWhenMade_ + growth + LookupTail::capacity;
}

// A tail that is full becomes a tree first, or part of the last one. As each further tree costs every search,
// all trees are made anew instead when there are more rows than they were made for.
void LookupTree::enterTail(uint32_t row, const RowWords& words) {
  if (!tail_.full()) {
    tail_.enter(row, words);
    treeOf_[row] = maxTrees;
  } else if (hasGrown()) {
    remake(row);
  } else {
    const unsigned tree = freeTree(0);
    remakeFrom(std::min(tree, maxTrees - 1), row, tree == maxTrees);
  }
}

// Whether a tree that is about to take a row has so many more of them than when its root was made that
// other bits may suit them better.
bool LookupTree::hasOutgrown(unsigned tree) const {
  const Ref root = roots_[tree];
  return (root & leafBit) != 0 ? isWorthParting(numRows_[tree])
                               : numRows_[tree] >= rootGrowth * nodes_[root].rowsWhenMade;
}

// The first empty tree from `tree` on.
unsigned LookupTree::freeTree(unsigned tree) const {
  while (tree < maxTrees && roots_[tree] != emptyLeaf) {
    ++tree;
  }
  return tree;
}

void LookupTree::leave(uint32_t row, const RowWords& words) {
  const unsigned tree = treeOf_[row];
  --numEntered_;
  if (tree == maxTrees) {
    tail_.leave(row);
    return;
  }
  roots_[tree] = leave(roots_[tree], row, words, Way{});
  if (--numRows_[tree] == 0) {
    lowest_[tree] = noTcamRow;
  }
}

Ref LookupTree::enter(Ref ref, uint32_t row, const RowWords& words, const Way& way) {
  if ((ref & leafBit) != 0) {
    return grown(enterLeaf(ref, row, words, way), way);
  }
  Node& node = nodes_[ref];
  if (++node.rows > nodeGrowth * node.rowsWhenMade && !way.isRoot()) {
    Numbers rows = released(ref);
    rows.insert(std::upper_bound(rows.begin(), rows.end(), row), row);
    return make(rows, placeOf(way));
  }
  uint32_t fixed;
  const uint32_t ignored = ignoredBits(node, words, fixed);
  const uint32_t children = node.children;
  const Way below{&way, ref};
  forEachChild(fixed, ignored, [&](uint32_t child) {
    const Ref entered = enter(refs_[children + child], row, words, below);
    refs_[children + child] = entered;
  });
  return ref;
}

Ref LookupTree::leave(Ref ref, uint32_t row, const RowWords& words, const Way& way) {
  if ((ref & leafBit) != 0) {
    return leaveLeaf(ref, row);
  }
  Node& node = nodes_[ref];
  --node.rows;
  uint32_t fixed;
  const uint32_t ignored = ignoredBits(node, words, fixed);
  const uint32_t children = node.children;
  const Way below{&way, ref};
  forEachChild(fixed, ignored, [&](uint32_t child) {
    const Ref left = leave(refs_[children + child], row, words, below);
    refs_[children + child] = left;
  });
  return nodes_[ref].rows > leastNode ? ref : makeLeaf(released(ref), placeOf(way));
}

// What becomes of a leaf that has grown by a row: the leaf, or a node in its place. It may be twice as long
// as one that is made, so that bits are chosen for enough rows. A leaf whose rows could not be told apart is
// tried again each time it has doubled.
Ref LookupTree::grown(Ref leaf, const Way& way) {
  if ((leaf & moreBit) == 0) {
    return leaf;
  }
  const std::size_t rows = leafRows(leaf) - 1;
  hasLongLeaf_ |= rows > longLeaf;
  if (way.isRoot() || !isWorthParting(rows)) {
    return leaf;
  }
  return make(released(leaf), placeOf(way));
}

// Puts gathered rows in their order, each once.
void LookupTree::ascend(Numbers& rows) {
  std::sort(rows.begin(), rows.end());
  rows.erase(std::unique(rows.begin(), rows.end()), rows.end());
}

// Makes all trees anew from their rows and one more, side by side in memory that nothing else stands in.
void LookupTree::remake(uint32_t another) {
  Numbers rows = tail_.rows();
  rows.push_back(another);
  for (const Ref root : roots_) {
    gather(root, rows);
  }
  ascend(rows);
  clear();
  ranks_ = BitRanks(sampleOf(rows, rankSample));
  makeTrees(std::move(rows), false);
  copiesWhenMade_ = copies_;
  enteredWhenMade_ = numEntered_;
  outsideWhenMade_ = numEntered_ - numRows_[0];
}

// The same with the trees from `tree` on only. When `lastTakesAll` the tail stays empty, where it would often
// be full.
void LookupTree::remakeFrom(unsigned tree, uint32_t another, bool lastTakesAll) {
  Numbers rows = tail_.rows();
  rows.push_back(another);
  tail_.clear();
  for (; tree < maxTrees; ++tree) {
    gather(roots_[tree], rows);
    release(roots_[tree]);
    roots_[tree] = emptyLeaf;
    numRows_[tree] = 0;
    lowest_[tree] = noTcamRow;
  }
  ascend(rows);
  makeTrees(std::move(rows), lastTakesAll);
  copiesWhenMade_ = std::max(copiesWhenMade_, copies_);
}

// Puts rows into trees that are empty, and what is left over into the tail, which is empty too.
void LookupTree::makeTrees(Numbers rows, bool lastTakesAll) {
  for (unsigned tree = freeTree(0); rows.size() > LookupTail::capacity; tree = freeTree(tree)) {
    Numbers rest;
    // Where there are no further trees the tail must suffice, or the last tree takes all.
    const bool last = freeTree(tree + 1) == maxTrees;
    const std::size_t maxRest = !last ? rows.size() : lastTakesAll ? 0 : LookupTail::capacity;
    const Ref root = makeRoot(std::move(rows), tree, maxRest, rest);
    roots_[tree] = root;
    rows = std::move(rest);
  }
  for (const uint32_t row : rows) {
    tail_.enter(row, wordsOf(row));
    treeOf_[row] = maxTrees;
  }
}

// Some rows in place of all, evenly spread.
std::vector<RowWords> LookupTree::sampleOf(const Numbers& rows, std::size_t most) const {
  const std::size_t count = std::min(rows.size(), most);
  std::vector<RowWords> sample;
  sample.reserve(count);
  for (std::size_t i = 0; i < count; ++i) {
    sample.push_back(wordsOf(rows[i * rows.size() / count]));
  }
  return sample;
}

BitChoice LookupTree::choose(const Numbers& rows, const BitLimits& limits) const {
  return chooseBits(sampleOf(rows, limits.maxSample), rows.size(), limits);
}

// What a choice of bits for the root of `rows` rows is worth: the share of the rows that it keeps, less where
// it parts them so badly that nodes below would have to.
double LookupTree::worthOf(const BitChoice& choice, std::size_t rows) {
  const auto all = static_cast<double>(rows);
  const double met = choice.met * all / static_cast<double>(std::min(rows, maxRootSample));
  const double enough = std::max(wellParted, all / parting);
  return choice.kept / (1 + std::max(0.0, std::log2(met / enough)));
}

// The bits of a root, and the limit on those that its rows ignore. Where each row compares some fields only,
// so that no bits part all of them well, the bits of one half of a word are tried, and rows that ignore any
// of them go elsewhere.
BitChoice LookupTree::chooseRoot(const Numbers& rows, unsigned& maxIgnored) const {
  BitLimits limits;
  limits.maxBits = maxBitsFor(rows.size(), Children::four, 12);
  limits.maxIgnored = maxIgnored;
  limits.maxCopies = maxRowCopies;
  limits.maxSample = maxRootSample;
  limits.leastGain = leastRootGain;
  limits.enoughRows = enoughRootRows;
  BitChoice best = choose(rows, limits);
  double worth = worthOf(best, rows.size());
  const auto attempt = [&] {
    const BitChoice other = choose(rows, limits);
    const double otherWorth = worthOf(other, rows.size());
    if (other.numBits != 0 && otherWorth > worth) {
      best = other;
      worth = otherWorth;
      maxIgnored = limits.maxIgnored;
    }
  };
  if (maxIgnored != unlimited && worth < goodWorth) {
    limits.maxIgnored = fewIgnored;
    attempt();
    limits.maxIgnored = 0;
    for (unsigned half = 0; half < 4 * numPairs_; ++half) {
      limits.among = {};
      limits.among[half / 2] = uint64_t{0xFFFFFFFF} << (half % 2 * 32);
      attempt();
    }
  }
  return best;
}

// Makes the root of an empty tree and what stands below; `rest` becomes the rows that go elsewhere, no more
// than `maxRest`.
Ref LookupTree::makeRoot(Numbers rows, unsigned tree, std::size_t maxRest, Numbers& rest) {
  unsigned maxIgnored = someIgnored;
  BitChoice choice = chooseRoot(rows, maxIgnored);
  const auto stays = [&](uint32_t row) {
    uint32_t fixed;
    const uint32_t ignored = ignoredBits(nodeOf(choice), wordsOf(row), fixed);
    return static_cast<unsigned>(std::popcount(ignored)) <= maxIgnored;
  };
  const auto kept = std::stable_partition(rows.begin(), rows.end(), stays);
  if (static_cast<std::size_t>(rows.end() - kept) <= maxRest) {
    rest.assign(kept, rows.end());
    rows.erase(kept, rows.end());
  } else {
    std::inplace_merge(rows.begin(), kept, rows.end());
    maxIgnored = unlimited;
    choice = chooseRoot(rows, maxIgnored);
  }
  for (const uint32_t row : rows) {
    treeOf_[row] = static_cast<uint8_t>(tree);
  }
  maxIgnored_[tree] = maxIgnored;
  lowest_[tree] = rows.empty() ? noTcamRow : rows.front();
  numRows_[tree] = static_cast<uint32_t>(rows.size());
  return choice.numBits == 0 ? makeLeaf(rows, Place{}) : makeNode(rows, choice, Place{});
}

Ref LookupTree::make(const Numbers& rows, const Place& place) {
  if (rows.size() > maxLeaf && place.depth < maxDepth) {
    BitLimits limits;
    limits.maxBits = maxBitsFor(rows.size(), Children::two, 9);
    // However many copies there are, very long leaves are worse.
    const double least = rows.size() > 4 * maxLeaf ? 1.5 : 1.1;
    limits.maxCopies = std::clamp(place.copies, least, 2.5);
    limits.enoughRows = numEntered_ < largeTable ? enoughRows : enoughRowsOfLarge;
    const BitChoice choice = choose(rows, limits);
    if (choice.numBits != 0) {
      return makeNode(rows, choice, place);
    }
  }
  return makeLeaf(rows, place);
}

Ref LookupTree::makeNode(const Numbers& rows, const BitChoice& choice, const Place& place) {
  Node node = nodeOf(choice);
  node.rows = node.rowsWhenMade = static_cast<uint32_t>(rows.size());
  const uint32_t numChildren = 1u << node.numBits;
  std::vector<uint32_t> begins(numChildren + 1);
  std::vector<std::array<uint32_t, 2>> children(rows.size()); // what forEachChild() takes
  for (std::size_t i = 0; i < rows.size(); ++i) {
    auto& [fixed, ignored] = children[i];
    ignored = ignoredBits(node, wordsOf(rows[i]), fixed);
    forEachChild(fixed, ignored, [&](uint32_t child) { ++begins[child + 1]; });
  }
  for (uint32_t child = 0; child < numChildren; ++child) {
    begins[child + 1] += begins[child];
  }
  std::vector<uint32_t> ends(begins.begin(), begins.end() - 1);
  Numbers parts(begins.back());
  for (std::size_t i = 0; i < rows.size(); ++i) {
    forEachChild(children[i][0], children[i][1], [&](uint32_t child) { parts[ends[child]++] = rows[i]; });
  }
  const double copies =
      static_cast<double>(parts.size()) / static_cast<double>(std::max<std::size_t>(rows.size(), 1));
  node.copies = static_cast<uint8_t>(std::min(copies * copyUnits + 0.5, 255.0));
  node.children = takeRefs(node.numBits);
  const Place below = place.below(node);
  for (uint32_t child = 0; child < numChildren; ++child) {
    const Ref made = make(Numbers(parts.begin() + begins[child], parts.begin() + ends[child]), below);
    refs_[node.children + child] = made;
  }
  const uint32_t index = takeNode();
  nodes_[index] = node;
  return index;
}

// Appends the numbers of the rows below `ref`, each as often as it stands there.
void LookupTree::gather(Ref ref, Numbers& rows) const {
  if ((ref & leafBit) == 0) {
    const Node& node = nodes_[ref];
    for (uint32_t child = 0; child < 1u << node.numBits; ++child) {
      gather(refs_[node.children + child], rows);
    }
    return;
  }
  for (;; ref = blocks_[ref & indexBits].next) {
    const Block& block = blocks_[ref & indexBits];
    rows.insert(rows.end(), block.rows.begin(), block.rows.begin() + block.length);
    if ((ref & moreBit) == 0) {
      return;
    }
  }
}

// Gives back what stands below `ref`, all but its rows.
LookupTree::Numbers LookupTree::released(Ref ref) {
  Numbers rows;
  gather(ref, rows);
  ascend(rows);
  release(ref);
  return rows;
}

void LookupTree::release(Ref ref) {
  if ((ref & leafBit) == 0) {
    const Node node = nodes_[ref];
    for (uint32_t child = 0; child < 1u << node.numBits; ++child) {
      release(refs_[node.children + child]);
    }
    freeRefs_[node.numBits].push_back(node.children);
    freeNodes_.push_back(ref);
    return;
  }
  while (ref != emptyLeaf) {
    copies_ -= blocks_[ref & indexBits].length;
    freeBlocks_.push_back(ref & indexBits);
    if ((ref & moreBit) == 0) {
      return;
    }
    ref = blocks_[ref & indexBits].next;
  }
}

uint32_t LookupTree::searchFrom(const TcamKeyBytes& key, uint32_t from) const {
  const KeyWords words = layout_.key(key);
  uint32_t best = tail_.first(words, from);
  for (Ref ref : roots_) {
    while ((ref & leafBit) == 0) {
      ref = refs_[nodes_[ref].children + childNumber(nodes_[ref], words)];
    }
    for (bool more = true; more; ref = blocks_[ref & indexBits].next) {
      more = (ref & moreBit) != 0;
      for (const uint32_t row : blocks_[ref & indexBits].rows) {
        if (row >= best) {
          more = more && row == noTcamRow;
          break;
        }
        if (row >= from && agrees(row, words)) {
          best = row;
          more = false;
          break;
        }
      }
    }
  }
  return best;
}

LookupTree::View LookupTree::view() const {
  View view; // not set to 0 first, which took as long as a search step
  view.numTrees = 0;
  view.nodes = nodes_.data();
  view.refs = refs_.data();
  view.blocks = blocks_.data();
  for (unsigned pair = 0; pair < maxLookupPairs; ++pair) {
    view.records[pair] = records_[pair].data();
    view.tail[pair] = tail_.groups(pair);
  }
  view.tailRows = tail_.rows().data();
  view.numTailRows = static_cast<unsigned>(tail_.rows().size());
  view.tailGroups = tail_.numGroups();
  view.numPairs = numPairs_;
  for (unsigned tree = 0; tree < maxTrees; ++tree) {
    if (numRows_[tree] != 0) {
      view.roots[view.numTrees] = roots_[tree];
      view.lowest[view.numTrees++] = lowest_[tree];
    }
  }
  for (unsigned word = 0; word < maxLookupWords; ++word) {
    view.offsets[word] = layout_.offset(word);
  }
  return view;
}

} // namespace sim
