#include "kelvaro/jsr309/ms_control_factory.h"

#include "configuration.h"
#include "handles.h"
#include "library.h"
#include "session.h"

#include <atomic>
#include <exception>
#include <mutex>

namespace kelvaro::jsr309 {
namespace {

class SteadyClock : public Clock {
 public:
  TimePoint Now() const override { return std::chrono::steady_clock::now(); }
  void WaitUntil(std::unique_lock<std::mutex>& lock, std::condition_variable& condition, TimePoint time) override {
    condition.wait_until(lock, time);
  }
};

// Reads the file and opens the servers; null, with the reason, when something is wrong.
std::shared_ptr<Library> OpenLibrary(const std::string& path, const std::shared_ptr<Clock>& clock,
                                     const std::shared_ptr<GuardedLogger>& logger, std::string& error) {
  Configuration configuration;
  if (!ReadConfiguration(path, configuration, error)) return nullptr;
  auto library = std::make_shared<Library>(configuration, clock, logger);
  SettingError refusal;
  if (library->Open(configuration, refusal)) return library;
  error = DescribeSettingError(path, refusal);
  return nullptr;
}

}  // namespace

class MSControlFactory::Impl {
 public:
  explicit Impl(std::shared_ptr<Clock> clock) : clock_(std::move(clock)) {}

  bool Init(const char* path, LoggingIdLogger* logger) {
    const auto guarded = std::make_shared<GuardedLogger>(logger);
    std::string error;
    if (path == nullptr) {
      error = "No configuration file is named";
    } else if (!BeginInit()) {
      error = "The control library has been initialised already";
    } else {
      std::shared_ptr<Library> library;
      try {
        library = OpenLibrary(path, clock_, guarded, error);
      } catch (const std::exception& failure) {
        error = std::string("Cannot start the control library: ") + failure.what();
      }
      EndInit(library);
      if (library != nullptr) return true;
    }
    KELVARO_LOG(*guarded, ERROR_LOG_LEVEL, "", error);
    guarded->Detach();
    return false;
  }

  /// Null before a successful Init, then the same until the factory's end.
  Library* library() const { return opened_.load(); }

 private:
  bool BeginInit() {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (initialising_ || library_ != nullptr) return false;
    initialising_ = true;
    return true;
  }

  void EndInit(const std::shared_ptr<Library>& library) {
    const std::lock_guard<std::mutex> lock(mutex_);
    initialising_ = false;
    library_ = library;
    opened_ = library.get();
  }

  const std::shared_ptr<Clock> clock_;
  mutable std::mutex mutex_;
  bool initialising_ = false;              // guarded by mutex_
  std::shared_ptr<Library> library_;       // guarded by mutex_
  std::atomic<Library*> opened_{nullptr};  // what library_ holds: every call asks, and the lock is for Init alone
};

MSControlFactory::MSControlFactory() : MSControlFactory(std::make_shared<SteadyClock>()) {}

MSControlFactory::MSControlFactory(std::shared_ptr<Clock> clock) : impl_(std::make_unique<Impl>(std::move(clock))) {}

MSControlFactory::~MSControlFactory() {
  Library* const library = impl_->library();
  if (library == nullptr) return;
  library->Stop();
  library->JoinEventThread();
}

bool MSControlFactory::Init(const char* path, LoggingIdLogger* logger) {
  return impl_->Init(path, logger);
}

void MSControlFactory::Stop() {
  if (Library* const library = impl_->library()) library->Stop();
}

MediaSession* MSControlFactory::CreateMediaSession() {
  Library* const library = impl_->library();
  if (library == nullptr) return nullptr;
  auto session = library->CreateSession();
  return session == nullptr ? nullptr : new MediaSessionHandle(std::move(session));
}

bool MSControlFactory::IsMediaServerAvailable() const {
  Library* const library = impl_->library();
  return library != nullptr && library->IsServerAvailable();
}

bool MSControlFactory::SetMediaServerStatus(const char* ip, bool in_service) {
  Library* const library = impl_->library();
  return library != nullptr && ip != nullptr && library->SetServerStatus(ip, in_service);
}

bool MSControlFactory::GetStats(JSR309Stats& stats) const {
  Library* const library = impl_->library();
  return library != nullptr && library->GetStats(stats);
}

}  // namespace kelvaro::jsr309
