// tabulon serve and its clients. ServeContract: what needs no office (the
// server's workers find none), so the text commands, usage errors, the
// socket's safety and a clean stop. ServeOffice: commands on real offices,
// offices that die or hang, clients that go away, convert -j.
#include <fcntl.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <fstream>
#include <string>
#include <vector>

#include "frames.h"
#include "requests.h"
#include "serve_run.h"

namespace tabulon::testing {
namespace {

namespace fs = std::filesystem;
using std::chrono::milliseconds;
using std::chrono::seconds;

std::string Listing(const std::string& folder) {
  std::string names;
  std::error_code ec;
  for (fs::directory_iterator it(folder, ec), end; !ec && it != end; it.increment(ec))
    names += it->path().filename().string() + " ";
  return names;
}

// A folder for the test with a server in it that finds no office.
class ServeContract : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    dir_ = new Folder("tabulon-serve-contract-");
    server_ = new Server(*dir_ / "", 2, {"TABULON_OFFICE=" + *dir_ / "no-office"});
  }
  static void TearDownTestSuite() {
    delete server_;
    delete dir_;
  }
  void SetUp() override { ASSERT_TRUE(server_->ready()) << server_->log(); }

  // The same command line run directly, through --server and through
  // TABULON_SERVER, in `cwd`, with `prepare` run before each: all three
  // results.
  static std::vector<Result> ThreeWays(
      const std::string& args, const std::string& cwd, const std::string& env = "",
      const std::function<void()>& prepare = [] {}) {
    const std::string cd = "cd " + Quoted(cwd) + " && " + env + " ";
    std::vector<Result> results;
    prepare();
    results.push_back(Shell(cd + "TABULON_OFFICE=" + Quoted(*dir_ / "no-office") + " " + TABULON_CLI + " " + args));
    prepare();
    results.push_back(Shell(cd + TABULON_CLI + " --server " + Quoted(server_->socket()) + " " + args));
    prepare();
    results.push_back(Shell(cd + "TABULON_SERVER=" + Quoted(server_->socket()) + " " + TABULON_CLI + " " + args));
    return results;
  }

  static Folder* dir_;
  static Server* server_;
};
Folder* ServeContract::dir_ = nullptr;
Server* ServeContract::server_ = nullptr;

TEST_F(ServeContract, ACommandPrintsAndEndsAsItDoesWithoutAServer) {
  const std::string work = *dir_ / "work";
  fs::create_directories(work + "/sub");
  std::ofstream(work + "/in.csv") << " a , b \r\n1 ,2\r\n";
  std::ofstream(work + "/lines.txt") << "csvTrimCSVFile in.csv sub/b1.csv\nnosuch\ncsvTrimCSVFile - -\n";
  std::string big, trimmed;
  for (int i = 0; i < 40000; ++i) {
    big += " " + std::to_string(i) + " , x ,y\n";
    trimmed += std::to_string(i) + ",x,y\n";
  }
  std::ofstream(work + "/big.csv") << big;
  const struct {
    std::string args;
    int exit_code;
    std::string env;
  } cases[] = {
      {"csvTrimCSVFile in.csv sub/out.csv && cat sub/out.csv", 0, ""},  // relative paths, a file written
      {"csvTrimCSVFile - - < in.csv", 0, ""},                           // standard input to standard output
      {"csvTrimCSVFile big.csv -", 0, ""},                              // more than any buffer
      {"csvTrimCSVFile in.csv /dev/stdout", 0, ""},                     // the client's own stdout by name
      {"csvTrimCSVFile missing.csv out.csv", 1, ""},
      {"csvTrimCSVFile --json missing.csv out.csv", 1, ""},
      {"nosuch in.csv", 2, ""},
      {"convert --bogus in.csv out.csv", 2, ""},
      {"convert in.csv", 2, ""},
      // A setting from the environment: the conversion refuses an output
      // password whichever way it comes.
      {"convert in.csv out.xlsx", 2, "TABULON_OUTPUT_PASSWORD=secret"},
      // A workbook command without an office: -3 and what was found.
      {"sheets in.csv", 1, ""},
      {"batch lines.txt < in.csv", 2, ""},
      {"help convert", 0, ""},
      // The caller's file mode mask for what the command writes.
      {"csvTrimCSVFile in.csv sub/out.csv && stat -c %a sub/out.csv", 0, "umask 077 &&"},
  };
  for (const auto& c : cases) {
    const std::vector<Result> r = ThreeWays(c.args, work, c.env, [&] { fs::remove(work + "/sub/out.csv"); });
    EXPECT_EQ(r[0].exit_code, c.exit_code) << c.args << "\n" << r[0].err;
    for (size_t i = 1; i < r.size(); ++i) {
      EXPECT_EQ(r[i].exit_code, r[0].exit_code) << c.args << " (" << i << ")\n" << r[i].err;
      EXPECT_EQ(r[i].out, r[0].out) << c.args << " (" << i << ")";
      EXPECT_EQ(r[i].err, r[0].err) << c.args << " (" << i << ")";
    }
  }
  // The output that went through the server is whole.
  EXPECT_TRUE(ThreeWays("csvTrimCSVFile big.csv -", work)[1].out == trimmed);
}

