#include "sim/LookupBits.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <functional>
#include <numeric>
#include <utility>

#if defined(__x86_64__)
#include <immintrin.h>
#endif

namespace sim {

namespace {

// What a row says about a bit.
enum Trit : uint8_t { zero = 0, one = 1, ignored = 2 };

// A bit of the key that some sampled rows want to be 0 and others 1.
struct Candidate {
  unsigned word;
  uint8_t bit;
  bool chosen = false;
  std::size_t trits = 0; // where those of the sampled rows begin
  uint64_t hash = 0;     // of them
  double score = 0;      // when last tried
};

class Chooser {
public:
  Chooser(std::span<const RowWords> sample, std::size_t numRows, const BitLimits& limits);
  BitChoice choose();

private:
  // A sampled row in one of the cells that the chosen bits make, and the share of its keys there.
  struct Part {
    uint16_t row;
    float share;
  };
  struct Score {
    double work = 0;      // rows met by a key, on average over the keys of the rows that stay
    std::size_t size = 0; // parts in all cells
  };

  bool allowed(const Candidate& candidate, const BitChoice& choice) const;
  Score score(const Candidate& candidate) const;
  void take(Candidate& candidate);
  void add(BitChoice& choice, const Candidate& candidate) const;
  void forgetPoor();
  uint64_t say(std::span<const RowWords> sample, const Candidate& candidate);

