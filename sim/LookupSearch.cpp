#include "sim/LookupTree.h"

#include <algorithm>
#include <bit>
#include <cstdlib>
#include <cstring>
#include <string_view>

#if defined(__x86_64__)
#include <immintrin.h>
#endif

#include "Vane/Assert.h"

// The ways down the trees. One source, LookupKernel.inc, is compiled for each kind of processor; which of
// them runs is decided when a tree is made.

namespace sim {

namespace {

using Ref = LookupTree::Ref;
using Node = LookupTree::Node;
using Block = LookupTree::Block;
using Record = LookupTree::Record;
using View = LookupTree::View;

constexpr unsigned searchBatch = 512;
constexpr unsigned partSize = 16; // elements of a list that are looked at together
static_assert(searchBatch % partSize == 0);
// Those of a part of which `left` elements are left, as bits.
constexpr unsigned partOf(unsigned left) {
  return left >= partSize ? (1u << partSize) - 1 : (1u << left) - 1;
}
// Sixteen places are compared at once: those of the block and three that are not its own, but in it.
constexpr unsigned placeBits = (1u << LookupTree::blockRows) - 1;

// What a row of the tail compares in a word.
struct TailWord {
  uint64_t value;
  uint64_t care;
};
inline TailWord tailWord(const View& view, unsigned row, unsigned word) {
  const LookupTail::Group& group = view.tail[word / 2][row / LookupTail::groupRows];
  const unsigned at = row % LookupTail::groupRows;
  return {group.value[word % 2][at], group.care[word % 2][at]};
}

namespace portable {
#define TARGET
inline bool agreesIn(const Record& record, const uint64_t* key) {
  return (((key[0] & record.care[0]) ^ record.value[0]) | ((key[1] & record.care[1]) ^ record.value[1])) == 0;
}
inline uint64_t extract(uint64_t word, uint64_t mask) {
  return extractBitByBit(word, mask);
}
inline void readPair(const uint8_t* first, const uint8_t* second, uint64_t* words) {
  std::memcpy(&words[0], first, sizeof(uint64_t));
  std::memcpy(&words[1], second, sizeof(uint64_t));
}
inline unsigned agreeing(const Block& block, uint16_t signature) {
  unsigned agree = 0;
  for (unsigned at = 0; at < LookupTree::blockRows; ++at) {
    agree |= unsigned{(signature & block.care[at]) == block.value[at]} << at;
  }
  return agree;
}
inline unsigned agreeingRows(const LookupTail::Group& group, const uint64_t* key) {
  unsigned agree = 0;
  for (unsigned row = 0; row < LookupTail::groupRows; ++row) {
    const uint64_t differing = ((key[0] & group.care[0][row]) ^ group.value[0][row]) |
                               ((key[1] & group.care[1][row]) ^ group.value[1][row]);
    agree |= unsigned{differing == 0} << row;
  }
  return agree;
}
constexpr unsigned tailKeys = 1;
template <unsigned pairs>
inline void lowerToTail(const View& view, const uint64_t (*keys)[2 * pairs], uint32_t* rows) {
  for (unsigned row = 0; row < view.numTailRows && view.tailRows[row] < rows[0]; ++row) {
    uint64_t differing = 0;
    for (unsigned word = 0; word < 2 * pairs; ++word) {
      const TailWord compared = tailWord(view, row, word);
      differing |= (keys[0][word] & compared.care) ^ compared.value;
    }
    if (differing == 0) {
      rows[0] = view.tailRows[row];
    }
  }
}
inline unsigned above(const uint32_t* words, uint32_t bound) {
  unsigned bits = 0;
  for (unsigned at = 0; at < partSize; ++at) {
    bits |= unsigned{words[at] > bound} << at;
  }
  return bits;
}
inline unsigned withBits(const uint32_t* words, uint32_t some) {
  unsigned bits = 0;
  for (unsigned at = 0; at < partSize; ++at) {
    bits |= unsigned{(words[at] & some) != 0} << at;
  }
  return bits;
}
inline void append(uint32_t* to, const uint32_t* from, unsigned which) {
  for (unsigned at = 0; at < partSize; ++at) {
    *to = from[at];
    to += which >> at & 1;
  }
}
inline void appendNumbers(uint32_t* to, uint32_t first, unsigned which) {
  for (unsigned at = 0; at < partSize; ++at) {
    *to = first + at;
    to += which >> at & 1;
  }
}
#include "sim/LookupKernel.inc"
#undef TARGET
} // namespace portable

#if defined(__x86_64__)
namespace avx2 {
#define TARGET [[gnu::target("avx2,bmi,bmi2")]]
#include "sim/LookupKernelX86.inc"
TARGET inline unsigned agreeing(const Block& block, uint16_t signature) {
  const __m256i key = _mm256_set1_epi16(static_cast<short>(signature));
  const __m256i equal = _mm256_cmpeq_epi16(_mm256_and_si256(key, load(block.care)), load(block.value));
  const __m128i bytes = _mm_packs_epi16(_mm256_castsi256_si128(equal), _mm256_extracti128_si256(equal, 1));
  return static_cast<unsigned>(_mm_movemask_epi8(bytes)) & placeBits;
}
// The bits by which four rows differ from a word of the key.
TARGET inline __m256i differing(const uint64_t* value, const uint64_t* care, uint64_t word) {
  const __m256i compared = _mm256_and_si256(_mm256_set1_epi64x(static_cast<long long>(word)),
                                            _mm256_load_si256(reinterpret_cast<const __m256i*>(care)));
  return _mm256_xor_si256(compared, _mm256_load_si256(reinterpret_cast<const __m256i*>(value)));
}
TARGET inline unsigned agreeingRows(const LookupTail::Group& group, const uint64_t* key) {
  unsigned agree = 0;
  for (unsigned row = 0; row < LookupTail::groupRows; row += 4) {
    const __m256i either = _mm256_or_si256(differing(&group.value[0][row], &group.care[0][row], key[0]),
                                           differing(&group.value[1][row], &group.care[1][row], key[1]));
    const __m256i equal = _mm256_cmpeq_epi64(either, _mm256_setzero_si256());
    agree |= static_cast<unsigned>(_mm256_movemask_pd(_mm256_castsi256_pd(equal))) << row;
  }
  return agree;
}
constexpr unsigned tailKeys = 4;
template <unsigned pairs>
TARGET inline void lowerToTail(const View& view, const uint64_t (*keys)[2 * pairs], uint32_t* rows) {
  __m256i words[2 * pairs]; // of four keys
  for (unsigned word = 0; word < 2 * pairs; ++word) {
    words[word] =
        _mm256_setr_epi64x(static_cast<long long>(keys[0][word]), static_cast<long long>(keys[1][word]),
                           static_cast<long long>(keys[2][word]), static_cast<long long>(keys[3][word]));
  }
  __m256i found = _mm256_set1_epi64x(noTcamRow);
  for (unsigned row = view.numTailRows; row-- > 0;) {
    __m256i differing = _mm256_setzero_si256();
    for (unsigned word = 0; word < 2 * pairs; ++word) {
      const TailWord compared = tailWord(view, row, word);
      const __m256i care = _mm256_set1_epi64x(static_cast<long long>(compared.care));
      const __m256i value = _mm256_set1_epi64x(static_cast<long long>(compared.value));
      differing = _mm256_or_si256(differing, _mm256_xor_si256(_mm256_and_si256(words[word], care), value));
    }
    const __m256i agree = _mm256_cmpeq_epi64(differing, _mm256_setzero_si256());
    found = _mm256_blendv_epi8(found, _mm256_set1_epi64x(view.tailRows[row]), agree);
  }
  const __m256i lowHalves = _mm256_setr_epi32(0, 2, 4, 6, 0, 2, 4, 6);
  __m128i* const best = reinterpret_cast<__m128i*>(rows);
  const __m256i numbers = _mm256_permutevar8x32_epi32(found, lowHalves);
  _mm_store_si128(best, _mm_min_epu32(_mm_load_si128(best), _mm256_castsi256_si128(numbers)));
}
// Half a part of a list.
TARGET inline __m256i half(const uint32_t* words) {
  return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(words));
}
// Which of 16 are all ones, of those that are all ones or all zeros.
TARGET inline unsigned bitsOf(__m256i low, __m256i high) {
  return static_cast<unsigned>(_mm256_movemask_ps(_mm256_castsi256_ps(low))) |
         static_cast<unsigned>(_mm256_movemask_ps(_mm256_castsi256_ps(high))) << 8;
}
TARGET inline unsigned above(const uint32_t* words, uint32_t bound) {
  // There are comparisons of numbers with a sign only.
  constexpr uint32_t sign = 0x80000000;
  const __m256i signs = _mm256_set1_epi32(static_cast<int>(sign));
  const __m256i bounds = _mm256_set1_epi32(static_cast<int>(bound ^ sign));
  return bitsOf(_mm256_cmpgt_epi32(_mm256_xor_si256(half(words), signs), bounds),
                _mm256_cmpgt_epi32(_mm256_xor_si256(half(words + 8), signs), bounds));
}
TARGET inline unsigned withBits(const uint32_t* words, uint32_t some) {
  const __m256i bits = _mm256_set1_epi32(static_cast<int>(some));
  const __m256i none = _mm256_setzero_si256();
  return bitsOf(_mm256_cmpeq_epi32(_mm256_and_si256(half(words), bits), none),
                _mm256_cmpeq_epi32(_mm256_and_si256(half(words + 8), bits), none)) ^
         0xFFFF;
}
// The numbers of the bits of a byte, each in a word, behind one another.
TARGET inline __m256i numbersOf(unsigned byte) {
  const uint64_t wanted = _pdep_u64(byte, 0x0101010101010101) * 0xFF;
  return _mm256_cvtepu8_epi32(
      _mm_cvtsi64_si128(static_cast<long long>(_pext_u64(0x0706050403020100, wanted))));
}
TARGET inline void append(uint32_t* to, __m256i low, __m256i high, unsigned which) {
  const unsigned first = which & 0xFF;
  _mm256_storeu_si256(reinterpret_cast<__m256i*>(to), _mm256_permutevar8x32_epi32(low, numbersOf(first)));
  _mm256_storeu_si256(reinterpret_cast<__m256i*>(to + std::popcount(first)),
                      _mm256_permutevar8x32_epi32(high, numbersOf(which >> 8)));
}
TARGET inline void append(uint32_t* to, const uint32_t* from, unsigned which) {
  append(to, half(from), half(from + 8), which);
}
TARGET inline void appendNumbers(uint32_t* to, uint32_t first, unsigned which) {
  const __m256i low =
      _mm256_add_epi32(_mm256_set1_epi32(static_cast<int>(first)), _mm256_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7));
  append(to, low, _mm256_add_epi32(low, _mm256_set1_epi32(8)), which);
}
#include "sim/LookupKernel.inc"
#undef TARGET
} // namespace avx2

