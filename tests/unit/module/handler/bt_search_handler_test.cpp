// BT search: the exact command of every method, what each exit status answers, the upload's
// fate, the accounts file, and the update check against a server on loopback.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "platform/webapi/api_validator.h"
#include "tests/support/api_call.h"
#include "tests/support/btsearch_fixture.h"
#include "tests/support/files.h"
#include "tests/support/syslog_capture.h"
#include "tests/support/update_server.h"

namespace qrix::test {
namespace {

using Argv = std::vector<std::string>;

constexpr const char* kS = kBtSearchScript;
constexpr const char* kDownloadDir = "/var/packages/Haulport/etc/download";
constexpr const char* kUpload = "/tmp/upload-1";
constexpr const char* kDefaults = "/var/packages/Haulport/target/etc/settings.conf";

Argv Php(Argv tail) {
  Argv argv = {"/usr/bin/php", "-d", "display_errors=Off"};
  argv.insert(argv.end(), tail.begin(), tail.end());
  return argv;
}

Json::Value Parse(const std::string& text) {
  return QRIX::WebAPIUtil::ParseJson(text);
}

std::string Text(const Json::Value& value) {
  Json::StreamWriterBuilder builder;
  builder["indentation"] = "";
  return Json::writeString(builder, value);
}

class BtSearchHandlerTest : public ::testing::Test {
 protected:
  void SetUp() override {
    SyslogCapture::Get().Clear();
    std::filesystem::remove_all(kDownloadDir);
    std::filesystem::create_directories(std::string(kDownloadDir) + "/userplugins");
    WriteText(kUpload, "plugin bytes");
  }

