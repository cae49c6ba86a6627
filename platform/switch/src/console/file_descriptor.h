#pragma once

#include <unistd.h>

#include <utility>

namespace kvx_switch {

/// A file descriptor closed with its owner.
class FileDescriptor {
 public:
  explicit FileDescriptor(int number = -1) : number_(number) {}
  FileDescriptor(FileDescriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
  FileDescriptor& operator=(FileDescriptor&& other) noexcept {
    std::swap(number_, other.number_);
    return *this;
  }
  ~FileDescriptor() {
    if (number_ >= 0) close(number_);
  }

  int get() const { return number_; }
  bool valid() const { return number_ >= 0; }

 private:
  int number_;
};

}  // namespace kvx_switch
