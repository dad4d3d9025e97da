// What compiled callers and debuggers rely on: where the fields lie and which virtual slot is
// whose.
#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>
#include <vector>

#include <vorel/render/Printer.h>
#include <vorel/render/PrinterV2.h>

using namespace vorel;

namespace {

#pragma GCC diagnostic ignored "-Winvalid-offsetof"

#define AT(record, field) offsetof(record, field)

TEST(Layout, FieldsLieWhereCallersExpectThem) {
   using Area = ZyFmt::DynamicBufferInterface;
   using Config = PrinterConfig;
   using Offsets = std::vector<size_t>;
   const VorelBuffer buffer(1, 0, 0);
   const Orv::Lock* lock;  // a reference, which lies between these fields
   std::memcpy(&lock, reinterpret_cast<const char*>(&buffer) + 56, sizeof lock);
   EXPECT_EQ(lock, &buffer.activityLock);

   const struct {
      const char* record;
      Offsets actual, expected;
   } records[] = {
         {"Area", {AT(Area, writePtr), AT(Area, endPtr), sizeof(Area)}, {8, 16, 24}},
         {"VorelBuffer",
          {AT(VorelBuffer, writePtr), AT(VorelBuffer, fd), AT(VorelBuffer, base),
           AT(VorelBuffer, socketState), AT(VorelBuffer, socketCapacity),
           AT(VorelBuffer, destroying), AT(VorelBuffer, skipRelock), sizeof(VorelBuffer)},
          {16, 32, 40, 48, 52, 64, 65, 72}},
         {"Renderer",
          {AT(Renderer, format), AT(Renderer, firstItem), AT(Renderer, buffered),
           AT(Renderer, buffer), sizeof(Renderer)},
          {8, 12, 13, 16, 24}},
         {"Printer", {AT(Printer, ownBuffer), sizeof(Printer)}, {24, 96}},
         {"PrinterV2", {AT(RendererV2, flags), AT(PrinterV2, ownBuffer)}, {24, 104}},
         {"PrinterConfig",
          {AT(Config, fd), AT(Config, format), AT(Config, resetInterrupt1),
           AT(Config, resetInterrupt2), AT(Config, buffered), AT(Config, bufsize)},
          {0, 4, 8, 9, 10, 12}},
         {"AttrInfo",
          {AT(AttrInfo, suppressed), AT(AttrInfo, name), AT(AttrInfo, type),
           AT(AttrInfo, reservedFlag), AT(AttrInfo, reservedCount), AT(AttrInfo, value),
           sizeof(AttrInfo::value), AT(AttrInfo, ownsValue), sizeof(Attr32Info),
           sizeof(Attr64Info)},
          {0, 8, 16, 20, 24, 32, 8, 48, 56, 56}},
   };
   for (const auto& [record, actual, expected] : records)
      EXPECT_EQ(actual, expected) << record;
}

/** The slot of a virtual member: its pointer holds 1 and the slot's offset in the table. */
template <class Member>
size_t slot(Member member) {
   size_t words[2];
   static_assert(sizeof member == sizeof words);
   std::memcpy(words, &member, sizeof words);
   EXPECT_EQ(words[1], 0U);  // in the table of the object's first word
   return (words[0] - 1) / sizeof(void*);
}

TEST(Layout, VirtualSlotsAreInOrder) {
   using Base = Orv::PtrInterface;
   const std::vector<size_t> slots = {
         slot(&Base::notifieeList),        slot(&Base::hasNotificationActiveIs),
         slot(&Base::zeroReferencesIs),    slot(&Base::fwkType),
         slot(&PrintBuffer::flush),        slot(&PrintBuffer::rawWrite),
         slot(&PrintBuffer::wouldBlock),   slot(&PrintBuffer::fullness),
         slot(&VorelBuffer::allocateSpace)};
   EXPECT_EQ(slots, (std::vector<size_t>{0, 1, 2, 3, 6, 7, 8, 9, 10}));
   EXPECT_EQ(slot(&ZyFmt::DynamicBufferInterface::allocateSpace), 0U);
   EXPECT_EQ(slot(&SigIntException::what), 2U);
}

}  // namespace