namespace avx512 {
#define TARGET [[gnu::target("avx512f,avx512bw,avx512vl,avx2,bmi,bmi2")]]
#include "sim/LookupKernelX86.inc"
TARGET inline unsigned agreeing(const Block& block, uint16_t signature) {
  const __m256i compared =
      _mm256_and_si256(_mm256_set1_epi16(static_cast<short>(signature)), load(block.care));
  return _mm256_cmpeq_epi16_mask(compared, load(block.value)) & placeBits;
}
constexpr int valueXorBoth = 0x78; // value ^ (care & word), by the eight cases of a bit of each
// The bits by which eight rows differ from a word of the key.
TARGET inline __m512i differing(const std::array<uint64_t, 8>& value, const std::array<uint64_t, 8>& care,
                                uint64_t word) {
  return _mm512_ternarylogic_epi64(_mm512_load_si512(value.data()), _mm512_load_si512(care.data()),
                                   _mm512_set1_epi64(static_cast<long long>(word)), valueXorBoth);
}
TARGET inline unsigned agreeingRows(const LookupTail::Group& group, const uint64_t* key) {
  const __m512i either = _mm512_or_si512(differing(group.value[0], group.care[0], key[0]),
                                         differing(group.value[1], group.care[1], key[1]));
  return _mm512_testn_epi64_mask(either, either);
}
constexpr unsigned tailKeys = 16;
// A word of eight keys.
template <unsigned pairs>
TARGET inline __m512i column(const uint64_t (*keys)[2 * pairs], unsigned word) {
  if constexpr (pairs == 1) {
    const __m512i places =
        _mm512_add_epi64(_mm512_setr_epi64(0, 2, 4, 6, 8, 10, 12, 14), _mm512_set1_epi64(word));
    return _mm512_permutex2var_epi64(_mm512_load_si512(keys[0]), places, _mm512_load_si512(keys[4]));
  } else {
    alignas(64) std::array<uint64_t, 8> words;
    for (unsigned i = 0; i < words.size(); ++i) {
      words[i] = keys[i][word];
    }
    return _mm512_load_si512(words.data());
  }
}
template <unsigned pairs>
TARGET inline void lowerToTail(const View& view, const uint64_t (*keys)[2 * pairs], uint32_t* rows) {
  const __m512i before = _mm512_load_si512(rows);
  const __mmask16 looking =
      _mm512_cmpgt_epu32_mask(before, _mm512_set1_epi32(static_cast<int>(view.tailRows[0])));
  if (looking == 0) {
    return;
  }
  __m512i low[2 * pairs]; // of the first eight keys
  __m512i high[2 * pairs];
  for (unsigned word = 0; word < 2 * pairs; ++word) {
    low[word] = column<pairs>(keys, word);
    high[word] = column<pairs>(keys + 8, word);
  }
  __m512i found = _mm512_set1_epi32(static_cast<int>(noTcamRow));
  for (unsigned row = view.numTailRows; row-- > 0;) {
    __m512i lowDiffer = _mm512_setzero_si512();
    __m512i highDiffer = _mm512_setzero_si512();
    for (unsigned word = 0; word < 2 * pairs; ++word) {
      const TailWord compared = tailWord(view, row, word);
      const __m512i value = _mm512_set1_epi64(static_cast<long long>(compared.value));
      const __m512i care = _mm512_set1_epi64(static_cast<long long>(compared.care));
      lowDiffer = _mm512_or_si512(lowDiffer, _mm512_ternarylogic_epi64(value, care, low[word], valueXorBoth));
      highDiffer =
          _mm512_or_si512(highDiffer, _mm512_ternarylogic_epi64(value, care, high[word], valueXorBoth));
    }
    const __mmask16 agree = _mm512_kunpackb(_mm512_testn_epi64_mask(highDiffer, highDiffer),
                                            _mm512_testn_epi64_mask(lowDiffer, lowDiffer));
    found = _mm512_mask_mov_epi32(found, agree, _mm512_set1_epi32(static_cast<int>(view.tailRows[row])));
  }
  _mm512_store_si512(rows, _mm512_mask_min_epu32(before, looking, before, found));
}
TARGET inline unsigned above(const uint32_t* words, uint32_t bound) {
  return _mm512_cmpgt_epu32_mask(_mm512_loadu_si512(words), _mm512_set1_epi32(static_cast<int>(bound)));
}
TARGET inline unsigned withBits(const uint32_t* words, uint32_t some) {
  return _mm512_test_epi32_mask(_mm512_loadu_si512(words), _mm512_set1_epi32(static_cast<int>(some)));
}
TARGET inline void append(uint32_t* to, __m512i from, unsigned which) {
  _mm512_storeu_si512(to, _mm512_maskz_compress_epi32(static_cast<__mmask16>(which), from));
}
TARGET inline void append(uint32_t* to, const uint32_t* from, unsigned which) {
  append(to, _mm512_loadu_si512(from), which);
}
TARGET inline void appendNumbers(uint32_t* to, uint32_t first, unsigned which) {
  const __m512i numbers = _mm512_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15);
  append(to, _mm512_add_epi32(numbers, _mm512_set1_epi32(static_cast<int>(first))), which);
}
#include "sim/LookupKernel.inc"
#undef TARGET
} // namespace avx512
#endif

