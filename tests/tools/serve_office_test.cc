// tabulon serve on real offices: the same results as the command line
// without a server, two clients at once, offices that die or hang, clients
// that go away, a clean stop; and convert -j.
#include <gtest/gtest.h>

#include <fstream>
#include <set>
#include <string>
#include <vector>

#include "serve_run.h"

namespace tabulon::testing {
namespace {

namespace fs = std::filesystem;
using std::chrono::seconds;

// A flat OpenDocument spreadsheet with Basic macros: one that waits two
// seconds, one that never ends.
const char* kMacroBook = R"(<?xml version="1.0" encoding="UTF-8"?>
<office:document xmlns:office="urn:oasis:names:tc:opendocument:xmlns:office:1.0" xmlns:table="urn:oasis:names:tc:opendocument:xmlns:table:1.0" xmlns:text="urn:oasis:names:tc:opendocument:xmlns:text:1.0" xmlns:script="urn:oasis:names:tc:opendocument:xmlns:script:1.0" xmlns:ooo="http://openoffice.org/2004/office" office:version="1.2" office:mimetype="application/vnd.oasis.opendocument.spreadsheet"><office:scripts><office:script script:language="ooo:Basic"><ooo:libraries><ooo:library-embedded ooo:name="Standard"><ooo:module ooo:name="Tools"><ooo:source-code>Sub Pause()
  Wait 2000
End Sub
Sub Forever()
  Do
  Loop
End Sub
</ooo:source-code></ooo:module></ooo:library-embedded></ooo:libraries></office:script></office:scripts><office:body><office:spreadsheet><table:table table:name="Sheet1"><table:table-row><table:table-cell office:value-type="string"><text:p>x</text:p></table:table-cell></table:table-row></table:table></office:spreadsheet></office:body></office:document>
)";

// The watchdog's limit for the shared server: a call that hangs fails after
// this long.
constexpr int kCallLimit = 8;

class ServeOffice : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    dir_ = new Folder("tabulon-serve-office-");
    work_ = *dir_ / "work";
    fs::create_directories(work_);
    fs::copy_file(TABULON_SAMPLE, work_ + "/book.xlsx");
    std::ofstream(work_ + "/bad.xlsx") << "not a workbook\n";
    std::ofstream(work_ + "/macros.fods") << kMacroBook;
    server_ = new Server(*dir_ / "", 2, {"TABULON_CALL_TIME_LIMIT=" + std::to_string(kCallLimit)});
  }
  static void TearDownTestSuite() {
    delete server_;
    delete dir_;
  }
  void SetUp() override {
    ASSERT_TRUE(server_->ready()) << server_->log();
    // Every test starts from a pool of two idle offices.
    ASSERT_TRUE(Until(
        [] {
          const auto offices = Offices(server_->StatusJson());
          return offices.size() == 2 && offices[0].state == "idle" && offices[1].state == "idle";
        },
        seconds(120)))
        << server_->StatusJson();
  }

  // A client started in the background: tabulon --server SOCKET <args>.
  static Process Client(const std::vector<std::string>& args, const std::string& tag) {
    std::vector<std::string> all = {"--server", server_->socket()};
    all.insert(all.end(), args.begin(), args.end());
    return StartTabulon(all, work_, {}, tag);
  }

  // The worker running a command, once one shows busy.
  static pid_t BusyWorker() {
    pid_t busy = -1;
    Until(
        [&] {
          for (const auto& o : Offices(server_->StatusJson())) {
            if (o.state == "busy") busy = o.worker;
          }
          return busy > 0;
        },
        seconds(30));
    return busy;
  }

  static Folder* dir_;
  static std::string work_;
  static Server* server_;
};
Folder* ServeOffice::dir_ = nullptr;
std::string ServeOffice::work_;
Server* ServeOffice::server_ = nullptr;

