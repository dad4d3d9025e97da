// Whole lives of renderers and buffers, lived again and again with another call failing each time.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/syscall.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <iostream>
#include <stdexcept>
#include <string_view>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include <vorel/buffers/NonBlockingCliTxnBuffer.h>
#include <vorel/plain/PlainC.h>
#include <vorel/render/Printer.h>
#include <vorel/render/PrinterV2.h>
#include "Faults.h"
#include "Resources.h"

using namespace vorel;

/** In place of the stand-in's, which looks at nothing that it is told. */
void Orv::AllocTrackTypeInfo::_trackAllocation(AllocTrackTypeInfo** record,
                                               const std::type_info& type, size_t size,
                                               size_t charged) {
   EXPECT_TRUE(type == typeid(PtrInterface) && size == 16 && charged == 16);
   ++(*record)->allocations;
}

namespace {

using Print = void (*)(Renderer*);

constexpr int kFd = 1000;  // nothing is written there: the faults' sink gets it all
constexpr size_t kArea = 560;
const std::string kLong(540, 'L');  // longer than what is put together without the heap
const std::string kLongFormat = kLong + "%d of %d";

bool inJson(const Renderer* to) {
   return to->format == outputFormatJson;
}
void flush(Renderer* to) {
   to->ioflush();
}

const std::vector<Print> kDocument = {
      [](Renderer* to) { to->start(); },
      [](Renderer* to) { to->addFrills("%s %d\n", "Heading", 1); },
      [](Renderer* to) { to->addFrills("%s 2\n", kLong.c_str()); },
      [](Renderer* to) { to->startList("interfaces"); },
      [](Renderer* to) { to->startListEntry(); },
      [](Renderer* to) {
         const Attr32Info name("name", "eth3"), up("up", true), text("long", kLong.c_str());
         inJson(to) ? to->addAttributes("", 3, &text, &name, &up)
                    : to->addAttributes("%s %s %.500s\n", 3, "eth3", "yes", kLong.c_str());
      },
      flush,
      [](Renderer* to) { to->endListEntry(); },
      [](Renderer* to) { to->endList(); },
      [](Renderer* to) { to->startDict(kLong.c_str()); },
      [](Renderer* to) { to->startDictEntry(Attr64Info("", uint64_t{4})); },
      [](Renderer* to) {
         const Attr32Info number("number", 5), text("text", kLong.c_str());
         inJson(to) ? to->addArgs("%d of %s", &number, &text)
                    : to->addArgs(kLongFormat.c_str(), 5, 6);
      },
      [](Renderer* to) { to->endDictEntry(); },
      [](Renderer* to) {
         auto* const six = static_cast<char*>(std::malloc(4));
         if (six == nullptr)
            throw std::bad_alloc();
         Attr32Info key("", std::strcpy(six, "six"));
         key.ownsValue = true;
         to->startSimpleDictEntry(key);
      },
      [](Renderer* to) {
         const Attr64Info number("", 7.5);
         to->addAttributesJson(1, &number);
      },
      [](Renderer* to) { to->endSimpleDictEntry(); },
      [](Renderer* to) { to->endDict(); },
      [](Renderer* to) { to->end(); },
      flush,
      [](Renderer* to) { to->addFrills("The end"); },  // which the destructor writes
      [](Renderer* to) { to->startSubmodel("after the end"); },
};

const std::vector<Print> kPlainDocument = {
      start,
      [](Renderer* to) { addFrills(to, "%s %d\n", 0, "Heading", 1); },
      [](Renderer* to) { addFrills(to, "%s 2\n", 0, kLong.c_str()); },
      [](Renderer* to) { startList(to, kLong.c_str()); },
      startListEntry,
      endListEntry,
      endList,
      [](Renderer* to) { startSubmodel(to, "three"); },
      endSubmodel,
      [](Renderer* to) { startDict(to, "four"); },
      [](Renderer* to) { startSimpleDictEntry(to, "five"); },
      endSimpleDictEntry,
      endDict,
      ioflush,
      end};

/** What a host owns. */
struct Host {
   std::unique_ptr<PrintBuffer> buffer;  ///< If the renderer has none of its own.
   std::unique_ptr<Renderer, decltype(&deinitPrinter)> renderer{nullptr, deinitPrinter};