  BtSearchFixture script_;
};

TEST_F(BtSearchHandlerTest, EachMethodRunsExactlyItsCommandWithArgumentsAsData) {
  const std::string verify_basedir =
      "open_basedir=/var/packages/Haulport/target/ui/dlm/btsearch:/var/packages/Haulport/etc/"
      "download/userplugins:/tmp:/var/packages/Haulport/etc/download::/var/packages/Haulport/"
      "target/hostscript/";
  const auto verify = [&](const std::string& name, const std::string& user) {
    return Php({"-d", verify_basedir, "-d", "safe_mode_exec_dir=", kS, "-t", name, "-n", user});
  };
  struct Row {
    const char* method;
    Json::Value params;
    std::vector<Argv> commands;
  };
  std::vector<Row> rows = {
      {"set",
       Parse(R"({"plugin_name": "tpb", "username": "ann", "password": ""})"),
       {Php({kS, "-b", "tpb", "-n", "ann", "-k", ""})}},
      {"verify",
       Parse(R"({"plugin_name": "tpb", "username": "ann", "password": ""})"),
       {verify("tpb", "ann")}},
      {"verify", Parse(R"({"plugin_name": "tpb", "username": "ann"})"), {verify("tpb", "ann")}},
      {"list", Parse("{}"), {Php({kS, "-p"})}},
      {"create",
       Parse(R"({"btsearch_plugin": "/tmp/upload-1"})"),
       {Php({"-d", "safe_mode_exec_dir=", "-d",
             "open_basedir=/tmp:/var/packages/Haulport/target/ui/dlm/btsearch:/var/packages/"
             "Haulport/etc/download/userplugins:/tmp/upload-1",
             kS, "-a", kUpload})}},
      {"delete",
       Parse(R"({"plugin_names": ["a", "b"]})"),
       {Php({kS, "-d", "a"}), Php({kS, "-d", "b"})}},
      {"delete", Parse(R"({"plugin_names": []})"), {}},
      {"update",
       Parse(R"({"plugin_names": ["x", "y"]})"),
       {Php({kS, "-u", "x", "-l", "http://update.haulport.example/btsearchupdate/plugins/"}),
        Php({kS, "-u", "y", "-l", "http://update.haulport.example/btsearchupdate/plugins/"})}},
      {"update", Parse(R"({"plugin_names": []})"), {}},
  };
  // What a shell or php would take for syntax or options of their own reaches the script as
  // one argument each.
  Row hostile_delete{"delete", Parse(R"({"plugin_names": []})"), {}};
  for (const std::string h :
       {"$(touch /tmp/pwned)", "; touch /tmp/pwned", "-n", "--", "-h",
        "-dauto_prepend_file=/tmp/pwned", "../../etc/passwd", "a \"b\" 'c'\nd"}) {
    hostile_delete.params["plugin_names"].append(h);
    hostile_delete.commands.push_back(Php({kS, "-d", h}));
    Json::Value account(Json::objectValue);
    account["plugin_name"] = account["username"] = account["password"] = h;
    rows.push_back({"set", account, {Php({kS, "-b", h, "-n", h, "-k", h})}});
    Argv verify_h = verify(h, h);
    verify_h.insert(verify_h.end(), {"-k", h});
    rows.push_back({"verify", account, {verify_h}});
  }
  rows.push_back(hostile_delete);

  script_.Answer(0, {}, "[]");
  for (const Row& row : rows) {
    SCOPED_TRACE(std::string(row.method) + " " + Text(row.params));
    const size_t before = script_.Calls().size();
    WriteText(kUpload, "plugin bytes");
    EXPECT_TRUE(CallApi("BTSearch", row.method, Text(row.params)).Success());
    const std::vector<ScriptCall> calls = script_.Calls();
    ASSERT_EQ(calls.size() - before, row.commands.size());
    for (size_t c = 0; c < row.commands.size(); ++c) {
      const ScriptCall& call = calls[before + c];
      EXPECT_EQ(call.cmdline, row.commands[c]);
      // The script got everything after its path as its own arguments: php took none.
      const auto script_at = std::find(call.cmdline.begin(), call.cmdline.end(), kS);
      EXPECT_EQ(call.argv, Argv(script_at + 1, call.cmdline.end()));
    }
  }
  EXPECT_FALSE(std::filesystem::exists("/tmp/pwned"));
  EXPECT_EQ(script_.Calls()[4].added, "plugin bytes");
}

TEST_F(BtSearchHandlerTest, ExitStatusesAnswerTheirCodes) {
  struct Row {
    const char* method;
    const char* params;
    int status;
    int code;
    const char* log;  // the line written, or nullptr for none
  } const rows[] = {
      {"set", R"({"plugin_name": "p", "username": "u", "password": "k"})", 1, 1403,
       "handler/bt_search_handler:66 Failed to set account in btsearch.php"},
      {"verify", R"({"plugin_name": "p", "username": "u"})", 1, 1404, nullptr},
      {"list", "{}", 1, 516, nullptr},
      {"create", R"({"btsearch_plugin": "/tmp/upload-1"})", 0, 0, nullptr},
      {"create", R"({"btsearch_plugin": "/tmp/upload-1"})", 2, 1401, nullptr},
      {"create", R"({"btsearch_plugin": "/tmp/upload-1"})", 3, 1402, nullptr},
      {"create", R"({"btsearch_plugin": "/tmp/upload-1"})", 4, 516,
       "handler/bt_search_handler:263 Failed to run search command"},
      {"delete", R"({"plugin_names": ["p"]})", 4, 516,
       "handler/bt_search_handler:298 Failed to run search command"},
      {"update", R"({"plugin_names": ["p"]})", 4, 1403, nullptr},
      {"update", R"({"plugin_names": ["p"]})", 2, 516,
       "handler/bt_search_handler:344 Failed to update bt search plugin in btsearch.php"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(std::string(row.method) + " exits " + std::to_string(row.status));
    SyslogCapture::Get().Clear();
    WriteText(kUpload, "plugin bytes");
    script_.Answer(row.status);
    EXPECT_EQ(CallApi("BTSearch", row.method, row.params).Error(), row.code);
    EXPECT_EQ(SyslogCapture::Get().Count("handler/bt_search_handler:"), row.log ? 1 : 0);
    if (row.log != nullptr) {
      EXPECT_TRUE(SyslogCapture::Get().Contains(row.log));
    }
    // The upload is spent whatever the outcome; nothing else touches it.
    EXPECT_EQ(std::filesystem::exists(kUpload), std::string(row.method) != "create");
  }
}

TEST_F(BtSearchHandlerTest, AFailureStopsTheListAndKeepsWhatWasDone) {
  for (const auto& [method, code] : {std::pair("delete", 1402), std::pair("update", 1403)}) {
    const size_t before = script_.Calls().size();
    script_.Answer(0, {{"b", std::string(method) == "delete" ? 3 : 4}});
    EXPECT_EQ(CallApi("BTSearch", method, R"({"plugin_names": ["a", "b", "c"]})").Error(), code);
    const std::vector<ScriptCall> calls = script_.Calls();
    ASSERT_EQ(calls.size() - before, 2u) << method;
    EXPECT_EQ(calls.back().argv[1], "b");
  }
}

TEST_F(BtSearchHandlerTest, CreateMakesThePluginFolderAndKeepsTheUploadWhenItCannot) {
  std::filesystem::remove_all(kDownloadDir);
  EXPECT_EQ(CallApi("BTSearch", "create", R"({"btsearch_plugin": ""})").Error(), 501);
  EXPECT_TRUE(std::filesystem::is_directory(std::string(kDownloadDir) + "/userplugins"));
  EXPECT_TRUE(script_.Calls().empty());

  std::filesystem::remove_all(kDownloadDir);
  WriteText(kDownloadDir, "a file where the folder should be");
  EXPECT_EQ(CallApi("BTSearch", "create", R"({"btsearch_plugin": "/tmp/upload-1"})").Error(), 1400);
  EXPECT_TRUE(
      SyslogCapture::Get().Contains("handler/bt_search_handler:231 Failed to mkdir "
                                    "/var/packages/Haulport/etc/download/userplugins"));
  EXPECT_EQ(ReadText(kUpload), "plugin bytes");
  EXPECT_TRUE(script_.Calls().empty());
  Remove(kDownloadDir);
}

TEST_F(BtSearchHandlerTest, GetAnswersTheStoredUserNameOnly) {
  const std::string conf = std::string(kDownloadDir) + "/btsearch.conf";
  // The section's first "username" counts; lines before any header belong to no plug-in. Values
  // are read as sh reads double-quoted text, as every key/value file of the package is.
  WriteText(conf,
            "username=\"top\"\n[tpb]\r\nusername = \"ann \\\"x\\\"\"\npassword=\"secret\"\n"
            "username=\"later\"\n[other]\nusername=\"bob\"\n[ empty ]\n");
  const struct {
    const char* name;
    const char* want;
  } rows[] = {{"tpb", R"({"username": "ann \"x\""})"}, {"empty", R"({"username": ""})"},
              {"missing", R"({"username": ""})"},      {"", R"({"username": ""})"},
              {"../tpb", R"({"username": ""})"},       {"tpb]\n[x", R"({"username": ""})"}};
  for (const auto& row : rows) {
    Json::Value params;
    params["plugin_name"] = row.name;
    const ApiResult result = CallApi("BTSearch", "get", Text(params));
    ASSERT_TRUE(result.Success()) << row.name;
    EXPECT_EQ(result.Data(), Parse(row.want)) << row.name;
  }
  Remove(conf);
  EXPECT_EQ(CallApi("BTSearch", "get", R"({"plugin_name": "tpb"})").Data(),
            Parse(R"({"username": ""})"));
  std::filesystem::create_directory(conf);
  EXPECT_EQ(CallApi("BTSearch", "get", R"({"plugin_name": "tpb"})").Error(), 509);
  EXPECT_TRUE(
      SyslogCapture::Get().Contains("handler/bt_search_handler:38 Failed to VLIBCFileGetSection"));
}

TEST_F(BtSearchHandlerTest, ListAnswersTheScriptsJson) {
  const struct {
    const char* output;
    int code;
    const char* plugins;
  } rows[] = {
      {"/* built in */ [{\"name\": \"tpb\"}] // end", 0, R"([{"name": "tpb"}])"},
      {"{\"a\": 1}", 0, R"({"a": 1})"},
      {"[1] trailing", 502, nullptr},
  };
  for (const auto& row : rows) {
    script_.Answer(0, {}, row.output);
    const ApiResult result = CallApi("BTSearch", "list", "{}");
    EXPECT_EQ(result.Error(), row.code) << row.output;
    EXPECT_EQ(result.Data()["plugins"], row.plugins ? Parse(row.plugins) : Json::Value());
  }
}

// ---- update check ----

class UpdateCheckTest : public BtSearchHandlerTest {
 protected:
  void SetUp() override {
    BtSearchHandlerTest::SetUp();
    WriteText("/etc.defaults/VERSION",
              "majorversion=\"7\"\nminorversion=\"2\"\nbuildnumber=\"64570 rc&x=1/\xC3\xA9\"\n");
    WriteText("/var/packages/Haulport/target/etc/VERSION",
              "majorversion=\"3\"\nminorversion=\"1\"\nbuildnumber=\"2210\"\n");
    WriteSettings("btsearch_server=\"" + server_.Address() + "\"\n");
  }

