// A connection to one office process of our own, and the watchdog that every
// office call runs under. Internal to the backend (includes UNO).
#pragma once

#include <sys/types.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <com/sun/star/beans/PropertyValue.hpp>
#include <com/sun/star/frame/XDesktop2.hpp>
#include <com/sun/star/lang/DisposedException.hpp>
#include <com/sun/star/lang/XComponent.hpp>
#include <com/sun/star/lang/XMultiComponentFactory.hpp>
#include <com/sun/star/uno/Exception.hpp>
#include <com/sun/star/uno/Reference.hxx>
#include <com/sun/star/uno/Sequence.hxx>
#include <com/sun/star/uno/XComponentContext.hpp>
#include <rtl/ref.hxx>
#include <rtl/ustring.hxx>

#include "office/office.h"
#include "office/uno/office_process.h"
#include "office/uno/uno_factory.h"

namespace tabulon::office::uno {

namespace css = ::com::sun::star;
using css::uno::Reference;
using css::uno::Sequence;
using ::rtl::OString;
using ::rtl::OUString;

// Text across the UNO edge is UTF-8 on our side.
OUString ToOUString(const std::string& text);
std::string ToUtf8(const OUString& text);
std::string FileUrl(const std::string& path);  // absolute file:// URL, percent-encoded
// The path made absolute from the host's working folder, normalised.
std::string AbsolutePath(const std::string& path);

css::beans::PropertyValue Prop(const char* name, const css::uno::Any& value);

template <typename T>
Sequence<T> ToSequence(const std::vector<T>& items) {
  return Sequence<T>(items.data(), static_cast<sal_Int32>(items.size()));
}

// Waits, on a thread of its own, for a deadline set by the caller thread; on
// expiry it runs its action (killing the office). It never waits for the
// office, so a stopped office still fails within the limit.
class Watchdog {
 public:
  explicit Watchdog(std::function<void()> on_expiry);
  ~Watchdog();
  Watchdog(const Watchdog&) = delete;
  Watchdog& operator=(const Watchdog&) = delete;

  void Arm(std::chrono::milliseconds limit);
  void Disarm();
  bool Fired() const { return fired_.load(); }

 private:
  void Loop();

  std::function<void()> on_expiry_;
  std::mutex mutex_;
  std::condition_variable cv_;
  bool armed_ = false;
  bool stop_ = false;
  std::chrono::steady_clock::time_point deadline_;
  std::atomic<bool> fired_{false};
  std::thread thread_;
};

class BridgeListener;

class Session {
 public:
  // Starts an office and connects to it. Throws Error(kAutomation) when no
  // office is installed there or it cannot be started and reached.
  static std::unique_ptr<Session> Start(const UnoOptions& options);
  ~Session();
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  // Runs one office call (which may make several UNO calls) under the
  // watchdog and turns every failure into office::Error: kTimeout when the
  // watchdog fired, kDied when the office is gone, else kAutomation (or the
  // kind an inner office::Error carried). Calls made inside a call share its
  // time limit.
  template <typename F>
  auto Call(const char* what, F&& f) -> decltype(f()) {
    if (depth_ > 0) return f();
    SigpipeBlock block;
    CheckUsable(what);
    Scope scope(*this);
    try {
      return f();
    } catch (const Error& e) {
      throw Failure(what, e.what(), e.kind());
    } catch (const css::lang::DisposedException& e) {
      // The bridge itself says the connection is gone.
      bridge_disposed_ = true;
      throw Failure(what, ToUtf8(e.Message), ErrorKind::kDied);
    } catch (const css::uno::Exception& e) {
      throw Failure(what, ToUtf8(e.Message), ErrorKind::kAutomation);
    } catch (const std::exception& e) {
      throw Failure(what, e.what(), ErrorKind::kAutomation);
    }
  }

  // Creates a service of the office.
  Reference<css::uno::XInterface> Create(const char* service);
  // A setting of the office's product configuration (ooSetupVersion, ...).
  std::string ProductSetting(const char* name);

  // Asks the office to terminate, waits a bounded time, kills what is left,
  // removes the profile. The session is dead afterwards.
  void Quit();
  // Kills the office at once and removes the profile.
  void Kill();
  bool Alive();
  // What was found about the office process itself once it is gone by
  // surprise: the watchdog's "timed out after N s", or that it died (and
  // how). Empty while it runs, and after a Quit.
  const std::string& finding() const { return finding_; }
  int depth() const { return depth_; }  // office calls under way on this thread
  pid_t pid() const { return process_->pid(); }
  const std::string& program_dir() const { return process_->program_dir(); }
  // The office's own folder; it goes with the office.
  std::string profile_dir() const { return process_->profile_dir(); }
  void SetCallTimeLimit(std::chrono::milliseconds limit) { call_limit_ = limit; }

  const Reference<css::uno::XComponentContext>& context() const { return context_; }
  const Reference<css::frame::XDesktop2>& desktop() const { return desktop_; }

 private:
  Session(const UnoOptions& options, std::string program_dir);

  struct Scope {
    explicit Scope(Session& s) : session(s) {
      ++session.depth_;
      session.watchdog_.Arm(session.call_limit_);
    }
    ~Scope() {
      session.watchdog_.Disarm();
      --session.depth_;
    }
    Session& session;
  };

  void Connect();
  void CheckUsable(const char* what);
  Error Failure(const char* what, const std::string& message, ErrorKind kind);
  void MarkDead();

  UnoOptions options_;
  std::chrono::milliseconds call_limit_;
  std::unique_ptr<OfficeProcess> process_;
  Watchdog watchdog_;
  std::atomic<bool> bridge_disposed_{false};
  bool dead_ = false;
  std::string finding_;
  int depth_ = 0;
  Reference<css::lang::XComponent> bridge_;
  rtl::Reference<BridgeListener> listener_;
  Reference<css::uno::XComponentContext> context_;
  Reference<css::frame::XDesktop2> desktop_;
};

}  // namespace tabulon::office::uno
