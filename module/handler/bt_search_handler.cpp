#include "module/handler/bt_search_handler.h"

#include <sys/stat.h>
#include <unistd.h>

#include <span>
#include <string>

#include "module/common/json_text.h"
#include "module/common/module_log.h"
#include "platform/system/web_utils.h"
#include "platform/vlibc/vlibc_szhash.h"

namespace {

constexpr const char* kSource = "handler/bt_search_handler";
constexpr const char* kPhp = "/usr/bin/php";
constexpr const char* kPluginUpdateUrl =
    "http://" QRIXDL_BTSEARCH_UPDATE_HOST "/btsearchupdate/plugins/";

// Exit statuses of the script that have codes of their own; any other failure is 516.
struct ScriptStatus {
  int status;
  int error;
};
constexpr ScriptStatus kAddOrDeleteStatus[] = {{2, 1401}, {3, 1402}};
constexpr ScriptStatus kUpdateStatus[] = {{4, 1403}};

// Runs `runner` and records the error its exit status stands for. True when it succeeded.
bool RunScript(QRIXUtils::ProcessRunner& runner, std::span<const ScriptStatus> statuses,
               int log_line, const char* log_message) {
  const int status = runner.run(true, false);
  if (status == 0) {
    return true;
  }
  for (const ScriptStatus& s : statuses) {
    if (s.status == status) {
      QRIXDLErrSet(s.error);
      return false;
    }
  }
  QRIXDL_LOG_ERR_AT(kSource, log_line, "%s", log_message);
  QRIXDLErrSet(516);
  return false;
}

std::string StringParam(const QRIX::APIRequest& request, const char* name) {
  return request.GetParam(name, "").asString();
}

// Makes the folder of added plug-ins when it is not there yet.
bool EnsureUserPluginDir() {
  struct stat st {};
  if (::stat(QRIXDL_BTSEARCH_USER_PLUGIN_DIR, &st) == 0 && S_ISDIR(st.st_mode)) {
    return true;
  }
  QRIXUtils::ProcessRunner mkdir("/bin/mkdir", "/bin/mkdir");
  mkdir.addArguments("-p", QRIXDL_BTSEARCH_USER_PLUGIN_DIR);
  if (mkdir.run(true, false) != 0) {
    QRIXDL_LOG_ERR_AT(kSource, 231, "Failed to mkdir " QRIXDL_BTSEARCH_USER_PLUGIN_DIR);
    QRIXDLErrSet(1400);
    return false;
  }
  return true;
}

}  // namespace

BTSearchHandler::BTSearchHandler(QRIX::APIRequest* request, QRIX::APIResponse* response)
    : HandlerBase(request, response), m_runner(kPhp, kPhp) {
  m_runner.addArguments("-d", "display_errors=Off");
}

void BTSearchHandler::AddOpenBasedir(QRIXUtils::ProcessRunner& runner, const std::string& extra) {
  runner.addArguments("-d", "open_basedir=" + WebUtils::GetDirName(QRIXDL_BTSEARCH_SCRIPT) +
                                ":" QRIXDL_BTSEARCH_USER_PLUGIN_DIR ":/tmp" +
                                ":/var/packages/Haulport/etc/download:" + extra +
                                ":/var/packages/Haulport/target/hostscript/");
}

void BTSearchHandler::GetAccount() {
  const std::string name = StringParam(*m_request, "plugin_name");
  const qrix::SzHashPtr hash(VLIBCSzHashAlloc(1024));
  if (!hash) {
    QRIXDL_LOG_ERR_AT(kSource, 31, "Failed to alloc pHash");
    QRIXDLErrSet(508);
  } else {
    PVLIBCSZHASH section = hash.get();
    const int found = VLIBCFileGetSection(QRIXDL_BTSEARCH_ACCOUNT_CONF, name.c_str(), &section);
    if (found < 0) {
      QRIXDL_LOG_ERR_AT(kSource, 38, "Failed to VLIBCFileGetSection");
      QRIXDLErrSet(509);
    } else {
      const char* username = found > 0 ? VLIBCSzHashGetValue(section, "username") : nullptr;
      Json::Value out(Json::objectValue);
      out["username"] = username != nullptr ? username : "";
      m_response->SetSuccess(out);
    }
  }
  ReportError();
}