   void own(Renderer* to) { renderer.reset(to); }
   PrintBuffer* own(PrintBuffer* to) {
      buffer.reset(to);
      return to;
   }
};

/** Sends all of a transactional buffer. A write that fails is told by its result alone. */
void send(Renderer* from) {
   auto& chunks = static_cast<NonBlockingCliTxnBuffer&>(*from->buffer);
   while (chunks.haveData())
      if (chunks.writeSome(kFd) < 0)
         throw std::system_error(errno, std::generic_category());
}

std::vector<Print> sentDocument() {
   std::vector<Print> document = kDocument;
   std::replace(document.begin(), document.end(), flush, send);
   document.push_back(send);
   return document;
}

struct Life {
   const char* name;
   std::vector<Print> document;
   void (*create)(Host&, OutputFormat_t);
};

const Life kLives[] = {
      {"Printer, unbuffered", kDocument,
       [](Host& to, auto format) { to.own(new Printer(kFd, format, true, false, false, 0)); }},
      {"Printer", kDocument,
       [](Host& to, auto format) { to.own(new Printer(kFd, format, false, true, true, kArea)); }},
      {"PrinterV2", kDocument, [](Host& to, auto format) { to.own(new PrinterV2(kFd, format)); }},
      {"VorelBuffer", kDocument,
       [](Host& to, auto format) {
          to.own(new Renderer(format, to.own(new VorelBuffer(kFd, kArea, 0)), true));
       }},
      {"NonBlockingCliTxnBuffer", sentDocument(),
       [](Host& to, auto format) {
          to.own(new RendererV2(format, to.own(new NonBlockingCliTxnBuffer(50)), true));
       }},
      {"the plain functions", kPlainDocument,
       [](Host& to, auto format) { to.own(initPrinter(kFd, format)); }}};

/** Deletes what the interrupt registry has of the calling thread. */
void forgetThread() {
   vorel_delInterrupted(static_cast<int>(syscall(SYS_gettid)));
}

/** What does not change from one trial to the next. */
struct Case {
   const Life& life;
   OutputFormat_t format;
   bool holdsLock;
   bool resets;        ///< The host resets the mark and flushes again, and otherwise goes on.
   std::string whole;  ///< The output without faults.
};

constexpr int kMutexError = EINVAL;

bool isShort(const Fault& fault) {
   return fault.call == Fault::kWrite && fault.error == 0;
}
/** Whether a call may go well all the same: the plain addFrills tries again. */
bool isAbsorbed(const Fault& fault) {
   return isShort(fault) || fault.call == Fault::kAllocation;
}

/** One life, with the faults that are planned for it. */
class Trial {
 public:
   explicit Trial(const Case& given) : case_(given), isSent_(given.life.document.back() == send) {}

   /** Returns how many of the faults have come to pass. */
   size_t run(const std::vector<Fault>& plan) {
      const auto held = hold(case_.holdsLock);
      const auto& tracking = *Orv::PtrInterface::orvAllocTrackTypeInfo_;
      const uint64_t trackedBefore = tracking.allocations - tracking.deallocations;
      const long blocksBefore = liveBlocks();
      size_t count = 0;
      {
         Faults faults(plan, [this](std::string_view data) { take(data); });
         faults_ = &faults;
         {
            Host host;
            live(host);
            count = faults.count();
         }
         EXPECT_TRUE(sent_ == owed_ || (count < faults.count() && !isShort(lastFault())))
               << "the destructor writes what it must";
         count = faults.count();
         if (isMarked())
            isTold_ = true;
         EXPECT_TRUE(count > 1 || isTold_ || sent_ == case_.whole.size()) << "a loss is told";
      }
      forgetThread();
      EXPECT_EQ(liveBlocks(), blocksBefore);
      EXPECT_EQ(tracking.allocations - tracking.deallocations, trackedBefore);
      EXPECT_EQ(holdsLock(), case_.holdsLock);
      return count;
   }

