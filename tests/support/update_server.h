// A plug-in update server on loopback for tests: it answers every request with the status and
// body it is given, or stays silent, and keeps the request targets it saw.
#ifndef HAULPORT_TESTS_SUPPORT_UPDATE_SERVER_H_
#define HAULPORT_TESTS_SUPPORT_UPDATE_SERVER_H_

#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "platform/vlibc/unique_fd.h"

namespace qrix::test {

class UpdateServer {
 public:
  // Listens on 127.0.0.1 on a free port; answers 200 with "{}" until told otherwise.
  UpdateServer();
  UpdateServer(const UpdateServer&) = delete;
  UpdateServer& operator=(const UpdateServer&) = delete;
  ~UpdateServer();

  // "127.0.0.1:PORT", as "btsearch_server" names it.
  std::string Address() const;
  // Status 0: reads requests but never answers them, until the server is destroyed.
  void Answer(int status, const std::string& body);
  // The targets ("/path?query") of the requests so far.
  std::vector<std::string> Targets();

 private:
  void Serve();

  UniqueFd listener_;
  int port_ = 0;
  std::mutex mutex_;
  int status_ = 200;
  std::string body_ = "{}";
  std::vector<std::string> targets_;
  std::vector<UniqueFd> held_;  // connections left unanswered
  std::thread thread_;
};

}  // namespace qrix::test

#endif  // HAULPORT_TESTS_SUPPORT_UPDATE_SERVER_H_
