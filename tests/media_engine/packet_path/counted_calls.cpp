#include "counted_calls.h"

#include <dlfcn.h>
#include <poll.h>
#include <pthread.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdlib>

// The C library's own, under names that it keeps for replacements like these.
extern "C" {
void* __libc_malloc(std::size_t);
void* __libc_calloc(std::size_t, std::size_t);
void* __libc_realloc(void*, std::size_t);
void* __libc_memalign(std::size_t, std::size_t);
void __libc_free(void*);
}

namespace {

thread_local bool counted = false;
std::atomic<uint64_t> allocations{0}, locks{0}, waits{0}, receives{0}, sends{0}, rests{0};

void Count(std::atomic<uint64_t>& counter) {
  if (counted) counter.fetch_add(1, std::memory_order_relaxed);
}

/// The function that would have been called; looked up when it is first needed, which may be before any constructor.
void* Original(std::atomic<void*>& known, const char* name) {
  void* function = known.load(std::memory_order_relaxed);
  if (function == nullptr) {
    function = dlsym(RTLD_NEXT, name);
    known.store(function, std::memory_order_relaxed);
  }
  return function;
}

}  // namespace

#define KVX_ORIGINAL(function)                \
  reinterpret_cast<decltype(&function)>([] {  \
    static std::atomic<void*> known{nullptr}; \
    return Original(known, #function);        \
  }())

extern "C" {

void* malloc(std::size_t size) {
  Count(allocations);
  return __libc_malloc(size);
}
void* calloc(std::size_t count, std::size_t size) {
  Count(allocations);
  return __libc_calloc(count, size);
}
void* realloc(void* memory, std::size_t size) {
  Count(allocations);
  return __libc_realloc(memory, size);
}
void* memalign(std::size_t alignment, std::size_t size) {
  Count(allocations);
  return __libc_memalign(alignment, size);
}
void* aligned_alloc(std::size_t alignment, std::size_t size) {
  Count(allocations);
  return __libc_memalign(alignment, size);
}
int posix_memalign(void** memory, std::size_t alignment, std::size_t size) {
  Count(allocations);
  *memory = __libc_memalign(alignment, size);
  return *memory == nullptr ? ENOMEM : 0;
}
void free(void* memory) {
  if (memory != nullptr) Count(allocations);
  __libc_free(memory);
}

int pthread_mutex_lock(pthread_mutex_t* mutex) noexcept {
  Count(locks);
  return KVX_ORIGINAL(pthread_mutex_lock)(mutex);
}
int pthread_mutex_trylock(pthread_mutex_t* mutex) noexcept {
  Count(locks);
  return KVX_ORIGINAL(pthread_mutex_trylock)(mutex);
}
int pthread_spin_lock(pthread_spinlock_t* lock) noexcept {
  Count(locks);
  return KVX_ORIGINAL(pthread_spin_lock)(lock);
}
int pthread_rwlock_rdlock(pthread_rwlock_t* lock) noexcept {
  Count(locks);
  return KVX_ORIGINAL(pthread_rwlock_rdlock)(lock);
}
int pthread_rwlock_wrlock(pthread_rwlock_t* lock) noexcept {
  Count(locks);
  return KVX_ORIGINAL(pthread_rwlock_wrlock)(lock);
}
int pthread_cond_wait(pthread_cond_t* condition, pthread_mutex_t* mutex) {
  Count(waits);
  return KVX_ORIGINAL(pthread_cond_wait)(condition, mutex);
}
int pthread_cond_signal(pthread_cond_t* condition) noexcept {
  Count(waits);
  return KVX_ORIGINAL(pthread_cond_signal)(condition);
}
int pthread_cond_broadcast(pthread_cond_t* condition) noexcept {
  Count(waits);
  return KVX_ORIGINAL(pthread_cond_broadcast)(condition);
}

int ppoll(pollfd* files, nfds_t count, const timespec* limit, const sigset_t* mask) {
  Count(rests);
  return KVX_ORIGINAL(ppoll)(files, count, limit, mask);
}

ssize_t recvmsg(int fd, msghdr* message, int flags) {
  Count(receives);
  return KVX_ORIGINAL(recvmsg)(fd, message, flags);
}
int recvmmsg(int fd, mmsghdr* messages, unsigned count, int flags, timespec* limit) {
  Count(receives);
  return KVX_ORIGINAL(recvmmsg)(fd, messages, count, flags, limit);
}
ssize_t recvfrom(int fd, void* data, std::size_t length, int flags, sockaddr* from, socklen_t* from_length) {
  Count(receives);
  return KVX_ORIGINAL(recvfrom)(fd, data, length, flags, from, from_length);
}
ssize_t recv(int fd, void* data, std::size_t length, int flags) {
  Count(receives);
  return KVX_ORIGINAL(recv)(fd, data, length, flags);
}
ssize_t sendmsg(int fd, const msghdr* message, int flags) {
  Count(sends);
  return KVX_ORIGINAL(sendmsg)(fd, message, flags);
}
ssize_t send(int fd, const void* data, std::size_t length, int flags) {
  Count(sends);
  return KVX_ORIGINAL(send)(fd, data, length, flags);
}
ssize_t write(int fd, const void* data, std::size_t length) {
  Count(sends);
  return KVX_ORIGINAL(write)(fd, data, length);
}
int sendmmsg(int fd, mmsghdr* messages, unsigned count, int flags) {
  Count(sends);
  return KVX_ORIGINAL(sendmmsg)(fd, messages, count, flags);
}
ssize_t sendto(int fd, const void* data, std::size_t length, int flags, const sockaddr* to, socklen_t to_length) {
  Count(sends);
  return KVX_ORIGINAL(sendto)(fd, data, length, flags, to, to_length);
}

}  // extern "C"

namespace media_engine_test {

void CountThisThread() {
  counted = true;
}

CountedCalls CallsSoFar() {
  return {allocations.load(), locks.load(), waits.load(), receives.load(), sends.load(), rests.load()};
}

}  // namespace media_engine_test
