#pragma once

#include "Vane/Pack.h"
#include "Vane/String.h"
#include "Vane/Types.h"
#include "Vane/Value.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <memory>
#include <ostream>
#include <sstream>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

// Tracing. One statement goes to two places:
//
//   VANE_TRACE(handle, 5, "XpAclPlexAggregatorHelper",
//              "XpAclPlexAggregatorHelper::" << "hwInit" << " intf " << intf << " rows " << rows);
//
// The ring (namespace Ringlog) is always cheap: a pointer to the statement's static descriptor and
// the arguments in binary form go into a fixed buffer that overwrites its oldest records, and become
// text only when the ring is dumped. The text trace (Vane::TraceHandle) writes a line at once, when
// the handle's level is on. With both levels off, a statement costs one test and its arguments are
// not evaluated. Pieces are joined without separators.
//
// Levels are 0 to 31. Tracing belongs to one thread, as everything that is traced does.

namespace Vane {

constexpr unsigned numTraceLevels = 32; // 0 to 31

} // namespace Vane

namespace Ringlog {

// What is known of a trace statement before it runs.
struct MsgDesc {
  const char* unit; // source file, without extension
  unsigned line;
  unsigned level;
  const char* fmt; // the pieces as they are written in the source
};

// One record: the binary arguments of one statement. A record that outgrows its 480 bytes is cut and
// ends with "...".
class Msg {
public:
  static constexpr std::size_t capacity = 480;    // bytes
  static constexpr std::size_t longestText = 192; // bytes kept of one run-time text

  explicit Msg(const MsgDesc& desc) : desc_(&desc) {}
  Msg(const MsgDesc& desc, const std::byte* bytes, std::size_t size) : desc_(&desc), size_(size) {
    std::memcpy(bytes_, bytes, size);
  }

  const MsgDesc& desc() const { return *desc_; }
  const std::byte* bytes() const { return bytes_; }
  std::size_t size() const { return size_; }
  // The pieces, joined.
  VANE_API std::string text() const;

  // A text that lives for ever, such as a string literal: its address is stored.
  void putLiteral(const char* text) { putTagged(Tag::literal, &text, sizeof text); }
  VANE_API void put(std::string_view text);
  void put(bool value) { putTagged(value ? Tag::yes : Tag::no, nullptr, 0); }
  void putSigned(std::int64_t value) { putTagged(Tag::signedWord, &value, sizeof value); }
  void putUnsigned(Vane::U64 value) { putTagged(Tag::unsignedWord, &value, sizeof value); }
  void putPointer(const void* value) { putTagged(Tag::pointer, &value, sizeof value); }

  template <std::size_t N>
  Msg& operator<<(const char (&literal)[N]) {
    putLiteral(literal);
    return *this;
  }
  template <typename T>
  requires(!std::is_array_v<T>) Msg& operator<<(const T& value) {
    put(value);
    return *this;
  }

  // Numbers, texts, and whatever has a text: values that consist of plain bytes and short strings are stored
  // as they are and formatted when the ring is dumped; others are formatted now. Which it is makes no
  // difference to the text of a record, nor to where it is cut.
  template <typename T>
  void put(const T& value) {
    if constexpr (std::is_same_v<T, char>) {
      put(std::string_view(&value, 1));
    } else if constexpr (std::is_integral_v<T> && std::is_signed_v<T>) {
      putSigned(value);
    } else if constexpr (std::is_integral_v<T>) {
      putUnsigned(value);
    } else if constexpr (std::is_same_v<T, Vane::String>) {
      put(value.view());
    } else if constexpr (std::is_convertible_v<const T&, std::string_view>) {
      put(std::string_view(value));
    } else if constexpr (std::is_pointer_v<T>) {
      putPointer(value);
    } else if constexpr (Vane::IsPtr<T>::value) {
      putPointer(value.ptr());
    } else if constexpr (std::is_trivially_copyable_v<T> && sizeof(T) <= largestObject) {
      const Format format = formatObject<T>;
      if (Object* place = reserveObject(sizeof(T))) {
        place->format = format;
        std::memcpy(place + 1, &value, sizeof(T));
      }
    } else if constexpr (keptPacked<T>()) {
      if (const std::size_t size = Vane::packedSize(value); size > largestPacked) {
        putText(value);
      } else if (std::byte* at = reservePacked(size, formatPacked<T>)) {
        Vane::pack(at, value);
      }
    } else {
      putText(value);
    }
  }

private:
  static constexpr std::size_t largestObject = 64;  // bytes
  static constexpr std::size_t largestPacked = 128; // bytes
  enum class Tag : Vane::U8 {
    literal,
    text,
    yes,
    no,
    signedWord,
    unsignedWord,
    pointer,
    object,
    packed,
    cut
  };
  using Format = void (*)(const void* value, std::string& text);
#pragma pack(push, 1)
  struct Object { // of both object and packed
    Tag tag;
    Vane::U8 size;
    Format format;
  };
#pragma pack(pop)

