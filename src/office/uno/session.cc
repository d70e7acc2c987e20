#include "office/uno/session.h"

#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <cctype>
#include <filesystem>

#include <com/sun/star/beans/NamedValue.hpp>
#include <com/sun/star/bridge/BridgeFactory.hpp>
#include <com/sun/star/configuration/theDefaultProvider.hpp>
#include <com/sun/star/container/XNameAccess.hpp>
#include <com/sun/star/bridge/XBridge.hpp>
#include <com/sun/star/connection/Connector.hpp>
#include <com/sun/star/connection/NoConnectException.hpp>
#include <com/sun/star/frame/Desktop.hpp>
#include <com/sun/star/lang/XEventListener.hpp>
#include <cppuhelper/bootstrap.hxx>
#include <cppuhelper/implbase1.hxx>
#include <rtl/bootstrap.hxx>
#include <rtl/uri.hxx>

namespace tabulon::office::uno {

using css::uno::Any;
using css::uno::UNO_QUERY;
using css::uno::UNO_QUERY_THROW;

// Both run once per text cell of every block read or written: no
// intermediate copies, and ASCII text (the bulk of most sheets) is copied
// to UTF-8 as it is.
OUString ToOUString(const std::string& text) {
  return OUString(text.data(), static_cast<sal_Int32>(text.size()), RTL_TEXTENCODING_UTF8);
}

std::string ToUtf8(const OUString& text) {
  const sal_Unicode* units = text.getStr();
  const sal_Int32 length = text.getLength();
  std::string out(static_cast<size_t>(length), '\0');
  for (sal_Int32 i = 0; i < length; ++i) {
    if (units[i] >= 0x80) {
      const OString s = OUStringToOString(text, RTL_TEXTENCODING_UTF8);
      return std::string(s.getStr(), s.getLength());
    }
    out[static_cast<size_t>(i)] = static_cast<char>(units[i]);
  }
  return out;
}

std::string AbsolutePath(const std::string& path) {
  if (path.empty()) return path;
  std::error_code ec;
  std::string abs = std::filesystem::absolute(path, ec).lexically_normal().string();
  return ec ? path : abs;
}

std::string FileUrl(const std::string& path) {
  const std::string abs = AbsolutePath(path);
  std::string url = "file://";
  static const char kHex[] = "0123456789ABCDEF";
  for (unsigned char c : abs) {
    if (std::isalnum(c) || c == '/' || c == '-' || c == '_' || c == '.' || c == '~') {
      url += static_cast<char>(c);
    } else {
      url += '%';
      url += kHex[c >> 4];
      url += kHex[c & 15];
    }
  }
  return url;
}

css::beans::PropertyValue Prop(const char* name, const Any& value) {
  css::beans::PropertyValue p;
  p.Name = OUString::createFromAscii(name);
  p.Value = value;
  return p;
}

namespace {

// "60 s", or "1500 ms" for limits that are not whole seconds.
std::string LimitText(std::chrono::milliseconds limit) {
  if (limit.count() % 1000 == 0) return std::to_string(limit.count() / 1000) + " s";
  return std::to_string(limit.count()) + " ms";
}

}  // namespace

// ---- Watchdog ----

Watchdog::Watchdog(std::function<void()> on_expiry)
    : on_expiry_(std::move(on_expiry)), thread_([this] { Loop(); }) {}

Watchdog::~Watchdog() {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    stop_ = true;
  }
  cv_.notify_all();
  thread_.join();
}

void Watchdog::Arm(std::chrono::milliseconds limit) {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    armed_ = true;
    deadline_ = std::chrono::steady_clock::now() + limit;
  }
  cv_.notify_all();
}

void Watchdog::Disarm() {
  std::lock_guard<std::mutex> lock(mutex_);
  armed_ = false;
}

void Watchdog::Loop() {
  std::unique_lock<std::mutex> lock(mutex_);
  for (;;) {
    cv_.wait(lock, [&] { return stop_ || armed_; });
    if (stop_) return;
    const auto deadline = deadline_;
    if (cv_.wait_until(lock, deadline, [&] { return stop_ || !armed_ || deadline_ != deadline; }))
      continue;
    // Still armed for the same call at its deadline.
    armed_ = false;
    fired_ = true;
    lock.unlock();
    on_expiry_();
    lock.lock();
  }
}

