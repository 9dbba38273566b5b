// BT search over HTTP: accounts and plug-ins through the demo's working search script, the
// update check against a server on loopback, and hostile values for every parameter.
#include <json/json.h>
#include <sys/stat.h>

#include <filesystem>
#include <memory>
#include <string>

#include "tests/api/host_fixture.h"
#include "tests/support/btsearch_fixture.h"
#include "tests/support/files.h"
#include "tests/support/update_server.h"

namespace qrix::test {
namespace {

constexpr const char* kApi = "QRIX.Haulport2.Setting.BTSearch";
constexpr const char* kAccounts = "/var/packages/Haulport/etc/download/btsearch.conf";
constexpr const char* kUserPlugins = "/var/packages/Haulport/etc/download/userplugins";

std::string JsonText(const Json::Value& value) {
  Json::StreamWriterBuilder builder;
  builder["indentation"] = "";
  return Json::writeString(builder, value);
}

class BtSearchApiTest : public HostTest {
 protected:
  void SetUp() override {
    HostTest::SetUp();
    if (IsSkipped()) {
      return;
    }
    std::filesystem::remove_all("/var/packages/Haulport/etc/download");
    std::filesystem::create_directories(kUserPlugins);
    WriteSettings("btsearch_server=\"" + update_server_.Address() + "\"\n");
    server_ = std::make_unique<HostServer>();
    alice_ = std::make_unique<ApiClient>(*server_);
    ASSERT_TRUE(alice_->Login(kAlice)["success"].asBool());
  }

  Json::Value Call(const std::string& method, const Fields& fields = {}) {
    return alice_->Call(kApi, method, fields);
  }

  // The demo's search script and its built-in plug-ins in place of the test double.
  static void InstallDemoScript() {
    const auto dir = std::filesystem::path(kBtSearchScript).parent_path();
    std::filesystem::create_directories(dir);
    std::filesystem::copy(QRIX_SOURCE_DIR "/demo/target/ui/dlm/btsearch", dir,
                          std::filesystem::copy_options::recursive |
                              std::filesystem::copy_options::overwrite_existing);
  }

