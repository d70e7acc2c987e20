// Office work of one application done on a thread of its own while the
// method goes on with another application, so that two office processes work
// at the same time. The work is what the method would have done itself at
// that point; its office error comes out of Wait, where the method would have
// met it.
#pragma once

#include <functional>
#include <future>

namespace tabulon {

class OfficeAhead {
 public:
  // Starts `work`. Nothing else may use the application it works with until
  // Wait has returned or the object is gone. Without a thread to be had,
  // the work is done by Wait (or the destructor) instead.
  explicit OfficeAhead(std::function<void()> work);
  // Waits for the work; an error is dropped when Wait was not called.
  ~OfficeAhead();
  OfficeAhead(const OfficeAhead&) = delete;
  OfficeAhead& operator=(const OfficeAhead&) = delete;

  // Waits for the work and throws what it threw. Only once.
  void Wait();

 private:
  std::function<void()> work_;
  std::future<void> done_;
};

}  // namespace tabulon
