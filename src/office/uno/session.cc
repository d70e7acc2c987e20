#include "office/uno/session.h"

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
#include <rtl/digest.h>
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
  const auto local = LocalContext(process_->program_dir());
  std::string reason;
  if (!process_->Spawn(&reason)) throw Error(ErrorKind::kAutomation, reason);
  const auto deadline = std::chrono::steady_clock::now() + options_.start_time_limit;
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
        // A fresh profile makes the first start exit with 81 and expect
        // to be started again.
        if (process_->ExitCode() == 81 && relaunches++ < 3) {
          if (!process_->Spawn(&reason)) throw Error(ErrorKind::kAutomation, reason);
          continue;
        }
        throw Error(ErrorKind::kAutomation, "the office exited while starting (code " +
                                                std::to_string(process_->ExitCode()) + ")");
      }
      if (std::chrono::steady_clock::now() >= deadline)
        throw Error(ErrorKind::kAutomation, "the office did not start in time");
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
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
    MarkDead();
    return false;
  }
  return true;
}

void Session::CheckUsable(const char* what) {
  if (!Alive())
    throw Error(ErrorKind::kDied, std::string(what) + ": the office is no longer running");
}

Error Session::Failure(const char* what, const std::string& message, ErrorKind kind) {
  if (watchdog_.Fired()) {
    MarkDead();
    return Error(ErrorKind::kTimeout,
                 std::string(what) + ": the office did not answer within " +
                     std::to_string(call_limit_.count()) + " ms and was stopped");
  }
  if (!Alive())
    return Error(ErrorKind::kDied, std::string(what) + ": the office is no longer running");
  return Error(kind, std::string(what) + ": " + message);
}

namespace {

// The office leaves its pipe files in the temp folders when it is killed,
// and even after a clean exit: the accept pipe of our own name, and the
// single-instance pipe named after an MD5 of the profile URL (UTF-16 code
// units, hex digits without padding).
void RemovePipeFiles(const std::string& pipe_name, const std::string& profile_dir) {
  const OUString url = ToOUString("file://" + profile_dir);
  sal_uInt8 digest[RTL_DIGEST_LENGTH_MD5];
  rtl_digest_MD5(url.getStr(), url.getLength() * sizeof(sal_Unicode), digest, sizeof digest);
  std::string hash;
  char buf[4];
  for (sal_uInt8 b : digest) {
    snprintf(buf, sizeof buf, "%x", static_cast<unsigned>(b));
    hash += buf;
  }
  const std::string uid = std::to_string(getuid());
  for (const char* dir : {"/tmp", "/var/tmp"}) {
    for (const std::string& name : {pipe_name, "SingleOfficeIPC_" + hash}) {
      std::error_code ec;
      std::filesystem::remove(std::string(dir) + "/OSL_PIPE_" + uid + "_" + name, ec);
    }
  }
}

}  // namespace

void Session::MarkDead() {
  dead_ = true;
  const std::string profile = process_->profile_dir();
  process_->Finish();
  if (!profile.empty()) RemovePipeFiles(process_->pipe_name(), profile);
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
  if (!dead_ && Alive()) {
    try {
      // terminate() may lose its answer when the office goes away first.
      Call("Quit", [&] { desktop_->terminate(); });
    } catch (const Error&) {
    }
    process_->WaitExit(options_.quit_time_limit);
  }
  MarkDead();
}

void Session::Kill() {
  process_->KillGroup();
  MarkDead();
}

}  // namespace tabulon::office::uno
