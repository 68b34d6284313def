#include "packet/HeaderTrace.h"

#include "packet/Words.h"

#include <filesystem>
#include <fstream>
#include <iterator>
#include <system_error>

namespace packet {

namespace {

struct Column {
  const char* name;
  uint64_t max;
};
constexpr Column columns[] = {{"source address", 0xFFFFFFFF},
                              {"destination address", 0xFFFFFFFF},
                              {"source port", 65535},
                              {"destination port", 65535},
                              {"protocol", 255}};
constexpr std::size_t numColumns = std::size(columns);

} // namespace

HeaderTraceReader::HeaderTraceReader(const std::string& fileName) : name_(fileName) {
  if (std::error_code ignored; std::filesystem::is_directory(fileName, ignored)) {
    throw HeaderTraceError(fileName + ": is a directory, not a header trace");
  }
  owned_ = std::make_unique<std::ifstream>(fileName, std::ios::binary);
  if (!*owned_) {
    throw HeaderTraceError(fileName + ": cannot be opened: " + systemError());
  }
  stream_ = owned_.get();
}

HeaderTraceReader::HeaderTraceReader(std::istream& stream, const std::string& name)
    : stream_(&stream), name_(name) {}

HeaderTraceReader::~HeaderTraceReader() = default;

void HeaderTraceReader::fail(std::size_t column, const std::string& what) const {
  std::string text = name_;
  text.append(":").append(std::to_string(line_)).append(":").append(std::to_string(column));
  text.append(": ").append(what);
  throw HeaderTraceError(text);
}

bool HeaderTraceReader::parseLine(Packet& packet) const {
  uint64_t values[numColumns] = {};
  std::size_t numWords = 0;
  WordReader reader(text_);
  for (Word word; reader.next(word); ++numWords) {
    const Column column = numWords < numColumns ? columns[numWords] : Column{"number", 0xFFFFFFFF};
    uint64_t value = 0;
    if (!parseDecimal(word.text, column.max, value)) {
      std::string what = "\"";
      what += clipped(word.text) + "\" is no " + column.name + ": write a decimal number up to ";
      fail(word.column, what + std::to_string(column.max));
    }
    if (numWords < numColumns) {
      values[numWords] = value;
    }
  }
  if (numWords == 0) {
    return false;
  }
  if (numWords < numColumns) {
    fail(text_.size() + 1, std::string("the line ends before the ") + columns[numWords].name +
                               ": write source, destination, source port, destination port and protocol");
  }
  packet = {};
  packet.etherType = etherTypeIpv4;
  packet.l3 = L3::ipv4;
  packet.srcV4Is(static_cast<uint32_t>(values[0]));
  packet.dstV4Is(static_cast<uint32_t>(values[1]));
  packet.protocol = static_cast<uint8_t>(values[4]);
  packet.ttl = 64;
  packet.hasL4 = true;
  packet.srcPort = static_cast<uint16_t>(values[2]);
  packet.dstPort = static_cast<uint16_t>(values[3]);
  return true;
}

bool HeaderTraceReader::next(Packet& packet) {
  while (std::getline(*stream_, text_)) {
    ++line_;
    if (parseLine(packet)) {
      return true;
    }
  }
  return false;
}

} // namespace packet