// ---- Bridge listener ----

class BridgeListener : public cppu::WeakImplHelper1<css::lang::XEventListener> {
 public:
  explicit BridgeListener(std::atomic<bool>* disposed) : disposed_(disposed) {}
  void SAL_CALL disposing(const css::lang::EventObject&) override { disposed_->store(true); }

 private:
  std::atomic<bool>* disposed_;
};

namespace {

// The process-wide local UNO context, bootstrapped once from the office's
// fundamentalrc. Never destroyed: tearing UNO down during static destruction
// is not safe.
Reference<css::uno::XComponentContext> LocalContext(const std::string& program_dir) {
  static std::mutex mutex;
  static Reference<css::uno::XComponentContext>* context = nullptr;
  std::lock_guard<std::mutex> lock(mutex);
  if (context != nullptr) return *context;
  rtl::Bootstrap::set("URE_BOOTSTRAP",
                      ToOUString("vnd.sun.star.pathname:" + program_dir + "/fundamentalrc"));
  Reference<css::uno::XComponentContext> local;
  try {
    local = cppu::defaultBootstrap_InitialComponentContext();
  } catch (const css::uno::Exception& e) {
    throw Error(ErrorKind::kAutomation, "cannot start the UNO runtime: " + ToUtf8(e.Message));
  }
  if (!local.is()) throw Error(ErrorKind::kAutomation, "cannot start the UNO runtime");
  context = new Reference<css::uno::XComponentContext>(local);
  return *context;
}

}  // namespace

// ---- Session ----

Session::Session(const UnoOptions& options, std::string program_dir)
    : options_(options),
      call_limit_(options.call_time_limit),
      process_(std::make_unique<OfficeProcess>(std::move(program_dir))),
      watchdog_([this] { process_->KillGroup(); }) {}

Session::~Session() { Kill(); }

std::unique_ptr<Session> Session::Start(const UnoOptions& options) {
  const std::string dir = ResolveProgramDir(options.program_dir);
  if (access((dir + "/soffice.bin").c_str(), X_OK) != 0 ||
      access((dir + "/fundamentalrc").c_str(), R_OK) != 0)
    throw Error(ErrorKind::kAutomation, "no office installed at " + dir);
  std::unique_ptr<Session> session(new Session(options, dir));
  session->Connect();  // on failure the session's destructor removes everything
  return session;
}

