// Every assertion of the library, provoked, and what it reports: crash collectors know a defect by
// unit, line and function.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>

#include <vorel/buffers/NonBlockingCliTxnBuffer.h>
#include <vorel/buffers/VorelBuffer.h>
#include <vorel/plain/PlainC.h>
#include "RecordingBuffer.h"
#include "Resources.h"

using namespace vorel;
using TxnBuffer = NonBlockingCliTxnBuffer;

namespace {

struct StingyBuffer : RecordingBuffer {
   StingyBuffer() : RecordingBuffer(3) {}
   void allocateSpace(size_t) override {}
};

/** A buffer that, while it makes room for a text, makes the text longer. */
struct LengtheningBuffer : RecordingBuffer {
   char text[100] = "123456789";
   int error = ENOSPC;
   LengtheningBuffer() : RecordingBuffer(5) {}
   void allocateSpace(size_t count) override {
      RecordingBuffer::allocateSpace(count);
      std::strcat(text, "123456789");
      errno = error;
   }
};

template <class Info>
struct Tagged : Info {
   explicit Tagged(uint32_t tag) { this->type = static_cast<AttrType_t>(tag); }
};

/** What there is to be misused; it prints to standard output. */
struct Stage {
   VorelBuffer unbuffered{1, 0, 0}, area{1, 100, 0};
   StingyBuffer stingy;
   LengtheningBuffer lengthening;
   TxnBuffer chunks{16};
   const Attr32Info good{"a", 1}, bare{"", true};
   const Tagged<Attr32Info> bad{7};
   const Tagged<Attr64Info> worse{0xffffffff};
   Renderer other, json{outputFormatJson, &unbuffered, false},
         text{outputFormatText, &unbuffered, false}, filled{outputFormatText, &area, true},
         tight{outputFormatText, &stingy, true}, tightJson{outputFormatJson, &stingy, true},
         longer{outputFormatText, &lengthening, true};

