// Captures the syslog lines of the test process, and of every process it starts, by owning the
// sandbox's /dev/log. Read the lines in the process that made the capture: a forked child's
// lines are there once the child has written them.
#ifndef HAULPORT_TESTS_SUPPORT_SYSLOG_CAPTURE_H_
#define HAULPORT_TESTS_SUPPORT_SYSLOG_CAPTURE_H_

#include <atomic>
#include <mutex>
#include <string>
#include <vector>

namespace qrix::test {

class SyslogCapture {
 public:
  // Binds /dev/log (the sandbox gives each test a private /dev). One per process.
  static SyslogCapture& Get();

  // Forgets every line received so far.
  void Clear();
  // True when some line's message (the text after the tag) contains `text`.
  bool Contains(const std::string& text) { return Count(text) > 0; }
  // How many lines contain `text`.
  int Count(const std::string& text);

 private:
  SyslogCapture();
  void Drain();  // with mutex_ held
  int fd_ = -1;
  std::atomic<bool> reading_{false};  // the reader thread is past its start-up
  std::mutex mutex_;
  std::vector<std::string> lines_;  // their messages
};

}  // namespace qrix::test

#endif  // HAULPORT_TESTS_SUPPORT_SYSLOG_CAPTURE_H_