 private:
   void live(Host& host) {
      const std::vector<Print>& document = case_.life.document;
      bool goesOn = attempt(host, [&] { case_.life.create(host, case_.format); });
      for (size_t i = 0; i < document.size() && goesOn; ++i) {
         const Print print = document[i];
         const size_t before = sent_;
         const bool wasTold = isTold_;
         goesOn = attempt(host, [&] { print(host.renderer.get()); });
         if (case_.resets) {
            for (size_t again = 0;
                 !goesOn && again <= faults_->plan().size() && (print == flush || print == send);
                 ++again)
               goesOn = attempt(host, [&] { print(host.renderer.get()); });
         } else if (!isSent_ && isMarked()) {
            EXPECT_TRUE(!wasTold || sent_ == before) << "a marked thread writes no more";
            goesOn = true;
         }
      }
      if (host.renderer == nullptr)
         return;
      for (size_t i = 0; isSent_ && i <= faults_->plan().size(); ++i)
         attempt(host, [&] { send(host.renderer.get()); });
      const WithoutFaults unharmed;
      owed_ = sent_ + (isInterrupted() ? 0 : pending(host).size());
      EXPECT_TRUE(!goesOn || isInterrupted() || owed_ == case_.whole.size());
   }

   static bool isMarked() {
      const WithoutFaults unharmed;
      return isInterrupted();
   }

   /** Makes a call. Returns false when it told of a failure, by an exception or by the mark. */
   template <class Call>
   bool attempt(const Host& host, Call call) {
      const size_t met = faults_->count(), areaBefore = pending(host).size();
      const int flushesBefore = vorel_ioFlushCount;
      try {
         call();
         if (!isMarked()) {
            EXPECT_TRUE(faults_->count() == met || isAbsorbed(lastFault())) << "a failure is told";
            return true;
         }
      } catch (const SigIntException&) {
         const int error = errno;
         EXPECT_TRUE(isMarked() && host.renderer != nullptr);
         EXPECT_TRUE(hasMet(Fault::kWrite) || hasMet(Fault::kAllocation));
         EXPECT_TRUE(isTold_ || hasMet(Fault::kAllocation) || error == lastFault().error);
      } catch (const std::bad_alloc&) {
         EXPECT_TRUE(hasMet(Fault::kAllocation));
      } catch (const std::system_error& failure) {
         const int error = failure.code().value();
         EXPECT_TRUE(error == lastFault().error || (error == kMutexError && hasMet(Fault::kLock)));
      }
      const WithoutFaults unharmed;
      EXPECT_EQ(holdsLock(), case_.holdsLock);
      const std::string_view kept = pending(host);
      EXPECT_TRUE(vorel_ioFlushCount > flushesBefore + 1 || kept.size() >= areaBefore)
            << "a flush that fails keeps its bytes";
      if (std::exchange(isTold_, true) && !case_.resets)
         return false;
      if (case_.resets)
         resetInterrupted();
      // What stays in the area is what comes next, or what was written in part and comes again.
      if (case_.whole.compare(sent_, kept.size(), kept) != 0) {
         EXPECT_EQ(case_.whole.substr(start_, kept.size()), kept);
         sent_ = start_;
      }
      return false;
   }

   /** Bytes in the area of a blocking buffer. */
   static std::string_view pending(const Host& host) {
      const Renderer* const renderer = host.renderer.get();
      const auto* const buffer =
            renderer == nullptr ? nullptr : dynamic_cast<const VorelBuffer*>(renderer->buffer);
      return buffer == nullptr ? "" : std::string_view(buffer->base, buffer->writePtr);
   }

   /** What the kernel would be given. */
   void take(std::string_view data) {
      EXPECT_TRUE(isSent_ || !holdsLock());
      if (data.data() != next_)
         start_ = sent_;
      next_ = data.data() + data.size();
      EXPECT_EQ(case_.whole.substr(sent_, data.size()), data);
      sent_ += data.size();
   }

