// multipart/form-data bodies (RFC 7578): the page sends a file with the call's fields this way.
#ifndef QRIX_HOST_MULTIPART_H_
#define QRIX_HOST_MULTIPART_H_

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace qrix::host {

struct FormPart {
  std::string name;
  bool is_file = false;  // the part named a filename: its content is a file's bytes
  std::string content;
};

// The boundary of a multipart/form-data Content-Type header, or nullopt when the header names
// another type or no usable boundary.
std::optional<std::string> MultipartBoundary(std::string_view content_type);

// The parts of `body` in their order, or nullopt when the body is not a complete multipart
// body with that boundary, or a part has no name.
std::optional<std::vector<FormPart>> ParseMultipart(std::string_view body,
                                                    std::string_view boundary);

}  // namespace qrix::host

#endif  // QRIX_HOST_MULTIPART_H_
