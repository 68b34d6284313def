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

std::string Msg::text() const {
  std::string result;
  for (const std::byte* at = bytes_; at < bytes_ + size_;) {
    const std::byte* argument = at + 1;
    switch (static_cast<Tag>(*at)) {
    case Tag::literal:
      result += load<const char*>(argument);
      at = argument + sizeof(const char*);
      break;
    case Tag::text: {
      const auto size = static_cast<std::size_t>(*argument);
      result.append(reinterpret_cast<const char*>(argument + 1), size);
      at = argument + 1 + size;
      break;
    }
    case Tag::yes:
    case Tag::no:
      result += static_cast<Tag>(*at) == Tag::yes ? "True" : "False";
      at = argument;
      break;
    case Tag::signedWord:
      result += std::to_string(load<std::int64_t>(argument));
      at = argument + sizeof(std::int64_t);
      break;
    case Tag::unsignedWord:
      result += std::to_string(load<Vane::U64>(argument));
      at = argument + sizeof(Vane::U64);
      break;
    case Tag::pointer: {
      char digits[32];
      std::snprintf(digits, sizeof digits, "0x%llx",
                    static_cast<unsigned long long>(load<std::uintptr_t>(argument)));
      result += digits;
      at = argument + sizeof(void*);
      break;
    }
    case Tag::object: {
      const auto object = load<Object>(at);
      object.format(at + sizeof(Object), result);
      at += sizeof(Object) + object.size;
      break;
    }
    case Tag::cut:
      return result + "...";
    }
  }
  return result;
}

RingBuf::RingBuf(std::size_t size) : size_(size / 8 * 8) {
  VANE_ASSERT(size_ >= 2 * (footprint(Msg::capacity) + sizeof(Header)));
}

// Drops the oldest records until the `need` bytes behind writeAt_ hold none.
void RingBuf::makeRoom(std::size_t need) {
  if (writeAt_ + need > size_) {
    // The round ends here: what still lies behind the write position is the oldest.
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
  while (numRecords_ != 0 && oldest_ >= writeAt_ && oldest_ < writeAt_ + need) {
    oldest_ = after(oldest_);
    --numRecords_;
  }
  if (numRecords_ == 0) {
    oldest_ = writeAt_;
  }
}

void RingBuf::endMsg(const Msg& msg) {
  if (buffer_ == nullptr) {
    buffer_ = std::make_unique_for_overwrite<std::byte[]>(size_);
  }
  const std::size_t need = footprint(msg.size());
  makeRoom(need);
  std::byte* place = buffer_.get() + writeAt_;
  new (place) Header{&msg.desc(), msg.size()};
  std::memcpy(place + sizeof(Header), msg.bytes(), msg.size());
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