  const BitLimits& limits_;
  double scale_ = 1; // rows for each sampled one
  std::size_t numSampled_ = 0;
  std::vector<Candidate> candidates_;
  std::vector<uint8_t> trits_;
  std::vector<uint8_t> numIgnored_; // chosen bits that each sampled row ignores
  std::vector<uint8_t> full_;       // 1: as many as it may
  std::vector<Part> parts_;
  std::vector<uint32_t> ends_; // where the cells' parts end
};

Chooser::Chooser(std::span<const RowWords> sample, std::size_t numRows, const BitLimits& limits)
    : limits_(limits), scale_(static_cast<double>(numRows) / static_cast<double>(sample.size())),
      numSampled_(sample.size()) {
  const std::size_t count = sample.size();
  for (unsigned word = 0; word < maxLookupWords; ++word) {
    uint64_t zeros = 0;
    uint64_t ones = 0;
    for (const RowWords& row : sample) {
      zeros |= row.care[word] & ~row.value[word];
      ones |= row.care[word] & row.value[word];
    }
    for (uint64_t both = zeros & ones & limits.among[word]; both != 0; both &= both - 1) {
      Candidate candidate{word, static_cast<uint8_t>(std::countr_zero(both))};
      candidate.trits = trits_.size();
      trits_.resize(trits_.size() + count);
      const uint64_t hash = say(sample, candidate);
      // Bits often say the same of all rows; one of them is enough.
      const auto same = [&](const Candidate& other) {
        return other.hash == hash &&
               std::equal(&trits_[other.trits], &trits_[other.trits] + count, &trits_[candidate.trits]);
      };
      if (std::none_of(candidates_.begin(), candidates_.end(), same)) {
        candidate.hash = hash;
        candidates_.push_back(candidate);
      } else {
        trits_.resize(candidate.trits);
      }
    }
  }
  numIgnored_.resize(count);
  full_.assign(count, limits.maxIgnored == 0);
  for (std::size_t i = 0; i < count; ++i) {
    parts_.push_back({static_cast<uint16_t>(i), 1});
  }
  ends_.push_back(static_cast<uint32_t>(count));
}

// Puts down what each row says about a bit. The result is equal when all of it is.
uint64_t Chooser::say(std::span<const RowWords> sample, const Candidate& candidate) {
  uint8_t* const trits = &trits_[candidate.trits];
  uint64_t hash = 0;
  for (std::size_t i = 0; i < sample.size(); ++i) {
    const uint64_t care = sample[i].care[candidate.word] >> candidate.bit & 1;
    const uint64_t value = sample[i].value[candidate.word] >> candidate.bit & 1;
    const uint64_t trit = value + 2 * (care ^ 1); // a value of 1 is compared
    trits[i] = static_cast<uint8_t>(trit);
    hash = (hash + trit) * 0x9E3779B97F4A7C15;
  }
  return hash;
}

bool Chooser::allowed(const Candidate& candidate, const BitChoice& choice) const {
  if (candidate.chosen) {
    return false;
  }
  const bool twoWords = choice.bitsA != 0 && choice.bitsB != 0;
  return !twoWords || candidate.word == choice.wordA || candidate.word == choice.wordB;
}

// Without branches on what rows say, as nothing in the order of rows would foretell it.
Chooser::Score Chooser::score(const Candidate& candidate) const {
  // The fourth is a row that ignores one bit too many, and so leaves the node.
  static constexpr uint32_t counted[] = {1, 1 << 16, 1 << 16 | 1, 0}; // sides, 16 bits each
  static constexpr float sharedByZero[] = {1, 0, 0.5F, 0};
  static constexpr float sharedByOne[] = {0, 1, 0.5F, 0};
  const uint8_t* const trits = &trits_[candidate.trits];
  Score result;
  float work = 0;
  float share = 0;
  uint32_t at = 0;
  for (const uint32_t end : ends_) {
    uint32_t counts = 0;
    float zeros = 0;
    float ones = 0;
    for (; at < end; ++at) {
      const Part& part = parts_[at];
      const uint8_t said = trits[part.row];
      const unsigned trit = said + (said >> 1 & full_[part.row]);
      counts += counted[trit];
      zeros += part.share * sharedByZero[trit];
      ones += part.share * sharedByOne[trit];
    }
    const uint32_t numZeros = counts & 0xFFFF;
    const uint32_t numOnes = counts >> 16;
    work += static_cast<float>(numZeros) * zeros + static_cast<float>(numOnes) * ones;
    share += zeros + ones;
    result.size += numZeros + numOnes;
  }
  result.work = share > 0 ? static_cast<double>(work / share) : 1e9;
  return result;
}

void Chooser::take(Candidate& candidate) {
  candidate.chosen = true;
  const uint8_t* const trits = &trits_[candidate.trits];
  std::vector<Part> parts;
  std::vector<uint32_t> ends;
  parts.reserve(parts_.size() * 2);
  uint32_t at = 0;
  for (const uint32_t end : ends_) {
    for (const unsigned side : {zero, one}) {
      for (uint32_t i = at; i < end; ++i) {
        const Part& part = parts_[i];
        const uint8_t trit = trits[part.row];
        if (trit == side) {
          parts.push_back(part);
        } else if (trit == ignored && numIgnored_[part.row] < limits_.maxIgnored) {
          parts.push_back({part.row, part.share / 2});
        }
      }
      if (ends.empty() ? !parts.empty() : ends.back() != parts.size()) {
        ends.push_back(static_cast<uint32_t>(parts.size()));
      }
    }
    at = end;
  }
  for (std::size_t i = 0; i < numSampled_; ++i) {
    numIgnored_[i] = static_cast<uint8_t>(numIgnored_[i] + (trits[i] == ignored));
    full_[i] = numIgnored_[i] >= limits_.maxIgnored;
  }
  parts_ = std::move(parts);
  ends_ = std::move(ends);
}

void Chooser::add(BitChoice& choice, const Candidate& candidate) const {
  const uint64_t bit = uint64_t{1} << candidate.bit;
  if (choice.bitsA == 0 || choice.wordA == candidate.word) {
    choice.wordA = static_cast<uint8_t>(candidate.word);
    choice.bitsA |= bit;
    ++choice.numBitsA;
  } else {
    choice.wordB = static_cast<uint8_t>(candidate.word);
    choice.bitsB |= bit;
  }
  ++choice.numBits;
}

// Bits that would have been poor first ones seldom become good ones.
void Chooser::forgetPoor() {
  constexpr std::size_t kept = 24;
  if (candidates_.size() > kept) {
    std::nth_element(candidates_.begin(), candidates_.begin() + kept, candidates_.end(),
                     [](const Candidate& a, const Candidate& b) { return a.score < b.score; });
    candidates_.erase(candidates_.begin() + kept, candidates_.end());
  }
}

BitChoice Chooser::choose() {
  BitChoice choice;
  double work = static_cast<double>(numSampled_);
  const double maxSize = static_cast<double>(numSampled_) * limits_.maxCopies + 1;
  const double minKept = static_cast<double>(numSampled_) * 0.3;
  while (choice.numBits < limits_.maxBits && work * scale_ > limits_.enoughRows) {
    Candidate* best = nullptr;
    double bestWork = work;
    double bestScore = work * (1 - limits_.leastGain);
    for (Candidate& candidate : candidates_) {
      if (!allowed(candidate, choice)) {
        continue;
      }
      const Score s = this->score(candidate);
      const auto size = static_cast<double>(s.size);
      // Copies cost memory and time to write: growth to the power of three quarters.
      const double growth = size / static_cast<double>(parts_.size());
      const double score = growth > 1 ? s.work * std::sqrt(growth * std::sqrt(growth)) : s.work;
      candidate.score = score;
      if (score < bestScore && size <= maxSize && size >= minKept) {
        best = &candidate;
        bestWork = s.work;
        bestScore = score;
      }
    }
    if (!best) {
      break;
    }
    take(*best);
    add(choice, *best);
    work = bestWork;
    forgetPoor();
  }
  choice.met = work;
  std::vector<bool> kept(numSampled_);
  for (const Part& part : parts_) {
    kept[part.row] = true;
  }
  choice.kept =
      static_cast<double>(std::count(kept.begin(), kept.end(), true)) / static_cast<double>(numSampled_);
  return choice;
}

// Words in the order in which they stand in the key, and the first two where no others are read: the
// search knows then without looking which words they are.
BitChoice inOrder(BitChoice choice) {
  if (choice.numBitsA == choice.numBits) {
    choice.wordB = choice.wordA == 0 ? 1 : 0;
  }
  if (choice.wordB < choice.wordA) {
    std::swap(choice.wordA, choice.wordB);
    std::swap(choice.bitsA, choice.bitsB);
    choice.numBitsA = static_cast<uint8_t>(choice.numBits - choice.numBitsA);
  }
  return choice;
}

} // namespace

BitChoice chooseBits(std::span<const RowWords> sample, std::size_t numRows, const BitLimits& limits) {
  return inOrder(Chooser(sample, numRows, limits).choose());
}

namespace {

// A square of 8 by 8 bits, a byte for each line, with lines and columns exchanged (H. S. Warren: Hacker's
// Delight, 2nd edition, section 7-3).
uint64_t transposed(uint64_t x) {
  uint64_t t = (x ^ (x >> 7)) & 0x00AA00AA00AA00AA;
  x ^= t ^ (t << 7);
  t = (x ^ (x >> 14)) & 0x0000CCCC0000CCCC;
  x ^= t ^ (t << 14);
  t = (x ^ (x >> 28)) & 0x00000000F0F0F0F0;
  return x ^ t ^ (t << 28);
}

} // namespace

void bitColumnsByteByByte(const BitLines& lines, uint64_t wanted, BitColumns& columns) {
  for (unsigned byte = 0; byte < 8; ++byte) {
    if ((wanted >> (8 * byte) & 0xFF) == 0) {
      continue;
    }
    std::array<uint64_t, 2> squares{};
    for (unsigned i = 0; i < lines.size(); ++i) {
      squares[i / 8] |= (lines[i] >> (8 * byte) & 0xFF) << (8 * (i % 8));
    }
    const uint64_t low = transposed(squares[0]);
    const uint64_t high = transposed(squares[1]);
    for (unsigned bit = 0; bit < 8; ++bit) {
      columns[8 * byte + bit] =
          static_cast<uint16_t>((low >> (8 * bit) & 0xFF) | (high >> (8 * bit) & 0xFF) << 8);
    }
  }
}

#if defined(__SSE2__)
// Bytes of one place of the lines are brought together, 16 in a register, by shuffling all lines as a pack of
// cards four times; then the topmost bits of 16 bytes are taken at once.
void bitColumns(const BitLines& lines, uint64_t wanted, BitColumns& columns) {
  const auto lineAt = [&](unsigned i) { return _mm_cvtsi64_si128(static_cast<int64_t>(lines[i])); };
  __m128i bytes[8];
  for (unsigned i = 0; i < 8; ++i) {
    bytes[i] = _mm_unpacklo_epi8(lineAt(i), lineAt(i + 8));
  }
  for (unsigned shuffle = 0; shuffle < 3; ++shuffle) {
    __m128i next[8];
    for (unsigned i = 0; i < 4; ++i) {
      next[2 * i] = _mm_unpacklo_epi8(bytes[i], bytes[i + 4]);
      next[2 * i + 1] = _mm_unpackhi_epi8(bytes[i], bytes[i + 4]);
    }
    std::copy(std::begin(next), std::end(next), bytes);
  }
  for (unsigned byte = 0; byte < 8; ++byte) {
    if ((wanted >> (8 * byte) & 0xFF) != 0) {
      __m128i bits = bytes[byte];
      for (unsigned bit = 8; bit-- > 0; bits = _mm_add_epi8(bits, bits)) {
        columns[8 * byte + bit] = static_cast<uint16_t>(_mm_movemask_epi8(bits));
      }
    }
  }
}
#else
void bitColumns(const BitLines& lines, uint64_t wanted, BitColumns& columns) {
  bitColumnsByteByByte(lines, wanted, columns);
}
#endif

namespace {

// By a table, as not every processor counts bits.
constexpr std::array<uint8_t, 256> bitCounts = [] {
  std::array<uint8_t, 256> counts{};
  for (unsigned i = 0; i < counts.size(); ++i) {
    counts[i] = static_cast<uint8_t>(std::popcount(i));
  }
  return counts;
}();
int popcount(uint64_t bits) {
  int count = 0;
  for (; bits != 0; bits >>= 8) {
    count += bitCounts[bits & 0xFF];
  }
  return count;
}

// Of a bit that each of 15 rows compares, half of them to be 0.
constexpr unsigned maxColumnWeight = 16 * (15 + 3 * 7);

// A weight times one of these, and moved by so many bits, is the weight divided by its number.
constexpr unsigned shareBits = 16;
constexpr std::array<uint32_t, signatureBits + 1> shares = [] {
  std::array<uint32_t, signatureBits + 1> result{};
  for (unsigned i = 1; i <= signatureBits; ++i) {
    result[i] = ((1u << shareBits) + i - 1) / i;
  }
  return result;
}();

// The bits that could stand in a signature, with what they are worth there.
class Columns {
public:
  Columns(std::span<const RowWords> rows, const KeyWords& used, const BitRanks& ranks);
  // The best first, as many as could be needed.
  std::span<const uint32_t> best();
  static unsigned weight(uint32_t column) { return column >> 16; }
  static unsigned word(uint32_t column) { return column >> 8 & 0xFF; }
  static unsigned bit(uint32_t column) { return column & 0xFF; }

private:
  unsigned weigh(uint16_t zeros, uint16_t ones);

