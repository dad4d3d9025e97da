#pragma once

#include <unistd.h>

#include <cerrno>
#include <system_error>
#include <utility>

/** Owns a descriptor, and closes it. */
class Fd {
 public:
   /** `fd` is the result of the system call called `call`; -1 is thrown as its error. */
   Fd(int fd, const char* call) : fd_(fd) {
      if (fd == -1)
         throw std::system_error(errno, std::generic_category(), call);
   }
   Fd(Fd&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
   Fd& operator=(Fd&& other) noexcept {
      std::swap(fd_, other.fd_);
      return *this;
   }
   ~Fd() {
      if (fd_ != -1)
         close(fd_);
   }

   int get() const { return fd_; }

 private:
   int fd_;
};
