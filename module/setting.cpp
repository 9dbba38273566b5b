// The module frame: the API table, the entry functions and the parameter check table.
//
// To add an API:
//  1. Write module/handler/<name>_handler.{h,cpp}: a QRIXDL::HandlerBase with public operations
//     that end with ReportError().
//  2. Add one QRIXDL_ENTRY line per method below, and the rows to gTable, keeping rows of one
//     API together in the fixed order.
//  3. The check table already lists every method: check its parameter rules here.
//  4. Add the API to module/haulport_setting.policy.json if ordinary users may call it.
//  5. Tests: tests/unit/module/handler/<name>_handler_test.cpp and an API test over HTTP.
#include "module/setting.h"

#include <array>
#include <iterator>
#include <utility>

#include "module/common/param_check.h"
#include "module/handler/bt_handler.h"
#include "module/handler/bt_search_handler.h"
#include "module/handler/emule_handler.h"
#include "module/handler/emule_location_handler.h"
#include "module/handler/ftp_http_handler.h"
#include "module/handler/global_handler.h"
#include "module/handler/location_handler.h"
#include "module/handler/nzb_handler.h"
#include "module/handler/rss_handler.h"
#include "module/handler/scheduler_handler.h"

using QRIX::APIRequest;
using QRIX::APIResponse;
using QRIXDL::Condition;
using QRIXDL::ParamRule;
using QRIXDL::ParamType;

// An entry function builds the row's handler on the stack, calls one operation and lets the
// handler go; exceptions pass on to the host untouched.
#define QRIXDL_ENTRY(func, Handler, operation)                                   \
  extern "C" QRIX_EXPORT void func(APIRequest* request, APIResponse* response) { \
    Handler handler(request, response);                                          \
    handler.operation();                                                         \
  }

QRIXDL_ENTRY(GetGlobalSetting, GlobalHandler, Get)
QRIXDL_ENTRY(SetGlobalSetting, GlobalHandler, Set)
QRIXDL_ENTRY(ReadVolumeMoveProgress, GlobalHandler, ReadProgress)
QRIXDL_ENTRY(GetBTSetting, BtHandler, Get)
QRIXDL_ENTRY(SetBTSetting, BtHandler, Set)
QRIXDL_ENTRY(GetBTSearchAccount, BTSearchHandler, GetAccount)
QRIXDL_ENTRY(SetBTSearchAccount, BTSearchHandler, SetAccount)
QRIXDL_ENTRY(VerifyBTSearchAccount, BTSearchHandler, VerifyAccount)
QRIXDL_ENTRY(ListBTSearch, BTSearchHandler, List)
QRIXDL_ENTRY(CreateBTSearch, BTSearchHandler, Create)
QRIXDL_ENTRY(DeleteBTSearch, BTSearchHandler, Delete)
QRIXDL_ENTRY(BTSearchUpdateCheck, BTSearchHandler, UpdateCheck)
QRIXDL_ENTRY(UpdateBTSearch, BTSearchHandler, UpdatePlugins)
QRIXDL_ENTRY(GetEmuleSetting, EmuleHandler, Get)
QRIXDL_ENTRY(SetEmuleSetting, EmuleHandler, Set)
QRIXDL_ENTRY(GetEmuleLocation, EmuleLocationHandler, Get)
QRIXDL_ENTRY(SetEmuleLocation, EmuleLocationHandler, Set)
QRIXDL_ENTRY(GetRssSetting, RssHandler, Get)
QRIXDL_ENTRY(SetRssSetting, RssHandler, Set)
QRIXDL_ENTRY(GetNzbSetting, NzbHandler, Get)
QRIXDL_ENTRY(SetNzbSetting, NzbHandler, Set)
QRIXDL_ENTRY(GetSchedulerSetting, SchedulerHandler, Get)
QRIXDL_ENTRY(SetSchedulerSetting, SchedulerHandler, Set)
QRIXDL_ENTRY(GetLocationSetting, LocationHandler, Get)
QRIXDL_ENTRY(SetLocationSetting, LocationHandler, Set)
QRIXDL_ENTRY(GetFtpHttpSetting, FtpHttpHandler, Get)
QRIXDL_ENTRY(SetFtpHttpSetting, FtpHttpHandler, Set)

#define QRIXDL_API(name) "QRIX.Haulport2.Setting." name