TEST_F(ServeContract, AServerThatCannotBeReachedIsAFailureNamingItsSocket) {
  const std::string work = *dir_ / "unreached";
  fs::create_directories(work);
  std::ofstream(work + "/in.csv") << "a\n";
  const std::string socket = *dir_ / "nobody-listens.sock";
  for (const std::string& script :
       {std::string(TABULON_CLI) + " --server " + socket + " csvTrimCSVFile in.csv out.csv",
        "TABULON_SERVER=" + socket + " " + TABULON_CLI + " csvTrimCSVFile in.csv out.csv",
        std::string(TABULON_CLI) + " --server=" + socket + " csvTrimCSVFile in.csv out.csv"}) {
    const Result r = Shell("cd " + work + " && " + script);
    EXPECT_EQ(r.exit_code, 1) << script;
    EXPECT_EQ(r.err, "tabulon: csvTrimCSVFile: cannot reach the server at " + socket + ": No such file or directory\n");
    EXPECT_TRUE(r.out.empty());
    EXPECT_FALSE(fs::exists(work + "/out.csv")) << "the command ran here instead";
  }
  const Result no_socket = Shell(std::string(TABULON_CLI) + " --server");
  EXPECT_EQ(no_socket.exit_code, 2);
  EXPECT_NE(no_socket.err.find("--server needs the socket"), std::string::npos) << no_socket.err;
  // Help, the version and status run here, server or none.
  EXPECT_EQ(Shell(std::string(TABULON_CLI) + " --server " + socket + " help convert").out,
            Shell(std::string(TABULON_CLI) + " help convert").out);
  EXPECT_EQ(Shell(std::string(TABULON_CLI) + " --server " + socket + " convert --help").exit_code, 0);
  const Result status = Shell(std::string(TABULON_CLI) + " --server " + socket + " status");
  EXPECT_EQ(status.exit_code, 1);
  EXPECT_NE(status.err.find("cannot reach the server at " + socket), std::string::npos) << status.err;
  // --server belongs before the command, on the command line itself.
  const Result late = Shell("cd " + work + " && " + TABULON_CLI + " csvTrimCSVFile --server " + socket + " a b");
  EXPECT_EQ(late.exit_code, 2);
}

TEST_F(ServeContract, TheSocketIsPrivateAndTakenByOneServerOnly) {
  struct stat folder, socket;
  ASSERT_EQ(stat(fs::path(server_->socket()).parent_path().c_str(), &folder), 0);
  ASSERT_EQ(stat(server_->socket().c_str(), &socket), 0);
  EXPECT_EQ(folder.st_mode & 07777, 0700u);
  EXPECT_TRUE(S_ISSOCK(socket.st_mode));
  EXPECT_EQ(socket.st_mode & 0777, 0600u);

  // A second server on the same socket is refused.
  const Result second = Shell(std::string(TABULON_CLI) + " serve --offices 1 --socket " + server_->socket());
  EXPECT_EQ(second.exit_code, 1);
  EXPECT_EQ(second.err, "tabulon: serve: a server already answers at " + server_->socket() + "\n");

  // A folder others may write to is no place for the socket.
  const std::string open_folder = *dir_ / "open";
  fs::create_directories(open_folder);
  chmod(open_folder.c_str(), 0777);
  const Result open = Shell(std::string(TABULON_CLI) + " serve --offices 1 --socket " + open_folder + "/s.sock");
  EXPECT_EQ(open.exit_code, 1);
  EXPECT_NE(open.err.find("the folder " + open_folder + " (mode 0777) is not private"), std::string::npos) << open.err;
  EXPECT_TRUE(fs::is_empty(open_folder));

  const Result bad = Shell(std::string(TABULON_CLI) + " serve --offices 0 --socket " + open_folder + "/s.sock");
  EXPECT_EQ(bad.exit_code, 2);
  EXPECT_NE(bad.err.find("--offices: '0' is out of range"), std::string::npos) << bad.err;
}

