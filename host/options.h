// The command line of qrix-webapi.
#ifndef QRIX_HOST_OPTIONS_H_
#define QRIX_HOST_OPTIONS_H_

#include <optional>
#include <span>
#include <string>
#include <vector>

namespace qrix::host {

struct HostOptions {
  std::vector<std::string> modules;  // --module, repeatable
  std::string listen = "127.0.0.1";
  int port = 5080;  // 0 picks a free port; the chosen one is printed
  int workers = 4;  // workers kept waiting for a connection
  std::string ui_dir;
  std::string session_dir = "/run/qrix/webapi/sessions";
  int idle_timeout = 900;    // seconds a session lives unused
  int request_timeout = 60;  // seconds from accepting a connection to the end of the callbacks
  int read_timeout = 10;     // seconds to receive one whole request
  std::vector<std::string> host_names;  // extra names the Host header may carry
  int login_max_failures = 5;           // per account
  int login_max_failures_per_address = 20;
  int login_lockout = 300;  // seconds
};

enum class ParseStatus { kRun, kHelp, kBad };

// Reads `args` (without the program name). kBad comes with a one-line reason in `error`.
ParseStatus ParseOptions(std::span<const char* const> args, HostOptions* options,
                         std::string* error);
std::string Usage();

}  // namespace qrix::host

#endif  // QRIX_HOST_OPTIONS_H_
