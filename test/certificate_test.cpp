#include "agent/config/ConfigReader.h"
#include "sim/ChipFile.h"
#include "test/LongRuns.h"
#include "test/Patterns.h"
#include "test/Random.h"
#include "test/ToolUnderTest.h"
#include "test/TwoPlaces.h"
#include "tool/Certificate.h"
#include "tool/CheckCertificate.h"
#include "tool/UpdateProof.h"

#include <gtest/gtest.h>

#include <functional>
#include <utility>

// Certificates of proven changes: they say what was done, they hold when they are checked, and nothing about
// them can be edited without being noticed, with fitting hashes or without.

namespace {

using tool::BadCertificate;
using tool::Certificate;
using tool::Json;

constexpr const char* certifiedOld = R"(ip access-list extended WEB
 10 permit tcp any any eq 80
 20 permit tcp any any eq 443
interface Ethernet1
 switchport access vlan 1
 ip access-group WEB in
interface Ethernet2
 switchport access vlan 1
 ip access-group WEB in
)";
constexpr const char* certifiedNew = R"(ip access-list extended WEB
 10 permit tcp any any eq 80
 20 permit udp any any eq 443
interface Ethernet1
 switchport access vlan 1
 ip access-group WEB in
interface Ethernet2
 switchport access vlan 1
 ip access-group WEB in
)";

struct Proven {
  agent::Config old = agent::readConfigText(certifiedOld, "old.conf");
  agent::Config fresh = agent::readConfigText(certifiedNew, "new.conf");
  tool::Change change;
  std::string text;
};

Proven proven() {
  Proven made;
  tool::Session session(made.old, tool::CommonOptions(), {&made.fresh});
  agent::ApplyResult result;
  made.change = tool::recordChange(session, made.fresh, result);
  tool::UpdateProof proof(made.change, made.old, made.fresh);
  EXPECT_TRUE(result.ok && proof.run());
  made.text = tool::certificateOf(made.change, proof, {"old.conf", tool::sha256(certifiedOld)},
                                  {"new.conf", tool::sha256(certifiedNew)})
                  .text();
  return made;
}

// Empty when it holds, else why not.
std::string refutation(const Json& json, const tool::CertificateConfigs* configs = nullptr) {
  try {
    const Certificate certificate = Certificate::fromJson(json);
    tool::CertificateChecker(certificate, configs).run();
    return "";
  } catch (const BadCertificate& error) {
    return error.what();
  } catch (const tool::BadWrite& error) {
    return error.what();
  }
}

// Gives an edited certificate hashes that fit, as somebody would who means it.
Json hashedAnew(Json json) {
  Json head = json;
  for (const char* const later : {"hash", "writes", "end"}) {
    head.erase(later);
  }
  std::string hash = tool::sha256(head.dump());
  json["hash"] = hash;
  for (Json& write : json["writes"]) {
    write.erase("hash");
    hash = tool::sha256(hash + "\n" + write.dump());
    write["hash"] = hash;
  }
  json["end"].erase("hash");
  json["end"]["writes"] = json["writes"].size();
  json["end"]["hash"] = tool::sha256(hash + "\n" + json["end"].dump());
  return json;
}

std::string withoutDigests(const std::string& text) {
  return test::replaced(text, "[0-9a-f]{64}", "HASH");
}

