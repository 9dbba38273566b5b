#include "platform/system/qrix_mail.h"

#include <sys/stat.h>

#include <cstdlib>
#include <cstring>

#include "platform/system/qrix_paths.h"
#include "platform/vlibc/vlibc_error.h"
#include "platform/vlibc/vlibc_file.h"

static_assert(sizeof(QRIXMAIL) == 48, "the mail record is 48 bytes");

extern "C" int QRIXMailGet(QRIXMAIL* mail) {
  if (mail == nullptr) {
    VLIBCErrSet(ERR_BAD_PARAMETERS);
    return -1;
  }
  std::memset(mail, 0, sizeof *mail);
  struct stat st {};
  if (::stat(QRIX_MAIL_CONF, &st) != 0) {
    return 0;
  }
  char value[64];
  if (VLIBCFileGetKeyValue(QRIX_MAIL_CONF, "enable", value, sizeof value, 0) < 0) {
    return -1;
  }
  mail->enable = std::strcmp(value, "yes") == 0 ? 1 : 0;
  if (VLIBCFileGetKeyValue(QRIX_MAIL_CONF, "ssl", value, sizeof value, 0) < 0) {
    return -1;
  }
  mail->use_ssl = std::strcmp(value, "yes") == 0 ? 1 : 0;
  if (VLIBCFileGetKeyValue(QRIX_MAIL_CONF, "smtp_port", value, sizeof value, 0) < 0) {
    return -1;
  }
  mail->smtp_port = std::atoi(value);
  if (VLIBCFileGetKeyValue(QRIX_MAIL_CONF, "smtp_server", mail->smtp_server,
                           sizeof mail->smtp_server, 0) < 0) {
    return -1;
  }
  return 1;
}
