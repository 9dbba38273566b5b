// Runs the fake daemon for a test and reads what it counted: the scheduler, or with a pid file
// named, one of the eMule daemons.
#ifndef HAULPORT_TESTS_SUPPORT_FAKE_SCHEDULER_H_
#define HAULPORT_TESTS_SUPPORT_FAKE_SCHEDULER_H_

#include <sys/types.h>

#include <string>

namespace qrix::test {

class FakeScheduler {
 public:
  struct Counts {
    int hup = 0;
    int cont = 0;
    int usr2 = 0;
    int usr1 = 0;  // eMule's shared-folder reloads
    bool operator==(const Counts&) const = default;
  };

  // Starts the daemon and waits until its pid file is there.
  explicit FakeScheduler(std::string pid_file = "/tmp/qrixdl_scheduler.pid");
  FakeScheduler(const FakeScheduler&) = delete;
  FakeScheduler& operator=(const FakeScheduler&) = delete;
  // Stops it (SIGTERM) and waits for it.
  ~FakeScheduler();

  Counts Read() const;
  // Waits up to `ms` for counts equal to `want`; returns the last ones read.
  Counts WaitFor(const Counts& want, int ms = 3000) const;

 private:
  pid_t pid_ = -1;
  std::string pid_file_;
  std::string counts_path_;
};

}  // namespace qrix::test

#endif  // HAULPORT_TESTS_SUPPORT_FAKE_SCHEDULER_H_
