#include "console/event_socket_server.h"

#include <switch.h>

#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <exception>
#include <iterator>
#include <system_error>
#include <utility>

#include "console/event_feed.h"
#include "console/event_socket_address.h"
#include "console/log_feed.h"

namespace kvx_switch {
namespace {

constexpr int kBacklog = 32;
/// After accept() failed for want of descriptors the arrival is still there; without a pause the loop would spin.
constexpr int kPauseWhenExhaustedMs = 100;
/// It is told of so often, however many times it fails.
constexpr std::chrono::seconds kBetweenComplaints{10};

const char kRefusal[] = "Content-Type: text/rude-rejection\nContent-Length: 22\n\nToo many connections.\n";

std::string host_and_port(const std::string& host, const std::string& port) {
  const bool ipv6 = host.find(':') != std::string::npos;
  return (ipv6 ? "[" + host + "]" : host) + ":" + port;
}

std::string to_text(const sockaddr_storage& address, socklen_t length) {
  char host[NI_MAXHOST] = "?";
  char port[NI_MAXSERV] = "?";
  getnameinfo(reinterpret_cast<const sockaddr*>(&address), length, host, sizeof(host), port, sizeof(port),
              NI_NUMERICHOST | NI_NUMERICSERV);
  return host_and_port(host, port);
}

}  // namespace

struct EventSocketServer::Client {
  Client(EventSocketServer& server, FileDescriptor socket, const std::string& name)
      : peer(name),
        outbox(server.settings_.outbox),
        feed(name, outbox),
        connection(std::move(socket),
                   EventSocketDialogue(server.settings_.password, name,
                                       {server.run_api_,
                                        [&server](const std::string& uuid, const ApiLine& line) {
                                          return server.jobs_.Start(uuid, line);
                                        },
                                        [this](const EventSubscription& wanted) { feed.Want(wanted); },
                                        [this](std::optional<switch_log_level_t> level) { return FollowLog(level); }}),
                   outbox, server.settings_.patience, server.stop_) {}

  bool FollowLog(std::optional<switch_log_level_t> level) {
    if (!level) return log.Stop();
    log.Follow(*level);
    return true;
  }

  const std::string peer;
  EventOutbox outbox;
  // Of the client's thread alone.
  EventFeed feed;
  LogFeed log{outbox};
  EventSocketConnection connection;
  std::atomic<bool> gone{false};
  std::thread thread;
};

EventSocketServer::EventSocketServer(EventSocketSettings settings, ApiRunner run_api)
    : settings_(std::move(settings)), run_api_(std::move(run_api)), jobs_(run_api_) {}

EventSocketServer::~EventSocketServer() {
  Stop();
}

bool EventSocketServer::Start(std::string& error) {
  if (!Listen(error)) return false;
  acceptor_ = std::thread([this] { AcceptClients(); });
  return true;
}

bool EventSocketServer::Listen(std::string& error) {
  const std::string port = std::to_string(settings_.listen_port);
  const std::string wanted = host_and_port(settings_.listen_ip, port);
  const std::string failed = settings_.source + ": cannot listen on " + wanted + ": ";
  const SocketAddresses addresses = ResolveListenAddress(settings_.listen_ip, port);
  if (!addresses) {
    error = failed + "\"" + settings_.listen_ip + "\" is not an IP address";
    return false;
  }
  if (!IsLoopback(addresses->ai_addr) && IsKnownToEverybody(settings_.password)) {
    error = failed + "the password is one that everybody knows, which is accepted on loopback addresses only";
    return false;
  }
  FileDescriptor listener(socket(addresses->ai_family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
  const int on = 1;
  if (listener.valid()) setsockopt(listener.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on));
  if (!listener.valid() || bind(listener.get(), addresses->ai_addr, addresses->ai_addrlen) != 0 ||
      listen(listener.get(), kBacklog) != 0) {
    error = failed + std::strerror(errno);
    return false;
  }
  sockaddr_storage bound{};
  socklen_t length = sizeof(bound);
  getsockname(listener.get(), reinterpret_cast<sockaddr*>(&bound), &length);
  address_ = to_text(bound, length);
  listener_ = std::move(listener);
  return true;
}

void EventSocketServer::Stop() {
  stop_.Raise();
  if (acceptor_.joinable()) acceptor_.join();
  std::list<std::unique_ptr<Client>> last;
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    last.swap(clients_);
  }
  for (const auto& client : last) client->thread.join();
  jobs_.Stop();
  listener_ = FileDescriptor();
  address_.clear();
}

std::string EventSocketServer::address() const {
  return address_;
}

size_t EventSocketServer::connections() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return clients_.size();
}

