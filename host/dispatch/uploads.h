// Files uploaded with a call. Each is stored under a random name in the host's private upload
// directory for the length of the call, and removed afterwards whatever the module did with it,
// so that a client never names a path the module then reads or deletes.
#ifndef QRIX_HOST_UPLOADS_H_
#define QRIX_HOST_UPLOADS_H_

#include <optional>
#include <string>
#include <vector>

namespace qrix::host {

inline constexpr const char* kUploadDir = "/run/qrix/webapi/uploads";

class UploadedFiles {
 public:
  UploadedFiles() = default;
  UploadedFiles(const UploadedFiles&) = delete;
  UploadedFiles& operator=(const UploadedFiles&) = delete;
  ~UploadedFiles();

  // Stores `content` and returns its path; nullopt (logged) when it cannot be stored.
  std::optional<std::string> Store(const std::string& content);

 private:
  std::vector<std::string> paths_;
};

// Removes what a worker that died mid-call left in the upload directory; run before workers
// start.
void RemoveStaleUploads();

}  // namespace qrix::host

#endif  // QRIX_HOST_UPLOADS_H_
