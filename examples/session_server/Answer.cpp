#include "Answer.h"

#include <algorithm>
#include <stdexcept>
#include <string_view>

namespace {

constexpr std::string_view kOk = "ok 0000000000\n";
constexpr std::string_view kFailed = "no 0000000000\n";
constexpr size_t kLastDigit = kOk.size() - 2;
constexpr size_t kMaxLength = 9'999'999'999;

void writeHeader(char* header, Outcome outcome, size_t length) {
   if (length > kMaxLength)
      throw std::length_error("the answer is too long");
   std::ranges::copy(outcome == Outcome::ok ? kOk : kFailed, header);
   for (char* digit = header + kLastDigit; length != 0; length /= 10)
      *digit-- = static_cast<char>('0' + length % 10);
}

}  // namespace

void appendAnswer(vorel::NonBlockingCliTxnBuffer& out, Outcome outcome,
                  vorel::OutputFormat_t format, const Print& print) {
   vorel::NonBlockingCliTxnBuffer::Transaction transaction(&out);
   // The length is known only behind the body, so its place is set aside. The chunk stays where it
   // is as long as the transaction is open, for nothing is sent until then.
   const auto& header = out.reserve(kOk.size());
   const size_t before = out.usedSpace();
   vorel::Renderer renderer(format, &out, true);
   print(renderer);
   writeHeader(header.start, outcome, out.usedSpace() - before);
   transaction.confirm();
}