TEST_F(ServeOffice, ACommandPrintsAndEndsAsItDoesWithoutAServer) {
  const struct {
    std::string args;
    int exit_code;
  } cases[] = {
      {"convert book.xlsx out.csv && cat out.csv", 0},
      {"convert -m --report book.xlsx deep/dir/b.csv", 0},  // a missing folder made
      {"convert --json -s 9 book.xlsx out.csv", 1},         // -11
      {"convert -t csv -s 2 book.xlsx -", 0},               // data on standard output
      {"convert -s 1 book.xlsx /dev/stdout", 0},            // the client's own stdout by name
      {"sheets --json book.xlsx", 0},
      {"sheets book.xlsx Nowhere", 1},
      {"convert bad.xlsx out.csv", 1},  // the office's own finding on a second line
      {"convert nothere.xlsx out.csv", 1},
  };
  for (const auto& c : cases) {
    const auto clean = [&] {
      fs::remove(work_ + "/out.csv");
      fs::remove_all(work_ + "/deep");
    };
    clean();
    const Result direct =
        Shell("cd " + Quoted(work_) + " && TMPDIR=" + Quoted(server_->tmp()) + " " + TABULON_CLI + " " + c.args);
    clean();
    const Result served = server_->Run(c.args, work_);
    EXPECT_EQ(direct.exit_code, c.exit_code) << c.args << "\n" << direct.err;
    EXPECT_EQ(served.exit_code, direct.exit_code) << c.args << "\n" << served.err;
    EXPECT_EQ(served.out, direct.out) << c.args;
    EXPECT_EQ(served.err, direct.err) << c.args;
  }
}

TEST_F(ServeOffice, TwoClientsAtOnceRunOnBothOffices) {
  std::set<pid_t> workers;
  long jobs_before = 0;
  for (const auto& o : Offices(server_->StatusJson())) {
    workers.insert(o.worker);
    jobs_before += o.jobs;
  }
  const Process a = Client({"ExecuteMacro", "macros.fods", "a.xls", "Pause"}, "a");
  const Process b = Client({"ExecuteMacro", "macros.fods", "b.xls", "Pause"}, "b");
  // Both are running at once, one on each office.
  std::set<pid_t> busy;
  Until(
      [&] {
        for (const auto& o : Offices(server_->StatusJson())) {
          if (o.state == "busy") busy.insert(o.worker);
        }
        return busy.size() == 2;
      },
      seconds(30));
  EXPECT_EQ(busy, workers);
  for (const Process* p : {&a, &b}) {
    const int status = WaitFor(p->pid);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status << " " << Read(p->err_file);
  }
  long jobs_after = 0;
  for (const auto& o : Offices(server_->StatusJson())) jobs_after += o.jobs;
  EXPECT_EQ(jobs_after, jobs_before + 2);
}

TEST_F(ServeOffice, AKilledOfficeFailsOnlyItsCommandAndThePoolGoesOn) {
  const Process client = Client({"ExecuteMacro", "macros.fods", "k.xls", "Forever"}, "killed");
  const pid_t worker = BusyWorker();
  ASSERT_GT(worker, 0);
  pid_t office = -1;
  ASSERT_TRUE(Until([&] { return (office = OfficeOf(worker)) > 0; }, seconds(10)));
  kill(office, SIGKILL);
  const int status = WaitFor(client.pid);
  const std::string err = Read(client.err_file);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 1) << status << " " << err;
  EXPECT_NE(err.find("tabulon: ExecuteMacro: office: "), std::string::npos) << err;
  EXPECT_NE(err.find("the office died (it was killed by signal 9"), std::string::npos) << err;
  // The same worker goes on with a new office.
  const Result next = server_->Run("sheets book.xlsx", work_);
  EXPECT_EQ(next.exit_code, 0) << next.err;
  EXPECT_EQ(next.out, "North\nSouth\nNotes\n");
  bool same_worker = false;
  for (const auto& o : Offices(server_->StatusJson())) same_worker = same_worker || o.worker == worker;
  EXPECT_TRUE(same_worker);
}

TEST_F(ServeOffice, AHungOfficeIsStoppedByTheWatchdog) {
  const Result hung = server_->Run("ExecuteMacro macros.fods h.xls Forever", work_);
  EXPECT_EQ(hung.exit_code, 1);
  EXPECT_NE(hung.err.find("timed out after " + std::to_string(kCallLimit) + " s"), std::string::npos) << hung.err;
  const Result next = server_->Run("sheets book.xlsx", work_);
  EXPECT_EQ(next.exit_code, 0) << next.err;
}

TEST_F(ServeOffice, AClientKilledMidCommandTakesTheCommandWithIt) {
  const Process client = Client({"ExecuteMacro", "macros.fods", "c.xls", "Forever"}, "client");
  const pid_t worker = BusyWorker();
  ASSERT_GT(worker, 0);
  pid_t office = -1;
  ASSERT_TRUE(Until([&] { return (office = OfficeOf(worker)) > 0; }, seconds(10)));
  kill(client.pid, SIGKILL);
  WaitFor(client.pid);
  // Well before the watchdog would have stopped the macro.
  EXPECT_TRUE(Until([&] { return Gone(worker) && Gone(office); }, seconds(kCallLimit / 2)))
      << "worker " << worker << " or office " << office << " still runs";
  EXPECT_NE(server_->log().find("went away; its command is stopped"), std::string::npos) << server_->log();
  const Result next = server_->Run("sheets book.xlsx", work_);
  EXPECT_EQ(next.exit_code, 0) << next.err;
}