  UpdateServer update_server_;
  std::unique_ptr<HostServer> server_;
  std::unique_ptr<ApiClient> alice_;
};

TEST_F(BtSearchApiTest, AccountsAndPluginsThroughTheSearchScript) {
  InstallDemoScript();
  const Json::Value list = Call("list");
  ASSERT_TRUE(list["success"].asBool()) << list;
  ASSERT_EQ(list["data"]["plugins"].size(), 2u);
  EXPECT_EQ(list["data"]["plugins"][1]["name"], "members");
  EXPECT_EQ(list["data"]["plugins"][1]["account"], true);

  const Fields account = {{"plugin_name", "\"members\""}, {"username", "\"demo\""}};
  EXPECT_EQ(Call("set", {account[0], account[1], {"password", "\"demo\""}}),
            ParseJson(R"({"success": true})"));
  EXPECT_EQ(Call("get", {account[0]}),
            ParseJson(R"({"success": true, "data": {"username": "demo"}})"));
  struct stat st {};
  ASSERT_EQ(::stat(kAccounts, &st), 0);
  EXPECT_EQ(st.st_mode & 077, 0u) << "the accounts file holds passwords";
  EXPECT_TRUE(Call("verify", account)["success"].asBool()) << "with the stored password";
  EXPECT_EQ(Call("verify", {account[0], account[1], {"password", "\"wrong\""}}),
            ErrorEnvelope(1404));
  EXPECT_EQ(Call("set", {{"plugin_name", "\"linuxiso\""}, account[1], {"password", "\"x\""}}),
            ErrorEnvelope(1403));

  WriteText(std::string(kUserPlugins) + "/mine.json",
            R"({"name": "mine", "displayname": "Mine", "version": "1", "description": ""})");
  EXPECT_EQ(Call("list")["data"]["plugins"].size(), 3u);
  EXPECT_EQ(Call("delete", {{"plugin_names", R"(["mine", "linuxiso"])"}}), ErrorEnvelope(1402));
  EXPECT_FALSE(std::filesystem::exists(std::string(kUserPlugins) + "/mine.json"));
  EXPECT_EQ(Call("delete", {{"plugin_names", R"(["mine"])"}}), ErrorEnvelope(1401));
  EXPECT_EQ(Call("delete", {{"plugin_names", "[]"}}), ParseJson(R"({"success": true})"));

  // Administrators only.
  ApiClient bob(*server_);
  ASSERT_TRUE(bob.Login(kBob)["success"].asBool());
  EXPECT_EQ(bob.Call(kApi, "list"), ErrorEnvelope(105));
}

// The page adds a plug-in as an uploaded file. The host stores it privately for the call and
// removes it afterwards; a path sent as a plain value is refused, whatever it names, so no
// request can make the module read or delete a file of its choosing.
TEST_F(BtSearchApiTest, PluginsAreAddedOnlyAsUploadedFiles) {
  InstallDemoScript();
  const std::string plugin =
      ReadText(QRIX_SOURCE_DIR "/demo/target/ui/dlm/btsearch/sample-plugin.json");
  const std::string planted = "/tmp/planted.json";
  WriteText(planted, plugin);
  const auto upload = [&](const char* param) {
    const std::string boundary = "b0undary";
    std::string body;
    for (const auto& [name, value] :
         Fields{{"api", kApi}, {"version", "1"}, {"method", "create"}}) {
      body += "--" + boundary + "\r\nContent-Disposition: form-data; name=\"" + name +
              "\"\r\n\r\n" + value + "\r\n";
    }
    body += "--" + boundary + "\r\nContent-Disposition: form-data; name=\"" + param +
            "\"; filename=\"sample-plugin.json\"\r\nContent-Type: application/json\r\n\r\n" +
            plugin + "\r\n--" + boundary + "--\r\n";
    HttpCall call = alice_->Post(body);
    call.headers.push_back("Content-Type: multipart/form-data; boundary=" + boundary);
    return ParseJson(alice_->Send(call).body);
  };
  Json::Value type_error(Json::objectValue);
  type_error["name"] = "btsearch_plugin";
  type_error["reason"] = "type";
  for (const std::string& plain : {JsonText(planted), planted}) {
    EXPECT_EQ(Call("create", {{"btsearch_plugin", plain}}), ErrorEnvelope(120, type_error));
  }
  EXPECT_EQ(ReadText(planted), plugin) << "a plain value must never reach the module";
  type_error["name"] = "plugin_name";
  EXPECT_EQ(upload("plugin_name"), ErrorEnvelope(120, type_error)) << "no upload taken there";

  EXPECT_EQ(upload("btsearch_plugin"), ParseJson(R"({"success": true})"));
  const auto listed = [&](const char* name) {
    const Json::Value list = Call("list");
    int count = 0;
    for (const Json::Value& p : list["data"]["plugins"]) {
      count += p["name"].asString() == name ? 1 : 0;
    }
    return count;
  };

  EXPECT_EQ(listed("publicdomain"), 1);
  EXPECT_TRUE(std::filesystem::is_empty("/run/qrix/webapi/uploads"))
      << "the upload outlived its call";
  EXPECT_EQ(Call("delete", {{"plugin_names", R"(["publicdomain"])"}}),
            ParseJson(R"({"success": true})"));
  EXPECT_EQ(listed("publicdomain"), 0);
}

TEST_F(BtSearchApiTest, UpdateCheckAndUpdateOverHttp) {
  BtSearchFixture script;
  update_server_.Answer(200, R"({"plugins": [{"name": "linuxiso", "version": "1.3"}]})");
  EXPECT_EQ(Call("update_check"), ParseJson(R"({"success": true,
                          "data": {"plugins": [{"name": "linuxiso", "version": "1.3"}]}})"));
  ASSERT_EQ(update_server_.Targets().size(), 1u);
  EXPECT_TRUE(update_server_.Targets()[0].starts_with("/btsearchupdate/check?client_major=3&"));
  update_server_.Answer(200, R"({"success": false})");
  EXPECT_EQ(Call("update_check"), ErrorEnvelope(1405));

  EXPECT_EQ(Call("update", {{"plugin_names", R"(["linuxiso"])"}}),
            ParseJson(R"({"success": true})"));
  script.Answer(4);
  EXPECT_EQ(Call("update", {{"plugin_names", R"(["linuxiso", "members"])"}}), ErrorEnvelope(1403));
  ASSERT_EQ(script.Calls().size(), 2u);
  EXPECT_EQ(script.Calls()[1].argv,
            (std::vector<std::string>{"-u", "linuxiso", "-l",
                                      "http://update.haulport.example/btsearchupdate/plugins/"}));
}

// Every parameter of every method: the wrong type, NUL and a megabyte are refused before the
// script runs; quotes, line breaks, "../" and dashes reach it as one argument, as sent.
TEST_F(BtSearchApiTest, HostileValuesAreRefusedOrPassedAsData) {
  BtSearchFixture script;
  WriteText(kAccounts, "[p]\nusername=\"ann\"\n");
  const std::string settings = ReadText(kSettingsConf);
  const struct {
    const char* method;
    Fields others;      // the method's other parameters, well formed
    const char* param;  // the one under test
    bool array;         // sent inside a one-element array
  } params[] = {
      {"get", {}, "plugin_name", false},
      {"set", {{"username", "\"u\""}, {"password", "\"k\""}}, "plugin_name", false},
      {"set", {{"plugin_name", "\"p\""}, {"password", "\"k\""}}, "username", false},
      {"set", {{"plugin_name", "\"p\""}, {"username", "\"u\""}}, "password", false},
      {"verify", {{"username", "\"u\""}}, "plugin_name", false},
      {"verify", {{"plugin_name", "\"p\""}}, "username", false},
      {"verify", {{"plugin_name", "\"p\""}, {"username", "\"u\""}}, "password", false},
      {"delete", {}, "plugin_names", true},
      {"update", {}, "plugin_names", true},
  };
  const std::string data[] = {
      "a \"quoted\" 'name'", "two\nlines\r",       "../../../etc/passwd", "-p", "--",
      "-dopen_basedir=/",    "$(touch /tmp/pwned)"};
  for (const auto& p : params) {
    SCOPED_TRACE(std::string(p.method) + " " + p.param);
    const auto call = [&](const std::string& value, bool wrap = true) {
      Fields fields = p.others;
      fields.emplace_back(p.param, p.array && wrap ? "[" + value + "]" : value);
      return Call(p.method, fields);
    };
    Json::Value type_error(Json::objectValue);
    type_error["name"] = p.param;
    type_error["reason"] = "type";
    const size_t before = script.Calls().size();
    for (const char* wrong : {"7", "-1", "true", "null", "{\"a\": 1}", "\"a\\u0000b\""}) {
      EXPECT_EQ(call(wrong), ErrorEnvelope(120, type_error)) << wrong;
    }
    EXPECT_EQ(call(p.array ? "\"a\"" : "[\"a\"]", false), ErrorEnvelope(120, type_error));
    EXPECT_EQ(call(JsonText(std::string(1 << 20, 'm'))), ErrorEnvelope(108));
    EXPECT_EQ(script.Calls().size(), before);
    for (const std::string& value : data) {
      const Json::Value answer = call(JsonText(value));
      EXPECT_TRUE(answer["success"].asBool()) << value << answer;
      if (std::string(p.method) == "get") {
        EXPECT_EQ(answer["data"]["username"], "") << value;
        continue;
      }
      const std::vector<std::string> argv = script.Calls().back().argv;
      EXPECT_NE(std::find(argv.begin(), argv.end(), value), argv.end()) << value;
    }
  }
  EXPECT_FALSE(std::filesystem::exists("/tmp/pwned"));
  EXPECT_EQ(ReadText(kSettingsConf), settings);
  EXPECT_EQ(ReadText(kAccounts), "[p]\nusername=\"ann\"\n");
}

}  // namespace
}  // namespace qrix::test