   bool hasMet(Fault::Call call) const {
      for (size_t i = 0; i < faults_->count(); ++i)
         if (faults_->plan()[i].call == call)
            return true;
      return false;
   }
   Fault lastFault() const { return faults_->plan().at(faults_->count() - 1); }

   const Case& case_;
   const bool isSent_;  ///< By the host, and not by the buffer.
   const Faults* faults_ = nullptr;
   bool isTold_ = false;
   size_t sent_ = 0;             ///< How much of the whole output has been written.
   size_t start_ = 0;            ///< Where in it the last stretch of memory written begins,
   const char* next_ = nullptr;  ///< and where that ended.
   size_t owed_ = 0;             ///< Where in it the life must end.
};

std::string outputWithoutFaults(const Life& life, OutputFormat_t format) {
   std::string whole;
   {
      const Faults none({}, [&](std::string_view data) { whole += data; });
      Host host;
      life.create(host, format);
      for (const Print print : life.document)
         print(host.renderer.get());
   }
   forgetThread();
   return whole;
}

class EveryFailure : public testing::Test {
 protected:
   ~EveryFailure() override { vorel_globalBufsize = defaultSize_; }

   /** Lives once with these faults. Returns false when the last of them did not come to pass. */
   bool meets(const Case& given, const std::vector<Fault>& plan) {
      const size_t count = Trial(given).run(plan);
      ++lives_;
      faults_ += count;
      if (HasFailure()) {
         ADD_FAILURE() << given.life.name << ", format " << given.format << ", lock "
                       << given.holdsLock << ", resets " << given.resets;
         for (const auto& [call, passing, error, taken] : plan)
            ADD_FAILURE() << "fault: call " << call << " passing " << passing << " error " << error
                          << " taken " << taken;
         throw std::runtime_error("stopped at the first failure");
      }
      return count == plan.size();
   }

   /** Lives with each call failing in turn, and with another one failing soon after it. */
   void meetEach(const Case& given) {
      // The thread sanitizer, whose stack grows with every exception, gets single faults alone.
      const int soon = sanitizing("thread") ? 0 : 4;
      // A mutex that fails twice in a row stays as it is, and the plain addFrills stops the process
      // when there is no memory twice.
      const auto canFollow = [&](const Fault& before, const Fault& fault) {
         return before.call != fault.call ||
                (fault.error != kMutexError && given.life.document != kPlainDocument);
      };
      for (Fault first : kFaults) {
         for (first.passing = 0; meets(given, {first}); ++first.passing) {
            for (Fault second : kFaults)
               for (second.passing = 0; canFollow(first, second) && second.passing < soon;
                    ++second.passing)
                  meets(given, {first, second});
            if (first.error == EPIPE && soon != 0)
               takeParts(given, first.passing);
         }
      }
   }

   /** Lives with each short count of a write, and with another write or a lock failing then. */
   void takeParts(const Case& given, int passing) {
      const Fault one{Fault::kWrite, 0, 0, 1};
      for (Fault part{Fault::kWrite, passing, 0, 1}; meets(given, {part}); ++part.taken) {
         meets(given, {part, one, one});
         for (const Fault& then : kFaults)
            if (then.call != Fault::kAllocation)
               meets(given, {part, then});
      }
   }

   static constexpr Fault kFaults[] = {
         {Fault::kWrite, 0, EINTR},       {Fault::kWrite, 0, EAGAIN},
         {Fault::kWrite, 0, EPIPE},       {Fault::kWrite, 0, ENOSPC},
         {Fault::kAllocation, 0},         {Fault::kLock, 0, kMutexError},
         {Fault::kUnlock, 0, kMutexError}};
   size_t lives_ = 0, faults_ = 0;

