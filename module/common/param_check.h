// The one engine behind every parameter check function: fetch each parameter with its type and
// necessity, then report the first presence or type error, then the first failed condition.
// Exactly one error (code 120 with {"name", "reason"}) reaches the response.
#ifndef HAULPORT_MODULE_COMMON_PARAM_CHECK_H_
#define HAULPORT_MODULE_COMMON_PARAM_CHECK_H_

#include <span>

#include "platform/webapi/api_request.h"
#include "platform/webapi/api_response.h"

namespace QRIXDL {

enum class ParamType { kString, kInt, kBool, kArray };

enum class Condition {
  kNone,
  kRange,           // int in [min, max]
  kOneOf,           // string equal to one of the JSON array text in `one_of`
  kStringElements,  // every element of the array a string, else reason "type"
  kVolume,          // string that is the mount point of one of this system's volumes
};

struct ParamRule {
  const char* name;
  ParamType type;
  QRIX::APIRequest::PARAM_NECESSITY necessity;
  Condition condition = Condition::kNone;
  int min = 0;
  int max = 0;
  const char* one_of = nullptr;
};

inline constexpr int kErrInvalidParameter = 120;

// True when the request may proceed. The rules are walked in their given order in each phase.
bool CheckParams(QRIX::APIRequest* request, QRIX::APIResponse* response,
                 std::span<const ParamRule> rules);

}  // namespace QRIXDL

#endif  // HAULPORT_MODULE_COMMON_PARAM_CHECK_H_