   explicit Stage(OutputFormat_t format) : other(format, &unbuffered, false) {
      filled.addFrills("first ");
   }
};

TxnBuffer& withText(TxnBuffer& buffer) {
   *buffer.getBuffer(1) = 'x';
   ++buffer.writePtr;
   return buffer;
}

const char kNoRoom[] =
      "ZyStrings/StringBuffer:94: char* ZyFmt::DynamicBufferInterface::getBuffer(size_t)";
const char kStillNoRoom[] = "endPtr - writePtr >= ptrdiff_t( required )";
const char kTooLarge[] = "VorelBuffer:41: virtual void vorel::VorelBuffer::allocateSpace(size_t)";
const char kUnknownTag[] =
      "Renderer:592: int vorel::Renderer::addJsonAttributes(const char*, int, __va_list_tag*)";
const char kTooManyConversions[] =
      "Renderer:622: int vorel::getArgLenList(const char*, int*, int*, bool*)";
const char kNotFormatted[] = "PlainC:196: int addFrills(vorel::Renderer*, const char*, int, ...)";
const char kNextExtract[] = "size_t vorel::NonBlockingCliTxnBuffer::nextExtract(const char**)";

const struct {
   std::string where;
   void (*misuse)(Stage&);
   const char* expression = "0";
   const char* printed = "";  ///< Before it.
} kMisuses[] = {
      {"Renderer:157: void vorel::Renderer::startDictEntry(const vorel::Attr32Info&)",
       [](Stage& s) { s.json.startDictEntry(Tagged<Attr32Info>(attrBool)); }},
      {"Renderer:171: void vorel::Renderer::startDictEntry(const vorel::Attr64Info&)",
       [](Stage& s) { s.json.startDictEntry(Tagged<Attr64Info>(attrString)); }},
      {"Renderer:192: void vorel::Renderer::startSimpleDictEntry(const vorel::Attr32Info&)",
       [](Stage& s) { s.json.startSimpleDictEntry(Tagged<Attr32Info>(attrUint64)); }},
      {"Renderer:206: void vorel::Renderer::startSimpleDictEntry(const vorel::Attr64Info&)",
       [](Stage& s) { s.json.startSimpleDictEntry(Tagged<Attr64Info>(attrInt32)); }},
      {"Renderer:338: int vorel::Renderer::addAttributes(const char*, int, ...)",
       [](Stage& s) { s.other.addAttributes("x", 1, &s.good); }},
      {"Renderer:375: int vorel::Renderer::addVaFrillsWrapper(const char*, int, __va_list_tag*)",
       [](Stage& s) { addVaFrills(s.other, "x"); }},
      {"Renderer:479: void vorel::Renderer::addArgs(const char*, ...)",
       [](Stage& s) { s.other.addArgs("x"); }},
      {"Renderer:503: int vorel::Renderer::addFrills(const char*, ...)",
       [](Stage& s) { s.other.addFrills("x"); }},
      {kUnknownTag, [](Stage& s) { s.json.addAttributes("", 2, &s.good, &s.bad); }, "0",
       "\"a\":1,"},
      {kUnknownTag, [](Stage& s) { s.json.addAttributesJson(1, &s.worse); }},
      {"Renderer:810: int vorel::Renderer::addJsonAttributesNoArgCount(const char*, "
       "__va_list_tag*)",
       [](Stage& s) { s.json.addArgs("%d %d", &s.good, &s.bad); }, "0", "\"a\":1,"},
      {kTooManyConversions, [](Stage& s) { s.json.addArgs("%d%d%d%d%d%d%d%d%d%d%d"); }},
      {kTooManyConversions, [](Stage& s) { s.json.addArgs("%d%d%d%d%d%d%d%d%d%d%%"); }},
      {kNoRoom, [](Stage& s) { s.tight.addFrills("%s", "abc"); }, kStillNoRoom},
      {kNoRoom, [](Stage& s) { s.tightJson.startList("ab"); }, kStillNoRoom},
      {kNoRoom, [](Stage& s) { s.tightJson.addAttributesJson(1, &s.bare); }, kStillNoRoom},
      {"VorelBuffer:21: vorel::VorelBuffer::VorelBuffer(int, size_t, uint32_t)",
       [](Stage&) { VorelBuffer(0, 100, 0); }, "fd != 0"},
      {"VorelBuffer:36: virtual void vorel::VorelBuffer::allocateSpace(size_t)",
       [](Stage& s) { s.area.allocateSpace(94); }, "rlen() < count"},
      {kTooLarge, [](Stage& s) { s.unbuffered.getBuffer(1); }, "count <= rlen()"},
      {kTooLarge, [](Stage& s) { s.filled.addFrills("%s", std::string(100, 'x').c_str()); },
       "count <= rlen()", "first "},
      {"NonBlockingCliTxnBuffer:51: void vorel::NonBlockingCliTxnBuffer::dropBack()",
       [](Stage& s) {
          s.chunks.data.back().base = nullptr;
          s.chunks.dropBack();
       },
       "oldbase"},
      {"NonBlockingCliTxnBuffer:97: virtual void vorel::NonBlockingCliTxnBuffer::flush()",
       [](Stage& s) { s.chunks.flush(); }, "!\"you cannot flush this buffer, just let it grow\""},
      {std::string("NonBlockingCliTxnBuffer:107: ") + kNextExtract,
       [](Stage& s) {
          s.chunks.data.clear();
          s.chunks.nextExtract(nullptr);
       },
       "!data.empty()"},
      {std::string("NonBlockingCliTxnBuffer:115: ") + kNextExtract,
       [](Stage& s) {
          s.chunks.startTransaction();
          withText(s.chunks).writeSome(1);
       },
       "txnCount == 0 && \"can't write data while transactions are pending\""},
      {std::string("NonBlockingCliTxnBuffer:118: ") + kNextExtract,
       [](Stage& s) {
          s.chunks.readPtr = s.chunks.endPtr + 1;
          s.chunks.nextExtract(nullptr);
       },
       "c.inRange( readPtr )"},
      {"NonBlockingCliTxnBuffer:144: void vorel::NonBlockingCliTxnBuffer::extract(size_t)",
       [](Stage& s) {
          --withText(s.chunks).endPtr;
          s.chunks.extract(1);
       },
       "endPtr == c.end"},
      {"NonBlockingCliTxnBuffer:153: virtual ssize_t "
       "vorel::NonBlockingCliTxnBuffer::writeSome(int)",
       [](Stage& s) { s.chunks.writeSome(1); }, "haveData()"},
      {"NonBlockingCliTxnBuffer:199: void vorel::NonBlockingCliTxnBuffer::cancelTransaction(const "
       "vorel::NonBlockingCliTxnBuffer::SavePoint&)",
       [](Stage& s) {
          s.chunks.cancelTransaction({nullptr, nullptr, nullptr});
       },
       "!data.empty()"},
      {"NonBlockingCliTxnBuffer:253: virtual void vorel::NonBlockingCliTxnBuffer::rawWrite(const "
       "char*, size_t)",
       [](Stage& s) { s.chunks.rawWrite("x", 1); },
       "!\"unbuffered writes unsupported by NonBlockingCliTxnBuffer\""},
      {"NonBlockingCliTxnBuffer:256: virtual bool vorel::NonBlockingCliTxnBuffer::wouldBlock()",
       [](Stage& s) { s.chunks.wouldBlock(); },
       "!\"flush is not supported by NonBlockingCliTxnBuffer\""},
      {"NonBlockingCliTxnBuffer:317: virtual "
       "vorel::NonBlockingCliTxnBuffer::~NonBlockingCliTxnBuffer()",
       [](Stage&) { TxnBuffer(1).startTransaction(); }, "txnCount == 0"},
      {kNotFormatted, [](Stage& s) { addFrills(&s.text, "%lc", 0, wint_t{0x20ac}); }, "0",
       "vorel '%lc' longer than buffer (error: Invalid or incomplete multibyte or wide "
       "character)\n"},
      {kNotFormatted, [](Stage& s) { addFrills(&s.longer, "%s", 0, s.lengthening.text); }, "0",
       "vorel '%s' longer than buffer (error: No space left on device)\n"},
};

/** What the call prints, on standard output or error, until it aborts the process. */
std::string lastWordsOf(void (*misuse)(Stage&), OutputFormat_t format) {
   Pipe pipe;
   std::fflush(stdout);
   const pid_t child = fork();
   if (child == 0) {
      dup2(pipe.writer, STDOUT_FILENO);
      dup2(pipe.writer, STDERR_FILENO);
      Stage stage(format);
      misuse(stage);
      _exit(0);
   }
   const std::string words = pipe.finish();
   int status = 0;
   EXPECT_EQ(waitpid(child, &status, 0), child);
   EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGABRT) << status;
   return words;
}

TEST(AssertionReport, NamesUnitLineAndFunction) {
   for (const OutputFormat_t format : {outputFormatUnknown, OutputFormat_t{3}})
      for (const auto& [where, misuse, expression, printed] : kMisuses)
         EXPECT_EQ(lastWordsOf(misuse, format), std::string(printed) +
                                                      program_invocation_short_name + ": " + where +
                                                      ": Assertion `" + expression + "' failed.\n");
}

TEST(AssertionReport, IsMadeNeitherForLackOfAReaderNorOfAnInterruptedThread) {
   for (const bool marking : {false, true}) {
      LengtheningBuffer buffer;
      buffer.error = marking ? ENOSPC : EPIPE;
      Renderer text(outputFormatText, &buffer, true);
      if (marking)
         setInterrupted();
      EXPECT_EQ(addFrills(&text, "%s", 0, buffer.text), -1);
      EXPECT_EQ(buffer.calls, (Calls{"allocate 10", "allocate 19"}));
      resetInterrupted();
      EXPECT_THROW(text.addFrills("%s", buffer.text), SigIntException);
      resetInterrupted();
   }
}

}  // namespace
