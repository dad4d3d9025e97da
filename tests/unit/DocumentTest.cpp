// The document layer: what each call prints in both outputs, and the calls that it makes on a
// buffer.
#include <vorel/document/Document.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include <vorel/buffers/NonBlockingCliTxnBuffer.h>
#include <vorel/render/Printer.h>
#include "RecordingBuffer.h"
#include "Resources.h"

using namespace vorel;
using namespace vorel::literals;

enum class State { up, down };
struct Address {
   int number;
};
template <>
struct vorel::Value<State> {
   static const char* data(State state) { return state == State::up ? "up" : "down"; }
};
template <>
struct vorel::Value<Address> {
   static int data(const Address& address) { return address.number; }
   static std::string text(const Address& address) {
      return "address " + std::to_string(address.number) + ", longer than a short string";
   }
};

namespace {

using Body = void (*)(Object);
constexpr std::optional<int> kNone;

std::string print(OutputFormat_t format, Body body, size_t area = 2000, bool buffered = true) {
   RecordingBuffer buffer(area);
   Renderer out(format, &buffer, buffered);
   document(out, body);
   return buffer.output();
}

const struct {
   Body body;
   const char* json;  // within the document's brackets
   const char* text;
} kCases[] = {
      {[](Object doc) {
          doc.print("{a} {b} {c} {d} {e}\n"_f, true, int8_t{-5}, UINT64_MAX, 'x',
                    "a\"\\\n\x1f\x7f");
       },
       R"("a":true,"b":-5,"c":18446744073709551615,"d":"x","e":"a\"\\\n\u001f)"
       "\x7f\"",
       "true -5 18446744073709551615 x a\"\\???\n"},
      {[](Object doc) { doc.print("{a} {b} {c}\n"_f, 1e-5, 0.1F, 1.0 / 0.0); },
       R"("a":1e-05,"b":0.1,"c":null)", "1e-05 0.1 inf\n"},
      {[](Object doc) { doc.print("{a} {b}|{c:>4}|{d}\n"_f, kNone, 1, kNone, nullptr); },
       R"("b":1,"d":null)", "- 1|   -|-\n"},
      {[](Object doc) {
          doc.print("{a.b.c} {a.b.d} {a.e} {f.g} {h}\n"_f, kNone, kNone, kNone, kNone, 1);
          doc.print("{i.j.k} {i.j.l} {i.m}\n"_f, kNone, 2, 3);
       },
       R"("h":1,"i":{"j":{"l":2},"m":3})", "- - - - 1\n- 2 3\n"},
      {[](Object doc) {
          doc.print("{a} {b} {c} {d}\n"_f, std::vector<bool>{true, false},
                    std::map<std::string, std::optional<int>>{{"k\"", 1}, {"l", {}}},
                    std::vector<std::vector<int>>{{1, 2}, {}}, std::initializer_list<State>{});
       },
       R"("a":[true,false],"b":{"k\"":1,"l":null},"c":[[1,2],[]],"d":[])",
       "true false k\"=1 l=- 1 2  \n"},
      {[](Object doc) {
          doc.print("{a} {b:.7} {c} {d}\n"_f, State::up, Address{7}, vorel::as(State::down, 5),
                    std::optional<Address>(Address{8}));
       },
       R"("a":"up","b":7,"c":"down","d":8)",
       "up address 5 address 8, longer than a short string\n"},
      {[](Object doc) {
          using namespace std::chrono;
          doc.print("{a} {b} {c} {d}\n"_f, seconds(183845), milliseconds(-1500), hours(-25),
                    duration<double>(0.5));
       },
       R"("a":183845,"b":-1.5,"c":-90000,"d":0.5)",
       "2d 03:04:05 -00:00:01.500 -1d 01:00:00 00:00:00\n"},
      {[](Object doc) {
          doc.text("{{T}} {}\n"_f, "x\x1b[31m\xff\xe2\x80\xae");
          doc.print("plain {{}}\n");
          doc.data("a", "\xff\xc3\xa9\xed\xa0\x80");
          doc.print("{!}{b!}{=Heading}\n"_f, 1, 2, 3);
       },
       R"("a":"\ufffd)"
       "\xc3\xa9"
       R"(\ufffd\ufffd\ufffd","b":2)",
       "{T} x?[31m??\nplain {}\n3\n"},
      {[](Object doc) {
          const List list = doc.list("l");
          list.heading("{a=Title:>6}|{b.c:<4}|{d!}{e:^5}\n"_f);
          list.row("{a:>6}|{b.c:<4}|{d!}{e:^5}\n"_f, "\xe6\x9d\xb1", 1, 2, 3);
          list.print("{} {}\n"_f, 1, kNone);
          list.object().list("x").list().data("deep");
          list.data(5);
          const Dict dict = doc.dict("m");
          dict.print("{}={}\n"_f, "k\"", State::up);
          dict.row("{:>3} {a}\n"_f, 7, true);
          dict.object("o").dict("p").list(-1).data(kNone);
          dict.data('q', 1);
       },
       R"("l":[{"a":")"
       "\xe6\x9d\xb1"
       R"(","b":{"c":1},"d":2,"e":3},1,null,{"x":[["deep"]]},5],)"
       R"("m":{"k\"":"up","7":{"a":true},"o":{"p":{"-1":[null]}},"q":1})",
       " Title|c   |  e  \n    \xe6\x9d\xb1|1   |  3  \n1 -\nk\"=up\n  7 true\n"},
      {[](Object doc) {
          Object inner = doc.object("a");
          Renderer& out = inner.list("b").renderer();
          out.startListEntry();
          within(out, [](Object object) { object.object("c").data("d", 1); });
          out.endListEntry();
          doc.data("e", 2);
       },
       R"("a":{"b":[{"c":{"d":1}}]},"e":2)", ""},
};

