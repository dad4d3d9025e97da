#include "Faults.h"

#include <pthread.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <utility>

#include <orv/Orv.h>

namespace {

thread_local Faults* current = nullptr;
thread_local long live = 0;

/** Whether a call that reports by -1 and errno fails now. */
bool fails(Fault::Call call) {
   const Fault* const fault = Faults::meet(call);
   if (fault != nullptr)
      errno = fault->error;
   return fault != nullptr;
}

}  // namespace

Faults::Faults(std::vector<Fault> plan, Sink sink)
      : plan_(std::move(plan)), sink_(std::move(sink)) {
   current = this;
}
Faults::~Faults() {
   current = nullptr;
}

const Fault* Faults::meet(Fault::Call call, size_t length) {
   if (current == nullptr || current->count_ == current->plan_.size())
      return nullptr;
   const Fault& fault = current->plan_[current->count_];
   if (fault.call != call || current->passed_++ != fault.passing)
      return nullptr;
   current->passed_ = 0;
   if (call == Fault::kWrite && fault.error == 0 && fault.taken >= length)
      return nullptr;
   ++current->count_;
   return &fault;
}

const Faults::Sink* Faults::sink() {
   return current != nullptr && current->sink_ ? &current->sink_ : nullptr;
}

WithoutFaults::WithoutFaults() : faults_(std::exchange(current, nullptr)) {}
WithoutFaults::~WithoutFaults() {
   current = faults_;
}

long liveBlocks() {
   return live;
}

// NOLINTBEGIN: the linker's names
extern "C" {

void* __real_malloc(size_t size);
void __real_free(void* block);
ssize_t __real_write(int fd, const void* data, size_t size);
int __real_pthread_mutex_lock(pthread_mutex_t* mutex);
int __real_pthread_mutex_unlock(pthread_mutex_t* mutex);
int __real_getsockopt(int fd, int level, int name, void* value, socklen_t* size);
int __real_ioctl(int fd, unsigned long request, void* argument);
int __real_vsnprintf(char* out, size_t room, const char* fmt, va_list args);

void* __wrap_malloc(size_t size) {
   void* const block = Faults::meet(Fault::kAllocation) == nullptr ? __real_malloc(size) : nullptr;
   if (block != nullptr)
      ++live;
   errno = ENOMEM;  // as it may be, whether it failed or not
   return block;
}

void __wrap_free(void* block) {
   if (block != nullptr)
      --live;
   __real_free(block);
}

ssize_t __wrap_write(int fd, const void* data, size_t size) {
   const Faults::Sink* const sink = Faults::sink();
   if (const Fault* const fault = Faults::meet(Fault::kWrite, size)) {
      if (fault->error != 0) {
         errno = fault->error;
         return -1;
      }
      size = fault->taken;
   }
   if (sink == nullptr)
      return __real_write(fd, data, size);
   const WithoutFaults unharmed;
   (*sink)({static_cast<const char*>(data), size});
   return static_cast<ssize_t>(size);
}

int __wrap_pthread_mutex_lock(pthread_mutex_t* mutex) {
   const Fault* const fault = Faults::meet(Fault::kLock);
   return fault == nullptr ? __real_pthread_mutex_lock(mutex) : fault->error;
}

int __wrap_pthread_mutex_unlock(pthread_mutex_t* mutex) {
   const Fault* fault = nullptr;
   if (mutex == &Orv::ActivityImplFacility::activityManagerSm()->activityLock().mutex)
      fault = Faults::meet(Fault::kUnlock);
   return fault == nullptr ? __real_pthread_mutex_unlock(mutex) : fault->error;
}

int __wrap_getsockopt(int fd, int level, int name, void* value, socklen_t* size) {
   return fails(Fault::kGetsockopt) ? -1 : __real_getsockopt(fd, level, name, value, size);
}
int __wrap_ioctl(int fd, unsigned long request, void* argument) {
   return fails(Fault::kIoctl) ? -1 : __real_ioctl(fd, request, argument);
}
int __wrap_vsnprintf(char* out, size_t room, const char* fmt, va_list args) {
   const Fault* const fault = Faults::meet(Fault::kFormat);
   return fault == nullptr ? __real_vsnprintf(out, room, fmt, args) : fault->error;
}

}  // extern "C"
// NOLINTEND

// The whole family, since a sanitizer brings its own of each that is left out.
void* operator new(size_t size, const std::nothrow_t&) noexcept {
   return std::malloc(size == 0 ? 1 : size);
}
void* operator new(size_t size) {
   void* const block = operator new(size, std::nothrow);
   if (block == nullptr)
      throw std::bad_alloc();
   return block;
}
void* operator new[](size_t size) {
   return operator new(size);
}
void* operator new[](size_t size, const std::nothrow_t&) noexcept {
   return operator new(size, std::nothrow);
}
void operator delete(void* block) noexcept {
   std::free(block);
}
void operator delete[](void* block) noexcept {
   std::free(block);
}
void operator delete(void* block, size_t) noexcept {
   std::free(block);
}
void operator delete[](void* block, size_t) noexcept {
   std::free(block);
}
void* operator new(size_t size, std::align_val_t alignment) {
   void* const block = Faults::meet(Fault::kAllocation) == nullptr
                             ? std::aligned_alloc(static_cast<size_t>(alignment), size)
                             : nullptr;
   if (block == nullptr)
      throw std::bad_alloc();
   ++live;
   return block;
}
void operator delete(void* block, std::align_val_t) noexcept {
   std::free(block);
}
void operator delete(void* block, size_t, std::align_val_t) noexcept {
   std::free(block);
}
