// show: prints what this machine knows about itself, as text for people or as JSON for programs.

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <exception>
#include <string_view>

#include <vorel/document/Document.h>
#include <vorel/plain/PlainC.h>
#include <vorel/render/Printer.h>
#include "ControlC.h"
#include "commands/Commands.h"

namespace {

// Exit statuses. Shells report 128 and the number of a signal for a program that it ended.
constexpr int kFailed = 1;
constexpr int kUsage = 2;
constexpr int kControlC = 128 + SIGINT;
constexpr int kReaderGone = 128 + SIGPIPE;

int cannotWrite(const char* reason) {
   std::fprintf(stderr, "show: %s\n", reason);
   return kFailed;
}

/** Prints the command's document on standard output; the result is the exit status. */
int run(Command command, vorel::OutputFormat_t format) {
   const ControlC controlC;
   vorel::PrinterConfig config;
   vorel::initPrinterConfig(config, STDOUT_FILENO, format);
   try {
      vorel::Printer out(config);
      vorel::document(out, command);
      return 0;
   } catch (const vorel::WriteError& failure) {
      return failure.error() == EPIPE ? kReaderGone : cannotWrite(failure.what());
   } catch (const vorel::SigIntException& interruption) {
      return controlC.pressed() ? kControlC : cannotWrite(interruption.what());
   }
}

int usage() {
   std::fprintf(stderr, "usage: show %s [--format text|json]\n", commandNames().c_str());
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
      return cannotWrite(vorel::WriteError(errno).what());

   try {
      return run(command, format);
   } catch (const std::exception& failure) {
      std::fprintf(stderr, "show: %s\n", failure.what());
      return kFailed;
   }
}