void BTSearchHandler::SetAccount() {
  QRIXUtils::ProcessRunner runner = m_runner;
  runner.addArguments(QRIXDL_BTSEARCH_SCRIPT, "-b", StringParam(*m_request, "plugin_name"), "-n",
                      StringParam(*m_request, "username"), "-k",
                      StringParam(*m_request, "password"));
  if (runner.run(true, false) == 0) {
    m_response->SetSuccess(Json::Value());
  } else {
    QRIXDL_LOG_ERR_AT(kSource, 66, "Failed to set account in btsearch.php");
    QRIXDLErrSet(1403);
  }
  ReportError();
}

void BTSearchHandler::VerifyAccount() {
  const std::string password = StringParam(*m_request, "password");
  QRIXUtils::ProcessRunner runner = m_runner;
  AddOpenBasedir(runner, "");
  runner.addArguments("-d", "safe_mode_exec_dir=", QRIXDL_BTSEARCH_SCRIPT, "-t",
                      StringParam(*m_request, "plugin_name"), "-n",
                      StringParam(*m_request, "username"));
  if (!password.empty()) {
    runner.addArguments("-k", password);
  }
  if (runner.run(true, true) == 0) {
    m_response->SetSuccess(Json::Value());
  } else {
    QRIXDLErrSet(1404);
  }
  ReportError();
}

void BTSearchHandler::List() {
  QRIXUtils::ProcessRunner runner = m_runner;
  runner.addArguments(QRIXDL_BTSEARCH_SCRIPT, "-p");
  Json::Value plugins;
  std::string errors;
  if (runner.run(true, true) != 0) {
    QRIXDLErrSet(516);
  } else if (!QRIXDL::ParseJsonText(runner.getCapturedOutput(), &plugins, &errors)) {
    QRIXDLErrSet(502);
  } else {
    Json::Value out(Json::objectValue);
    out["plugins"] = plugins;
    m_response->SetSuccess(out);
  }
  ReportError();
}

void BTSearchHandler::Create() {
  std::string upload;
  if (EnsureUserPluginDir()) {
    upload = StringParam(*m_request, "btsearch_plugin");
    if (upload.empty()) {
      QRIXDLErrSet(501);
    } else {
      QRIXUtils::ProcessRunner runner = m_runner;
      runner.addArguments("-d", "safe_mode_exec_dir=", "-d",
                          "open_basedir=/tmp:" + WebUtils::GetDirName(QRIXDL_BTSEARCH_SCRIPT) +
                              ":" QRIXDL_BTSEARCH_USER_PLUGIN_DIR ":" + upload,
                          QRIXDL_BTSEARCH_SCRIPT, "-a", upload);
      if (RunScript(runner, kAddOrDeleteStatus, 263, "Failed to run search command")) {
        m_response->SetSuccess(Json::Value());
      }
    }
  }
  // The upload is spent whatever the script made of it.
  if (!upload.empty()) {
    ::unlink(upload.c_str());
  }
  ReportError();
}

void BTSearchHandler::Delete() {
  const Json::Value names =
      m_request->GetAndCheckUnitArray("plugin_names", QRIX::APIRequest::PARAM_REQUIRED).Get();
  bool ok = true;
  for (const Json::Value& name : names) {
    QRIXUtils::ProcessRunner runner = m_runner;
    runner.addArguments(QRIXDL_BTSEARCH_SCRIPT, "-d", name.asString());
    ok = RunScript(runner, kAddOrDeleteStatus, 298, "Failed to run search command");
    if (!ok) {
      break;
    }
  }
  if (ok) {
    m_response->SetSuccess(Json::Value());
  }
  ReportError();
}

bool BTSearchHandler::UpdatePluginPHP(const char* name, const char* url) {
  QRIXUtils::ProcessRunner runner = m_runner;
  runner.addArguments(QRIXDL_BTSEARCH_SCRIPT, "-u", name, "-l", url);
  return RunScript(runner, kUpdateStatus, 344, "Failed to update bt search plugin in btsearch.php");
}

void BTSearchHandler::UpdatePlugins() {
  const Json::Value names =
      m_request->GetAndCheckUnitArray("plugin_names", QRIX::APIRequest::PARAM_REQUIRED).Get();
  bool ok = true;
  for (const Json::Value& name : names) {
    ok = UpdatePluginPHP(name.asString().c_str(), kPluginUpdateUrl);
    if (!ok) {
      break;
    }
  }
  if (ok) {
    m_response->SetSuccess(Json::Value());
  }
  ReportError();
}