TEST_F(ServeContract, StatusShowsTheOfficesTheJobsAndTheQueue) {
  const std::string before = server_->StatusJson();
  const auto offices = Offices(before);
  ASSERT_EQ(offices.size(), 2u) << before;
  long jobs_before = 0;
  for (const auto& o : offices) jobs_before += o.jobs;
  const Result run = server_->Run("csvTrimCSVFile - - < /dev/null", *dir_ / "");
  EXPECT_EQ(run.exit_code, 0) << run.err;
  const std::string after = server_->StatusJson();
  long jobs_after = 0;
  for (const auto& o : Offices(after)) jobs_after += o.jobs;
  EXPECT_EQ(jobs_after, jobs_before + 1) << after;
  EXPECT_NE(after.find("\"queued\":0"), std::string::npos) << after;

  const Result text = Shell(std::string(TABULON_CLI) + " --server " + server_->socket() + " status");
  EXPECT_EQ(text.exit_code, 0) << text.err;
  EXPECT_NE(text.out.find("offices 2 of 2: 0 busy, 2 idle, 0 starting\n"), std::string::npos) << text.out;
  EXPECT_NE(text.out.find(", no office\n"), std::string::npos) << text.out;
  EXPECT_EQ(Shell(std::string(TABULON_CLI) + " serve --status --socket " + server_->socket()).out.substr(0, 7),
            "server ");
}

// A raw client: sends `frame` (and these descriptors), returns what the
// server answered.
tabulon::cli::RunResult Raw(const std::string& socket, const std::string& frame, std::vector<int> fds = {}) {
  const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::snprintf(address.sun_path, sizeof address.sun_path, "%s", socket.c_str());
  tabulon::cli::RunResult result{-1, 0, "", 0};
  if (connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) return result;
  if (fds.empty()) {
    if (write(fd, frame.data(), frame.size()) < 0) return result;
  } else {
    tabulon::cli::Message message;
    std::string error;
    tabulon::cli::DecodeBody(frame.substr(4), message, error);
    tabulon::cli::SendFrame(fd, message, fds);
  }
  tabulon::cli::FrameReader reader;
  if (reader.ReadWhole(fd) == tabulon::cli::FrameReader::State::kComplete) {
    std::string error;
    tabulon::cli::DecodeDone(reader.TakeMessage(), result, error);
  }
  close(fd);
  return result;
}

