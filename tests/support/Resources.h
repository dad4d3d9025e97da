// What the tests hold and give back: descriptors and the activity lock.
#pragma once

#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <system_error>

#include <orv/Orv.h>

/** A descriptor that is closed with its owner. */
struct Descriptor {
   int fd;
   explicit Descriptor(int fd_ = -1) : fd(fd_) {}
   Descriptor(const Descriptor&) = delete;
   Descriptor& operator=(const Descriptor&) = delete;
   ~Descriptor() { close(); }
   operator int() const { return fd; }
   void close() {
      if (fd >= 0)
         ::close(fd);
      fd = -1;
   }
};

struct Pipe {
   Descriptor reader, writer;

   /** A pipe, or what else `make` makes of two ends. */
   explicit Pipe(int (*make)(int ends[2]) = [](int* ends) { return pipe2(ends, O_CLOEXEC); }) {
      int ends[2];
      if (make(ends) != 0)
         throw std::system_error(errno, std::generic_category(), "pipe");
      reader.fd = ends[0];
      writer.fd = ends[1];
   }
   /** What is there, or comes first, of at most `size` bytes; nothing at the end, or on failure. */
   std::string readSome(size_t size = 65536) const {
      std::string part(size, '\0');
      const ssize_t got = ::read(reader, part.data(), size);
      part.resize(got > 0 ? static_cast<size_t>(got) : 0);
      return part;
   }
   /** Closes the writer, and reads up to the end. */
   std::string finish() {
      writer.close();
      std::string all;
      for (std::string part; !(part = readSome()).empty();)
         all += part;
      return all;
   }
   /** The count of bytes that wait in the pipe. */
   int pending() const {
      int count = -1;
      ioctl(reader, FIONREAD, &count);
      return count;
   }
};

inline pthread_mutex_t* activityMutex() {
   return &Orv::ActivityImplFacility::activityManagerSm()->activityLock().mutex;
}

/** Whether the calling thread holds the activity lock. */
inline bool holdsLock() {
   const int result = pthread_mutex_lock(activityMutex());
   if (result == 0)
      pthread_mutex_unlock(activityMutex());
   return result == EDEADLK;
}

/** Holds the activity lock for its life, or does not. */
inline std::shared_ptr<pthread_mutex_t> hold(bool holding) {
   if (!holding)
      return nullptr;
   pthread_mutex_lock(activityMutex());
   return {activityMutex(), pthread_mutex_unlock};
}

/** Whether the tests are built with this sanitizer. */
inline bool sanitizing(std::string_view sanitizer) {
   return std::string_view(TEST_SANITIZERS).find(sanitizer) != std::string_view::npos;
}