 private:
   size_t defaultSize_ = std::exchange(vorel_globalBufsize, kArea);
};

TEST_F(EveryFailure, IsToldAndLosesNothingElse) {
   for (const OutputFormat_t format : {outputFormatText, outputFormatJson}) {
      const std::string document = outputWithoutFaults(kLives[0], format);
      for (const Life& life : kLives) {
         const std::string whole = outputWithoutFaults(life, format);
         EXPECT_TRUE(whole == document || life.document == kPlainDocument);
         for (const bool holds : {false, true})
            for (const bool resets : {false, true})
               meetEach({life, format, holds, resets, whole});
      }
   }
   std::cout << lives_ << " lives met " << faults_ << " faults\n";
}

TEST_F(EveryFailure, AndAMarkEndAWriteButNotThatOfTheDestructor) {
   const struct {
      bool destroying, mark, part;  // what meets the first write
      const char* written;
      bool throws;
   } cases[] = {{false, false, false, "abcd", false}, {false, true, false, "abcd", true},
                {false, false, true, "abcd", false},  {false, true, true, "ab", true},
                {true, false, false, "abcd", false},  {true, true, true, "abcd", false}};
   for (const auto& [destroying, mark, part, written, throws] : cases) {
      std::string taken;
      const Faults faults({{Fault::kWrite, 0, 0, part ? 2U : 4U}},
                          [&, marks = mark](std::string_view data) {
                             taken += data;
                             if (marks)
                                setInterrupted();
                          });
      const int flushes = vorel_ioFlushCount;
      bool threw = false;
      try {
         VorelBuffer buffer(kFd, destroying ? 4 : 0, 0);
         if (destroying)
            buffer.writePtr = std::copy_n("abcd", 4, buffer.base);
         else
            buffer.rawWrite("abcd", 4);
      } catch (const SigIntException&) {
         threw = true;
      }
      EXPECT_EQ(taken, written);
      EXPECT_EQ(threw, throws);
      EXPECT_EQ(isInterrupted(), mark);
      EXPECT_EQ(vorel_ioFlushCount, flushes + 1);
      resetInterrupted();
   }
}

/** Takes a thread's mark back while it waits for the activity lock. */
void resetWhileItWaits(int tid, std::atomic<bool>& locked) {
   const auto held = hold(true);
   locked = true;
   for (std::string id, name, state; state != "S"; std::this_thread::yield())
      std::ifstream("/proc/self/task/" + std::to_string(tid) + "/stat") >> id >> name >> state;
   vorel_resetInterrupted(tid);
}

TEST_F(EveryFailure, OfAWriteIsToldAlsoWhenTheMarkIsTakenBack) {
   const auto held = hold(true);
   for (const bool fails : {false, true}) {
      std::thread other;
      std::vector<Fault> plan{{Fault::kWrite, 0, 0, 2}};
      if (fails)
         plan.push_back({Fault::kWrite, 0, EPIPE});
      const Faults faults(plan, [&](std::string_view) {
         std::atomic<bool> locked{false};
         if (!other.joinable())
            other = std::thread(resetWhileItWaits, gettid(), std::ref(locked));
         while (!locked)
            std::this_thread::yield();
         if (!fails)
            setInterrupted();
      });
      VorelBuffer buffer(kFd, 8, 0);
      buffer.writePtr = std::copy_n("abcd", 4, buffer.base);
      EXPECT_THROW(buffer.flush(), SigIntException);
      EXPECT_EQ(buffer.writePtr, buffer.base + 4);
      other.join();
      EXPECT_FALSE(isInterrupted());
      buffer.writePtr = buffer.base;
   }
}

/** A host's own kind of renderer. */
struct Plain : Renderer {
   static inline bool fails;
   Plain() : Renderer(outputFormatJson, nullptr, true) {
      if (fails)
         throw SigIntException();
   }
};
struct alignas(64) Wide : Plain {};

/** Makes an object in each way that there is, and releases it. */
template <class Type>
void makeInEachWay() {
   alignas(Type) static char room[sizeof(Type)];
   const struct {
      unsigned reports;
      Type* (*make)();
      void (*release)(Type*);
   } ways[] = {
         {1, [] { return new Type; }, [](Type* object) { delete object; }},
         {1, [] { return new (std::nothrow) Type; }, [](Type* object) { delete object; }},
         {1, [] { return new Type[1]; }, [](Type* objects) { delete[] objects; }},
         {1, [] { return new (std::nothrow) Type[1]; }, [](Type* objects) { delete[] objects; }},
         {0, [] { return new (room) Type; }, [](Type* object) { object->~Type(); }},
   };
   const auto& tracking = *Orv::PtrInterface::orvAllocTrackTypeInfo_;
   const auto live = [&tracking] { return tracking.allocations - tracking.deallocations; };
   for (const auto& [reports, make, release] : ways) {
      const uint64_t before = live(), allocated = tracking.allocations;
      const long blocks = liveBlocks();
      std::vector<Type*> objects;
      const unsigned count = reports == 0 ? 1 : 20;  // several, since one may lie well by chance
      for (unsigned i = 0; i < count; ++i) {
         objects.push_back(make());
         EXPECT_EQ(reinterpret_cast<uintptr_t>(objects.back()) % alignof(Type), 0U);
      }
      EXPECT_EQ(tracking.allocations - allocated, count * reports);
      for (Type* const object : std::exchange(objects, {}))
         release(object);
      {
         const Faults faults({{Fault::kAllocation, 0}});
         try {
            release(make());
         } catch (const std::bad_alloc&) {
            EXPECT_EQ(faults.count(), 1U);
         }
         EXPECT_EQ(faults.count(), reports);
      }
      Plain::fails = true;
      EXPECT_THROW(make(), SigIntException);
      Plain::fails = false;
      EXPECT_EQ(live(), before);
      EXPECT_EQ(liveBlocks(), blocks);
   }
}

TEST_F(EveryFailure, EveryFormOfNewIsTracked) {
   makeInEachWay<Plain>();
   makeInEachWay<Wide>();
}

TEST_F(EveryFailure, AWriteThatTakesNothingEndsQuietly) {
   std::string taken;
   const Faults faults({{Fault::kWrite, 0, 0, 2}, {Fault::kWrite, 0, 0, 0}},
                       [&](std::string_view data) { taken += data; });
   VorelBuffer buffer(kFd, 0, 0);
   buffer.rawWrite("abcd", 4);
   buffer.rawWrite("ef", 2);
   EXPECT_EQ(taken, "abef");
}

TEST_F(EveryFailure, OfTheFormatterEndsThePlainCallUnlessItMayBeRepeated) {
   std::string printed;
   for (const int result : {-2, -1}) {
      const Faults faults({{Fault::kFormat, 0, result}}, [&](auto data) { printed += data; });
      Printer printer(kFd, outputFormatText, false, false, false, 0);
      EXPECT_EQ(addFrills(&printer, "%e", 0, 1.0), result == -1 ? 12 : result);
   }
   EXPECT_EQ(printed, "1.000000e+00");
}

TEST_F(EveryFailure, WouldBlockWhenTheKernelDoesNotTell) {
   const Pipe sockets([](int* ends) { return socketpair(AF_UNIX, SOCK_STREAM, 0, ends); });
   const Descriptor& socket = sockets.writer;
   const struct {
      Fault fault;
      bool wouldBlock;
      int capacity;
      const char* message;
   } cases[] = {
         {{Fault::kGetsockopt, 0, EIO}, true, -1, "getsockopt errno 5\n"},
         {{Fault::kIoctl, 0, EIO}, false, getSocketCapacity(socket), "ioctl SIOCOUTQ errno 5\n"},
   };
   for (const auto& [fault, wouldBlock, capacity, message] : cases) {
      VorelBuffer buffer(socket, 10, 0);
      testing::internal::CaptureStdout();
      const Faults faults({fault});
      for (int i = 0; i < 2; ++i) {
         EXPECT_EQ(buffer.wouldBlock(), wouldBlock);
         EXPECT_EQ(buffer.socketState, 1);
         EXPECT_EQ(buffer.socketCapacity, capacity);
      }
      EXPECT_EQ(testing::internal::GetCapturedStdout(), message);
   }
}

}  // namespace
