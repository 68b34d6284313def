#include "Vane/Trace.h"

#include "Vane/Assert.h"

#include <algorithm>
#include <cstdio>

namespace Ringlog {

namespace {

template <typename T>
T load(const std::byte* at) {
  T value;
  std::memcpy(&value, at, sizeof value);
  return value;
}

} // namespace

void Msg::put(std::string_view text) {
  const std::string_view kept = text.substr(0, longestText);
  if (!fits(2 + kept.size())) {
    return;
  }
  bytes_[size_] = static_cast<std::byte>(Tag::text);
  bytes_[size_ + 1] = static_cast<std::byte>(kept.size());
  kept.copy(reinterpret_cast<char*>(bytes_ + size_ + 2), kept.size());
  size_ += 2 + kept.size();
  if (kept.size() < text.size()) {
    putLiteral("...");
  }
}

// Bytes of the piece at `piece`, its tag included.
std::size_t Msg::pieceSize(const std::byte* piece) {
  switch (static_cast<Tag>(*piece)) {
  case Tag::literal:
  case Tag::pointer:
    return 1 + sizeof(void*);
  case Tag::text:
    return 2 + static_cast<std::size_t>(piece[1]);
  case Tag::signedWord:
  case Tag::unsignedWord:
    return 1 + sizeof(Vane::U64);
  case Tag::object:
  case Tag::packed:
    return sizeof(Object) + load<Object>(piece).size;
  case Tag::yes:
  case Tag::no:
  case Tag::cut:
    break;
  }
  return 1;
}

std::string Msg::packedText(const std::byte* piece) {
  std::string text;
  load<Object>(piece).format(piece + sizeof(Object), text);
  return text;
}

std::string Msg::text() const {
  std::string result;
  // By how much the record would be longer with its packed values as text: it is cut where it would be then.
  std::size_t longer = 0;
  for (const std::byte* at = bytes_; at < bytes_ + size_; at += pieceSize(at)) {
    const std::byte* argument = at + 1;
    const auto end = static_cast<std::size_t>(at + pieceSize(at) - bytes_);
    const Tag tag = static_cast<Tag>(*at);
    if (tag == Tag::cut || (tag != Tag::packed && longer != 0 && end + longer >= capacity)) {
      return result + "...";
    }
    switch (tag) {
    case Tag::literal:
      result += load<const char*>(argument);
      break;
    case Tag::text:
      result.append(reinterpret_cast<const char*>(argument + 1), static_cast<std::size_t>(*argument));
      break;
    case Tag::yes:
    case Tag::no:
      result += tag == Tag::yes ? "True" : "False";
      break;
    case Tag::signedWord:
      result += std::to_string(load<std::int64_t>(argument));
      break;
    case Tag::unsignedWord:
      result += std::to_string(load<Vane::U64>(argument));
      break;
    case Tag::pointer: {
      char digits[32];
      std::snprintf(digits, sizeof digits, "0x%llx",
                    static_cast<unsigned long long>(load<std::uintptr_t>(argument)));
      result += digits;
      break;
    }
    case Tag::object:
      load<Object>(at).format(at + sizeof(Object), result);
      break;
    case Tag::packed: {
      // What put() does with a text.
      const std::string value = packedText(at);
      const std::string_view kept = std::string_view(value).substr(0, longestText);
      const bool shortened = kept.size() < value.size();
      std::size_t textEnd = static_cast<std::size_t>(at - bytes_) + longer + 2 + kept.size();
      if (textEnd >= capacity) {
        return result + "...";
      }
      result += kept;
      if (shortened) {
        result += "...";
        textEnd += 1 + sizeof(const char*);
        if (textEnd >= capacity) {
          return result;
        }
      }
      longer = textEnd - end;
      break;
    }
    case Tag::cut:
      break;
    }
  }
  return result;
}

RingBuf::RingBuf(std::size_t size) : size_(size / 8 * 8) {
  VANE_ASSERT(size_ >= 2 * (footprint(Msg::capacity) + sizeof(Header)));
}

// The round ends here: what still lies behind the write position is the oldest, and goes.
void RingBuf::nextRound() {
  while (numRecords_ != 0 && oldest_ >= writeAt_) {
    const bool last = after(oldest_) == 0;
    oldest_ = after(oldest_);
    --numRecords_;
    if (last) {
      break;
    }
  }
  wrappedAt_ = writeAt_;
  writeAt_ = 0;
}

// Drops the oldest records until the `need` bytes behind writeAt_ hold none.
inline void RingBuf::makeRoom(std::size_t need) {
  if (writeAt_ + need > size_) {
    nextRound();
  }
  while (numRecords_ != 0 && oldest_ >= writeAt_ && oldest_ < writeAt_ + need) {
    oldest_ = after(oldest_);
    --numRecords_;
  }
  if (numRecords_ == 0) {
    oldest_ = writeAt_;
  }
}

namespace {

// Records are short, and whole words: a loop is quicker than a call.
inline void copyWords(std::byte* to, const std::byte* from, std::size_t words) {
  for (; words >= 4; words -= 4, to += 32, from += 32) {
    std::memcpy(to, from, 32);
  }
  for (; words != 0; --words, to += 8, from += 8) {
    std::memcpy(to, from, 8);
    asm volatile("" ::: "memory"); // not to be turned into the call again
  }
}

// Where the next records will stand, and the oldest that give way to them.
constexpr std::size_t ahead = 768; // bytes

} // namespace

void RingBuf::endMsg(const Msg& msg) {
  if (buffer_ == nullptr) {
    buffer_ = std::make_unique_for_overwrite<std::byte[]>(size_);
  }
  const std::size_t size = msg.size();
  const std::size_t need = footprint(size);
  makeRoom(need);
  std::byte* place = buffer_.get() + writeAt_;
  if (writeAt_ + ahead < size_) {
    __builtin_prefetch(place + ahead, 1);
  }
  new (place) Header{&msg.desc(), size};
  copyWords(place + sizeof(Header), msg.bytes(), (size + 7) / 8);
  writeAt_ += need;
  ++numRecords_;
  ++numWritten_;
}

std::vector<std::string> RingBuf::dump(std::size_t count) const {
  std::vector<std::string> lines;
  std::size_t offset = oldest_;
  for (std::size_t record = 0; record < numRecords_; ++record, offset = after(offset)) {
    if (numRecords_ - record > count) {
      continue;
    }
    const Header& header = at(offset);
    const Msg msg(*header.desc, buffer_.get() + offset + sizeof(Header), header.size);
    lines.push_back(std::string(header.desc->unit) + " " + std::to_string(header.desc->level) + " " +
                    msg.text());
  }
  return lines;
}

void RingBuf::clear() {
  oldest_ = writeAt_ = wrappedAt_ = 0;
  numRecords_ = 0;
}

namespace {
RingBuf& defaultRing() {
  // Never destroyed: statements may run in destructors of static objects.
  static RingBuf* const ring = new RingBuf;
  return *ring;
}
} // namespace

Handle defaultRinglogHandle(defaultRing());

} // namespace Ringlog

namespace Vane {

void TraceHandle::write(std::string_view line) const {
  if (sink_) {
    sink_(line);
    return;
  }
  std::fprintf(stderr, "%.*s\n", static_cast<int>(line.size()), line.data());
}

std::unique_ptr<TraceHelper> TraceHelper::createIfEnabled(const TraceHandle& handle, unsigned level,
                                                          const char* unit) {
  if (!handle.enabled(level)) {
    return nullptr;
  }
  return std::unique_ptr<TraceHelper>(new TraceHelper(handle, level, unit));
}

void TraceHelper::trace(const TraceHandle& handle, unsigned level, const char* unit, std::string_view text) {
  std::string line = handle.name().charPtr();
  line += ' ' + std::to_string(level) + ' ' + unit + ' ';
  line += text;
  handle.write(line);
}

} // namespace Vane

namespace Twinlog {

void RinglogConverter::writeText() const {
  const Ringlog::MsgDesc& desc = msg_.desc();
  Vane::TraceHelper::trace(*handle_, desc.level, desc.unit, msg_.text());
}

} // namespace Twinlog
