// How handlers write settings: stage (key, value text) pairs from the request, then write them
// to settings.conf in one locked pass.
#ifndef HAULPORT_MODULE_COMMON_API_UTILS_H_
#define HAULPORT_MODULE_COMMON_API_UTILS_H_

#include <string>
#include <utility>
#include <vector>

#include "platform/qrix_export.h"
#include "platform/webapi/api_request.h"

namespace QRIXDL {

class QRIX_EXPORT CommitQueue {
 public:
  using BoolConverter = std::string (*)(const QRIX::APIParameter<bool>&);

  explicit CommitQueue(QRIX::APIRequest* request) : m_request(request) {}
  CommitQueue(const CommitQueue&) = delete;
  CommitQueue& operator=(const CommitQueue&) = delete;
  ~CommitQueue() = default;  // writes nothing

  // Key first.
  void Add(const char* key, const std::string& value);
  void Add(const char* key, int value);
  // Request parameter first, settings key second: stages the parameter's text when present.
  bool CheckAndAdd(const char* param, const char* key);
  // Stages converter(parameter), or "1"/"0" without a converter, when the parameter is set.
  bool CheckAndAddBool(const char* param, const char* key, BoolConverter converter);
  static std::string YesOrNoVal(const QRIX::APIParameter<bool>& param);

  // Writes every pair in order under the settings lock. A lock that cannot be taken writes
  // nothing and still answers true; the first failed write records 505 and answers false,
  // leaving the pairs before it written. The queue is kept.
  bool Flush();

  unsigned Size() const { return static_cast<unsigned>(m_queue.size()); }
  bool Empty() const { return m_queue.empty(); }

 private:
  QRIX::APIRequest* m_request;
  std::vector<std::pair<std::string, std::string>> m_queue;
};

// Registers one listening port of the download service (service "qrixdownload_port") under
// `section`, so the firewall and port forwarding know it. 0, or -1 with the error state set.
QRIX_EXPORT int SetDownloadServicePort(const char* section, int protocol, int port);

// True when the system sends notification mail.
QRIX_EXPORT bool IsEmailOK();

}  // namespace QRIXDL

#endif  // HAULPORT_MODULE_COMMON_API_UTILS_H_
