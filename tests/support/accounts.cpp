#include "tests/support/accounts.h"

#include <filesystem>
#include <fstream>
#include <sstream>

#include "platform/shares/qrix_share.h"
#include "platform/vlibc/ini_text.h"
#include "tests/support/files.h"

namespace qrix::test {

void AddAccount(const std::string& name, uid_t uid) {
  std::istringstream in(ReadText("/etc/passwd"));
  for (std::string line; std::getline(in, line);) {
    if (line.rfind(name + ":", 0) == 0) {
      return;
    }
  }
  std::ofstream("/etc/passwd", std::ios::app)
      << name << ":x:" << uid << ":100::/nonexistent:/usr/sbin/nologin\n";
}

void WriteShares(const std::string& ini) {
  WriteText(QRIX_SHARES_CONF, ini);
  for (const ini::Section& share : ini::ParseSections(ini)) {
    if (const std::string* path = share.Find("path")) {
      std::filesystem::create_directories(*path);
    }
  }
}

}  // namespace qrix::test
