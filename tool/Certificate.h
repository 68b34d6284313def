#pragma once

#include "tool/Common.h"
#include "tool/UpdateProof.h"
#include "tool/UpdateProofWrites.h"

#include <nlohmann/json.hpp>

#include <cstddef>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

// The certificate of a proven change: a JSON file with everything that is needed to follow the change on
// another simulated chip, and what was found at each write. docs/certificate.md describes it.

namespace tool {

constexpr const char* certificateFormat = "xpacl-certificate";
constexpr unsigned certificateVersion = 1;

// SHA-256 (FIPS 180-4), as 64 hexadecimal digits.
std::string sha256(std::string_view bytes);
// Of a file; ends the command with status 2 when it cannot be read.
std::string sha256OfFile(const std::string& path);

struct ConfigFile {
  std::string path;
  std::string sha256;
};

// A certificate that does not say what it must.
class BadCertificate : public std::runtime_error {
public:
  using std::runtime_error::runtime_error;
};

struct Certificate {
  std::string tool;
  ConfigFile old;
  ConfigFile fresh;
  Change change;
  Json places;            // an array, as placeJson() makes them
  std::string startImage; // hashes of the chips' images
  std::string endImage;
  std::vector<Judged> judged; // by write

  // The text of the file; a line for each write.
  std::string text() const;
  // Raises BadCertificate when something is missing, has another form, or has another hash than it says.
  static Certificate fromJson(const Json& json);
};

// `proof` has looked at all of `change` and found nothing.
Certificate certificateOf(const Change& change, const UpdateProof& proof, ConfigFile old, ConfigFile fresh);

Json placeJson(const ProofPlace& place, std::size_t number);
// One word for all places of a write: "unaffected", the verdict that all have, or "several".
std::string summaryWord(const Judged& judged);

} // namespace tool
