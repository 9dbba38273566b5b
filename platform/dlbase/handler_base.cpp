#include "platform/dlbase/handler_base.h"

namespace {
// The host serves one request at a time per process; per thread keeps tests honest anyway.
thread_local int g_recorded = 0;
}  // namespace

extern "C" int QRIXDLErrSet(int code) {
  g_recorded = code;
  return 0;
}

extern "C" int QRIXDLErrGet(void) { return g_recorded; }

namespace QRIXDL {

HandlerBase::HandlerBase(QRIX::APIRequest* request, QRIX::APIResponse* response)
    : m_request(request), m_response(response) {
  g_recorded = 0;
}

HandlerBase::~HandlerBase() = default;

void HandlerBase::ReportError() {
  if (g_recorded != 0) {
    m_response->SetError(g_recorded, Json::Value());
    g_recorded = 0;
  }
}

}  // namespace QRIXDL

namespace qrixdl {

QrixError::QrixError(int code, const std::string& message)
    : std::runtime_error(message), code_(code) {}

}  // namespace qrixdl