extern "C" {

QRIX::APITableEntry gTable[] = {
    {QRIXDL_API("Global"), 1, "get", GetGlobalSetting},
    {QRIXDL_API("Global"), 1, "set", SetGlobalSetting},
    {QRIXDL_API("Global"), 1, "read_progress", ReadVolumeMoveProgress},
    {QRIXDL_API("BT"), 1, "get", GetBTSetting},
    {QRIXDL_API("BT"), 1, "set", SetBTSetting},
    {QRIXDL_API("BTSearch"), 1, "get", GetBTSearchAccount},
    {QRIXDL_API("BTSearch"), 1, "set", SetBTSearchAccount},
    {QRIXDL_API("BTSearch"), 1, "verify", VerifyBTSearchAccount},
    {QRIXDL_API("BTSearch"), 1, "list", ListBTSearch},
    {QRIXDL_API("BTSearch"), 1, "create", CreateBTSearch},
    {QRIXDL_API("BTSearch"), 1, "delete", DeleteBTSearch},
    {QRIXDL_API("BTSearch"), 1, "update_check", BTSearchUpdateCheck},
    {QRIXDL_API("BTSearch"), 1, "update", UpdateBTSearch},
    {QRIXDL_API("Emule"), 1, "get", GetEmuleSetting},
    {QRIXDL_API("Emule"), 1, "set", SetEmuleSetting},
    {QRIXDL_API("Emule.Location"), 1, "get", GetEmuleLocation},
    {QRIXDL_API("Emule.Location"), 1, "set", SetEmuleLocation},
    {QRIXDL_API("Rss"), 1, "get", GetRssSetting},
    {QRIXDL_API("Rss"), 1, "set", SetRssSetting},
    {QRIXDL_API("Nzb"), 1, "get", GetNzbSetting},
    {QRIXDL_API("Nzb"), 1, "set", SetNzbSetting},
    {QRIXDL_API("Scheduler"), 1, "get", GetSchedulerSetting},
    {QRIXDL_API("Scheduler"), 1, "set", SetSchedulerSetting},
    {QRIXDL_API("Location"), 1, "get", GetLocationSetting},
    {QRIXDL_API("Location"), 1, "set", SetLocationSetting},
    {QRIXDL_API("FtpHttp"), 1, "get", GetFtpHttpSetting},
    {QRIXDL_API("FtpHttp"), 1, "set", SetFtpHttpSetting},
    {nullptr, 0, nullptr, nullptr},
};

// Seven days of 24 hours, every hour on.
const char* const gDefaultSchedule =
    "111111111111111111111111111111111111111111111111111111111111111111111111111111111111"
    "111111111111111111111111111111111111111111111111111111111111111111111111111111111111";

const QRIX::APITableEntry* GetAPITable() {
  return gTable;
}

}  // extern "C"

