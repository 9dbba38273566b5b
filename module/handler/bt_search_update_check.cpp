// The plug-in update check of BTSearchHandler: the package's and the system's versions go to
// the update server, whose JSON answer becomes the payload.
#include <curl/curl.h>

#include "module/handler/bt_search_handler.h"

#include <cstdio>
#include <memory>
#include <string>

#include "module/common/json_text.h"
#include "module/common/module_log.h"
#include "module/dlcommon/download_info.h"
#include "platform/dlbase/pkg_version.h"
#include "platform/dlbase/update_check.h"
#include "platform/vlibc/vlibc_file.h"

namespace {

constexpr const char* kSource = "handler/bt_search_handler";
constexpr const char* kSystemVersion = "/etc.defaults/VERSION";
constexpr int kValueSize = 256;

struct CurlFree {
  void operator()(CURL* curl) const { curl_easy_cleanup(curl); }
  void operator()(char* text) const { curl_free(text); }
};

// The query of an update check: the package's version, then the system's, URL-escaped.
bool BuildUpdateQuery(CURL* curl, std::string* query) {
  int major = 0;
  int minor = 0;
  int build = 0;
  if (!GetDLPkgVersion(&major, &minor) || !GetDLPkgBuildNum(&build)) {
    QRIXDL_LOG_ERR_AT(kSource, 126, "Failed to get haulport info");
    QRIXDLErrSet(1406);
    return false;
  }
  char client[kValueSize];
  std::snprintf(client, sizeof client, "&client_major=%d&client_minor=%d&client_build=%d", major,
                minor, build);
  *query = client;
  const struct {
    const char* key;
    const char* param;
    const char* missing;
    int line;
  } system_version[] = {
      {"majorversion", "&major=", "Failed to get major number", 139},
      {"minorversion", "&minor=", "Failed to get minor number", 146},
      {"buildnumber", "&build=", "Failed to get build number", 153},
  };
  for (const auto& v : system_version) {
    char value[kValueSize];
    if (VLIBCFileGetKeyValue(kSystemVersion, v.key, value, kValueSize, 0) <= 0) {
      QRIXDL_LOG_ERR_AT(kSource, v.line, "%s", v.missing);
      QRIXDLErrSet(504);
      return false;
    }
    const std::unique_ptr<char, CurlFree> escaped(curl_easy_escape(curl, value, 0));
    if (!escaped) {
      QRIXDLErrSet(511);
      return false;
    }
    query->append(v.param).append(escaped.get());
  }
  return true;
}

// "btsearch_server" of settings.conf; copied there from the package's defaults the first time.
bool ReadUpdateServer(std::string* server) {
  char value[kValueSize];
  if (VLIBCFileGetKeyValue(QRIXDL_SETTINGS_CONF, "btsearch_server", value, kValueSize, 0) > 0) {
    *server = value;
    return true;
  }
  if (VLIBCFileGetKeyValue(QRIXDL_DEFAULT_SETTINGS_CONF, "btsearch_server", value, kValueSize, 0) <=
      0) {
    QRIXDL_LOG_ERR_AT(kSource, 162, "Failed to get btsearch_server from %s.",
                      QRIXDL_DEFAULT_SETTINGS_CONF);
    QRIXDLErrSet(504);
    return false;
  }
  if (VLIBCFileSetKeyValue(QRIXDL_SETTINGS_CONF, "btsearch_server", value, "%s=\"%s\"\n") != 0) {
    QRIXDL_LOG_ERR_AT(kSource, 167, "Failed to write default btsearch_server to %s.",
                      QRIXDL_SETTINGS_CONF);
  }
  *server = value;
  return true;
}

}  // namespace

void BTSearchHandler::UpdateCheck() {
  const std::unique_ptr<CURL, CurlFree> curl(curl_easy_init());
  std::string query;
  std::string server;
  std::string response;
  Json::Value answer;
  std::string errors;
  if (!curl) {
    QRIXDL_LOG_ERR_AT(kSource, 119, "Failed to init curl.");
    QRIXDLErrSet(511);
  } else if (!BuildUpdateQuery(curl.get(), &query) || !ReadUpdateServer(&server)) {
    // recorded already
  } else if (!SendUpdateCheckRequest(server.c_str(), response, query.c_str())) {
    QRIXDLErrSet(512);
  } else if (!QRIXDL::ParseJsonText(response, &answer, &errors)) {
    QRIXDL_LOG_ERR_AT(kSource, 177, "%s", errors.c_str());
    QRIXDLErrSet(502);
  } else if (answer.isObject() && answer.isMember("success") &&
             answer["success"].isConvertibleTo(Json::booleanValue) && !answer["success"].asBool()) {
    QRIXDLErrSet(1405);
  } else {
    m_response->SetSuccess(answer);
  }
  ReportError();
}