  std::array<uint32_t, 64 * maxLookupWords> columns_; // weight, word, bit
  std::array<uint32_t, 64 * maxLookupWords> sorted_;
  std::size_t numColumns_ = 0;
  // What the columns so far say, each different thing once, in a hash table.
  struct Saying {
    uint32_t rows; // that want the bit to be 0, and 1, 16 bits each; 0: a free place
    uint16_t weight;
    uint16_t times;
  };
  static constexpr unsigned sayingPlaces = 128;
  std::array<Saying, sayingPlaces> sayings_{};
  unsigned numSayings_ = 0;
};

// Bits that all rows which compare them want to be the same matter only where there are few others. They say
// the same, so that those which come first, by their rank, count most.
Columns::Columns(std::span<const RowWords> rows, const KeyWords& used, const BitRanks& ranks) {
  constexpr int enough = 24;
  KeyWords zeros{};
  KeyWords ones{};
  for (const RowWords& row : rows) {
    for (unsigned word = 0; word < maxLookupWords; ++word) {
      zeros[word] |= row.care[word] & ~row.value[word];
      ones[word] |= row.value[word];
    }
  }
  int numTelling = 0;
  for (unsigned word = 0; word < maxLookupWords; ++word) {
    numTelling += popcount(zeros[word] & ones[word] & ~used[word]);
  }
  // What the rows say about each bit of the words that have some to choose from, row 0 at the low end.
  struct Word {
    unsigned number;
    uint64_t bits;
    BitColumns cares;
    BitColumns values;
  };
  std::array<Word, maxLookupWords> words;
  unsigned numWords = 0;
  for (unsigned number = 0; number < maxLookupWords; ++number) {
    const uint64_t telling = zeros[number] & ones[number];
    const uint64_t bits = (numTelling >= enough ? telling : zeros[number] | ones[number]) & ~used[number];
    if (bits == 0) {
      continue;
    }
    Word& word = words[numWords++];
    word.number = number;
    word.bits = bits;
    BitLines lines{};
    for (std::size_t i = 0; i < rows.size(); ++i) {
      lines[i] = rows[i].care[number];
    }
    bitColumns(lines, bits, word.cares);
    for (std::size_t i = 0; i < rows.size(); ++i) {
      lines[i] = rows[i].value[number];
    }
    bitColumns(lines, bits, word.values);
  }
  for (unsigned rank = 0; rank < BitRanks::count; ++rank) {
    for (unsigned i = 0; i < numWords; ++i) {
      const Word& word = words[i];
      for (uint64_t left = word.bits & ranks.bits(rank)[word.number]; left != 0; left &= left - 1) {
        const auto bit = static_cast<unsigned>(std::countr_zero(left));
        const uint16_t values = word.values[bit];
        const unsigned weight = weigh(static_cast<uint16_t>(word.cares[bit] & ~values), values);
        columns_[numColumns_] = weight << 16 | word.number << 8 | bit;
        numColumns_ += weight != 0;
      }
    }
  }
}

// A bit that many rows compare keeps other keys off, one that they want to be different tells them apart.
// Bits of one field often say the same, as those of two addresses do wherever they differ; each further one
// is worth less than the first, and what a whole signature could say nothing.
unsigned Columns::weigh(uint16_t zeros, uint16_t ones) {
  // Whatever the sense, it tells the same rows apart.
  const uint32_t rows = uint32_t{std::min(zeros, ones)} << 16 | std::max(zeros, ones);
  unsigned at = rows * 0x9E3779B1u >> 25;
  static_assert(sayingPlaces == 128);
  while (sayings_[at].rows != 0 && sayings_[at].rows != rows) {
    at = (at + 1) % sayingPlaces;
  }
  Saying& saying = sayings_[at];
  if (saying.rows == 0) {
    const int numZeros = popcount(zeros);
    const int numOnes = popcount(ones);
    const auto weight = static_cast<uint16_t>(16 * (numZeros + numOnes + 3 * std::min(numZeros, numOnes)));
    if (numSayings_ == sayingPlaces - 1) {
      return weight; // so that a place stays free
    }
    ++numSayings_;
    saying = {rows, weight, 0};
  }
  return saying.times == signatureBits ? 0 : saying.weight * shares[++saying.times] >> shareBits;
}

std::span<const uint32_t> Columns::best() {
  // Sorted into classes of weights, which is as good as by each weight.
  constexpr unsigned classShift = 3;
  std::array<uint16_t, (maxColumnWeight >> classShift) + 2> ends{};
  const auto classOf = [](uint32_t column) { return (maxColumnWeight - weight(column)) >> classShift; };
  for (std::size_t i = 0; i < numColumns_; ++i) {
    ++ends[classOf(columns_[i]) + 1];
  }
  std::partial_sum(ends.begin(), ends.end(), ends.begin());
  for (std::size_t i = 0; i < numColumns_; ++i) {
    sorted_[ends[classOf(columns_[i])]++] = columns_[i];
  }
  return {sorted_.data(), std::min<std::size_t>(numColumns_, 2 * signatureBits)};
}

// A row by itself needs no telling apart: bits that it compares, the first ranks first, of the two words that
// have most of them.
BitChoice signatureOfOne(const RowWords& row, const KeyWords& used, const BitRanks& ranks) {
  BitChoice choice;
  int most = -1;
  int second = -1;
  for (uint8_t word = 0; word < maxLookupWords; ++word) {
    const int cares = std::popcount(row.care[word] & ~used[word] & ~ranks.bits(BitRanks::count - 1)[word]);
    if (cares > most) {
      second = most;
      choice.wordB = choice.wordA;
      most = cares;
      choice.wordA = word;
    } else if (cares > second) {
      second = cares;
      choice.wordB = word;
    }
  }
  for (unsigned rank = 0; rank < BitRanks::count && choice.numBits < signatureBits; ++rank) {
    const auto take = [&](unsigned word) {
      uint64_t left = row.care[word] & ~used[word] & ranks.bits(rank)[word];
      uint64_t taken = 0;
      for (; left != 0 && choice.numBits < signatureBits; left &= left - 1, ++choice.numBits) {
        taken |= left & -left;
      }
      return taken;
    };
    choice.bitsA |= take(choice.wordA);
    choice.bitsB |= take(choice.wordB);
  }
  choice.numBitsA = static_cast<uint8_t>(std::popcount(choice.bitsA));
  return choice;
}

} // namespace

BitRanks::BitRanks() {
  for (unsigned byte = 0; byte < 8; ++byte) {
    for (unsigned bit = 0; bit < 8; ++bit) {
      for (uint64_t& word : bits_[bit]) {
        word |= uint64_t{1} << (8 * byte + bit);
      }
    }
  }
}

BitRanks::BitRanks(std::span<const RowWords> sample) {
  for (unsigned word = 0; word < maxLookupWords; ++word) {
    uint64_t zeros = 0;
    uint64_t ones = 0;
    for (const RowWords& row : sample) {
      zeros |= row.care[word] & ~row.value[word];
      ones |= row.value[word];
    }
    const uint64_t parting = zeros & ones;
    bits_[count - 1][word] = ~parting;
    for (unsigned byte = 0; byte < 8; ++byte) {
      std::array<std::pair<std::size_t, unsigned>, 8> bits; // rows on the smaller side, bit
      std::size_t numBits = 0;
      for (uint64_t left = parting & uint64_t{0xFF} << (8 * byte); left != 0; left &= left - 1) {
        const auto bit = static_cast<unsigned>(std::countr_zero(left));
        std::size_t numZeros = 0;
        std::size_t numOnes = 0;
        for (const RowWords& row : sample) {
          const uint64_t value = row.value[word] >> bit & 1;
          numZeros += (row.care[word] >> bit & 1) - value; // a value of 1 is compared
          numOnes += value;
        }
        bits[numBits++] = {std::min(numZeros, numOnes), bit};
      }
      std::sort(bits.begin(), bits.begin() + numBits, std::greater<>());
      for (std::size_t rank = 0; rank < numBits; ++rank) {
        bits_[rank][word] |= uint64_t{1} << bits[rank].second;
      }
    }
  }
}

BitChoice chooseSignature(std::span<const RowWords> rows, const KeyWords& used, const BitRanks& ranks) {
  if (rows.size() == 1) {
    return inOrder(signatureOfOne(rows.front(), used, ranks));
  }
  Columns columns(rows, used, ranks);
  const std::span<const uint32_t> best = columns.best();
  std::array<unsigned, maxLookupWords> sums{};
  for (const uint32_t column : best) {
    sums[Columns::word(column)] += Columns::weight(column);
  }
  BitChoice choice;
  choice.wordA = static_cast<uint8_t>(std::max_element(sums.begin(), sums.end()) - sums.begin());
  sums[choice.wordA] = 0;
  choice.wordB = static_cast<uint8_t>(std::max_element(sums.begin(), sums.end()) - sums.begin());
  for (const uint32_t column : best) {
    const uint64_t bit = uint64_t{1} << Columns::bit(column);
    if (choice.numBits == signatureBits) {
      break;
    }
    if (Columns::word(column) == choice.wordA) {
      choice.bitsA |= bit;
      ++choice.numBitsA;
      ++choice.numBits;
    } else if (Columns::word(column) == choice.wordB) {
      choice.bitsB |= bit;
      ++choice.numBits;
    }
  }
  return inOrder(choice);
}

namespace {

#if defined(__x86_64__)
[[gnu::target("bmi2")]] uint64_t extractAtOnce(uint64_t word, uint64_t mask) {
  return _pext_u64(word, mask);
}
const bool canExtractAtOnce = __builtin_cpu_supports("bmi2");

[[gnu::target("bmi2")]] RowBits extractRowAtOnce(const RowWords& words, const BitPlaces& at) {
  return {static_cast<uint32_t>(_pext_u64(words.value[at.wordA], at.bitsA) |
                                _pext_u64(words.value[at.wordB], at.bitsB) << at.numBitsA),
          static_cast<uint32_t>(_pext_u64(words.care[at.wordA], at.bitsA) |
                                _pext_u64(words.care[at.wordB], at.bitsB) << at.numBitsA)};
}
#endif

} // namespace

uint64_t extractBits(uint64_t word, uint64_t mask) {
#if defined(__x86_64__)
  if (canExtractAtOnce) {
    return extractAtOnce(word, mask);
  }
#endif
  return extractBitByBit(word, mask);
}

RowBits extractRow(const RowWords& words, const BitPlaces& places) {
#if defined(__x86_64__)
  if (canExtractAtOnce) {
    return extractRowAtOnce(words, places);
  }
#endif
  const auto both = [&](const KeyWords& of) {
    return static_cast<uint32_t>(extractBitByBit(of[places.wordA], places.bitsA) |
                                 extractBitByBit(of[places.wordB], places.bitsB) << places.numBitsA);
  };
  return {both(words.value), both(words.care)};
}

uint64_t extractBitByBit(uint64_t word, uint64_t mask) {
  uint64_t result = 0;
  for (unsigned at = 0; mask != 0; mask &= mask - 1, ++at) {
    result |= (word >> std::countr_zero(mask) & 1) << at;
  }
  return result;
}

} // namespace sim