void EventSocketServer::AcceptClients() {
  pollfd waiting[] = {
      {listener_.get(), POLLIN, 0}, {client_gone_.descriptor(), POLLIN, 0}, {stop_.descriptor(), POLLIN, 0}};
  for (;;) {
    if (poll(waiting, 3, -1) < 0) continue;
    if (waiting[2].revents != 0) return;
    if (waiting[1].revents != 0) ReapClients();
    if (waiting[0].revents != 0) AcceptOne();
  }
}

void EventSocketServer::AcceptOne() {
  sockaddr_storage address{};
  socklen_t length = sizeof(address);
  FileDescriptor socket(
      accept4(listener_.get(), reinterpret_cast<sockaddr*>(&address), &length, SOCK_NONBLOCK | SOCK_CLOEXEC));
  if (!socket.valid()) {
    if (errno == EMFILE || errno == ENFILE || errno == ENOBUFS || errno == ENOMEM) {
      const auto now = std::chrono::steady_clock::now();
      if (now >= next_complaint_) {
        next_complaint_ = now + kBetweenComplaints;
        switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_ERROR, "Event socket: cannot accept a connection: %s\n",
                          std::strerror(errno));
      }
      pollfd stop{stop_.descriptor(), POLLIN, 0};
      poll(&stop, 1, kPauseWhenExhaustedMs);
    }
    return;
  }
  const std::string peer = to_text(address, length);
  if (connections() >= settings_.max_connections) {
    send(socket.get(), kRefusal, sizeof(kRefusal) - 1, MSG_NOSIGNAL);
    switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_WARNING,
                      "Event socket: connection from %s refused, %zu connections are the limit\n", peer.c_str(),
                      settings_.max_connections);
    return;
  }
  try {
    Serve(std::move(socket), peer);
  } catch (const std::exception& exception) {
    switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_ERROR, "Event socket: connection from %s dropped: %s\n",
                      peer.c_str(), exception.what());
  }
}

void EventSocketServer::Serve(FileDescriptor socket, const std::string& peer) {
  const int on = 1;
  setsockopt(socket.get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on));
  setsockopt(socket.get(), SOL_SOCKET, SO_KEEPALIVE, &on, sizeof(on));
  auto client = std::make_unique<Client>(*this, std::move(socket), peer);
  Client& served = *client;
  const std::lock_guard<std::mutex> lock(mutex_);
  clients_.push_back(std::move(client));
  try {
    served.thread = std::thread([this, &served] { ServeClient(served); });
  } catch (const std::system_error&) {
    clients_.pop_back();
    throw;
  }
}

void EventSocketServer::ServeClient(Client& client) {
  switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_DEBUG, "Event socket: connection from %s\n", client.peer.c_str());
  try {
    client.connection.Run();
  } catch (const std::exception& exception) {
    switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_ERROR, "Event socket: connection from %s given up: %s\n",
                      client.peer.c_str(), exception.what());
  }
  client.log.Stop();
  client.feed.Stop();  // until the client is reaped nobody would read
  switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_DEBUG, "Event socket: connection from %s ended\n",
                    client.peer.c_str());
  client.gone = true;
  client_gone_.Raise();
}

void EventSocketServer::ReapClients() {
  client_gone_.Clear();
  std::list<std::unique_ptr<Client>> gone;
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    for (auto client = clients_.begin(); client != clients_.end();) {
      const auto next = std::next(client);
      if ((*client)->gone) gone.splice(gone.end(), clients_, client);
      client = next;
    }
  }
  for (const auto& client : gone) client->thread.join();
}

}  // namespace kvx_switch
