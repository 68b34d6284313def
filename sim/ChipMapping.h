#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "sim/System.h"

// The chips' tables in a file mapping, where they outlive the process that programs them, as hardware does:
// whatever ends that process, SIGKILL included, the file holds the tables as they stood after its last write.
//
// The file: 4096 bytes of header (the mark "XPCHIPM1", the capacity of an area in bytes, which of the two
// areas is valid, and the length of the image in each; the numbers are of this machine's byte order), then
// two areas, each with room for one image as ChipFile.h describes it. An image is written to the area that is
// not valid, and then one aligned word makes that one the valid one: a process that is killed at any moment
// leaves a whole image behind, that of before the write or that of after it.
//
// Raises ChipFileError for files that cannot be made, mapped or read.

namespace sim {

class ChipMapping { // chips that outlive the process
public:
  // Makes the file, or empties it, and puts the tables of `system` into it. Entries and counters that come
  // later may need more room: twice the first image and 64 KiB are there.
  ChipMapping(const std::string& path, const System& system);
  ~ChipMapping();
  ChipMapping(const ChipMapping&) = delete;
  ChipMapping& operator=(const ChipMapping&) = delete;

  // To be called after each write (System::afterWriteIs): the mapping follows the chips.
  void mirror(const System& system);

  // The image that stands in the file, by whomever it was mapped.
  static std::string image(const std::string& path);

private:
  struct Header;
  Header& header() const;

  std::byte* memory_ = nullptr;
  std::size_t bytes_ = 0;
};

} // namespace sim