namespace {

constexpr auto kReq = APIRequest::PARAM_REQUIRED;
constexpr auto kOpt = APIRequest::PARAM_OPTIONAL;

constexpr ParamRule Str(const char* name, APIRequest::PARAM_NECESSITY n = kOpt) {
  return {name, ParamType::kString, n};
}
constexpr ParamRule Int(const char* name) {
  return {name, ParamType::kInt, kOpt};
}
constexpr ParamRule Bool(const char* name) {
  return {name, ParamType::kBool, kOpt};
}
constexpr ParamRule Port(const char* name) {
  return {name, ParamType::kInt, kOpt, Condition::kRange, 1, 65535};
}
constexpr ParamRule Range(const char* name, int min, int max) {
  return {name, ParamType::kInt, kOpt, Condition::kRange, min, max};
}
constexpr ParamRule OneOf(const char* name, const char* json_list) {
  return {name, ParamType::kString, kOpt, Condition::kOneOf, 0, 0, json_list};
}
constexpr ParamRule VolumePath(const char* name) {
  return {name, ParamType::kString, kOpt, Condition::kVolume};
}
constexpr ParamRule Strings(const char* name, APIRequest::PARAM_NECESSITY n) {
  return {name, ParamType::kArray, n, Condition::kStringElements};
}

// Parameters of each method in fetch order; conditions are tested in the same order.
constexpr ParamRule kSetEmuleLocation[] = {Str("default_destination")};
constexpr ParamRule kSetScheduler[] = {
    Str("schedule"), Bool("enable_schedule"), Int("download_rate"), Int("upload_rate"),
    Str("order"),    Int("max_tasks"),
};
constexpr ParamRule kSetLocation[] = {
    Bool("enable_delete_torrent_nzb_watch"),
    Str("default_destination"),
    Bool("enable_torrent_nzb_watch"),
    Str("torrent_nzb_watch_folder"),
};
constexpr ParamRule kSetFtpHttp[] = {
    Range("ftp_max_conn", 1, 65535),
    Bool("enable_ftp_max_conn"),
    Int("ftp_http_max_download_rate"),
};
constexpr ParamRule kSetBt[] = {
    Bool("enable_preview"),
    Bool("enable_port_forwarding"),
    Port("tcp_port"),
    Int("max_upload_rate"),
    Int("max_download_rate"),
    OneOf("encrypt", R"(["auto", "always", "disable"])"),
    Range("max_peer", 5, 10000),
    Bool("enable_dht"),
    Port("dht_port"),
    Int("seeding_ratio"),
    Int("seeding_interval"),
    Bool("enable_seeding_auto_remove"),
};
constexpr ParamRule kSetEmule[] = {
    Strings("share_folders", kOpt),
    Str("schedule"),
    Bool("enable_server_update"),
    Bool("enable_server_auto_connect"),
    Bool("enable_schedule"),
    Bool("enable_outgoing_obfuscation"),
    Bool("enable_obfuscation_only"),
    Bool("enable_obfuscation"),
    Int("upload_rate"),
    Port("udp_port"),
    Port("tcp_port"),
    OneOf("port_type", R"(["default_port", "manual_port"])"),
    Range("max_conn", 100, 500),
    Int("download_rate"),
    Int("schedule_upload_rate"),
    Int("schedule_download_rate"),
};
constexpr ParamRule kSetGlobal[] = {
    Str("xunlei_password"), Str("xunlei_username"), Bool("enable_unzip_service"),
    Bool("enable_xunlei"),  Bool("enable_emule"),   VolumePath("download_volume"),
};
constexpr ParamRule kSetBtSearchAccount[] = {Str("plugin_name", kReq), Str("username", kReq),
                                             Str("password", kReq)};
constexpr ParamRule kGetBtSearchAccount[] = {Str("plugin_name", kReq)};
// Verifying may go without a password, unlike setting: intended.
constexpr ParamRule kVerifyBtSearchAccount[] = {Str("plugin_name", kReq), Str("username", kReq),
                                                Str("password", kOpt)};
constexpr ParamRule kCreateBtSearch[] = {Str("btsearch_plugin", kReq)};
constexpr ParamRule kPluginNames[] = {Strings("plugin_names", kReq)};
constexpr ParamRule kSetRss[] = {Range("update_interval", 1, 1440)};
constexpr ParamRule kSetNzb[] = {
    Str("username"),
    Str("server"),
    Port("port"),
    Str("password"),
    Int("max_download_rate"),
    Bool("enable_remove_parfiles"),
    Bool("enable_parchive"),
    Bool("enable_encryption"),
    Bool("enable_auth"),
    Int("conn_per_download"),
};

constexpr std::span<const ParamRule> kNoParams;

// Order fixed by the host contract; it differs from the API table's on purpose.
constexpr QRIXDL::CheckedMethod kCheckedMethods[] = {
    {QRIXDL_API("Emule.Location"), "set", kSetEmuleLocation},
    {QRIXDL_API("Emule.Location"), "get", kNoParams},
    {QRIXDL_API("Scheduler"), "set", kSetScheduler},
    {QRIXDL_API("Scheduler"), "get", kNoParams},
    {QRIXDL_API("Location"), "set", kSetLocation},
    {QRIXDL_API("Location"), "get", kNoParams},
    {QRIXDL_API("FtpHttp"), "set", kSetFtpHttp},
    {QRIXDL_API("FtpHttp"), "get", kNoParams},
    {QRIXDL_API("BT"), "set", kSetBt},
    {QRIXDL_API("BT"), "get", kNoParams},
    {QRIXDL_API("Emule"), "set", kSetEmule},
    {QRIXDL_API("Emule"), "get", kNoParams},
    {QRIXDL_API("Global"), "read_progress", kNoParams},
    {QRIXDL_API("Global"), "set", kSetGlobal},
    {QRIXDL_API("Global"), "get", kNoParams},
    {QRIXDL_API("BTSearch"), "set", kSetBtSearchAccount},
    {QRIXDL_API("BTSearch"), "get", kGetBtSearchAccount},
    {QRIXDL_API("BTSearch"), "verify", kVerifyBtSearchAccount},
    {QRIXDL_API("BTSearch"), "create", kCreateBtSearch},
    {QRIXDL_API("BTSearch"), "list", kNoParams},
    {QRIXDL_API("BTSearch"), "update", kPluginNames},
    {QRIXDL_API("BTSearch"), "update_check", kNoParams},
    {QRIXDL_API("BTSearch"), "delete", kPluginNames},
    {QRIXDL_API("Rss"), "set", kSetRss},
    {QRIXDL_API("Rss"), "get", kNoParams},
    {QRIXDL_API("Nzb"), "set", kSetNzb},
    {QRIXDL_API("Nzb"), "get", kNoParams},
};

// The host calls a check function with the request alone, so each row gets its own.
template <size_t I>
bool CheckRow(APIRequest* request, APIResponse* response) {
  return QRIXDL::CheckParams(request, response, kCheckedMethods[I].rules);
}

template <size_t... I>
constexpr std::array<QRIX::APICheckTableEntry, sizeof...(I) + 1> MakeCheckTable(
    std::index_sequence<I...>) {
  return {{{kCheckedMethods[I].api, 1, kCheckedMethods[I].method, &CheckRow<I>, 0, 0}...,
           {nullptr, 0, nullptr, nullptr, 0, 0}}};
}

constexpr auto kCheckTable = MakeCheckTable(std::make_index_sequence<std::size(kCheckedMethods)>());
static_assert(kCheckTable.size() == 28);

}  // namespace

std::span<const QRIXDL::CheckedMethod> QRIXDL::CheckedMethods() {
  return kCheckedMethods;
}

extern "C" const QRIX::APICheckTableEntry* GetAPICheckTable() {
  return kCheckTable.data();
}