  // Only where the bytes are never more than those of a text record, so that they fit where it would.
  template <typename T>
  static constexpr bool keptPacked() {
    if constexpr (!std::is_trivially_copyable_v<T> && Vane::packs<T>) {
      return sizeof(Object) + T::vaneFixedBytes <= T::vaneTextAtLeast;
    } else {
      return false;
    }
  }
  template <typename T>
  static void formatPacked(const void* stored, std::string& text) {
    T value;
    const std::byte* at = static_cast<const std::byte*>(stored);
    Vane::unpack(at, value);
    formatObject<T>(&value, text);
  }
  template <typename T>
  void putText(const T& value) {
    std::string text;
    formatObject<T>(&value, text);
    put(std::string_view(text));
  }

  template <typename T>
  static void formatObject(const void* stored, std::string& text) {
    alignas(T) std::byte copy[sizeof(T)];
    const T* value = static_cast<const T*>(stored);
    if constexpr (std::is_trivially_copyable_v<T>) {
      // In the ring the bytes stand at any address.
      std::memcpy(copy, stored, sizeof(T));
      value = reinterpret_cast<const T*>(copy);
    }
    if constexpr (requires(std::ostream & out) { out << *value; }) {
      std::ostringstream out;
      out << *value;
      text += out.str();
    } else {
      text += Vane::strepOf(*value).view();
    }
  }

  bool fits(std::size_t size) {
    // One byte stays for the mark of a cut record.
    if (cut_ || size_ + size >= capacity) {
      cutHere();
      return false;
    }
    return true;
  }
  void cutHere() {
    if (!cut_) {
      cut_ = true;
      bytes_[size_++] = static_cast<std::byte>(Tag::cut);
    }
  }
  void putTagged(Tag tag, const void* argument, std::size_t size) {
    if (fits(1 + size)) {
      bytes_[size_] = static_cast<std::byte>(tag);
      if (size != 0) {
        std::memcpy(bytes_ + size_ + 1, argument, size);
      }
      size_ += 1 + size;
    }
  }
  std::byte* reservePacked(std::size_t size, Format format) {
    Object* place = reserveObject(size);
    if (place == nullptr) {
      return nullptr;
    }
    place->tag = Tag::packed;
    place->format = format;
    return reinterpret_cast<std::byte*>(place + 1);
  }
  Object* reserveObject(std::size_t size) {
    if (!fits(sizeof(Object) + size)) {
      return nullptr;
    }
    Object* place = reinterpret_cast<Object*>(bytes_ + size_);
    place->tag = Tag::object;
    place->size = static_cast<Vane::U8>(size);
    size_ += sizeof(Object) + size;
    return place;
  }

  static std::size_t pieceSize(const std::byte* piece);
  static std::string packedText(const std::byte* piece);

  const MsgDesc* desc_;
  std::size_t size_ = 0;
  bool cut_ = false;
  static_assert(capacity % 8 == 0, "records are copied in words of 8 bytes");
  alignas(8) std::byte bytes_[capacity]; // the first size_ of them are set
};

// A fixed buffer of records; the newest overwrite the oldest. Its memory is taken by the first one.
class VANE_API RingBuf {
public:
  static constexpr std::size_t defaultSize = 4 * 1024 * 1024; // bytes

  // `size` in bytes, at least room for two of the largest records.
  explicit RingBuf(std::size_t size = defaultSize);

  // A statement: startMsg, put or << on the record, endMsg. Statements may nest; a record enters the
  // ring when it ends.
  Msg startMsg(const MsgDesc& desc) { return Msg(desc); }
  void endMsg(const Msg& msg);

  std::size_t numRecords() const { return numRecords_; }
  // Records ever written.
  Vane::U64 numWritten() const { return numWritten_; }
  // The last `count` records, the oldest first: "<unit> <level> <text>".
  std::vector<std::string> dump(std::size_t count = ~std::size_t{0}) const;
  void clear();

private:
  struct Header {
    const MsgDesc* desc; // null: the rest of the buffer is unused
    std::size_t size;    // bytes of arguments
  };
  // Records stand at multiples of 8.
  static std::size_t footprint(std::size_t size) { return sizeof(Header) + (size + 7) / 8 * 8; }
  const Header& at(std::size_t offset) const {
    return *reinterpret_cast<const Header*>(buffer_.get() + offset);
  }
  // Where the next record begins.
  std::size_t after(std::size_t offset) const {
    const std::size_t next = offset + footprint(at(offset).size);
    return next == wrappedAt_ && wrappedAt_ > writeAt_ ? 0 : next;
  }
  void makeRoom(std::size_t need);
  void nextRound();

