#include "convert_parallel.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <memory>

#include "command.h"
#include "frames.h"
#include "json_part.h"
#include "requests.h"
#include "tabulon/result_codes.h"
#include "worker_process.h"

namespace tabulon::cli {

namespace {

// One file's run: what it printed and how it ended.
struct FileRun {
  bool started = false;
  bool done = false;
  int status = 0;
  std::string out, err;
};

struct Runner {
  WorkerProcess process;
  FrameReader reader;
  int file = -1;  // the file it runs, -1 when free
  int out_fd = -1, err_fd = -1;
  ~Runner() {
    if (out_fd >= 0) close(out_fd);
    if (err_fd >= 0) close(err_fd);
  }
};

std::string ReadAll(int fd) {
  std::string text;
  char buffer[1 << 16];
  off_t at = 0;
  for (;;) {
    const ssize_t n = pread(fd, buffer, sizeof buffer, at);
    if (n <= 0) break;
    text.append(buffer, static_cast<size_t>(n));
    at += n;
  }
  return text;
}

class Run {
 public:
  explicit Run(const ParallelConvert& run) : run_(run), files_(run.command_lines.size()) {}

  int Go() {
    const size_t count = files_.size();
    const size_t workers = std::min<size_t>(static_cast<size_t>(std::max(run_.jobs, 1)), count);
    for (size_t i = 0; i < workers; ++i) AddRunner();
    ShowProgress();
    while (finished_ < count) {
      StartFree();
      if (runners_.empty()) {
        // No worker could be started: what is left fails with the reason.
        for (size_t i = 0; i < count; ++i) {
          if (!files_[i].done) Finish(i, kExitFailure, "", Line(i, start_error_));
        }
        break;
      }
      Wait();
    }
    for (auto& r : runners_) r->process.CloseChannel();
    for (auto& r : runners_) r->process.QuitAndWait();
    ClearProgress();
    int status = kExitSuccess;
    for (const FileRun& f : files_) {
      Err() << f.err;
      if (f.status != kExitSuccess && status == kExitSuccess) status = f.status;
    }
    Err() << std::flush;
    if (run_.json) PrintJson(status);
    return status;
  }

 private:
  std::string Line(size_t file, const std::string& why) const {
    return "tabulon: convert: " + std::to_string(kOfficeUnavailable) + " " + why + ": " + run_.sources[file] + "\n";
  }

  void AddRunner() {
    auto runner = std::make_unique<Runner>();
    if (!runner->process.Start(start_error_)) return;
    runners_.push_back(std::move(runner));
  }

  // The first file not yet started that may start: none of the files
  // before it of the same name is still to finish.
  int NextFile() const {
    for (size_t j = 0; j < files_.size(); ++j) {
      if (files_[j].started) continue;
      bool blocked = false;
      for (size_t i = 0; i < j && !blocked; ++i) {
        blocked = !files_[i].done && run_.output_names[i] == run_.output_names[j];
      }
      if (!blocked) return static_cast<int>(j);
    }
    return -1;
  }

  void StartFree() {
    for (auto& r : runners_) {
      if (r->file >= 0) continue;
      const int file = NextFile();
      if (file < 0) return;
      r->out_fd = memfd_create("tabulon-out", MFD_CLOEXEC);
      r->err_fd = memfd_create("tabulon-err", MFD_CLOEXEC);
      const int in_fd = open("/dev/null", O_RDONLY | O_CLOEXEC);
      std::error_code ec;
      const mode_t mask = umask(0);
      umask(mask);
      const RunRequest request{std::filesystem::current_path(ec).string(), static_cast<int>(mask),
                               run_.command_lines[file], run_.env};
      const bool sent = r->out_fd >= 0 && r->err_fd >= 0 && in_fd >= 0 &&
                        SendFrame(r->process.channel(), EncodeRun(request), {in_fd, r->out_fd, r->err_fd});
      if (in_fd >= 0) close(in_fd);
      files_[file].started = true;
      r->file = file;
      if (!sent) {
        Lost(*r);
        return;  // the list of runners changed
      }
    }
  }

  void Wait() {
    std::vector<pollfd> fds;
    for (auto& r : runners_) fds.push_back({r->process.channel(), POLLIN, 0});
    if (poll(fds.data(), fds.size(), 1000) <= 0) return;
    std::vector<Runner*> ready;
    for (size_t i = 0; i < fds.size(); ++i) {
      if (fds[i].revents != 0) ready.push_back(runners_[i].get());
    }
    for (Runner* r : ready) {
      // Reading one may have replaced another.
      if (std::any_of(runners_.begin(), runners_.end(), [&](const auto& p) { return p.get() == r; })) Read(*r);
    }
  }