void Session::Connect() {
  // The bridge's reader and writer threads are created here and inherit
  // this thread's signal mask.
  SigpipeBlock block;
  const auto deadline = std::chrono::steady_clock::now() + options_.start_time_limit;
  std::string reason;
  if (!process_->Prepare(options_.start_time_limit, &reason) || !process_->Spawn(&reason))
    throw Error(ErrorKind::kAutomation, reason);
  // Our side of UNO comes up while the office starts.
  const auto local = LocalContext(process_->program_dir());
  const OUString connect_string = ToOUString("pipe,name=" + process_->pipe_name());
  Reference<css::connection::XConnection> connection;
  try {
    auto connector = css::connection::Connector::create(local);
    int relaunches = 0;
    for (;;) {
      try {
        connection = connector->connect(connect_string);
        break;
      } catch (const css::connection::NoConnectException&) {
      }
      if (!process_->Running()) {
        // Prepare has set the profile up; should the office still ask to
        // be started again (81), it is.
        if (process_->ExitCode() == 81 && relaunches++ < 3) {
          if (!process_->Spawn(&reason)) throw Error(ErrorKind::kAutomation, reason);
          continue;
        }
        throw Error(ErrorKind::kAutomation, "the office " + process_->EndText() + " while starting");
      }
      if (std::chrono::steady_clock::now() >= deadline)
        throw Error(ErrorKind::kAutomation, "the office did not start in time");
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    auto bridge_factory = css::bridge::BridgeFactory::create(local);
    Reference<css::bridge::XBridge> bridge =
        bridge_factory->createBridge(OUString(), "urp", connection, nullptr);
    bridge_.set(bridge, UNO_QUERY_THROW);
    listener_ = new BridgeListener(&bridge_disposed_);
    bridge_->addEventListener(Reference<css::lang::XEventListener>(listener_.get()));
    Call("connect", [&] {
      context_.set(bridge->getInstance("StarOffice.ComponentContext"), UNO_QUERY_THROW);
      desktop_ = css::frame::Desktop::create(context_);
    });
  } catch (const Error&) {
    throw;
  } catch (const css::uno::Exception& e) {
    throw Error(ErrorKind::kAutomation, "cannot reach the office: " + ToUtf8(e.Message));
  }
}

Reference<css::uno::XInterface> Session::Create(const char* service) {
  return context_->getServiceManager()->createInstanceWithContext(
      OUString::createFromAscii(service), context_);
}

std::string Session::ProductSetting(const char* name) {
  auto provider = css::configuration::theDefaultProvider::get(context_);
  css::beans::NamedValue path;
  path.Name = "nodepath";
  path.Value <<= OUString("/org.openoffice.Setup/Product");
  auto args = ToSequence<css::uno::Any>({css::uno::Any(path)});
  Reference<css::container::XNameAccess> access(
      provider->createInstanceWithArguments("com.sun.star.configuration.ConfigurationAccess", args),
      css::uno::UNO_QUERY_THROW);
  OUString value;
  access->getByName(OUString::createFromAscii(name)) >>= value;
  return ToUtf8(value);
}

bool Session::Alive() {
  if (dead_) return false;
  if (bridge_disposed_ || !process_->Running()) {
    if (finding_.empty()) {
      // The bridge may notice first; the process is reaped (or killed, when
      // it only closed its pipe) by MarkDead.
      process_->WaitExit(std::chrono::milliseconds(2000));
      finding_ = process_->Reaped() ? "the office died (it " + process_->EndText() + ")"
                                    : "the office closed its connection and was stopped";
    }
    MarkDead();
    return false;
  }
  return true;
}

void Session::CheckUsable(const char* what) {
  if (!Alive())
    throw Error(ErrorKind::kDied, std::string(what) + ": " + (finding_.empty() ? "the office has quit" : finding_));
}

Error Session::Failure(const char* what, const std::string& message, ErrorKind kind) {
  if (watchdog_.Fired()) {
    MarkDead();
    if (finding_.empty()) finding_ = "timed out after " + LimitText(call_limit_) + ": the office did not answer and was stopped";
    return Error(ErrorKind::kTimeout, std::string(what) + ": " + finding_);
  }
  if (!Alive()) return Error(ErrorKind::kDied, std::string(what) + ": " + finding_);
  return Error(kind, std::string(what) + ": " + message);
}

void Session::MarkDead() {
  dead_ = true;
  process_->Finish();
  // Proxies of a dead bridge release locally; drop them now.
  desktop_.clear();
  context_.clear();
  if (bridge_.is()) {
    try {
      bridge_->dispose();
    } catch (...) {
    }
    bridge_.clear();
  }
}

void Session::Quit() {
  SigpipeBlock block;
  if (!dead_ && Alive()) {
    // terminate() is asked on a thread of its own and the office given a
    // bounded time to end. Its answer may come only when it has gone, and
    // its exit now and then waits seconds on its own idle threads; by then
    // everything it did for us is done (documents closed, prints handed
    // over) and its profile goes with it, so past the limit it is killed.
    Reference<css::frame::XDesktop2> desktop = desktop_;
    std::thread ask([desktop] {
      SigpipeBlock thread_block;
      try {
        desktop->terminate();
      } catch (...) {
      }
    });
    process_->WaitExit(options_.quit_time_limit);
    MarkDead();  // kills what is left; the question's pending answer fails with the bridge
    ask.join();
    return;
  }
  MarkDead();
}

void Session::Kill() {
  SigpipeBlock block;
  process_->KillGroup();
  MarkDead();
}

}  // namespace tabulon::office::uno