TEST(Certificate, HashesAreSha256) {
  // The examples of FIPS 180-4.
  EXPECT_EQ(tool::sha256("abc"), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
  EXPECT_EQ(tool::sha256(""), "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
}

TEST(Certificate, HoldsByItselfAndForItsConfigurations) {
  const Proven made = proven();
  const Json json = Json::parse(made.text);
  EXPECT_EQ(refutation(json), "");
  EXPECT_EQ(hashedAnew(json), json);
  tool::CertificateConfigs configs{made.old,
                                   made.fresh,
                                   {"old.conf", tool::sha256(certifiedOld)},
                                   {"new.conf", tool::sha256(certifiedNew)}};
  EXPECT_EQ(refutation(json, &configs), "");
  EXPECT_EQ(Certificate::fromJson(json).text(), made.text);
  EXPECT_EQ(Certificate::fromJson(json).change.writes, made.change.writes);

  configs.oldFile.sha256 = tool::sha256(certifiedNew);
  EXPECT_EQ(
      withoutDigests(refutation(json, &configs)),
      "old.conf is not the old configuration that it is about: that was old.conf with the hash HASH, this "
      "has HASH");
  // With the right hash, but another file: the lines tell.
  configs.oldFile.sha256 = tool::sha256(certifiedOld);
  configs.old = made.fresh;
  EXPECT_EQ(refutation(json, &configs),
            "before the first write Ethernet1 in ipv4 does not do what the old configuration says");
  configs.old = made.old;
  configs.fresh = made.old;
  EXPECT_NE(refutation(json, &configs), "");
}

TEST(Certificate, EveryChangedByteIsNoticed) {
  const Proven made = proven();
  const Json json = Json::parse(made.text);
  test::Random random(test::Random::seed("bytes"));
  const unsigned trials = test::isLong() ? 20000 : 600;
  unsigned unlike = 0;
  for (unsigned i = 0; i < trials; ++i) {
    std::string text = made.text;
    const std::size_t at = random.below(static_cast<uint32_t>(text.size()));
    text[at] = static_cast<char>(' ' + random.below(95));
    const Json edited = Json::parse(text, nullptr, false);
    if (edited.is_discarded() || edited == json) {
      continue;
    }
    ++unlike;
    // What is no certificate any more is refused before.
    if (edited.value("format", Json()) == tool::certificateFormat) {
      EXPECT_NE(refutation(edited), "") << "byte " << at << ": " << text.substr(at > 40 ? at - 40 : 0, 80);
    }
  }
  EXPECT_GT(unlike, trials / 3);
}

struct Tampering {
  const char* what;
  std::function<void(Json&)> edit;
  const char* plain;    // the reason when only this is edited
  const char* rehashed; // the reason when all hashes fit again; empty: it is a proof of what it says now
};

// A write of a row of the new version, which nothing names yet.
constexpr std::size_t rowWrite = 3;

// The place of the write that gives a port its new id, and what was found there.
std::size_t idMove(const Json& json) {
  std::size_t at = 0;
  while (json["writes"][at]["op"] != "portConfigWrite" || json["writes"][at]["bytes"] != "020100") {
    ++at;
  }
  return at;
}

void moveFirst(Json& json) {
  Json& writes = json["writes"];
  const Json moved = writes[idMove(json)]; // and again in its own time
  writes.insert(writes.begin(), moved);
}

constexpr const char* head = "what stands before the writes was changed: it has the hash HASH, not HASH";
constexpr const char* chain = "write 4: its hash does not follow from it and what stands before it; it was "
                              "changed, moved, or one before it was left out";
constexpr const char* end =
    "the end was changed, or writes before it were left out: its hash does not follow "
    "from them";
constexpr const char* endImage = "the chips after the last write have the hash HASH, not HASH";

const Tampering tamperings[] = {
    {"a byte of a write",
     [](Json& json) {
       std::string bytes = json["writes"][rowWrite]["bytes"];
       bytes[2] = bytes[2] == '0' ? '4' : '0';
       json["writes"][rowWrite]["bytes"] = bytes;
     },
     chain, endImage},
    {"bytes missing", [](Json& json) { json["writes"][rowWrite]["bytes"] = "00"; }, chain,
     "write 4: writeData has 1 bytes instead of 5"},
    {"a write dropped", [](Json& json) { json["writes"].erase(rowWrite); }, chain, endImage},
    {"the last write dropped", [](Json& json) { json["writes"].erase(json["writes"].size() - 1); }, end,
     endImage},
    {"all writes dropped", [](Json& json) { json["writes"] = Json::array(); }, end,
     "it names 14 places, but packets are judged at 6"},
    {"two writes exchanged that may be",
     [](Json& json) { std::swap(json["writes"][rowWrite], json["writes"][rowWrite + 1]); }, chain, ""},
    {"the new id in force before its rows are there", moveFirst,
     "write 1: its hash does not follow from it and what stands before it; it was changed, moved, or one "
     "before it was left out",
     "write 1 (portConfigWrite d0 1 PAclId=2 aclEnBits=1 macAclEn=0): says 'Ethernet1 in ipv4 new, Ethernet1 "
     "in ipv6 same, Ethernet1 in mac same', but is 'Ethernet1 in ipv4 neither'"},
    {"the new id in force before its rows are there, and said so",
     [](Json& json) {
       moveFirst(json);
       Json& first = json["writes"][0];
       first["verdict"] = "neither";
       first["places"] = Json::array({Json::array({0, "neither"})});
     },
     "write 1: its hash does not follow from it and what stands before it; it was changed, moved, or one "
     "before it was left out",
     "write 1 (portConfigWrite d0 1 PAclId=2 aclEnBits=1 macAclEn=0): at Ethernet1 in ipv4 some packet meets "
     "neither the old nor the new list"},
    {"a write repeated", [](Json& json) { json["writes"].push_back(json["writes"][rowWrite]); },
     "write 23: its hash does not follow from it and what stands before it; it was changed, moved, or one "
     "before it was left out",
     ""},
    {"another verdict",
     [](Json& json) {
       Json& write = json["writes"][9];
       write["verdict"] = "new";
       for (Json& place : write["places"]) {
         place[1] = "new";
       }
     },
     "write 10: its hash does not follow from it and what stands before it; it was changed, moved, or one "
     "before it was left out",
     "write 10 (portConfigWrite d0 1 PAclId=0 aclEnBits=3 macAclEn=1): says 'Ethernet1 in ipv4 new, "
     "Ethernet1 "
     "in ipv6 new, Ethernet1 in mac new', but is 'Ethernet1 in ipv4 blocked, Ethernet1 in ipv6 blocked, "
     "Ethernet1 in mac blocked'"},
    {"a verdict unlike its places", [](Json& json) { json["writes"][rowWrite]["verdict"] = "new"; }, chain,
     "write 4: the verdict 'new' is not that of its places"},
    {"another list", [](Json& json) { json["old"]["topology"]["ports"][0]["lists"]["in ipv4"] = "WEB2"; },
     head,
     R"(place 0 is not what it says: it is {"place":0,"interface":"Ethernet1","direction":"in","family":"ipv4","role":"port","chip":0,"port":1,"old":{"list":"WEB2"},"new":{"list":"WEB"}})"},
    {"a port forgotten", [](Json& json) { json["new"]["topology"]["ports"].erase(0); }, head,
     R"(place 0 is not what it says: it is {"place":0,"interface":"Ethernet1","direction":"in","family":"ipv4","role":"port","chip":0,"port":1,"old":{"list":"WEB"},"new":"no packets"})"},
    {"another row at the start", [](Json& json) { json["start"]["content"].erase(0); }, head,
     "the chips before the first write have the hash HASH, not HASH"},
    {"smaller tables", [](Json& json) { json["chips"][0]["rows"]["TACL_V4_IACL"] = 5; }, head,
     "there is no row 4095 of TACL_V4_IACL"},
    {"another end", [](Json& json) { json["end"]["image"] = json["start"]["image"]; }, end, endImage},
    {"no end", [](Json& json) { json["end"] = 7; }, "it is no object", nullptr},
    {"a write of another kind", [](Json& json) { json["writes"][rowWrite]["op"] = "readEntry"; }, chain,
     "write 4: 'readEntry' is no write"},
    {"a chip that there is not", [](Json& json) { json["writes"][rowWrite]["chip"] = 9; }, chain,
     "write 4 (writeData d9 TACL_V4_IACL 4 copy 0 log=0 count=1 result=1 cntr=9): there is no chip 9"},
};

TEST(Certificate, TamperingIsRefusedWithItsReason) {
  const Json json = Json::parse(proven().text);
  for (const Tampering& tampering : tamperings) {
    Json edited = json;
    tampering.edit(edited);
    // As it would be read from a file.
    edited = Json::parse(edited.dump());
    EXPECT_EQ(withoutDigests(refutation(edited)), tampering.plain) << tampering.what;
    if (tampering.rehashed != nullptr) {
      const Json fitting = Json::parse(hashedAnew(edited).dump());
      EXPECT_EQ(withoutDigests(refutation(fitting)), tampering.rehashed) << tampering.what;
    }
  }
}

class CertificateTool : public test::ToolUnderTest {};

TEST_F(CertificateTool, ProvesAndChecksAsPeopleDo) {
  const std::string old = file("old.conf", certifiedOld);
  const std::string fresh = file("new.conf", certifiedNew);
  const std::string certificate = (folder_ / "change.json").string();
  const test::Outcome proof = run("update " + old + " " + fresh + " --prove --certificate " + certificate);
  EXPECT_EQ(proof.status, 0);
  EXPECT_EQ(proof.err, "");
  std::string said = proof.out.substr(proof.out.find('\n') + 1);
  said = test::replaced(said, "\\d+ nodes, \\d+ MiB, [\\d.]+ s\n.*\n", "...");
  EXPECT_EQ(said,
            "  22 writes to 1 chip; 14 places where packets can be judged\n\n"
            "  PLACE              ENTRY          OLD  NEW\n"
            "  Ethernet1 in ipv4  chip 0 port 1  WEB  WEB\n"
            "  Ethernet2 in ipv4  chip 0 port 2  WEB  WEB\n"
            "  and 12 places without a list, where the chip looks up at some time\n\n"
            "  14 writes change nothing that is in force\n"
            "  after each of the other 8 the places that it concerns were judged: 8 same, 2 new, 10 blocked\n"
            "  at no time one place is ahead of its old list while another is behind its new one\n\n"
            "proven for all packets: every verdict is the old one, the new one, or the drop of a blocked "
            "interface\n"
            "9 different rows and lines, 10 sequences of them combined, ...");

  const test::Outcome check = run("check-certificate " + certificate + " " + old + " " + fresh);
  EXPECT_EQ(check.status, 0);
  EXPECT_EQ(check.err, "");
  EXPECT_EQ(run("check-certificate " + certificate).status, 0);
  EXPECT_EQ(run("check-certificate " + certificate + " " + fresh + " " + old).status, 1);
  EXPECT_EQ(run("check-certificate " + certificate + " " + old).status, 2);
  EXPECT_EQ(run("check-certificate " + old).status, 2);
  EXPECT_EQ(run("check-certificate " + file("other.json", "{}")).err,
            "xpacl: " + (folder_ / "other.json").string() +
                ": is no certificate: its 'format' is not 'xpacl-certificate'\n");
  const auto json = lines(run("update " + old + " " + fresh + " --prove --json").out);
  ASSERT_EQ(json.size(), 1u);
  EXPECT_EQ(json[0]["proven"], true);
  EXPECT_EQ(json[0]["finding"], nullptr);
}

TEST_F(CertificateTool, ProvesTheCampusEdited) {
  const std::string old = example("campus.conf");
  std::string text = slurp(old);
  const std::size_t at = text.find("permit tcp");
  ASSERT_NE(at, std::string::npos);
  text.replace(at, 6, "deny");
  const std::string fresh = file("edited.conf", text);
  const std::string certificate = (folder_ / "campus.json").string();
  const test::Outcome proof = run("update " + old + " " + fresh + " --prove --certificate " + certificate);
  EXPECT_EQ(proof.status, 0) << proof.out << proof.err;
  EXPECT_NE(proof.out.find("proven for all packets"), std::string::npos) << proof.out;
  const test::Outcome check = run("check-certificate " + certificate + " " + old + " " + fresh);
  EXPECT_EQ(check.status, 0) << check.out << check.err;
}

TEST_F(CertificateTool, WithoutPacketsOrProofThereIsNothingToDo) {
  const std::string old = file("old.conf", certifiedOld);
  const std::string fresh = file("new.conf", certifiedNew);
  EXPECT_EQ(run("update " + old + " " + fresh).err,
            "xpacl: give --pcap FILE with packets to send during the change, or --prove for all\n");
  EXPECT_EQ(run("update " + old + " " + fresh + " --certificate x.json").status, 2);
}

// One port opens what another still denies, then that one denies less and more; nothing is blocked meanwhile.
const std::string mixedOld = std::string(R"(ip access-list extended A
 10 deny udp any any eq 53
 20 permit ip any any
ip access-list extended B
 10 deny udp any any eq 53
 20 permit ip any any
)") + test::entranceAndExit;
const std::string mixedNew = std::string(R"(ip access-list extended A
 10 permit ip any any
ip access-list extended B
 10 deny udp any any eq 53
 20 deny tcp any any eq 80
 30 permit ip any any
)") + test::entranceAndExit;

// Every place goes from its old list to its new one; the packets that meet several are judged on their ways.
TEST(Certificate, WaysThroughSeveralPlacesAreFoundAgain) {
  const agent::Config old = agent::readConfigText(mixedOld, "old.conf");
  const agent::Config fresh = agent::readConfigText(mixedNew, "new.conf");
  tool::Session session(old, tool::CommonOptions(), {&fresh});
  agent::ApplyResult result;
  tool::Change change = tool::recordChange(session, fresh, result);
  test::dropBlocks(change.writes);
  tool::UpdateProof proof(change, old, fresh);
  ASSERT_TRUE(result.ok && proof.run());
  EXPECT_GT(proof.numMixed(), 0u);
  Json json = Json::parse(tool::certificateOf(change, proof, {"old.conf", tool::sha256(mixedOld)},
                                              {"new.conf", tool::sha256(mixedNew)})
                              .text());
  EXPECT_EQ(refutation(json), "");

  // The old B lets DNS through: it passes the new A and the old B, and neither configuration permits it.
  for (Json& write : json["start"]["content"]) {
    if (write["op"] == "writeData" && write["table"] == "TACL_V4_EACL" && write["index"] == 0) {
      std::string bytes = write["bytes"];
      ASSERT_EQ(bytes.substr(2, 2), "12");
      write["bytes"] = bytes.replace(2, 2, "16"); // the result, permit
    }
  }
  for (tool::ChipWrite& write : change.start) {
    if (write.op == sim::Op::writeData && write.table == XpXdk::TACL_V4_EACL && write.index == 0) {
      write.bytes[1] = 0x16;
    }
  }
  json["start"]["image"] = tool::sha256(sim::chipImage(*tool::chipsOf(change.chips, change.start)));
  EXPECT_EQ(refutation(hashedAnew(json)),
            "write 20 (portConfigWrite d0 1 PAclId=2 aclEnBits=1 macAclEn=0): a packet passes that neither "
            "configuration permits: udp 10.1.0.1:40000 > 10.2.0.1:53 ttl 64, from Ethernet1 in VLAN 1 to "
            "Ethernet2");
}

} // namespace