TEST_F(ServeOffice, AClientStoppedBySigtermEndsOnceItsCommandHasStopped) {
  const Process client = Client({"ExecuteMacro", "macros.fods", "t.xls", "Forever"}, "stopped");
  const pid_t worker = BusyWorker();
  ASSERT_GT(worker, 0);
  pid_t office = -1;
  ASSERT_TRUE(Until([&] { return (office = OfficeOf(worker)) > 0; }, seconds(10)));
  kill(client.pid, SIGTERM);
  const int status = WaitFor(client.pid);
  // It ends by its signal, as it would without a server, and only after
  // the work it started is gone.
  EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGTERM) << status;
  EXPECT_TRUE(Gone(worker));
  EXPECT_TRUE(Gone(office));
}

TEST(ServeOfficeStop, SigtermQuitsEveryOfficeAndLeavesNothing) {
  Folder dir("tabulon-serve-stop-");
  fs::copy_file(TABULON_SAMPLE, dir / "book.xlsx");
  Server server(dir / "", 1);
  ASSERT_TRUE(server.ready()) << server.log();
  const Result run = server.Run("convert book.xlsx out.csv", dir / "");
  EXPECT_EQ(run.exit_code, 0) << run.err;
  const auto offices = Offices(server.StatusJson());
  ASSERT_EQ(offices.size(), 1u);
  const pid_t worker = offices[0].worker;
  const pid_t office = OfficeOf(worker);
  ASSERT_GT(office, 0);
  const int status = server.Stop(SIGTERM);
  EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGTERM) << status;
  EXPECT_TRUE(Gone(worker));
  EXPECT_TRUE(Until([&] { return Gone(office); }, seconds(5))) << "office " << office;
  EXPECT_TRUE(fs::is_empty(server.tmp()));
  EXPECT_FALSE(fs::exists(server.socket()));
}

TEST(ServeOfficeStop, AnOfficePastTheMemoryLimitIsReplaced) {
  Folder dir("tabulon-serve-memory-");
  fs::copy_file(TABULON_SAMPLE, dir / "book.xlsx");
  // Any office holds more than the smallest limit.
  Server server(dir / "", 1, {}, {"--memory-limit", "64"});
  ASSERT_TRUE(server.ready()) << server.log();
  const pid_t before = Offices(server.StatusJson())[0].worker;
  const Result r = server.Run("sheets book.xlsx", dir / "");
  EXPECT_EQ(r.exit_code, 0) << r.err;
  EXPECT_TRUE(Until(
      [&] {
        const auto offices = Offices(server.StatusJson());
        return offices.size() == 1 && offices[0].worker != before;
      },
      seconds(10)));
  EXPECT_NE(server.log().find("tabulon: serve: office 1 holds "), std::string::npos) << server.log();
  EXPECT_TRUE(Gone(before));
}

// ---- convert -j ----

class ConvertJobs : public ::testing::Test {
 protected:
  ConvertJobs() : dir_("tabulon-convert-jobs-") {}
  std::string Path(const std::string& name) const { return dir_ / name; }
  Result Convert(const std::string& args) const {
    return Shell("cd " + Quoted(dir_ / "") + " && " + TABULON_CLI + " convert " + args);
  }
  Folder dir_;
};

