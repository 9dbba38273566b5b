// BT search over HTTP: plug-ins arrive only as uploaded files, and updates are checked with a
// server on loopback. The methods' commands and codes are the handler test's; the page's test
// drives the demo's search script end to end.
#include <algorithm>
#include <filesystem>
#include <string>

#include "tests/api/host_fixture.h"
#include "tests/support/btsearch_fixture.h"
#include "tests/support/files.h"
#include "tests/support/update_server.h"

namespace qrix::test {
namespace {

constexpr const char* kApi = "QRIX.Haulport2.Setting.BTSearch";

// The page adds a plug-in as an uploaded file. The host stores it privately for the call and
// removes it afterwards; a path sent as a plain value is refused, whatever it names, so no
// request can make the module read or delete a file of its choosing.
TEST_F(HostTest, PluginsAreAddedOnlyAsUploadedFiles) {
  // The demo's search script and its built-in plug-ins in place of the test double.
  std::filesystem::remove_all("/var/packages/Haulport/etc/download");
  std::filesystem::create_directories("/var/packages/Haulport/etc/download/userplugins");
  const auto dir = std::filesystem::path(kBtSearchScript).parent_path();
  std::filesystem::create_directories(dir);
  std::filesystem::copy(
      QRIX_SOURCE_DIR "/demo/target/ui/dlm/btsearch", dir,
      std::filesystem::copy_options::recursive | std::filesystem::copy_options::overwrite_existing);
  Start();
  ApiClient& alice = *alice_;
  const auto api = [&](const char* method, const Fields& fields = {}) {
    return alice.Call(kApi, method, fields);
  };
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
    HttpCall call = alice.Post(body);
    call.headers.push_back("Content-Type: multipart/form-data; boundary=" + boundary);
    return ParseJson(alice.Send(call).body);
  };
  Json::Value type_error(Json::objectValue);
  type_error["name"] = "btsearch_plugin";
  type_error["reason"] = "type";
  for (const std::string& plain : {"\"" + planted + "\"", planted}) {
    EXPECT_EQ(api("create", {{"btsearch_plugin", plain}}), ErrorEnvelope(120, type_error));
  }
  EXPECT_EQ(ReadText(planted), plugin) << "a plain value must never reach the module";
  type_error["name"] = "plugin_name";
  EXPECT_EQ(upload("plugin_name"), ErrorEnvelope(120, type_error)) << "no upload taken there";

  EXPECT_EQ(upload("btsearch_plugin"), ParseJson(R"({"success": true})"));
  const auto listed = [&](const char* name) {
    const Json::Value list = api("list")["data"]["plugins"];
    return std::count_if(list.begin(), list.end(),
                         [&](const Json::Value& p) { return p["name"] == name; });
  };

  EXPECT_EQ(listed("publicdomain"), 1);
  EXPECT_TRUE(std::filesystem::is_empty("/run/qrix/webapi/uploads"))
      << "the upload outlived its call";
  EXPECT_EQ(api("delete", {{"plugin_names", R"(["publicdomain"])"}}),
            ParseJson(R"({"success": true})"));
  EXPECT_EQ(listed("publicdomain"), 0);
}

// The update check asks a server on loopback (started and stopped by the test) from the worker
// and passes its answer through; its query, its failures and "update" are the handler test's.
TEST_F(HostTest, PluginUpdatesAreCheckedWithTheUpdateServer) {
  UpdateServer update_server;
  WriteSettings("btsearch_server=\"" + update_server.Address() + "\"\n");
  Start();
  update_server.Answer(200, R"({"plugins": [{"name": "linuxiso", "version": "1.3"}]})");
  EXPECT_EQ(alice_->Call(kApi, "update_check", {}), ParseJson(R"({"success": true,
                          "data": {"plugins": [{"name": "linuxiso", "version": "1.3"}]}})"));
}

}  // namespace
}  // namespace qrix::test
