#include "tests/support/btsearch_fixture.h"

#include <filesystem>
#include <sstream>

#include "tests/support/files.h"

namespace qrix::test {
namespace {

constexpr const char* kDir = "/tmp/btsearch-fixture";

std::vector<std::string> Strings(const Json::Value& list) {
  std::vector<std::string> out;
  for (const Json::Value& s : list) {
    out.push_back(s.asString());
  }
  return out;
}

}  // namespace

BtSearchFixture::BtSearchFixture() {
  WriteText(kBtSearchScript, ReadText(QRIX_SOURCE_DIR "/tests/fixtures/btsearch.php"));
  std::filesystem::remove_all(kDir);
  std::filesystem::create_directories(kDir);
  Answer(0);
}

void BtSearchFixture::Answer(int status, const std::map<std::string, int>& status_for,
                             const std::string& output) {
  Json::Value control(Json::objectValue);
  control["status"] = status;
  control["output"] = output;
  control["status_for"] = Json::Value(Json::objectValue);
  for (const auto& [arg, s] : status_for) {
    control["status_for"][arg] = s;
  }
  WriteText(std::string(kDir) + "/control.json", control.toStyledString());
}

std::vector<ScriptCall> BtSearchFixture::Calls() const {
  std::vector<ScriptCall> calls;
  std::istringstream lines(ReadText(std::string(kDir) + "/calls"));
  Json::CharReaderBuilder builder;
  for (std::string line; std::getline(lines, line);) {
    Json::Value record;
    std::istringstream in(line);
    if (Json::parseFromStream(builder, in, &record, nullptr)) {
      calls.push_back({Strings(record["cmdline"]), Strings(record["argv"]), record["added"]});
    }
  }
  return calls;
}

}  // namespace qrix::test