LookupPath fastestPath() {
#if defined(__x86_64__)
  const bool bits =
      __builtin_cpu_supports("avx2") && __builtin_cpu_supports("bmi") && __builtin_cpu_supports("bmi2");
  if (bits && __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw") &&
      __builtin_cpu_supports("avx512vl")) {
    return LookupPath::avx512;
  }
  if (bits) {
    return LookupPath::avx2;
  }
#endif
  return LookupPath::portable;
}

} // namespace

LookupPath bestLookupPath() {
  static const LookupPath best = [] {
    const char* named = std::getenv("XPACL_LOOKUP");
    const std::string_view name = named ? named : "";
    const LookupPath asked = name == "portable" ? LookupPath::portable
                             : name == "avx2"   ? LookupPath::avx2
                                                : LookupPath::avx512;
    return std::min(asked, fastestPath());
  }();
  return best;
}

uint32_t LookupTree::search(const TcamKeyBytes& key) const {
  switch (path_) {
#if defined(__x86_64__)
  case LookupPath::avx512:
    return avx512::searchOne(view(), key);
  case LookupPath::avx2:
    return avx2::searchOne(view(), key);
#endif
  default:
    return portable::searchOne(view(), key);
  }
}

void LookupTree::search(std::span<const TcamKeyBytes> keys, std::span<uint32_t> rows) const {
  VANE_ASSERT(rows.size() >= keys.size());
  switch (path_) {
#if defined(__x86_64__)
  case LookupPath::avx512:
    avx512::searchAll(view(), keys.data(), rows.data(), keys.size());
    break;
  case LookupPath::avx2:
    avx2::searchAll(view(), keys.data(), rows.data(), keys.size());
    break;
#endif
  default:
    portable::searchAll(view(), keys.data(), rows.data(), keys.size());
  }
}

} // namespace sim