TEST_F(ServeContract, MalformedRequestsAreRefusedAndTheServerGoesOn) {
  using tabulon::cli::EncodeFrame;
  using tabulon::cli::EncodeRun;
  using tabulon::cli::Message;
  using tabulon::cli::RunRequest;
  const std::string s = server_->socket();
  const struct {
    std::string frame;
    std::vector<int> fds;
    std::string says;
  } cases[] = {
      {std::string("\x7f\xff\xff\xff", 4), {}, "larger than the limit"},
      {EncodeFrame(Message{'R', {"x"}}), {}, "not a command line"},
      {EncodeFrame(Message{'R', {"tabulon-serve-0", "/", "18", "0"}}), {}, "the client speaks tabulon-serve-0"},
      {EncodeFrame(EncodeRun(RunRequest{"/", 022, {"csvTrimCSVFile", "-", "-"}, {}})), {}, "standard streams"},
      {EncodeFrame(EncodeRun(RunRequest{"/", 022, {"x"}, {"LD_PRELOAD=/x.so"}})), {0, 1, 2}, "'LD_PRELOAD' is not"},
  };
  for (const auto& c : cases) {
    const auto r = Raw(s, c.frame, c.fds);
    EXPECT_EQ(r.status, 2) << c.says;
    EXPECT_NE(r.message.find(c.says), std::string::npos) << r.message;
  }
  // A client that connects and leaves, or sends half a frame and leaves.
  for (const std::string& bytes : {std::string(), std::string("\0\0\0\x20R", 5)}) {
    const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::snprintf(address.sun_path, sizeof address.sun_path, "%s", s.c_str());
    ASSERT_EQ(connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    if (!bytes.empty()) ASSERT_EQ(write(fd, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
    close(fd);
  }
  const Result after = server_->Run("csvTrimCSVFile - - < /dev/null", *dir_ / "");
  EXPECT_EQ(after.exit_code, 0) << after.err;
}

// Runs `args` as another user (nobody); its exit status and stderr. Empty
// error text with -1 when the test cannot switch users.
Result AsAnotherUser(const std::vector<std::string>& args) {
  int err_pipe[2];
  if (pipe(err_pipe) != 0) return {-1, "", ""};
  const pid_t pid = fork();
  if (pid == 0) {
    close(err_pipe[0]);
    dup2(err_pipe[1], 2);
    const int null = open("/dev/null", O_RDWR);
    dup2(null, 0);
    dup2(null, 1);
    if (setgroups(0, nullptr) != 0 || setgid(65534) != 0 || setuid(65534) != 0) _exit(120);
    std::vector<char*> argv{const_cast<char*>(TABULON_CLI)};
    for (const std::string& a : args) argv.push_back(const_cast<char*>(a.c_str()));
    argv.push_back(nullptr);
    execv(TABULON_CLI, argv.data());
    _exit(121);
  }
  close(err_pipe[1]);
  Result r{-1, "", ""};
  char buffer[4096];
  ssize_t n;
  while ((n = read(err_pipe[0], buffer, sizeof buffer)) > 0) r.err.append(buffer, static_cast<size_t>(n));
  close(err_pipe[0]);
  const int status = WaitFor(pid);
  r.exit_code = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  return r;
}

TEST_F(ServeContract, AnotherUserIsRefused) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root to run a client as a second user (nobody)";
  const std::vector<std::string> args = {"--server", server_->socket(), "csvTrimCSVFile", "-", "-"};
  // The private folder keeps the other user from the socket.
  Result r = AsAnotherUser(args);
  if (r.exit_code == 120 || r.exit_code == 121) GTEST_SKIP() << "cannot run the command line as nobody here";
  EXPECT_EQ(r.exit_code, 1);
  EXPECT_NE(r.err.find("cannot reach the server at " + server_->socket() + ": Permission denied"), std::string::npos)
      << r.err;
  // Even with the folder and the socket opened up, the server checks who
  // is calling.
  const std::string folder = fs::path(server_->socket()).parent_path().string();
  chmod(folder.c_str(), 0711);
  chmod(server_->socket().c_str(), 0666);
  r = AsAnotherUser(args);
  chmod(server_->socket().c_str(), 0600);
  chmod(folder.c_str(), 0700);
  EXPECT_EQ(r.exit_code, 1);
  EXPECT_EQ(r.err, "tabulon: the server at " + server_->socket() + " serves only the user it runs as\n");
}

TEST_F(ServeContract, AMissingTargetFolderIsMadeOnlyForWhatIsWritten) {
  const std::string work = *dir_ / "folders";
  fs::create_directories(work);
  std::ofstream(work + "/in.csv") << "a\n";
  // Nothing to write (no source): no folder is left behind.
  // No office is needed to find that the sources are missing.
  const std::string run = "cd " + work + " && TABULON_OFFICE=" + *dir_ / "no-office" + " " + TABULON_CLI;
  const Result r = Shell(run + " convert nothere.xlsx new/deeper/out.csv");
  EXPECT_EQ(r.exit_code, 1);
  EXPECT_FALSE(fs::exists(work + "/new"));
  const Result several = Shell(run + " convert -t csv a.xlsx b.xlsx made/");
  EXPECT_EQ(several.exit_code, 1);
  EXPECT_FALSE(fs::exists(work + "/made"));
}

TEST_F(ServeContract, AWorkerIsReplacedAfterItsNumberOfJobs) {
  Folder dir("tabulon-serve-jobs-");
  Server server(dir / "", 1, {"TABULON_OFFICE=/nonexistent/office"}, {"--jobs-per-office", "2"});
  ASSERT_TRUE(server.ready()) << server.log();
  std::vector<pid_t> workers;
  for (int i = 0; i < 5; ++i) {
    const Result r = server.Run("csvTrimCSVFile - - < /dev/null", dir / "");
    EXPECT_EQ(r.exit_code, 0) << r.err;
    ASSERT_TRUE(Until([&] { return Offices(server.StatusJson()).size() == 1; }, seconds(10)));
    workers.push_back(Offices(server.StatusJson())[0].worker);
  }
  // Two jobs on each worker: a new one after the second and the fourth.
  EXPECT_NE(workers[1], workers[0]);
  EXPECT_EQ(workers[2], workers[1]);
  EXPECT_NE(workers[3], workers[2]);
  EXPECT_EQ(workers[4], workers[3]);
  EXPECT_NE(server.log().find("tabulon: serve: office 1 did 2 jobs; starting another\n"), std::string::npos)
      << server.log();
}

// Runs last in this suite: the server's stop.
TEST_F(ServeContract, ZStopsCleanlyOnSigtermAndSigint) {
  for (const int signal_number : {SIGTERM, SIGINT}) {
    Folder dir("tabulon-serve-stop-");
    Server server(dir / "", 2, {"TABULON_OFFICE=/nonexistent/office"});
    ASSERT_TRUE(server.ready()) << server.log();
    std::vector<pid_t> workers;
    for (const auto& o : Offices(server.StatusJson())) workers.push_back(o.worker);
    ASSERT_EQ(workers.size(), 2u);
    const int status = server.Stop(signal_number);
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == signal_number) << status;
    EXPECT_FALSE(fs::exists(fs::path(server.socket()).parent_path())) << "the socket's folder is left";
    EXPECT_TRUE(fs::is_empty(server.tmp())) << Listing(server.tmp());
    for (const pid_t w : workers) EXPECT_TRUE(Until([&] { return Gone(w); }, seconds(5))) << "worker " << w;
  }
}

}  // namespace
}  // namespace tabulon::testing