  std::size_t size_;
  std::unique_ptr<std::byte[]> buffer_;
  std::size_t oldest_ = 0;
  std::size_t writeAt_ = 0;
  std::size_t wrappedAt_ = 0; // where the last round ended; meaningful while writeAt_ <= oldest_
  std::size_t numRecords_ = 0;
  Vane::U64 numWritten_ = 0;
};

// A ring and the levels that go into it. All levels are on at first.
class VANE_API Handle {
public:
  explicit Handle(RingBuf& ring) : ring_(&ring) {}
  bool enabled(unsigned level) const { return (levels_ >> level & 1) != 0; } // whether it goes in
  void levelIs(unsigned level, bool on) {
    levels_ = on ? levels_ | Vane::U32{1} << level : levels_ & ~(Vane::U32{1} << level);
  }
  RingBuf& ring() const { return *ring_; }
  void ringIs(RingBuf& ring) { ring_ = &ring; }

private:
  RingBuf* ring_;
  Vane::U32 levels_ = ~Vane::U32{0};
};

// Where trace statements go.
VANE_API extern Handle defaultRinglogHandle;

} // namespace Ringlog

namespace Vane {

// A text trace: the levels that are on, and where its lines go. All levels are off at first.
class VANE_API TraceHandle {
public:
  using Sink = std::function<void(std::string_view line)>; // line without newline

  explicit TraceHandle(const String& name) : name_(name) {}
  const String& name() const { return name_; }
  bool enabled(unsigned level) const { return (levels_ >> level & 1) != 0; } // whether it is written
  void levelIs(unsigned level, bool on) {
    levels_ = on ? levels_ | U32{1} << level : levels_ & ~(U32{1} << level);
  }
  // An empty sink stands for standard error.
  void sinkIs(Sink sink) { sink_ = std::move(sink); }
  void write(std::string_view line) const;

private:
  String name_;
  U32 levels_ = 0;
  Sink sink_;
};

// Writes lines of text to a handle.
class VANE_API TraceHelper {
public:
  // Empty when the level is off; else a helper whose line is written by trace().
  static std::unique_ptr<TraceHelper> createIfEnabled(const TraceHandle& handle, unsigned level,
                                                      const char* unit);
  // One line: "<handle> <level> <unit> <text>".
  static void trace(const TraceHandle& handle, unsigned level, const char* unit, std::string_view text);

  template <typename T>
  TraceHelper& operator<<(const T& piece) {
    text_ << piece;
    return *this;
  }
  void trace() const { trace(*handle_, level_, unit_, text_.str()); }

private:
  TraceHelper(const TraceHandle& handle, unsigned level, const char* unit)
      : handle_(&handle), level_(level), unit_(unit) {}

  const TraceHandle* handle_;
  unsigned level_;
  const char* unit_;
  std::ostringstream text_;
};

} // namespace Vane

namespace Twinlog {

inline bool wanted(const Vane::TraceHandle& handle, unsigned level) {
  return Ringlog::defaultRinglogHandle.enabled(level) || handle.enabled(level);
}

// Takes the pieces of one statement and hands them to both traces when it ends.
class VANE_API RinglogConverter {
public:
  RinglogConverter(const Vane::TraceHandle& handle, const Ringlog::MsgDesc& desc)
      : handle_(&handle), msg_(desc) {}
  RinglogConverter(const RinglogConverter&) = delete;
  RinglogConverter& operator=(const RinglogConverter&) = delete;
  ~RinglogConverter() {
    const unsigned level = msg_.desc().level;
    if (Ringlog::defaultRinglogHandle.enabled(level)) {
      Ringlog::defaultRinglogHandle.ring().endMsg(msg_);
    }
    if (handle_->enabled(level)) {
      writeText();
    }
  }

  template <std::size_t N>
  RinglogConverter& operator<<(const char (&literal)[N]) {
    msg_ << literal;
    return *this;
  }
  template <typename T>
  requires(!std::is_array_v<T>) RinglogConverter& operator<<(const T& piece) {
    msg_ << piece;
    return *this;
  }

private:
  void writeText() const;

  const Vane::TraceHandle* handle_;
  Ringlog::Msg msg_;
};

} // namespace Twinlog

// One trace statement: text handle, level, unit (source file without extension), then the pieces,
// joined by <<. Character arrays among the pieces must live for ever; pass others as std::string_view.
#define VANE_TRACE(handle, level, unit, ...)                                                                 \
  do {                                                                                                       \
    const ::Vane::TraceHandle& vaneHandle = (handle);                                                        \
    if (::Twinlog::wanted(vaneHandle, level)) {                                                              \
      static constexpr ::Ringlog::MsgDesc vaneDesc{unit, __LINE__, level, #__VA_ARGS__};                     \
      ::Twinlog::RinglogConverter vaneConverter(vaneHandle, vaneDesc);                                       \
      vaneConverter << __VA_ARGS__;                                                                          \
    }                                                                                                        \
  } while (false)
