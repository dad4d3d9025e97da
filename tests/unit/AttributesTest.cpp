// What attributes do beside their text: entry points, failures, locale.
#include <sys/mman.h>

#include <clocale>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include <vorel/buffers/VorelBuffer.h>
#include <vorel/render/Renderer.h>
#include "Recording.h"

using namespace vorel;

namespace {

int engine(Renderer& to, int count, ...) {
   va_list args;
   va_start(args, count);
   const int result = to.addJsonAttributes(nullptr, count, args);
   va_end(args);
   return result;
}

class AttributesTest : public InterruptingTest {};

TEST_F(AttributesTest, TheEngineLooksNeitherAtTheFormatNorAtTheInterruptFlag) {
   const Attr32Info a("a", 1), b("", "x");
   setInterrupted();
   for (OutputFormat_t format : {outputFormatUnknown, outputFormatText, outputFormatJson}) {
      RecordingBuffer buffer(30);
      Renderer renderer(format, &buffer, true);
      EXPECT_THROW(renderer.addAttributes("%d", 1, &a), SigIntException);
      EXPECT_THROW(renderer.addAttributesJson(1, &a), SigIntException);
      EXPECT_TRUE(renderer.firstItem);
      EXPECT_EQ(engine(renderer, 2, &a, &b), 3);
      EXPECT_EQ(buffer.output(), "\"a\":1,\"x\"");
   }
}

TEST_F(AttributesTest, ADecimalCommaOfTheProcessStaysOutOfJson) {
   namespace fs = std::filesystem;
   std::string folder = (fs::temp_directory_path() / "vorel-locale-XXXXXX").string();
   ASSERT_NE(mkdtemp(folder.data()), nullptr);
   std::ofstream(folder + "/source") << "LC_NUMERIC\ndecimal_point \",\"\nthousands_sep \".\"\n"
                                        "grouping 3\nEND LC_NUMERIC\n";
   // Complains that the locale has no other category, and makes it all the same.
   std::system(("localedef -c -i " + folder + "/source " + folder + "/comma 2>" + folder +
                "/complaints >&2")
                     .c_str());
   setenv("LOCPATH", folder.c_str(), 1);
   const bool set = std::setlocale(LC_NUMERIC, "comma") != nullptr;
   RecordingBuffer buffer(100);
   if (set) {
      const Attr32Info a("a", 1234567.5F);
      const Attr64Info b("", -1e18);
      Renderer(outputFormatJson, &buffer, true).addAttributesJson(2, &a, &b);
      Renderer(outputFormatText, &buffer, true).addAttributes(" %.1f", 1, 1.5);
   }
   std::setlocale(LC_NUMERIC, "C");
   unsetenv("LOCPATH");
   fs::remove_all(folder);
   ASSERT_TRUE(set) << "localedef made no locale";
   EXPECT_EQ(buffer.output(), "\"a\":1234567.500000,-1000000000000000000.000000 1,5");
}

/** A string of 2 GiB, which is more than INT_MAX characters, in a file of 16 MiB. */
std::shared_ptr<char> giantString() {
   constexpr size_t kBlock = size_t{16} << 20, kSize = kBlock << 7;
   const Descriptor file(memfd_create("giant", MFD_CLOEXEC));
   EXPECT_EQ(ftruncate(file, kBlock), 0);
   const auto map = [](char* where, size_t size, int flags, int fd) {
      void* const mapped = mmap(where, size, PROT_READ | PROT_WRITE, flags, fd, 0);
      EXPECT_NE(mapped, MAP_FAILED);
      return static_cast<char*>(mapped);
   };
   char* const start = map(nullptr, kSize + kBlock, MAP_PRIVATE | MAP_ANONYMOUS, -1);
   for (size_t at = 0; at < kSize; at += kBlock)
      map(start + at, kBlock, MAP_SHARED | MAP_FIXED, file);
   std::memset(start, 'g', kBlock);
   return {start, [](char* string) { munmap(string, kSize + kBlock); }};
}

TEST_F(AttributesTest, APieceBeyondIntMaxMarksTheThreadAndWritesNothing) {
   if (sanitizing("thread"))
      GTEST_SKIP() << "The sanitizer's shadow of the string takes several times its 2 GiB.";
   const auto giant = giantString();
   const Attr32Info text("t", giant.get()), bare("", giant.get()), number(giant.get(), 1);
   const auto expect = [&](auto run) {
      for (bool buffered : {true, false}) {
         RecordingBuffer buffer(100);
         Renderer renderer(outputFormatJson, &buffer, buffered);
         EXPECT_THROW(run(renderer), SigIntException);
         EXPECT_TRUE(isInterrupted());
         resetInterrupted();
         EXPECT_EQ(buffer.calls, Calls{});
         EXPECT_EQ(buffer.output(), "");
      }
   };
   expect([&](Renderer& r) { r.startObj(giant.get()); });
   expect([&](Renderer& r) { r.startSimpleDictEntry(text); });
   expect([&](Renderer& r) { r.addAttributesJson(1, &text); });
   expect([&](Renderer& r) { r.addAttributes("", 1, &bare); });
   expect([&](Renderer& r) { engine(r, 1, &number); });

   // Without a count, only a failure of the last item is noticed.
   const Attr32Info good("a", 1);
   RecordingBuffer buffer(100);
   Renderer json(outputFormatJson, &buffer, true);
   json.addArgs("%s %d", &text, &good);
   EXPECT_FALSE(isInterrupted());
   EXPECT_EQ(buffer.output(), ",\"a\":1");
   EXPECT_THROW(json.addArgs("%d %s", &good, &text), SigIntException);
   resetInterrupted();
   json.format = outputFormatText;
   EXPECT_THROW(json.addArgs(giant.get()), SigIntException);
}

TEST(AttributesDeathTest, StopOnUnknownTagsAndFormats) {
   const Attr32Info good("a", 1);
   for (uint32_t tag : {7U, 0xffffffffU}) {
      Pipe pipe;
      VorelBuffer buffer(pipe.writer, 0, 0);
      Renderer renderer(outputFormatJson, &buffer, false);
      Attr32Info bad("b", 1);
      bad.type = static_cast<AttrType_t>(tag);
      EXPECT_DEATH(
            renderer.addAttributesJson(2, &good, &bad),
            report("0", "Renderer", 592,
                   "int vorel::Renderer::addJsonAttributes(const char*, int, __va_list_tag*)"));
      EXPECT_EQ(pipe.finish(), "\"a\":1,");
   }
   RecordingBuffer buffer(10);
   for (OutputFormat_t format : {outputFormatUnknown, OutputFormat_t{3}}) {
      Renderer renderer(format, &buffer, true);
      EXPECT_DEATH(renderer.addAttributes("x", 1, &good),
                   report("0", "Renderer", 338,
                          "int vorel::Renderer::addAttributes(const char*, int, ...)"));
   }
}

}  // namespace
