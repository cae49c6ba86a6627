/// How requests find what they are about: a session stays on its worker, an endpoint may move.
#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <string>

#include "mailbox.h"

namespace media_engine {

class ServerContext;

/// The address of a session. Its identity outlives the session.
class SessionRoute {
 public:
  SessionRoute(std::shared_ptr<ServerContext> server, std::shared_ptr<Mailbox> mailbox, std::string name)
      : server_(std::move(server)), mailbox_(std::move(mailbox)), name_(std::move(name)) {}

  const std::shared_ptr<ServerContext>& server() const { return server_; }
  const std::shared_ptr<Mailbox>& mailbox() const { return mailbox_; }
  const std::string& name() const { return name_; }
  bool closed() const { return closed_.load(); }
  void MarkClosed() { closed_.store(true); }

 private:
  const std::shared_ptr<ServerContext> server_;
  const std::shared_ptr<Mailbox> mailbox_;
  const std::string name_;
  std::atomic<bool> closed_{false};
};

/// The address of an endpoint: the worker that owns it now, and the session in which its users want it.
///
/// An import only changes the wish and tells the owner. The owner then moves the endpoint, and while it does so it
/// holds this lock, under which requests are posted too. So a request posted before the move lies in the former
/// owner's mailbox behind nothing but what is older, and is passed on from there; one posted after it lies in the new
/// owner's mailbox behind the endpoint itself. Lock order: a route's, then a mailbox's.
///
/// Threads: all operations from any thread.
class EndpointRoute {
 public:
  EndpointRoute(std::shared_ptr<SessionRoute> home, std::string name)
      : name_(std::move(name)), owner_(home->mailbox()), home_(std::move(home)) {}

  const std::string& name() const { return name_; }
  bool closed() const { return closed_.load(); }
  void MarkClosed() { closed_.store(true); }
  /// Whether a port pair was bound for the endpoint. Only a hint that saves binding one in vain.
  bool has_ports() const { return has_ports_.load(); }
  void set_has_ports(bool has) { has_ports_.store(has); }

  /// To the worker that owns the endpoint. False when that has ended.
  bool Post(std::unique_ptr<Task>& task) {
    std::lock_guard<std::mutex> lock(mutex_);
    return owner_->Post(task);
  }

  /// The same, for a thread that is free to do the task itself when the worker sleeps.
  bool Ask(std::unique_ptr<Task>& task) {
    std::shared_ptr<Mailbox> owner;
    {
      std::lock_guard<std::mutex> lock(mutex_);
      if (!owner_->Put(task)) return false;
      owner = owner_;
    }
    owner->Serve();
    return true;
  }

  /// An import: the endpoint shall be in that session, and the task tells its owner so.
  bool SetHome(std::shared_ptr<SessionRoute> home, std::unique_ptr<Task> task) {
    std::lock_guard<std::mutex> lock(mutex_);
    home_ = std::move(home);
    return owner_->Post(task);
  }

  std::shared_ptr<SessionRoute> home() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return home_;
  }

  /// For the owner: makes the task that carries the endpoint into its home and posts it there. What is returned could
  /// not be posted, since the home's worker has ended; the endpoint ends with it.
  template <typename MakeMove>
  std::unique_ptr<Task> MoveHome(const MakeMove& make_move) {
    std::lock_guard<std::mutex> lock(mutex_);
    std::unique_ptr<Task> move = make_move(home_);
    if (home_->mailbox()->Post(move)) owner_ = home_->mailbox();
    return move;
  }

 private:
  const std::string name_;
  std::atomic<bool> closed_{false};
  std::atomic<bool> has_ports_{false};
  mutable std::mutex mutex_;
  std::shared_ptr<Mailbox> owner_;      // guarded by mutex_
  std::shared_ptr<SessionRoute> home_;  // guarded by mutex_
};

}  // namespace media_engine
