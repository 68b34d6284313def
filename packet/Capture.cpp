#include "packet/Capture.h"

#include "packet/Words.h"

#include <cstring>
#include <filesystem>
#include <pcap/pcap.h>
#include <stdio_ext.h>
#include <system_error>
#include <utility>

namespace packet {

namespace {

constexpr int writerSnapLength = 262144;
constexpr std::size_t bufferSize = 65536; // bytes; what stdio takes of itself is a few dozen frames

struct Stream {
  FILE* file = nullptr;           // whoever takes it over closes it
  std::unique_ptr<char[]> buffer; // of the file, which it must outlive
};

// Whether a file's first four octets say that its times are in nanoseconds: the nanosecond form of pcap,
// or pcapng, whose interfaces may each have their own resolution.
bool magicIsNanoseconds(const uint8_t (&magic)[4]) {
  static constexpr uint8_t bigEndian[4] = {0xA1, 0xB2, 0x3C, 0x4D};
  static constexpr uint8_t littleEndian[4] = {0x4D, 0x3C, 0xB2, 0xA1};
  static constexpr uint8_t pcapng[4] = {0x0A, 0x0D, 0x0D, 0x0A};
  return std::memcmp(magic, bigEndian, 4) == 0 || std::memcmp(magic, littleEndian, 4) == 0 ||
         std::memcmp(magic, pcapng, 4) == 0;
}

bool isDirectory(const std::string& fileName) {
  std::error_code ignored;
  return std::filesystem::is_directory(fileName, ignored);
}

Stream openFile(const std::string& fileName, const char* mode) {
  if (isDirectory(fileName)) {
    throw CaptureError(fileName + ": is a directory, not a capture file");
  }
  Stream stream;
  stream.buffer = std::make_unique<char[]>(bufferSize);
  stream.file = std::fopen(fileName.c_str(), mode);
  if (!stream.file) {
    throw CaptureError(fileName + ": cannot be opened: " + systemError());
  }
  std::setvbuf(stream.file, stream.buffer.get(), _IOFBF, bufferSize);
  // Readers and writers are used by one thread at a time, and a lock for each header and each frame would
  // take a tenth of the time of a replay.
  ::__fsetlocking(stream.file, FSETLOCKING_BYCALLER);
  return stream;
}

} // namespace

struct CaptureReader::Handle {
  std::unique_ptr<char[]> buffer;
  pcap_t* pcap = nullptr;
  ~Handle() {
    if (pcap) {
      pcap_close(pcap);
    }
  }
};

CaptureReader::CaptureReader(const std::string& fileName)
    : handle_(std::make_unique<Handle>()), name_(fileName) {
  Stream stream = openFile(fileName, "rb");
  handle_->buffer = std::move(stream.buffer);
  open(stream.file);
}
CaptureReader::CaptureReader(FILE* stream, const std::string& name)
    : handle_(std::make_unique<Handle>()), name_(name) {
  open(stream);
}
CaptureReader::~CaptureReader() = default;
CaptureReader::CaptureReader(CaptureReader&&) noexcept = default;
CaptureReader& CaptureReader::operator=(CaptureReader&&) noexcept = default;

void CaptureReader::open(FILE* stream) {
  // A pipe cannot be read ahead; its times are then taken for microseconds when written again.
  uint8_t magic[4];
  if (std::fseek(stream, 0, SEEK_SET) == 0) {
    nanoseconds_ = std::fread(magic, 1, sizeof magic, stream) == sizeof magic && magicIsNanoseconds(magic);
    std::rewind(stream);
  }
  char error[PCAP_ERRBUF_SIZE] = "";
  handle_->pcap = pcap_fopen_offline_with_tstamp_precision(stream, PCAP_TSTAMP_PRECISION_NANO, error);
  if (!handle_->pcap) {
    std::fclose(stream);
    throw CaptureError(name_ + ": is no capture file that can be read: " + error);
  }
  dlt_ = pcap_datalink(handle_->pcap);
  const std::optional<LinkType> linkType = linkTypeFromDlt(dlt_);
  if (!linkType) {
    const char* description = pcap_datalink_val_to_description_or_dlt(dlt_);
    throw CaptureError(name_ + ": unsupported link type " + std::to_string(dlt_) + " (" + description +
                       "): only Ethernet, raw IP and Linux cooked captures can be read");
  }
  linkType_ = *linkType;
}

bool CaptureReader::next(Frame& frame) {
  pcap_pkthdr* header = nullptr;
  const u_char* bytes = nullptr;
  const int result = pcap_next_ex(handle_->pcap, &header, &bytes);
  if (result == PCAP_ERROR_BREAK) {
    return false;
  }
  if (result != 1) {
    throw CaptureError(name_ + ": packet " + std::to_string(numFrames_ + 1) + ": " +
                       pcap_geterr(handle_->pcap));
  }
  frame.number = ++numFrames_;
  // libpcap keeps nanoseconds where timeval has microseconds when it is asked for that precision.
  frame.timeNs =
      static_cast<uint64_t>(header->ts.tv_sec) * 1'000'000'000 + static_cast<uint64_t>(header->ts.tv_usec);
  frame.wireLen = header->len;
  frame.capLen = header->caplen;
  frame.bytes = bytes;
  return true;
}

Packet CaptureReader::dissect(const Frame& frame) const {
  return packet::dissect(linkType_, frame.bytes, frame.capLen, frame.wireLen);
}

struct CaptureWriter::Handle {
  std::unique_ptr<char[]> buffer;
  pcap_t* pcap = nullptr;
  pcap_dumper_t* dumper = nullptr;
  bool nanoseconds = false;
  ~Handle() {
    if (dumper) {
      pcap_dump_close(dumper);
    }
    if (pcap) {
      pcap_close(pcap);
    }
  }
};

CaptureWriter::CaptureWriter(const std::string& fileName, int dlt, bool nanoseconds)
    : handle_(std::make_unique<Handle>()), name_(fileName) {
  handle_->nanoseconds = nanoseconds;
  handle_->pcap = pcap_open_dead_with_tstamp_precision(
      dlt, writerSnapLength, nanoseconds ? PCAP_TSTAMP_PRECISION_NANO : PCAP_TSTAMP_PRECISION_MICRO);
  Stream stream = openFile(fileName, "wb");
  handle_->buffer = std::move(stream.buffer);
  handle_->dumper = handle_->pcap ? pcap_dump_fopen(handle_->pcap, stream.file) : nullptr;
  if (!handle_->dumper) {
    std::fclose(stream.file);
    throw CaptureError(
        fileName + ": cannot be written: " + (handle_->pcap ? pcap_geterr(handle_->pcap) : "out of memory"));
  }
}

CaptureWriter::~CaptureWriter() = default;
CaptureWriter::CaptureWriter(CaptureWriter&&) noexcept = default;
CaptureWriter& CaptureWriter::operator=(CaptureWriter&&) noexcept = default;

void CaptureWriter::write(const Frame& frame) {
  const uint64_t nanosecondsOfSecond = frame.timeNs % 1'000'000'000;
  pcap_pkthdr header{};
  header.ts.tv_sec = static_cast<time_t>(frame.timeNs / 1'000'000'000);
  header.ts.tv_usec =
      static_cast<suseconds_t>(handle_->nanoseconds ? nanosecondsOfSecond : nanosecondsOfSecond / 1000);
  header.caplen = frame.capLen;
  header.len = frame.wireLen;
  pcap_dump(reinterpret_cast<u_char*>(handle_->dumper), &header, frame.bytes);
}

void CaptureWriter::close() {
  const bool failed =
      pcap_dump_flush(handle_->dumper) != 0 || std::ferror(pcap_dump_file(handle_->dumper)) != 0;
  const std::string reason = failed ? systemError() : "";
  handle_ = nullptr;
  if (failed) {
    throw CaptureError(name_ + ": cannot be written: " + reason);
  }
}

} // namespace packet
