#include "sim/ChipMapping.h"

#include <atomic>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string_view>

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include "sim/ChipFile.h"

namespace sim {

namespace {
constexpr std::string_view mark = "XPCHIPM1";
constexpr std::size_t headerBytes = 4096;
} // namespace

struct ChipMapping::Header {
  char mark[8];
  uint64_t capacity;
  uint64_t length[2];
  std::atomic<uint32_t> valid;
};

ChipMapping::Header& ChipMapping::header() const {
  return *reinterpret_cast<Header*>(memory_);
}

ChipMapping::ChipMapping(const std::string& path, const System& system) {
  static_assert(sizeof(Header) <= headerBytes && std::atomic<uint32_t>::is_always_lock_free);
  const auto fail = [&path](const char* what) {
    throw ChipFileError(path + ": cannot be " + what + ": " + std::strerror(errno));
  };
  const std::size_t capacity = 2 * chipImage(system).size() + (std::size_t{64} << 10);
  bytes_ = headerBytes + 2 * capacity;
  const int file = open(path.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  if (file < 0) {
    fail("opened");
  }
  // Extended with zeros, which take no room before they are written.
  const bool sized = ftruncate(file, static_cast<off_t>(bytes_)) == 0;
  void* const memory =
      sized ? mmap(nullptr, bytes_, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0) : MAP_FAILED;
  close(file);
  if (memory == MAP_FAILED) {
    fail("mapped");
  }
  memory_ = static_cast<std::byte*>(memory);
  header().capacity = capacity;
  mirror(system);
  std::memcpy(header().mark, mark.data(), mark.size());
}

ChipMapping::~ChipMapping() {
  munmap(memory_, bytes_);
}

void ChipMapping::mirror(const System& system) {
  const std::string image = chipImage(system);
  Header& head = header();
  if (image.size() > head.capacity) {
    throw ChipFileError("the mapping has " + std::to_string(head.capacity) +
                        " bytes for the chips, they need " + std::to_string(image.size()));
  }
  const uint32_t next = 1 - head.valid.load();
  std::memcpy(memory_ + headerBytes + next * head.capacity, image.data(), image.size());
  head.length[next] = image.size();
  head.valid.store(next, std::memory_order_release);
}

std::string ChipMapping::image(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  std::ostringstream text;
  if (!file || !(text << file.rdbuf())) {
    throw ChipFileError(path + ": cannot be read: " + std::strerror(errno));
  }
  const std::string content = std::move(text).str();
  const auto* const head = reinterpret_cast<const Header*>(content.data());
  if (content.size() < headerBytes || std::string_view(head->mark, mark.size()) != mark || head->valid > 1 ||
      head->capacity != (content.size() - headerBytes) / 2 || head->length[head->valid] > head->capacity) {
    throw ChipFileError(path + ": this is no chip mapping, or a damaged one");
  }
  return content.substr(headerBytes + head->valid * head->capacity, head->length[head->valid]);
}

} // namespace sim
