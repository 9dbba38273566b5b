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
  int port = 5080;              // 0 picks a free port; the chosen one is printed
  int workers = 4;              // workers kept serving; one that leaves is replaced at once
  int max_requests = 10000;     // requests a worker serves before making way for a fresh one
  int max_worker_memory = 256;  // MiB of resident memory past which a worker makes way
  std::string ui_dir;
  std::string session_dir = "/run/qrix/webapi/sessions";
  int idle_timeout = 900;        // seconds a session lives unused
  int session_lifetime = 86400;  // seconds a session lives at most, however used
  int request_timeout = 60;      // seconds from accepting a connection to the end of the callbacks
  int read_timeout = 10;         // seconds to receive one whole request
  int head_timeout = 5;          // seconds to receive its request line and headers
  int max_reading = 1024;        // connections whose request is still being read, in all
  int max_reading_per_address = 32;
  std::vector<std::string> host_names;  // extra names the Host header may carry
  // Requests from loopback may say through X-Forwarded-Proto and X-Forwarded-For which scheme
  // and client they came from (a TLS front such as nginx on the same machine).
  bool behind_proxy = false;
  int login_max_failures = 5;  // per account and client address
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
