// Every parameter of every method the module's check table lists, over HTTP: hostile values, and
// every method without a session, with a wrong token, from a foreign Host or Origin, and as an
// ordinary account where the policy says administrators only. Generated from the module's own
// tables, so a new method or parameter is swept without new test code. Besides, the settings
// APIs' wiring over HTTP: what a "set" leaves on disk, the signals the scheduler gets after the
// answer, and refusals that change nothing. Each handler's own rules are the handlers' unit test.
#include <fcntl.h>
#include <json/json.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <map>
#include <memory>
#include <random>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "module/setting.h"
#include "tests/api/host_fixture.h"
#include "tests/support/accounts.h"
#include "tests/support/btsearch_fixture.h"
#include "tests/support/fake_scheduler.h"
#include "tests/support/files.h"
#include "tests/support/pgsql_server.h"

namespace qrix::test {
namespace {

using Counts = FakeScheduler::Counts;

constexpr const char* kSmuggled = "/tmp/smuggled";
// Everything the product keeps that a "set" may rewrite.
constexpr const char* kKeptFiles[] = {
    kSettingsConf,
    "/var/packages/Haulport/etc/amule/shareddir.dat",
    "/var/packages/Haulport/etc/amule/qrixuser_default_destination.conf",
    "/var/qrix/etc/services/qrixdownload_port.conf",
};
// The codes the README documents for these methods; 100 and 110 (no outcome, crash) are not.
const std::set<int> kDocumented = {101,  102,  103,  104,  105,  106,  107,  108,  117,  120,  403,
                                   407,  501,  502,  503,  504,  505,  506,  508,  509,  511,  512,
                                   514,  515,  516,  517,  518,  519,  1000, 1001, 1002, 1003, 1004,
                                   1005, 1006, 1201, 1207, 1208, 1209, 1400, 1401, 1402, 1403, 1404,
                                   1405, 1406, 1800, 1802, 1803, 1805, 1806};
const std::set<std::string> kScriptOptions = {"-a", "-b", "-d", "-k", "-l", "-n", "-p", "-t", "-u"};

std::string TaskRecords() {
  return PgsqlServer::Query("SELECT * FROM user_setting ORDER BY username");
}

std::map<std::string, std::string> Snapshot() {
  std::map<std::string, std::string> files;
  for (const char* path : kKeptFiles) {
    files[path] = ReadText(path);
  }
  return files;
}

// A value the method would take, so that a refusal in front of it has something to refuse.
std::string PlainValue(const QRIXDL::ParamRule& rule) {
  switch (rule.type) {
    case QRIXDL::ParamType::kInt:
      return std::to_string(rule.condition == QRIXDL::Condition::kRange ? rule.max : 7);
    case QRIXDL::ParamType::kBool:
      return "true";
    case QRIXDL::ParamType::kArray:
      return R"(["video"])";
    case QRIXDL::ParamType::kString:
      break;
  }
  if (rule.condition == QRIXDL::Condition::kOneOf) {
    return ParseJson(rule.one_of)[0].toStyledString();
  }
  return rule.condition == QRIXDL::Condition::kVolume ? R"("/volume1")" : R"("video")";
}

class ReliabilityTest : public HostTest {
 protected:
  void SetUp() override {
    HostTest::SetUp();
    if (IsSkipped()) {
      return;
    }
    UseDatabase();
    WriteSettings("download_enable_amule=\"yes\"\ndownload_other=\"untouched\"\n");
    WriteShares("[video]\npath=\"/volume1/video\"\nread_write=\"alice, bob\"\n");
    for (const char* path : kKeptFiles) {
      if (path != std::string(kSettingsConf)) {
        Remove(path);
      }
    }
    Remove(kSmuggled);
    StartDaemons();
    Start();
  }

  Json::Value Call(const std::string& api, const std::string& method, const Fields& fields = {}) {
    return alice_->Call("QRIX.Haulport2.Setting." + api, method, fields);
  }

