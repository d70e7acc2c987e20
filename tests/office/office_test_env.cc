#include "office_test_env.h"

#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <fstream>
#include <mutex>
#include <set>
#include <sstream>
#include <thread>

namespace tabulon::office::uno::testing {
namespace {

std::mutex g_mutex;
std::set<pid_t> g_started;
std::unique_ptr<UnoApplication> g_shared;
pid_t g_shared_pid = -1;

std::set<pid_t> Started() {
  std::lock_guard<std::mutex> lock(g_mutex);
  return g_started;
}

class Environment : public ::testing::Environment {
 public:
  void TearDown() override {
    if (g_shared) {
      const pid_t pid = g_shared->ProcessId();
      g_shared->Quit();
      g_shared.reset();
      EXPECT_TRUE(EventuallyGone(pid)) << "the shared office " << pid << " is still running";
    }
    for (pid_t pid : Started())
      EXPECT_TRUE(EventuallyGone(pid)) << "office " << pid << " is still running";
  }
};

}  // namespace

void RecordStarted(pid_t pid) {
  std::lock_guard<std::mutex> lock(g_mutex);
  g_started.insert(pid);
}

UnoApplication& SharedExcel() {
  if (!g_shared || !g_shared->IsAlive()) {
    g_shared = MakeUnoFactory()->CreateUnoExcel();
    g_shared_pid = g_shared->ProcessId();
    RecordStarted(g_shared_pid);
  }
  // Tests may leave workbooks open when they fail; each starts clean.
  g_shared->GetWorkbooks().Close();
  if (g_shared->ProcessId() != g_shared_pid) {
    g_shared_pid = g_shared->ProcessId();
    RecordStarted(g_shared_pid);
  }
  return *g_shared;
}

std::unique_ptr<UnoApplication> OwnExcel(UnoOptions options) {
  auto app = MakeUnoFactory(options)->CreateUnoExcel();
  RecordStarted(app->ProcessId());
  return app;
}

std::unique_ptr<UnoWordApplication> OwnWord(UnoOptions options) {
  auto app = MakeUnoFactory(options)->CreateUnoWord();
  RecordStarted(app->ProcessId());
  return app;
}

bool ProcessGone(pid_t pid) { return kill(pid, 0) != 0 && errno == ESRCH; }

bool Stop(pid_t pid) {
  if (kill(pid, SIGSTOP) != 0) return false;
  const std::string tasks = "/proc/" + std::to_string(pid) + "/task";
  for (int i = 0; i < 500; ++i) {
    bool all = true;
    std::error_code ec;
    for (const auto& task : std::filesystem::directory_iterator(tasks, ec)) {
      const std::string stat = ReadFile(task.path() / "stat");
      const size_t paren = stat.rfind(')');
      if (paren == std::string::npos || paren + 2 >= stat.size() || stat[paren + 2] != 'T') all = false;
    }
    if (all && !ec) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return false;
}

bool EventuallyGone(pid_t pid) {
  for (int i = 0; i < 100; ++i) {
    if (ProcessGone(pid)) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  return false;
}

std::string ReadFile(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream s;
  s << in.rdbuf();
  return s.str();
}

void WriteFile(const std::filesystem::path& path, const std::string& bytes) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out << bytes;
}

void OfficeTest::SetUp() {
  char tmpl[] = "/tmp/tabulon-office-test-XXXXXX";
  ASSERT_NE(mkdtemp(tmpl), nullptr);
  dir_ = tmpl;
}

void OfficeTest::TearDown() {
  std::error_code ec;
  std::filesystem::remove_all(dir_, ec);
  // Every office a test started, other than the shared one, is gone.
  for (pid_t pid : Started()) {
    if (g_shared && pid == g_shared->ProcessId()) continue;
    EXPECT_TRUE(EventuallyGone(pid)) << "office " << pid << " outlived its test";
  }
}

}  // namespace tabulon::office::uno::testing

int main(int argc, char** argv) {
  ::testing::InitGoogleTest(&argc, argv);
  ::testing::AddGlobalTestEnvironment(new tabulon::office::uno::testing::Environment());
  return RUN_ALL_TESTS();
}