  UpdateServer server_;
};

TEST_F(UpdateCheckTest, TheServerComesFromTheDefaultsOnceThenFromSettings) {
  WriteSettings("download_other=\"kept\"\n");
  WriteText(kDefaults, "btsearch_server=\"" + server_.Address() + "\"\n");
  ASSERT_TRUE(CallApi("BTSearch", "update_check", "{}").Success());
  EXPECT_EQ(ReadText(kSettingsConf),
            "download_other=\"kept\"\nbtsearch_server=\"" + server_.Address() + "\"\n");
  WriteText(kDefaults, "btsearch_server=\"127.0.0.1:1\"\n");
  ASSERT_TRUE(CallApi("BTSearch", "update_check", "{}").Success());
  EXPECT_EQ(server_.Targets(),
            std::vector<std::string>(2,
                                     "/btsearchupdate/check?client_major=3&client_minor=1"
                                     "&client_build=2210&major=7&minor=2"
                                     "&build=64570%20rc%26x%3D1%2F%C3%A9"));

  WriteSettings("");
  Remove(kDefaults);
  EXPECT_EQ(CallApi("BTSearch", "update_check", "{}").Error(), 504);
  EXPECT_TRUE(SyslogCapture::Get().Contains(
      "handler/bt_search_handler:162 Failed to get btsearch_server from "
      "/var/packages/Haulport/target/etc/settings.conf."));
}

TEST_F(UpdateCheckTest, AnswersPassThroughUnlessTheyReportAFailure) {
  const struct {
    int status;
    const char* body;
    int code;
  } rows[] = {
      {200, R"([{"name": "tpb", "version": "2"}])", 0},
      {200, R"({"plugins": []} /* note */)", 0},
      {200, R"({"success": true, "plugins": []})", 0},
      {200, R"({"success": "no"})", 0},
      {200, R"({"success": false, "plugins": []})", 1405},
      {200, "<html>", 502},
      {500, "{}", 512},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.body);
    server_.Answer(row.status, row.body);
    const ApiResult result = CallApi("BTSearch", "update_check", "{}");
    EXPECT_EQ(result.Error(), row.code);
    EXPECT_EQ(result.Data(), row.code == 0 ? Parse(row.body) : Json::Value());
  }
  EXPECT_TRUE(SyslogCapture::Get().Contains("handler/bt_search_handler:177 "));
}

TEST_F(UpdateCheckTest, MissingVersionsAnswerTheirCodes) {
  const struct {
    const char* system;   // /etc.defaults/VERSION
    const char* package;  // the package's VERSION
    int code;
    const char* log;
  } rows[] = {
      {"minorversion=\"2\"\nbuildnumber=\"1\"\n", nullptr, 504, ":139 Failed to get major number"},
      {"majorversion=\"7\"\nbuildnumber=\"1\"\n", nullptr, 504, ":146 Failed to get minor number"},
      {"majorversion=\"7\"\nminorversion=\"2\"\n", nullptr, 504, ":153 Failed to get build number"},
      {nullptr, "majorversion=\"3\"\nminorversion=\"1\"\n", 1406,
       ":126 Failed to get haulport info"},
      {nullptr, "majorversion=\"x\"\nminorversion=\"1\"\nbuildnumber=\"2\"\n", 1406,
       ":126 Failed to get haulport info"},
  };
  for (const auto& row : rows) {
    SetUp();
    if (row.system)
      WriteText("/etc.defaults/VERSION", row.system);
    if (row.package)
      WriteText("/var/packages/Haulport/target/etc/VERSION", row.package);
    EXPECT_EQ(CallApi("BTSearch", "update_check", "{}").Error(), row.code);
    EXPECT_TRUE(SyslogCapture::Get().Contains(std::string("handler/bt_search_handler") + row.log));
  }
  EXPECT_TRUE(server_.Targets().empty());
}

}  // namespace
}  // namespace qrix::test