  BtSearchFixture search_;
};

class SettingsApiTest : public ReliabilityTest {};

// A port change over HTTP: its keys written, and after the answer the scheduler signalled (DHT
// is on by default and its port moved: it restarts) and the firewall reloaded once. Which change
// calls for what is the handlers' unit test; the ports registered and "get", eMule's API test.
TEST_F(SettingsApiTest, AnAcceptedSetWritesAndSignalsARefusedOneNeither) {
  EXPECT_EQ(Call("BT", "set", {{"tcp_port", "51413"}, {"dht_port", "7000"}}),
            ParseJson(R"({"success":true})"));
  std::map<std::string, std::string> file = ReadSettings();
  EXPECT_EQ(
      file["download_start_port"] + " " + file["download_dhtport"] + " " + file["download_other"],
      "51413 7000 untouched");
  Counts total{1, 1, 0};
  EXPECT_EQ(scheduler_->WaitFor(total), total);
  ASSERT_TRUE(WaitForFile(kFirewallRan));
  EXPECT_EQ(ReadText(kFirewallRan), "x\n");

  // What the module refuses writes nothing and announces nothing, then or with a later request.
  const std::string before = ReadText(kSettingsConf);
  EXPECT_EQ(Call("Nzb", "set", {{"server", R"("x\ndownload_evil=\"1\"")"}}), ErrorEnvelope(505));
  EXPECT_EQ(Call("BT", "set", {{"bt_dht_port", "4672"}, {"dht_port", "4672"}}), ErrorEnvelope(517));
  EXPECT_EQ(ReadText(kSettingsConf), before);
  EXPECT_TRUE(Call("Rss", "set", {{"update_interval", "20"}})["success"].asBool());
  ++total.hup;
  EXPECT_EQ(scheduler_->WaitFor(total), total);
  EXPECT_EQ(scheduler_->WaitFor({total.hup + 1, total.cont, total.usr2}, 300), total);
}

TEST_F(ReliabilityTest, EveryParameterOfEveryMethodTakesHostileValues) {
  const std::string megabyte = "\"" + std::string(1 << 20, 'm') + "\"";
  const std::string values[] = {
      R"({"a": 1})",
      R"([1, "x"])",
      "null",
      "1.5",
      "-2147483649",
      "99999999999999999999999",
      R"("")",
      megabyte,
      R"("a\u0000b")",
      R"("\"'`")",
      R"("\\x\\")",
      R"("x\"\ndownload_other=\"poisoned\"\nsmuggled_key=\"1")",
      "\"x\r\ny\"",
      R"("../../../../etc/shadow")",
      R"("/etc")",
      R"~("$(touch /tmp/smuggled)`touch /tmp/smuggled`;touch /tmp/smuggled|x&y")~",
      R"("--help")",
      R"("x'; DROP TABLE user_setting; --")",
      "\"\xff\xfe\xc3\x28\"",
      R"~(["../x", "$(touch /tmp/smuggled)", "a\nb", 5])~",
  };
  int tried = 0;
  for (const QRIXDL::CheckedMethod& method : QRIXDL::CheckedMethods()) {
    std::vector<std::string> names;
    for (const QRIXDL::ParamRule& rule : method.rules) {
      names.push_back(rule.name);
    }
    if (names.empty()) {
      names.push_back("unexpected");  // a method that takes none must ignore it
    }
    // A query per request would cost more than the sweep: the records are compared per method.
    const std::string records = TaskRecords();
    bool any_success = false;
    for (const std::string& name : names) {
      for (const std::string& value : values) {
        SCOPED_TRACE(std::string(method.api) + " " + method.method + " " + name + "=" +
                     value.substr(0, 60));
        const auto before = Snapshot();
        const Json::Value reply = alice_->Call(method.api, method.method, {{name, value}});
        ++tried;
        ASSERT_TRUE(reply.isObject()) << "no answer: the worker crashed or hung";
        any_success = any_success || reply["success"].asBool();
        const int code = reply["success"].asBool() ? 0 : reply["error"]["code"].asInt();
        EXPECT_TRUE(code == 0 || kDocumented.count(code)) << reply;
        // Refused by the host or the parameter check: the method never ran. (A method's own
        // failure may come after what it wrote, as each method's tests show.)
        if (code != 0 && code < 200) {
          EXPECT_EQ(Snapshot(), before) << "a refused request wrote";
        }
        const ParsedKv settings = ParseKvStrict(ReadText(kSettingsConf));
        ASSERT_TRUE(settings.ok) << settings.bad_line;
        EXPECT_EQ(settings.values.at("download_other"), "untouched");
        EXPECT_EQ(settings.values.count("smuggled_key"), 0u);
      }
    }
    if (!any_success) {
      EXPECT_EQ(TaskRecords(), records) << method.api << " " << method.method;
    }
  }
  // Whatever was stored, sh reads back as the module does, and sourcing it runs nothing.
  for (const auto& [key, value] : ReadSettings()) {
    EXPECT_EQ(SourcedValue(kSettingsConf, key), value) << key;
  }
  for (const char* path : kKeptFiles) {
    EXPECT_EQ(ReadText(path).find("smuggled_key"), std::string::npos) << path;
  }
  EXPECT_FALSE(std::filesystem::exists(kSmuggled)) << "a program ran a smuggled command";
  // The search script got each value as one argument after its option, never as an option.
  for (const ScriptCall& call : search_.Calls()) {
    for (size_t i = 0; i < call.argv.size(); i += 2) {
      EXPECT_TRUE(kScriptOptions.count(call.argv[i])) << call.argv[i];
    }
  }
  EXPECT_GT(tried, 1200);
  std::printf("hostile sweep: %d requests over %zu methods\n", tried,
              QRIXDL::CheckedMethods().size());
}

// Each refusal comes before the method runs: nothing it would have written is written.
TEST_F(ReliabilityTest, EveryMethodRefusesCallersWithoutTheRightToIt) {
  ApiClient nobody(*server_);
  ApiClient wrong_token = *alice_;
  wrong_token.token = "0123456789abcdef";
  const Json::Value policy =
      ParseJson(ReadText(QRIX_SOURCE_DIR "/module/haulport_setting.policy.json"));
  std::set<std::string> open;
  for (const Json::Value& api : policy["open_to_every_user"]) {
    open.insert(api.asString());
  }
  int refused = 0;
  for (const QRIXDL::CheckedMethod& method : QRIXDL::CheckedMethods()) {
    SCOPED_TRACE(std::string(method.api) + " " + method.method);
    Fields fields = {{"api", method.api}, {"version", "1"}, {"method", method.method}};
    for (const QRIXDL::ParamRule& rule : method.rules) {
      fields.emplace_back(rule.name, PlainValue(rule));
    }
    const std::string form = FormEncode(fields);
    const auto before = Snapshot();
    const std::string records = TaskRecords();
    struct Attempt {
      const ApiClient& client;
      std::vector<std::string> headers;
      long status;
      int code;
    };
    std::vector<Attempt> attempts = {
        {nobody, {}, 200, 106},
        {wrong_token, {}, 200, 107},
        {*alice_, {"Host: rebound.example"}, 421, 0},
        {*alice_, {"Origin: http://evil.example"}, 403, 0},
    };
    if (!open.count(method.api)) {
      attempts.push_back({*bob_, {}, 200, 105});
    }
    for (const Attempt& attempt : attempts) {
      HttpCall call = attempt.client.Post(form);
      call.headers.insert(call.headers.end(), attempt.headers.begin(), attempt.headers.end());
      const HttpReply reply = attempt.client.Send(call);
      EXPECT_EQ(reply.status, attempt.status) << reply.body;
      if (attempt.code != 0) {
        EXPECT_EQ(ParseJson(reply.body), ErrorEnvelope(attempt.code)) << reply.body;
      }
      ++refused;
    }
    EXPECT_EQ(Snapshot(), before);
    EXPECT_EQ(TaskRecords(), records);
  }
  EXPECT_GE(refused, 4 * 27);
  std::printf("access sweep: %d refused requests\n", refused);
}

// The package's etc directory on a file system with no room left: the "set" fails as a failed
// write does, the old file stays whole with no scrap beside it, and once there is room again the
// next "set" works.
TEST_F(ReliabilityTest, AFullDiskKeepsTheOldSettingsAndTheNextSetWorks) {
  const std::string etc = "/var/packages/Haulport/etc";
  const std::string old = ReadText(kSettingsConf);
  ASSERT_EQ(::mount("tmpfs", etc.c_str(), "tmpfs", 0, "size=64k,mode=0755"), 0)
      << std::strerror(errno);
  const auto unmount = [](const std::string* dir) { ::umount2(dir->c_str(), MNT_DETACH); };
  const std::unique_ptr<const std::string, decltype(unmount)> mounted(&etc, unmount);
  WriteText(kSettingsConf, old);
  {
    UniqueFd filler(::open((etc + "/filler").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
    const std::string block(512, 'f');
    while (::write(filler.Get(), block.data(), block.size()) > 0) {
    }
    ASSERT_EQ(errno, ENOSPC);
  }
  EXPECT_EQ(Call("FtpHttp", "set", {{"ftp_max_conn", "17"}}), ErrorEnvelope(505));
  EXPECT_EQ(ReadText(kSettingsConf), old);
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(etc), {}), 2) << "a scrap was left";

  Remove(etc + "/filler");
  EXPECT_TRUE(Call("FtpHttp", "set", {{"ftp_max_conn", "17"}})["success"].asBool());
  EXPECT_EQ(ReadSettings()["download_ftpmax"], "17");
}

// The ordinary suite runs a sample; scripts/stress sets QRIX_STRESS=1 for the full counts.
int Count(int sample, int full) {
  const char* stress = std::getenv("QRIX_STRESS");
  return stress != nullptr && std::string(stress) == "1" ? full : sample;
}

// The processes whose parent is `parent`: the host's workers and what they started.
std::vector<pid_t> ChildrenOf(pid_t parent) {
  std::vector<pid_t> children;
  for (const auto& entry : std::filesystem::directory_iterator("/proc")) {
    const std::string stat = ReadText(entry.path() / "stat");
    const size_t end = stat.rfind(')');
    int ppid = 0;
    if (end != std::string::npos && std::sscanf(stat.c_str() + end + 2, "%*c %d", &ppid) == 1 &&
        ppid == parent) {
      children.push_back(std::stoi(entry.path().filename()));
    }
  }
  return children;
}

// Workers killed at random moments of a "set" of a random number of keys: the file always
// parses, and each key holds its old or its new value.
TEST_F(ReliabilityTest, AWorkerKilledMidSetLeavesEachKeyOldOrNew) {
  const std::pair<const char*, const char*> params[] = {
      {"max_upload_rate", "download_ul_rate"},
      {"max_download_rate", "download_dl_rate"},
      {"seeding_ratio", "download_seeding_ratio"},
      {"seeding_interval", "download_seeding_interval"},
      {"enable_preview", "download_enable_bt_preview"},
  };
  std::mt19937 random(std::random_device{}());
  std::map<std::string, std::string> now = ReadSettings();
  const int kills = Count(40, 1000);
  int answered = 0;
  for (int round = 1; round <= kills; ++round) {
    Fields fields;
    std::map<std::string, std::string> sent;
    const size_t keys = 1 + random() % std::size(params);
    for (size_t i = 0; i < keys; ++i) {
      const bool flag = params[i].first == std::string("enable_preview");
      fields.emplace_back(params[i].first,
                          flag ? (round % 2 ? "true" : "false") : std::to_string(round));
      sent[params[i].second] = flag ? (round % 2 ? "yes" : "no") : std::to_string(round);
    }
    std::thread killer([&] {
      std::this_thread::sleep_for(std::chrono::microseconds(random() % 15000));
      for (const pid_t worker : ChildrenOf(server_->Pid())) {
        ::kill(worker, SIGKILL);
      }
    });
    answered += alice_->Call("QRIX.Haulport2.Setting.BT", "set", fields).isObject();
    killer.join();
    const ParsedKv after = ParseKvStrict(ReadText(kSettingsConf));
    ASSERT_TRUE(after.ok) << "round " << round << ": " << after.bad_line;
    for (const auto& [key, value] : sent) {
      const auto found = after.values.find(key);
      const std::string got = found == after.values.end() ? "" : found->second;
      ASSERT_TRUE(got == value || got == now[key]) << "round " << round << " " << key << "=" << got;
    }
    now = after.values;
  }
  EXPECT_TRUE(server_->Running());
  std::printf("kill -9 mid-set: %d rounds, %d answered before the kill\n", kills, answered);
}

// Clients setting their own keys at once lose no update: each client's last value is what "get"
// reads at the end.
TEST_F(ReliabilityTest, ConcurrentSetsLoseNoUpdate) {
  const std::pair<std::string, std::vector<std::string>> by_api[] = {
      {"BT", {"max_upload_rate", "max_download_rate", "seeding_ratio", "seeding_interval"}},
      {"FtpHttp", {"ftp_max_conn", "ftp_http_max_download_rate"}},
      {"Nzb", {"max_download_rate", "username"}},
      {"Emule", {"upload_rate", "schedule_download_rate"}},
  };
  const int sets = Count(20, 500);
  std::vector<std::thread> clients;
  std::atomic<int> failed = 0;
  for (const auto& [api, params] : by_api) {
    for (const std::string& param : params) {
      clients.emplace_back([&, api = api, param = param] {
        ApiClient client(*server_);
        if (!client.Login(kAlice)["success"].asBool()) {
          ++failed;
          return;
        }
        for (int i = 1; i <= sets; ++i) {
          const std::string value =
              param == "username" ? "\"u" + std::to_string(i) + "\"" : std::to_string(i);
          failed +=
              !client.Call("QRIX.Haulport2.Setting." + api, "set", {{param, value}})["success"]
                   .asBool();
        }
      });
    }
  }
  for (std::thread& client : clients) {
    client.join();
  }
  EXPECT_EQ(failed, 0);
  for (const auto& [api, params] : by_api) {
    for (const std::string& param : params) {
      const Json::Value want =
          param == "username" ? Json::Value("u" + std::to_string(sets)) : Json::Value(sets);
      EXPECT_EQ(Call(api, "get")["data"][param], want) << api << " " << param;
    }
  }
  std::printf("concurrent sets: %zu clients x %d sets\n", clients.size(), sets);
}

}  // namespace
}  // namespace qrix::test