TEST_F(ConvertJobs, ResultsComeInTheOrderOfTheSourcesAndFailuresAtTheEnd) {
  for (const char* name : {"a.xlsx", "b.xlsx", "c.xlsx"}) fs::copy_file(TABULON_SAMPLE, Path(name));
  std::ofstream(Path("bad.xlsx")) << "not a workbook\n";
  const std::string sources = "a.xlsx bad.xlsx b.xlsx missing.xlsx c.xlsx";
  // Both result lists on stdout, and the one JSON object of the run.
  for (const std::string& options : {std::string("-t csv -m --report"), std::string("-t csv --json")}) {
    fs::remove_all(Path("one"));
    fs::remove_all(Path("two"));
    const Result one = Convert(options + " -j 1 " + sources + " one");
    const Result two = Convert(options + " -j 2 " + sources + " two");
    EXPECT_EQ(one.exit_code, 1) << one.err;
    EXPECT_EQ(two.exit_code, 1) << two.err;
    // The same text but for the folder's name.
    std::string expected_out = one.out, expected_err = one.err;
    for (std::string* text : {&expected_out, &expected_err}) {
      for (size_t at; (at = text->find(Path("one"))) != std::string::npos;)
        text->replace(at, Path("one").size(), Path("two"));
    }
    EXPECT_EQ(two.out, expected_out) << options;
    EXPECT_EQ(two.err, expected_err) << options;
  }
  // Written (by the last run): the three workbooks' files, nothing for the
  // two failures.
  std::set<std::string> written;
  for (const auto& entry : fs::directory_iterator(Path("two"))) written.insert(entry.path().filename().string());
  EXPECT_EQ(written, (std::set<std::string>{"a.csv", "b.csv", "c.csv"}));
  const Result plain = Convert("-j 2 -t csv a.xlsx b.xlsx plain");
  EXPECT_EQ(plain.exit_code, 0) << plain.err;
  EXPECT_EQ(plain.out, Path("plain/a.csv") + "\n" + Path("plain/b.csv") + "\n");
  EXPECT_TRUE(plain.err.empty()) << plain.err;
}

TEST_F(ConvertJobs, OfTwoSourcesOfOneNameTheLaterWritesLast) {
  fs::create_directories(Path("x"));
  fs::create_directories(Path("y"));
  std::ofstream(Path("x/a.csv")) << "first\n";
  std::ofstream(Path("y/a.csv")) << "second\n";
  const Result r = Convert("-j 2 -t csv x/a.csv y/a.csv out");
  EXPECT_EQ(r.exit_code, 0) << r.err;
  EXPECT_EQ(Read(Path("out/a.csv")), "second\r\n");
}

// The worker processes (tabulon __worker) that `parent` started.
std::vector<pid_t> WorkersOf(pid_t parent) {
  std::vector<pid_t> workers;
  for (const auto& entry : fs::directory_iterator("/proc")) {
    const std::string name = entry.path().filename().string();
    if (name.find_first_not_of("0123456789") != std::string::npos) continue;
    const std::string stat = Read((entry.path() / "stat").string());
    const size_t paren = stat.rfind(')');
    pid_t ppid = 0;
    if (paren == std::string::npos || sscanf(stat.c_str() + paren + 2, "%*c %d", &ppid) != 1 || ppid != parent)
      continue;
    if (Read((entry.path() / "cmdline").string()).find(std::string("__worker") + '\0') != std::string::npos)
      workers.push_back(std::stoi(name));
  }
  return workers;
}

TEST_F(ConvertJobs, ATerminatedRunEndsItsWorkersAndOfficesFirst) {
  std::vector<std::string> all = {"convert", "-j", "2", "-t", "csv"};
  for (int i = 0; i < 20; ++i) {
    fs::copy_file(TABULON_SAMPLE, Path("b" + std::to_string(i) + ".xlsx"));
    all.push_back("b" + std::to_string(i) + ".xlsx");
  }
  all.push_back("out");
  fs::create_directories(Path("tmp"));
  const Process run = StartTabulon(all, dir_ / "", {"TMPDIR=" + Path("tmp")}, "run");
  std::vector<pid_t> offices;
  std::vector<pid_t> workers;
  ASSERT_TRUE(Until(
      [&] {
        workers = WorkersOf(run.pid);
        offices.clear();
        for (const pid_t w : workers) {
          if (const pid_t o = OfficeOf(w); o > 0) offices.push_back(o);
        }
        return workers.size() == 2 && offices.size() == 2;
      },
      seconds(120)));
  kill(run.pid, SIGTERM);
  const int status = WaitFor(run.pid);
  EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGTERM) << status;
  for (const pid_t p : workers) EXPECT_TRUE(Gone(p)) << "worker " << p;
  for (const pid_t p : offices) EXPECT_TRUE(Until([&] { return Gone(p); }, seconds(2))) << "office " << p;
  EXPECT_TRUE(fs::is_empty(Path("tmp")));
}

TEST_F(ConvertJobs, AMissingTargetFolderIsMade) {
  fs::copy_file(TABULON_SAMPLE, Path("book.xlsx"));
  const Result r = Convert("-s 1 book.xlsx missing/dir/out.csv");
  EXPECT_EQ(r.exit_code, 0) << r.err;
  EXPECT_EQ(r.out, Path("missing/dir/out.csv") + "\n");
  EXPECT_TRUE(fs::is_regular_file(Path("missing/dir/out.csv")));
}

}  // namespace
}  // namespace tabulon::testing
