// QRIX.Haulport2.Setting.BTSearch: the accounts of BitTorrent search plug-ins and the plug-ins
// themselves. Everything but the update check runs the package's search script through PHP,
// each argument one argv element, so names and paths from a request stay data.
#ifndef HAULPORT_MODULE_HANDLER_BT_SEARCH_HANDLER_H_
#define HAULPORT_MODULE_HANDLER_BT_SEARCH_HANDLER_H_

#include <string>

#include "platform/dlbase/handler_base.h"
#include "platform/vlibc/process_runner.h"

#define QRIXDL_BTSEARCH_SCRIPT "/var/packages/Haulport/target/ui/dlm/btsearch/btsearch.php"
#define QRIXDL_BTSEARCH_USER_PLUGIN_DIR "/var/packages/Haulport/etc/download/userplugins"
// Written by the script: one section per plug-in with its "username" (and password).
#define QRIXDL_BTSEARCH_ACCOUNT_CONF "/var/packages/Haulport/etc/download/btsearch.conf"
// The package's defaults, where "btsearch_server" comes from until settings.conf has it.
#define QRIXDL_DEFAULT_SETTINGS_CONF "/var/packages/Haulport/target/etc/settings.conf"
// Where plug-in updates are fetched from: http://<this host>/btsearchupdate/plugins/. A
// deployment replaces it with its own update server.
#define QRIXDL_BTSEARCH_UPDATE_HOST "update.haulport.example"

class BTSearchHandler : public QRIXDL::HandlerBase {
 public:
  BTSearchHandler(QRIX::APIRequest* request, QRIX::APIResponse* response);

  void GetAccount();
  void SetAccount();
  void VerifyAccount();
  void List();
  void Create();
  void Delete();
  void UpdateCheck();
  void UpdatePlugins();

  // Appends "-d" and the open_basedir value that confines the script to its own folders.
  static void AddOpenBasedir(QRIXUtils::ProcessRunner& runner, const std::string& extra);
  bool UpdatePluginPHP(const char* name, const char* url);

 private:
  // /usr/bin/php -d display_errors=Off: every command starts from a copy of it.
  QRIXUtils::ProcessRunner m_runner;
};

#endif  // HAULPORT_MODULE_HANDLER_BT_SEARCH_HANDLER_H_