TEST(Document, PrintsBothOutputsWhateverTheArea) {
   for (const auto& [body, json, text] : kCases) {
      const std::string document = "{" + std::string(json) + "}\n";
      for (const unsigned area : {2000U, 700U, 100U, 7U, 1U}) {
         EXPECT_EQ(print(outputFormatJson, body, area), document) << area;
         EXPECT_EQ(print(outputFormatText, body, area), text) << area;
      }
      EXPECT_EQ(print(outputFormatJson, body, 0, false), document);
      EXPECT_EQ(print(outputFormatText, body, 0, false), text);
      for (const unsigned area : {1U, 2U, 13U, 5000U}) {
         Pipe pipe;
         Printer printer(pipe.writer, outputFormatJson, true, false, true, area);
         vorel::document(printer, body);
         EXPECT_EQ(pipe.finish(), document) << area;
      }
      NonBlockingCliTxnBuffer chunks(5);
      Renderer out(outputFormatJson, &chunks, true);
      vorel::document(out, body);
      EXPECT_EQ(chunks.usedSpace(), document.size());
   }
}

TEST(Document, MakesOnePieceOfACall) {
   RecordingBuffer unbuffered(0);
   Renderer out(outputFormatJson, &unbuffered, false);
   document(out, [](Object doc) {
      doc.object("a").list("b").data(1);
      doc.print("{c} {d}\n"_f, 1, "x");
   });
   EXPECT_EQ(unbuffered.calls, (Calls{"write {", "write \"a\":{", "write \"b\":[", "write 1",
                                      "write ]},\"c\":1,\"d\":\"x\"", "write }\n", "flush"}));
   RecordingBuffer small(3);
   Renderer other(outputFormatJson, &small, true);
   document(other, [](Object doc) { doc.data("a", "12345"); });
   EXPECT_EQ(small.calls, (Calls{"allocate 11", "allocate 2", "flush"}));
   // A second document on the same renderer begins anew.
   document(other, [](Object doc) { doc.data("b", 1); });
   EXPECT_EQ(small.output(), "{\"a\":\"12345\"}\n{\"b\":1}\n");
}

TEST(Document, TellsWhyAWriteHasFailed) {
   const Descriptor full(open("/dev/full", O_WRONLY | O_CLOEXEC));
   for (const bool swallowed : {false, true}) {
      Printer printer(full, outputFormatJson, true, false, true, 20);
      try {
         document(printer, [&](Object doc) {
            try {
               doc.data("a", "more than twenty bytes");
            } catch (const SigIntException&) {
               if (!swallowed)
                  throw;
            }
         });
         ADD_FAILURE() << "nothing thrown";
      } catch (const WriteError& error) {
         EXPECT_EQ(error.error(), ENOSPC);
         EXPECT_STREQ(error.what(), "cannot write: No space left on device");
      }
      EXPECT_EQ(writeError(), ENOSPC);
   }
   resetInterrupted();
   EXPECT_EQ(writeError(), 0);
   // An interruption is none, in either output, and stops each call that prints.
   for (const OutputFormat_t format : {outputFormatJson, outputFormatText}) {
      RecordingBuffer buffer(100);
      Renderer out(format, &buffer, true);
      try {
         document(out, [](Object doc) {
            const List list = doc.list("l");
            setInterrupted();
            EXPECT_THROW(doc.text("x"), SigIntException);
            EXPECT_THROW(doc.data("x", 1), SigIntException);
            EXPECT_THROW(list.heading("{x}"_f), SigIntException);
            list.row("{x}"_f, 1);
         });
         ADD_FAILURE() << "nothing thrown";
      } catch (const WriteError&) {
         ADD_FAILURE() << "an interruption is no write error";
      } catch (const SigIntException&) {
      }
      EXPECT_EQ(buffer.output(), format == outputFormatJson ? "{\"l\":[" : "");
      resetInterrupted();
   }
}

TEST(DocumentDeathTest, StopsWhenAHandleIsStale) {
   for (const OutputFormat_t format : {outputFormatJson, outputFormatText}) {
      EXPECT_DEATH(print(format,
                         [](Object doc) {
                            const Object closed = doc.object("a");
                            doc.object("b");
                            closed.data("c", 1);
                         }),
                   "Document:.*scope is open");
   }
}

}  // namespace
