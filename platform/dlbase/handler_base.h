// The package's download library: the base of every settings handler, the per-request error
// slot, and the exception of the shared-path checks.
#ifndef QRIX_PLATFORM_DLBASE_HANDLER_BASE_H_
#define QRIX_PLATFORM_DLBASE_HANDLER_BASE_H_

#include <stdexcept>
#include <string>

#include "platform/qrix_export.h"
#include "platform/webapi/api_request.h"
#include "platform/webapi/api_response.h"

extern "C" {
// Records `code` as the error of the current request; the last one recorded wins. Returns 0.
QRIX_EXPORT int QRIXDLErrSet(int code);
// The code recorded so far in this request, 0 for none.
QRIX_EXPORT int QRIXDLErrGet(void);
}

namespace QRIXDL {

class QRIX_EXPORT HandlerBase {
 public:
  // A handler starts a request with no error recorded.
  HandlerBase(QRIX::APIRequest* request, QRIX::APIResponse* response);
  HandlerBase(const HandlerBase&) = delete;
  HandlerBase& operator=(const HandlerBase&) = delete;
  virtual ~HandlerBase();

  // Turns the recorded code, if any, into the response's error and consumes it. Every public
  // handler operation calls it last.
  void ReportError();

 protected:
  QRIX::APIRequest* m_request;
  QRIX::APIResponse* m_response;
};

}  // namespace QRIXDL

namespace qrixdl {

class QRIX_EXPORT QrixError : public std::runtime_error {
 public:
  QrixError(int code, const std::string& message);
  int GetErrorCode() const { return code_; }

 private:
  int code_;
};

}  // namespace qrixdl

#endif  // QRIX_PLATFORM_DLBASE_HANDLER_BASE_H_
