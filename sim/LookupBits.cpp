#include "sim/LookupBits.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>

namespace sim {

namespace {

enum Trit : uint8_t { zero = 0, one = 1, ignored = 2 };

// A bit of the key that some sampled rows want to be 0 and others 1.
struct Candidate {
  uint8_t word;
  uint8_t bit;
  bool chosen = false;
  std::vector<uint8_t> trits; // of each sampled row
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

  const BitLimits& limits_;
  double scale_ = 1; // rows for each sampled one
  std::size_t numSampled_ = 0;
  std::vector<Candidate> candidates_;
  std::vector<uint8_t> numIgnored_; // chosen bits that each sampled row ignores
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
    for (uint64_t both = zeros & ones; both != 0; both &= both - 1) {
      Candidate candidate{
          static_cast<uint8_t>(word), static_cast<uint8_t>(std::countr_zero(both)), false, {}};
      candidate.trits.resize(count);
      for (std::size_t i = 0; i < count; ++i) {
        const uint64_t care = sample[i].care[word] >> candidate.bit & 1;
        const uint64_t value = sample[i].value[word] >> candidate.bit & 1;
        candidate.trits[i] = care ? (value ? one : zero) : ignored;
      }
      candidates_.push_back(std::move(candidate));
    }
  }
  numIgnored_.resize(count);
  for (std::size_t i = 0; i < count; ++i) {
    parts_.push_back({static_cast<uint16_t>(i), 1});
  }
  ends_.push_back(static_cast<uint32_t>(count));
}

bool Chooser::allowed(const Candidate& candidate, const BitChoice& choice) const {
  if (candidate.chosen) {
    return false;
  }
  const bool twoWords = choice.bitsA != 0 && choice.bitsB != 0;
  return !twoWords || candidate.word == choice.wordA || candidate.word == choice.wordB;
}

Chooser::Score Chooser::score(const Candidate& candidate) const {
  Score result;
  double work = 0;
  double share = 0;
  uint32_t at = 0;
  for (const uint32_t end : ends_) {
    unsigned counts[2] = {};
    float shares[2] = {};
    for (; at < end; ++at) {
      const Part& part = parts_[at];
      switch (candidate.trits[part.row]) {
      case zero:
        ++counts[0];
        shares[0] += part.share;
        break;
      case one:
        ++counts[1];
        shares[1] += part.share;
        break;
      default:
        if (numIgnored_[part.row] < limits_.maxIgnored) {
          ++counts[0];
          ++counts[1];
          shares[0] += part.share / 2;
          shares[1] += part.share / 2;
        }
      }
    }
    work += static_cast<double>(counts[0] * shares[0] + counts[1] * shares[1]);
    share += static_cast<double>(shares[0] + shares[1]);
    result.size += counts[0] + counts[1];
  }
  result.work = share > 0 ? work / share : 1e9;
  return result;
}

void Chooser::take(Candidate& candidate) {
  candidate.chosen = true;
  std::vector<Part> parts;
  std::vector<uint32_t> ends;
  parts.reserve(parts_.size() * 2);
  uint32_t at = 0;
  for (const uint32_t end : ends_) {
    for (const unsigned side : {zero, one}) {
      for (uint32_t i = at; i < end; ++i) {
        const Part& part = parts_[i];
        const uint8_t trit = candidate.trits[part.row];
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
    numIgnored_[i] = static_cast<uint8_t>(numIgnored_[i] + (candidate.trits[i] == ignored));
  }
  parts_ = std::move(parts);
  ends_ = std::move(ends);
}

void Chooser::add(BitChoice& choice, const Candidate& candidate) const {
  const uint64_t bit = uint64_t{1} << candidate.bit;
  if (choice.bitsA == 0 || choice.wordA == candidate.word) {
    choice.wordA = candidate.word;
    choice.bitsA |= bit;
    ++choice.numBitsA;
  } else {
    choice.wordB = candidate.word;
    choice.bitsB |= bit;
  }
  ++choice.numBits;
}

BitChoice Chooser::choose() {
  constexpr double leastGain = 0.93;
  BitChoice choice;
  double work = static_cast<double>(numSampled_);
  const double maxSize = static_cast<double>(numSampled_) * limits_.maxCopies + 1;
  const double minKept = static_cast<double>(numSampled_) * 0.3;
  while (choice.numBits < limits_.maxBits && work * scale_ > limits_.enoughRows) {
    Candidate* best = nullptr;
    double bestWork = work;
    double bestScore = work * leastGain;
    for (Candidate& candidate : candidates_) {
      if (!allowed(candidate, choice)) {
        continue;
      }
      const Score s = this->score(candidate);
      const auto size = static_cast<double>(s.size);
      // Copies cost memory and time to write.
      const double score = s.work * std::sqrt(std::max(size / static_cast<double>(parts_.size()), 1.0));
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
  }
  return choice;
}

} // namespace

BitChoice chooseBits(std::span<const RowWords> sample, std::size_t numRows, const BitLimits& limits) {
  return Chooser(sample, numRows, limits).choose();
}

BitChoice chooseSignature(std::span<const RowWords> rows, const KeyWords& used) {
  // A bit that many rows compare keeps other keys off; one that they want to be different tells them apart.
  struct Weighed {
    unsigned weight;
    uint8_t word;
    uint8_t bit;
  };
  std::array<Weighed, 64 * maxLookupWords> bits;
  std::size_t numBits = 0;
  std::array<unsigned, maxLookupWords> ofWord{};
  for (uint8_t word = 0; word < maxLookupWords; ++word) {
    std::array<uint8_t, 64> cares{};
    std::array<uint8_t, 64> ones{};
    uint64_t any = 0;
    for (const RowWords& row : rows) {
      const uint64_t care = row.care[word] & ~used[word];
      any |= care;
      for (uint64_t left = care; left != 0; left &= left - 1) {
        const int bit = std::countr_zero(left);
        ++cares[bit];
        ones[bit] = static_cast<uint8_t>(ones[bit] + (row.value[word] >> bit & 1));
      }
    }
    for (; any != 0; any &= any - 1) {
      const auto bit = static_cast<uint8_t>(std::countr_zero(any));
      const unsigned one = ones[bit];
      const unsigned weight = cares[bit] + 3 * std::min<unsigned>(one, cares[bit] - one);
      bits[numBits++] = {weight, word, bit};
    }
  }
  const auto byWeight = [](const Weighed& a, const Weighed& b) { return a.weight > b.weight; };
  const std::size_t best = std::min<std::size_t>(numBits, 2 * signatureBits);
  std::partial_sort(bits.begin(), bits.begin() + best, bits.begin() + numBits, byWeight);
  for (std::size_t i = 0; i < best; ++i) {
    ofWord[bits[i].word] += bits[i].weight;
  }
  BitChoice choice;
  const auto first = std::max_element(ofWord.begin(), ofWord.end()) - ofWord.begin();
  ofWord[first] = 0;
  const auto second = std::max_element(ofWord.begin(), ofWord.end()) - ofWord.begin();
  choice.wordA = static_cast<uint8_t>(first);
  choice.wordB = static_cast<uint8_t>(second);
  for (std::size_t i = 0; i < best && choice.numBits < signatureBits; ++i) {
    const uint64_t bit = uint64_t{1} << bits[i].bit;
    if (bits[i].word == choice.wordA) {
      choice.bitsA |= bit;
      ++choice.numBitsA;
      ++choice.numBits;
    } else if (bits[i].word == choice.wordB) {
      choice.bitsB |= bit;
      ++choice.numBits;
    }
  }
  return choice;
}

uint64_t extractBits(uint64_t word, uint64_t mask) {
  uint64_t result = 0;
  for (unsigned at = 0; mask != 0; mask &= mask - 1, ++at) {
    result |= (word >> std::countr_zero(mask) & 1) << at;
  }
  return result;
}

} // namespace sim