  void Read(Runner& r) {
    const FrameReader::State state = r.reader.ReadFrom(r.process.channel());
    if (state == FrameReader::State::kNeedMore) return;
    if (state != FrameReader::State::kComplete) {
      Lost(r);
      return;
    }
    const Message message = r.reader.TakeMessage();
    std::vector<int> stray = r.reader.TakeFds();
    CloseAll(stray);
    if (message.type == kWarmMessage) return;
    RunResult result;
    std::string error;
    if (r.file < 0 || !DecodeDone(message, result, error)) {
      Lost(r);
      return;
    }
    const size_t file = static_cast<size_t>(r.file);
    Finish(file, result.status != 0 ? result.status : (result.signal != 0 ? kExitFailure : 0), ReadAll(r.out_fd),
           ReadAll(r.err_fd) + result.message);
    Free(r);
  }

  void Free(Runner& r) {
    r.file = -1;
    close(r.out_fd);
    close(r.err_fd);
    r.out_fd = r.err_fd = -1;
  }

  // A worker that died (with its office): the file it ran fails, and
  // another worker takes its place while files are left.
  void Lost(Runner& r) {
    // The workers end because the program does (a termination signal):
    // nothing is to be reported, the signal thread ends the program.
    while (ProgramEnding()) pause();
    r.process.CloseChannel();
    r.process.TerminateAndWait(std::chrono::seconds(2));
    if (r.file >= 0) {
      const size_t file = static_cast<size_t>(r.file);
      Finish(file, kExitFailure, r.out_fd >= 0 ? ReadAll(r.out_fd) : "",
             (r.err_fd >= 0 ? ReadAll(r.err_fd) : "") +
                 Line(file, "the office process converting it ended before it finished"));
      Free(r);
    }
    runners_.erase(std::remove_if(runners_.begin(), runners_.end(), [&](const auto& p) { return p.get() == &r; }),
                   runners_.end());
    if (finished_ < files_.size() && restarts_++ < files_.size()) AddRunner();
  }

  void Finish(size_t file, int status, std::string out, std::string err) {
    FileRun& f = files_[file];
    f.done = true;
    f.status = status;
    f.out = std::move(out);
    f.err = std::move(err);
    ++finished_;
    if (status != kExitSuccess && run_.json) {
      // A file whose run ended without its part (its worker died) is still
      // one of the failures of the whole run.
      std::string before;
      JsonPart part;
      if (!SplitJsonPart(f.out, before, part)) {
        part.failures = "[" +
                        JsonObject()
                            .Add("file", run_.sources[file])
                            .Add("code", static_cast<int32_t>(kOfficeUnavailable))
                            .Add("message", "the office process converting it ended before it finished")
                            .str() +
                        "]";
        f.out += FormatJsonPart(part);
      }
    }
    PrintDone();
  }

  // Standard output in the order of the sources, as far as it is done.
  void PrintDone() {
    ClearProgress();
    while (printed_ < files_.size() && files_[printed_].done) {
      std::string text = files_[printed_].out;
      if (run_.json) {
        std::string before;
        JsonPart part;
        if (SplitJsonPart(text, before, part)) {
          text = before;
          if (part.code != "-") last_code_ = part.code;
          AppendJsonArray(all_files_, part.files);
          AppendJsonArray(all_sheets_, part.sheets);
          AppendJsonArray(all_failures_, part.failures);
        }
      }
      Out() << text;
      ++printed_;
    }
    Out() << std::flush;
    ShowProgress();
  }

  void ShowProgress() {
    if (!run_.progress || finished_ >= files_.size()) return;
    Err() << "\r[" << finished_ << "/" << files_.size() << " done] converting on " << runners_.size()
          << " offices\x1b[K" << std::flush;
    progress_shown_ = true;
  }

  void ClearProgress() {
    if (!progress_shown_) return;
    Err() << "\r\x1b[K" << std::flush;
    progress_shown_ = false;
  }

  void PrintJson(int status) {
    Out() << "{" << JsonString("command") << ":" << JsonString("convert") << "," << JsonString("code") << ":"
          << (status == kExitSuccess ? std::string("0") : last_code_) << "," << JsonString("files") << ":" << all_files_
          << "," << JsonString("sheets") << ":" << all_sheets_ << "," << JsonString("failures") << ":" << all_failures_
          << "}\n"
          << std::flush;
  }

  const ParallelConvert& run_;
  std::vector<FileRun> files_;
  std::vector<std::unique_ptr<Runner>> runners_;
  size_t finished_ = 0;
  size_t printed_ = 0;
  size_t restarts_ = 0;
  std::string start_error_;
  bool progress_shown_ = false;
  std::string last_code_ = "0";
  std::string all_files_ = "[]", all_sheets_ = "[]", all_failures_ = "[]";
};

}  // namespace

int RunParallelConvert(const ParallelConvert& run) { return Run(run).Go(); }

}  // namespace tabulon::cli
