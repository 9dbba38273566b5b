// The web page's files, served read-only from one directory. A request path is decoded, may
// not name dot files or leave the directory (checked on the resolved path, so symbolic links
// cannot lead out either); "/" and directories serve their index.html.
#ifndef QRIX_HOST_STATIC_FILES_H_
#define QRIX_HOST_STATIC_FILES_H_

#include <string>
#include <string_view>

#include "host/http/http_message.h"

namespace qrix::host {

class StaticFiles {
 public:
  // `root` empty: no static files, every path is 404.
  explicit StaticFiles(std::string root);

  // False with a reason when a root was given but is not a readable directory.
  bool Prepare(std::string* error);

  HttpResponse Serve(std::string_view method, std::string_view path) const;

 private:
  // The real path of the file a request path names, or "" when it names none we serve.
  std::string Resolve(std::string_view request_path) const;

  std::string root_;  // resolved, without trailing slash
  bool enabled_;
};

// The Content-Type of a file name, by its extension.
std::string_view ContentTypeOf(std::string_view file_name);

}  // namespace qrix::host

#endif  // QRIX_HOST_STATIC_FILES_H_
