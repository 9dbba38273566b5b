// Long-lived workers: many requests each, a failing request costs only itself, the response
// goes out before the module's callbacks run, each request's callbacks run in a process of
// their own, and a worker that cannot be trusted any more makes way for a fresh one.
#include <signal.h>
#include <unistd.h>

#include <chrono>
#include <future>
#include <set>
#include <sstream>
#include <string>
#include <thread>

#include "tests/api/host_fixture.h"
#include "tests/fixtures/test_module.h"
#include "tests/support/files.h"

namespace qrix::test {
namespace {

constexpr const char* kFaultApi = "QRIX.Test.Fault";

class WorkersTest : public HostTest {
 protected:
  void SetUp() override {
    HostTest::SetUp();
    Remove(kReleaseFile);
    Remove(kCallbackDoneFile);
    Remove(kNotifiedFile);
  }
};

// How often the process has gone to sleep, each wake-up included.
long VoluntarySwitches(pid_t pid) {
  std::istringstream status(ReadText("/proc/" + std::to_string(pid) + "/status"));
  for (std::string line; std::getline(status, line);) {
    if (line.rfind("voluntary_ctxt_switches:", 0) == 0) {
      return std::stol(line.substr(line.find(':') + 1));
    }
  }
  ADD_FAILURE() << "no voluntary_ctxt_switches for " << pid;
  return 0;
}

Json::Value PidOf(ApiClient& client, const char* api, const char* method) {
  const Json::Value answer = client.Call(api, method);
  EXPECT_TRUE(answer["success"].asBool()) << answer;
  return answer["data"]["pid"];
}

// Posts `form` with `client`'s session in one write on a connection of its own, without curl;
// the body of the answer (all of it when it has no head).
std::string RawCall(const HostServer& server, const ApiClient& client, const std::string& form) {
  const std::string reply = RawExchange(
      server.Port(),
      "POST /webapi/entry.cgi HTTP/1.1\r\nHost: 127.0.0.1:" + std::to_string(server.Port()) +
          "\r\nCookie: qrix_sid=" + client.session_id + "\r\nX-QRIX-Token: " + client.token +
          "\r\nContent-Type: application/x-www-form-urlencoded\r\nContent-Length: " +
          std::to_string(form.size()) + "\r\n\r\n" + form);
  const size_t body = reply.find("\r\n\r\n");
  return body == std::string::npos ? reply : reply.substr(body + 4);
}

TEST_F(WorkersTest, GetsAreServedByAHandfulOfLongLivedWorkers) {
  Start({"--workers", "4"});
  std::set<Json::Int64> pids;
  for (int i = 0; i < 1000; ++i) {
    pids.insert(PidOf(*bob_, "QRIX.Test.Open", "echo").asInt64());
  }
  EXPECT_LE(pids.size(), 4u);
  EXPECT_EQ(pids.count(server_->Pid()), 0u) << "no module code runs in the master";

  // With nothing in flight the master sleeps: no timer wakes an idle server.
  std::this_thread::sleep_for(std::chrono::seconds(1));  // the last sweep finds nothing to do
  const long before = VoluntarySwitches(server_->Pid());
  std::this_thread::sleep_for(std::chrono::seconds(1));
  EXPECT_LE(VoluntarySwitches(server_->Pid()) - before, 1);
}

// Two requests that each register a once-per-process callback twice: each request's callback
// runs once, in a process of its own, and the one worker goes on serving. Callbacks with data
// of the worker's own run in the worker, which then leaves.
TEST_F(WorkersTest, EachRequestsCallbacksRunInAProcessOfTheirOwn) {
  Start({"--workers", "1"});
  const auto notified = [] {
    std::multiset<std::string> lines;
    std::istringstream text(ReadText(kNotifiedFile));
    for (std::string line; std::getline(text, line);) {
      lines.insert(line);
    }
    return lines;
  };
  const Json::Value worker = PidOf(*alice_, kFaultApi, "notify");
  EXPECT_EQ(PidOf(*alice_, kFaultApi, "notify"), worker);
  WaitFor([&] { return notified().size() >= 2; }, 2000);
  std::this_thread::sleep_for(std::chrono::milliseconds(50));  // a third line would show now
  const std::multiset<std::string> runners = notified();
  ASSERT_EQ(runners.size(), 2u);
  EXPECT_NE(*runners.begin(), *runners.rbegin());
  EXPECT_EQ(runners.count(worker.asString()), 0u);

  Remove(kNotifiedFile);
  const Json::Value own = PidOf(*alice_, kFaultApi, "notify_own");
  EXPECT_TRUE(WaitFor([&] { return notified().size() == 1; }, 2000));
  EXPECT_EQ(notified(), std::multiset<std::string>{own.asString()});
  EXPECT_TRUE(WaitFor([&] { return ::kill(static_cast<pid_t>(own.asInt()), 0) != 0; }, 2000))
      << "the worker that ran the callbacks must leave";
  EXPECT_NE(PidOf(*alice_, "QRIX.Test.Open", "echo"), own);
}

TEST_F(WorkersTest, AWorkerMakesWayWhenItCanNoLongerBeTrusted) {
  struct Row {
    const char* why;
    std::vector<std::string> args;
    const char* first_method;  // of QRIX.Test.Fault or Open echo
    const char* logged;
  };
  const Row rows[] = {
      {"request limit", {"--max-requests", "2"}, "echo", nullptr},
      {"memory bound", {"--max-worker-memory", "1"}, "echo", "passed the bound"},
      {"ids left changed", {}, "leak_uid", "ids changed during a request"},
      {"lock left held", {}, "leak_lock", "a named lock was left held"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.why);
    std::vector<std::string> args = {"--workers", "1"};
    args.insert(args.end(), row.args.begin(), row.args.end());
    HostServer server(args);
    ApiClient alice(server);
    ASSERT_TRUE(alice.Login(kAlice)["success"].asBool());  // the login is a request too
    ClearLog();
    const Json::Value first = std::string(row.first_method) == "echo"
                                  ? PidOf(alice, "QRIX.Test.Open", "echo")
                                  : PidOf(alice, kFaultApi, row.first_method);
    EXPECT_NE(PidOf(alice, "QRIX.Test.Open", "echo"), first);
    if (row.logged != nullptr) {
      EXPECT_TRUE(WaitForLog(row.logged));
    }
  }
}

TEST_F(WorkersTest, AFailingRequestCostsOnlyItself) {
  Start({"--request-timeout", "2"});
  ApiClient& alice = *alice_;
  struct Row {
    const char* method;
    const char* logged;  // what the master writes about the worker
  };
  const Row rows[] = {
      {"crash", "ended by signal 11 (Segmentation fault)"},
      {"hang", "exceeded the request time limit of 2 s"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.method);
    ClearLog();
    EXPECT_EQ(alice.Call(kFaultApi, row.method), ErrorEnvelope(110));
    if (row.logged != nullptr) {
      // The master logs once it has reaped the worker, which may be just after the answer.
      EXPECT_TRUE(WaitForLog(row.logged)) << row.logged;
    }
    EXPECT_TRUE(server_->Running());
    EXPECT_TRUE(alice.Call("QRIX.Test.Open", "echo")["success"].asBool())
        << "the server must go on serving";
  }
  // A request that is whole when the master first reads it (most are, outside tests) is timed
  // the same way: it is sent while the master is stopped, once the master is idle (no sweep left
  // pending from the calls before).
  const std::string form = std::string("api=") + kFaultApi + "&version=1&method=hang";
  std::this_thread::sleep_for(std::chrono::milliseconds(500));
  ASSERT_EQ(::kill(server_->Pid(), SIGSTOP), 0);
  std::thread resume([this] {
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    ::kill(server_->Pid(), SIGCONT);
  });
  const std::string reply = RawCall(*server_, alice, form);
  resume.join();
  EXPECT_EQ(ParseJson(reply), ErrorEnvelope(110)) << reply;
}

// Callbacks run once the answer went out, and a stop waits for a worker busy with them.
TEST_F(WorkersTest, CallbacksRunAfterTheAnswerAndStopWaitsForThem) {
  Start();
  // The callback waits for the release file: had the host run it before answering, this
  // call would not return before the callback gave up waiting, and its mark would be there.
  EXPECT_EQ(alice_->Call(kFaultApi, "callback"), ParseJson(R"({"success":true})"));
  EXPECT_NE(::access(kCallbackDoneFile, F_OK), 0);
  auto stopped = std::async(std::launch::async, [this] { return server_->Stop(); });
  EXPECT_EQ(stopped.wait_for(std::chrono::milliseconds(300)), std::future_status::timeout)
      << "the master stopped before its busy worker finished";
  WriteText(kReleaseFile, "go\n");
  EXPECT_EQ(stopped.get(), 0);
  EXPECT_EQ(::access(kCallbackDoneFile, F_OK), 0) << "the busy worker was cut short";
}

// A child the module leaves behind keeps none of the worker's descriptors: the client's
// connection ends with the answer although the child lives on.
TEST_F(WorkersTest, AModulesChildKeepsNoneOfTheWorkersDescriptors) {
  Start();
  const ApiClient& alice = *alice_;
  const std::string form = FormEncode({{"api", kFaultApi}, {"version", "1"}, {"method", "detach"}});
  EXPECT_EQ(ParseJson(RawCall(*server_, alice, form)), ParseJson(R"({"success":true})"));
  EXPECT_NE(::access(kCallbackDoneFile, F_OK), 0)
      << "the connection ended only when the module's child did";
  WriteText(kReleaseFile, "go\n");
  EXPECT_TRUE(WaitForFile(kCallbackDoneFile));
}

}  // namespace
}  // namespace qrix::test
