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
using KeyNumber = uint16_t;        // of a batch
constexpr unsigned moreShift = 30; // of LookupTree::moreBit
static_assert(LookupTree::moreBit == 1u << moreShift);
// Sixteen places are compared at once: those of the block and three that are not its own, but in it.
constexpr unsigned placeBits = (1u << LookupTree::blockRows) - 1;
constexpr unsigned lastPlace = 1u << (LookupTree::blockRows - 1);

namespace portable {
#define TARGET
inline bool agreesIn(const Record& record, const uint64_t* key) {
  return (((key[0] & record.care[0]) ^ record.value[0]) | ((key[1] & record.care[1]) ^ record.value[1])) == 0;
}
inline uint64_t extract(uint64_t word, uint64_t mask) {
  return extractBitByBit(word, mask);
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
// The bits by which eight rows differ from a word of the key.
TARGET inline __m512i differing(const std::array<uint64_t, 8>& value, const std::array<uint64_t, 8>& care,
                                uint64_t word) {
  constexpr int valueXorBoth = 0x78; // value ^ (care & word), by the eight cases of a bit of each
  return _mm512_ternarylogic_epi64(_mm512_load_si512(value.data()), _mm512_load_si512(care.data()),
                                   _mm512_set1_epi64(static_cast<long long>(word)), valueXorBoth);
}
TARGET inline unsigned agreeingRows(const LookupTail::Group& group, const uint64_t* key) {
  const __m512i either = _mm512_or_si512(differing(group.value[0], group.care[0], key[0]),
                                         differing(group.value[1], group.care[1], key[1]));
  return _mm512_testn_epi64_mask(either, either);
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
