#include "host/options.h"

#include <algorithm>
#include <charconv>
#include <string_view>
#include <variant>

namespace qrix::host {
namespace {

using Member = std::variant<std::string HostOptions::*, int HostOptions::*,
                            std::vector<std::string> HostOptions::*, bool HostOptions::*>;

struct OptionRow {
  std::string_view name;
  const char* value_name;  // null for a switch, which takes no value
  Member member;
  int min = 0;
  int max = 0;
  const char* help;
};

constexpr int kMaxSeconds = 7 * 24 * 3600;

const OptionRow kOptions[] = {
    {"module", "PATH", &HostOptions::modules, 0, 0, "module library to serve (repeatable)"},
    {"listen", "ADDRESS", &HostOptions::listen, 0, 0, "IPv4 or IPv6 address to listen on"},
    {"port", "N", &HostOptions::port, 0, 65535, "TCP port; 0 picks a free one"},
    {"workers", "N", &HostOptions::workers, 1, 256,
     "workers kept serving (one that leaves is replaced at once)"},
    {"max-requests", "N", &HostOptions::max_requests, 1, 100000000,
     "requests a worker serves before a fresh one takes its place"},
    {"max-worker-memory", "MIB", &HostOptions::max_worker_memory, 1, 65536,
     "resident memory past which a worker makes way for a fresh one"},
    {"ui", "DIR", &HostOptions::ui_dir, 0, 0, "static files served at /"},
    {"session-dir", "DIR", &HostOptions::session_dir, 0, 0, "one file per login session"},
    {"idle-timeout", "SECONDS", &HostOptions::idle_timeout, 1, kMaxSeconds,
     "a session unused this long ends"},
    {"session-lifetime", "SECONDS", &HostOptions::session_lifetime, 1, kMaxSeconds,
     "a session ends this long after its login, however much it is used"},
    {"request-timeout", "SECONDS", &HostOptions::request_timeout, 1, 3600,
     "time limit of one request, post-response callbacks included"},
    {"read-timeout", "SECONDS", &HostOptions::read_timeout, 1, 600,
     "time limit to receive one request"},
    {"head-timeout", "SECONDS", &HostOptions::head_timeout, 1, 600,
     "time limit to receive a request's line and headers"},
    {"max-reading", "N", &HostOptions::max_reading, 1, 1000000,
     "connections still sending their request, at most (the oldest makes way)"},
    {"max-reading-per-address", "N", &HostOptions::max_reading_per_address, 1, 1000000,
     "the same from one client address"},
    {"host-name", "NAME", &HostOptions::host_names, 0, 0,
     "another name the Host header may carry (repeatable)"},
    {"behind-proxy", nullptr, &HostOptions::behind_proxy, 0, 0,
     "trust X-Forwarded-Proto and X-Forwarded-For from loopback (a TLS front)"},
    {"login-max-failures", "N", &HostOptions::login_max_failures, 1, 1000,
     "failed logins of one account from one address before that pair is locked out"},
    {"login-max-failures-per-address", "N", &HostOptions::login_max_failures_per_address, 1, 100000,
     "failed logins from one address before it is locked out"},
    {"login-lockout", "SECONDS", &HostOptions::login_lockout, 1, kMaxSeconds,
     "how long a lockout lasts and how far back failures count"},
};

const OptionRow* FindOption(std::string_view name) {
  for (const OptionRow& row : kOptions) {
    if (row.name == name) {
      return &row;
    }
  }
  return nullptr;
}

// Stores `value` into the member named by `row`; false with a reason when it does not fit.
bool Store(const OptionRow& row, std::string_view value, HostOptions* options, std::string* error) {
  const std::string flag = "--" + std::string(row.name);
  if (auto* text = std::get_if<std::string HostOptions::*>(&row.member)) {
    if (value.empty()) {
      *error = flag + ": empty value";
      return false;
    }
    options->** text = value;
    return true;
  }
  if (auto* list = std::get_if<std::vector<std::string> HostOptions::*>(&row.member)) {
    if (value.empty()) {
      *error = flag + ": empty value";
      return false;
    }
    (options->**list).emplace_back(value);
    return true;
  }
  int number = 0;
  const auto [end, ec] = std::from_chars(value.data(), value.data() + value.size(), number);
  if (ec != std::errc() || end != value.data() + value.size() || number < row.min ||
      number > row.max) {
    *error = flag + ": expected a whole number from " + std::to_string(row.min) + " to " +
             std::to_string(row.max) + ", got \"" + std::string(value) + "\"";
    return false;
  }
  options->*std::get<int HostOptions::*>(row.member) = number;
  return true;
}

}  // namespace

ParseStatus ParseOptions(std::span<const char* const> args, HostOptions* options,
                         std::string* error) {
  for (size_t i = 0; i < args.size(); ++i) {
    std::string_view arg = args[i];
    if (arg == "--help" || arg == "-h") {
      return ParseStatus::kHelp;
    }
    if (arg.substr(0, 2) != "--") {
      *error = "unexpected argument \"" + std::string(arg) + "\"";
      return ParseStatus::kBad;
    }
    arg.remove_prefix(2);
    std::string_view value;
    bool inline_value = false;
    if (const size_t eq = arg.find('='); eq != std::string_view::npos) {
      value = arg.substr(eq + 1);
      arg = arg.substr(0, eq);
      inline_value = true;
    }
    const OptionRow* row = FindOption(arg);
    if (row == nullptr) {
      *error = "unknown option --" + std::string(arg);
      return ParseStatus::kBad;
    }
    if (auto* flag = std::get_if<bool HostOptions::*>(&row->member)) {
      if (inline_value) {
        *error = "--" + std::string(arg) + " takes no value";
        return ParseStatus::kBad;
      }
      options->** flag = true;
      continue;
    }
    if (!inline_value) {
      if (i + 1 >= args.size()) {
        *error = "--" + std::string(arg) + " needs a value";
        return ParseStatus::kBad;
      }
      value = args[++i];
    }
    if (!Store(*row, value, options, error)) {
      return ParseStatus::kBad;
    }
  }
  if (options->modules.empty()) {
    *error = "no --module given";
    return ParseStatus::kBad;
  }
  return ParseStatus::kRun;
}

std::string Usage() {
  std::string out = "usage: qrix-webapi --module PATH [options]\n";
  for (const OptionRow& row : kOptions) {
    std::string left = "  --" + std::string(row.name);
    if (row.value_name != nullptr) {
      left += std::string(" ") + row.value_name;
    }
    left.resize(std::max<size_t>(left.size() + 1, 42), ' ');
    out += left + row.help + "\n";
  }
  return out;
}

}  // namespace qrix::host
