// The platform's web API of shared folders, for pages that let a person pick one:
//   QRIX.Core.Share v1 list -> {"shares": [{"name", "writable"}, ...]}
// the shares the logged-in account may use, in the shares file's order; "writable" when it may
// write there. Open to every logged-in user (see share_api.policy.json).
#include <json/json.h>

#include <vector>

#include "platform/qrix_export.h"
#include "platform/shares/qrix_share.h"
#include "platform/webapi/api_request.h"
#include "platform/webapi/api_response.h"
#include "platform/webapi/api_table.h"

namespace {

constexpr int kErrSharesUnreadable = 504;

void ListShares(QRIX::APIRequest* request, QRIX::APIResponse* response) {
  std::vector<qrix::share::Share> shares;
  if (!qrix::share::LoadShares(&shares)) {
    response->SetError(kErrSharesUnreadable, Json::Value());
    return;
  }
  Json::Value out(Json::objectValue);
  out["shares"] = Json::Value(Json::arrayValue);
  for (const qrix::share::Share& share : shares) {
    const qrix::share::Access access = qrix::share::AccessOf(share, request->GetLoginUserName());
    if (access != qrix::share::Access::kNone) {
      Json::Value entry(Json::objectValue);
      entry["name"] = share.name;
      entry["writable"] = access == qrix::share::Access::kWrite;
      out["shares"].append(entry);
    }
  }
  response->SetSuccess(out);
}

bool NoParams(QRIX::APIRequest*, QRIX::APIResponse*) {
  return true;
}

const QRIX::APITableEntry kTable[] = {
    {"QRIX.Core.Share", 1, "list", ListShares},
    {nullptr, 0, nullptr, nullptr},
};
const QRIX::APICheckTableEntry kCheckTable[] = {
    {"QRIX.Core.Share", 1, "list", NoParams, 0, 0},
    {nullptr, 0, nullptr, nullptr, 0, 0},
};

}  // namespace

extern "C" QRIX_EXPORT const QRIX::APITableEntry* GetAPITable() {
  return kTable;
}
extern "C" QRIX_EXPORT const QRIX::APICheckTableEntry* GetAPICheckTable() {
  return kCheckTable;
}
