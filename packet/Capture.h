#pragma once

#include <cstdint>
#include <cstdio>
#include <memory>
#include <stdexcept>
#include <string>

#include "packet/Dissect.h"

// Capture files, read and written frame by frame: pcap and pcapng in, pcap out.

namespace packet {

// The message begins with the file's name and, where it applies, the packet's number.
class CaptureError : public std::runtime_error {
public:
  using std::runtime_error::runtime_error;
};

struct Frame {         // as it stands in a capture
  uint64_t number = 0; // counts from 1 within its file
  uint64_t timeNs = 0; // nanoseconds since 1970-01-01 00:00 UTC
  uint32_t wireLen = 0;
  uint32_t capLen = 0;
  const uint8_t* bytes = nullptr; // valid until the next call of next()
};

class CaptureReader { // reads pcap and pcapng, frame by frame
public:
  // Throws CaptureError when the file is missing, is a directory, is no capture or has a link type that
  // cannot be dissected (Ethernet, raw IP and Linux cooked v1 and v2 can).
  explicit CaptureReader(const std::string& fileName);
  // Reads from an open stream, which it closes at the end; `name` stands in errors.
  CaptureReader(FILE* stream, const std::string& name);
  ~CaptureReader();
  CaptureReader(CaptureReader&&) noexcept;
  CaptureReader& operator=(CaptureReader&&) noexcept;

  // The next frame; false at the end. Throws CaptureError on a truncated or garbled file, after which
  // the frames already read stand.
  bool next(Frame& frame);
  Packet dissect(const Frame& frame) const;

  LinkType linkType() const { return linkType_; }
  int dlt() const { return dlt_; }
  bool nanoseconds() const { return nanoseconds_; } // the file's own time resolution
  const std::string& name() const { return name_; }

private:
  void open(FILE* stream);
  struct Handle;
  std::unique_ptr<Handle> handle_;
  std::string name_;
  LinkType linkType_ = LinkType::ethernet;
  int dlt_ = 1;
  bool nanoseconds_ = false;
  uint64_t numFrames_ = 0;
};

class CaptureWriter { // writes a pcap file
public:
  // Creates or empties the file; frames of link type `dlt` follow. Throws CaptureError.
  CaptureWriter(const std::string& fileName, int dlt, bool nanoseconds = false);
  ~CaptureWriter();
  CaptureWriter(CaptureWriter&&) noexcept;
  CaptureWriter& operator=(CaptureWriter&&) noexcept;

  void write(const Frame& frame); // close() tells whether all could be written
  // Writes out what is buffered and closes; throws CaptureError when the disk refuses. The destructor
  // closes too but cannot tell.
  void close();

private:
  struct Handle;
  std::unique_ptr<Handle> handle_;
  std::string name_;
};

} // namespace packet
