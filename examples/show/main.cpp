// show: prints what this machine knows about itself, as text for people or as JSON for programs.

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <exception>
#include <string_view>

#include <vorel/plain/PlainC.h>
#include <vorel/render/Printer.h>
#include "Commands.h"
#include "ControlC.h"

namespace {

// Exit statuses. Shells report 128 and the number of a signal for a program that it ended.
constexpr int kFailed = 1;
constexpr int kUsage = 2;
constexpr int kControlC = 128 + SIGINT;
constexpr int kReaderGone = 128 + SIGPIPE;

int cannotWrite(int error) {
   std::fprintf(stderr, "show: cannot write: %s\n", std::strerror(error));
   return kFailed;
}

/** Prints the command's document on standard output; the result is the exit status. */
int run(Command command, vorel::OutputFormat_t format) {
   const ControlC controlC;
   vorel::Printer out(STDOUT_FILENO, format, true, false, true, 0);
   try {
      command(out);
      out.ioflush();  // here and not in the printer's destructor, which would hide a failure
      return 0;
   } catch (const vorel::SigIntException&) {
      const int error = errno;  // why the write failed, if one did
      if (controlC.pressed())
         return kControlC;
      return error == EPIPE ? kReaderGone : cannotWrite(error);
   }
}

int usage() {
   std::fputs("usage: show interfaces|processes|mounts [--format text|json]\n", stderr);
   return kUsage;
}

}  // namespace

int main(int argc, char** argv) {
   // So that a write to a pipe without a reader fails, and does not end the program.
   std::signal(SIGPIPE, SIG_IGN);

   if (argc != 2 && !(argc == 4 && std::string_view(argv[2]) == "--format"))
      return usage();
   const Command command = findCommand(argv[1]);
   const vorel::OutputFormat_t format =
         argc == 4 ? stringToOutputFormat(argv[3]) : vorel::outputFormatText;
   if (command == nullptr || format == vorel::outputFormatUnknown)
      return usage();

   // If standard output is closed, the next file to be opened would take its place.
   if (fcntl(STDOUT_FILENO, F_GETFD) == -1)
      return cannotWrite(errno);

   try {
      return run(command, format);
   } catch (const std::exception& failure) {
      std::fprintf(stderr, "show: %s\n", failure.what());
      return kFailed;
   }
}
