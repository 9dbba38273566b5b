#include "module/common/param_check.h"

#include <string>
#include <variant>
#include <vector>

#include "platform/volume/mount_table.h"
#include "platform/webapi/api_validator.h"

namespace QRIXDL {
namespace {

using Fetched = std::variant<QRIX::APIParameter<std::string>, QRIX::APIParameter<int>,
                             QRIX::APIParameter<bool>, QRIX::APIParameter<Json::Value>>;

Fetched Fetch(const QRIX::APIRequest& request, const ParamRule& rule) {
  switch (rule.type) {
    case ParamType::kString:
      return request.GetAndCheckString(rule.name, rule.necessity, nullptr);
    case ParamType::kInt:
      return request.GetAndCheckInt(rule.name, rule.necessity, nullptr);
    case ParamType::kBool:
      return request.GetAndCheckBool(rule.name, rule.necessity, nullptr);
    case ParamType::kArray:
      break;
  }
  return request.GetAndCheckUnitArray(rule.name, rule.necessity, nullptr);
}

bool Fail(QRIX::APIResponse* response, const char* name, const char* reason) {
  Json::Value error(Json::objectValue);
  error["name"] = name;
  error["reason"] = reason;
  response->SetError(kErrInvalidParameter, error);
  return false;
}

// The reason a set, well-typed parameter fails its condition, or nullptr.
const char* ConditionFailure(const ParamRule& rule, const Fetched& param) {
  switch (rule.condition) {
    case Condition::kNone:
      return nullptr;
    case Condition::kRange:
      return QRIX::APIValidator::IsBetween(std::get<QRIX::APIParameter<int>>(param), rule.min,
                                           rule.max)
                 ? nullptr
                 : "condition";
    case Condition::kOneOf:
      // Parsed at each check: the list is kept as JSON text, like the client sees it.
      return QRIX::APIValidator::IsBelong(std::get<QRIX::APIParameter<std::string>>(param),
                                          QRIX::WebAPIUtil::ParseJson(rule.one_of))
                 ? nullptr
                 : "condition";
    case Condition::kStringElements:
      for (const Json::Value& element : std::get<QRIX::APIParameter<Json::Value>>(param).Get()) {
        // A NUL would cut the element short wherever it goes, as it would a string parameter.
        if (!element.isString() || element.asString().find('\0') != std::string::npos) {
          return "type";
        }
      }
      return nullptr;
    case Condition::kVolume: {
      // Exactly a mount point: anything else ("../", a folder inside one, a path of no volume)
      // would have the module make directories and links where no volume is.
      const std::string& value = std::get<QRIX::APIParameter<std::string>>(param).Get();
      for (const qrix::volume::Mount& volume : qrix::volume::VolumeMounts()) {
        if (volume.mount_point == value) {
          return nullptr;
        }
      }
      return "condition";
    }
  }
  return nullptr;
}

}  // namespace

bool CheckParams(QRIX::APIRequest* request, QRIX::APIResponse* response,
                 std::span<const ParamRule> rules) {
  std::vector<Fetched> params;
  params.reserve(rules.size());
  for (const ParamRule& rule : rules) {
    params.push_back(Fetch(*request, rule));
  }
  for (size_t i = 0; i < rules.size(); ++i) {
    const auto [set, invalid] =
        std::visit([](const auto& p) { return std::pair(p.IsSet(), p.IsInvalid()); }, params[i]);
    if (invalid) {
      return Fail(response, rules[i].name, set ? "type" : "required");
    }
  }
  for (size_t i = 0; i < rules.size(); ++i) {
    const bool set = std::visit([](const auto& p) { return p.IsSet(); }, params[i]);
    if (!set) {
      continue;
    }
    if (const char* reason = ConditionFailure(rules[i], params[i])) {
      return Fail(response, rules[i].name, reason);
    }
  }
  return true;
}

}  // namespace QRIXDL
