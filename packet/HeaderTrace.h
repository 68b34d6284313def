#pragma once

#include <cstddef>
#include <cstdint>
#include <istream>
#include <memory>
#include <stdexcept>
#include <string>

#include "packet/Packet.h"

// Header traces in ClassBench form: one IPv4 header a line, decimal numbers separated by blanks or tabs,
//
//   source destination sourcePort destinationPort protocol [anything more]
//
// What follows the protocol (a flags word and the number of the filter the header was drawn from) must
// be decimal numbers and is ignored. Empty lines are skipped. The trace gives ports to every protocol, so
// every packet made from it has an L4 header with these ports; TTL is 64, there are no TCP flags and no MAC
// addresses.

namespace packet {

// The message is "file:line:column: what".
class HeaderTraceError : public std::runtime_error {
public:
  using std::runtime_error::runtime_error;
};

class HeaderTraceReader { // packets of a ClassBench trace, line by line
public:
  // Throws HeaderTraceError when the file is missing or is a directory.
  explicit HeaderTraceReader(const std::string& fileName);
  // Reads from `stream`, which outlives the reader; `name` stands in errors.
  HeaderTraceReader(std::istream& stream, const std::string& name);
  ~HeaderTraceReader();

  // The next header; false at the end. Throws HeaderTraceError at the first line that is no header.
  bool next(Packet& packet);
  uint64_t line() const { return line_; } // of the last header, 1-based

private:
  // False for an empty line.
  bool parseLine(Packet& packet) const;
  [[noreturn]] void fail(std::size_t column, const std::string& what) const;

  std::unique_ptr<std::istream> owned_;
  std::istream* stream_;
  std::string name_;
  std::string text_;
  uint64_t line_ = 0;
};

} // namespace packet
