/* plain_show: this machine's devices by class, from a C program.
 *
 * Functions alone print structure and decoration, but no values, so the document is a tree of
 * names: {"devices":{"net":{"lo":{},...},...}}. plain_show.py prints the same from Python. */
#define _GNU_SOURCE
#include <dirent.h>
#include <errno.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <vorel/plain/PlainC.h>

static const char kClasses[] = "/sys/class";

enum { kFailed = 1, kUsage = 2, kReaderGone = 128 + SIGPIPE /* as shells report that signal */ };

/* Printing goes on in silence after a write that failed, so that it can be checked now and then.
 * Returns whether it failed; errno then tells why. */
static int failed(void) {
   return vorel_isInterrupted(gettid());
}

/* Makes a name fit for JSON and for terminals: the library escapes nothing. */
static void makePrintable(char* name) {
   for (; *name != '\0'; ++name) {
      if (*name < ' ' || *name > '~' || *name == '"' || *name == '\\')
         *name = '?';
   }
}

static int isVisible(const struct dirent* entry) {
   return entry->d_name[0] != '.';
}
static int isLink(const struct dirent* entry) {
   return entry->d_type == DT_LNK;
}

typedef int Filter(const struct dirent* entry);
typedef void Visitor(vorel_Renderer* out, const char* folder, char* name);

/* Visits the entries of a folder by name, until printing fails. Returns 0, or -1 for a folder that
 * cannot be read. */
static int visit(vorel_Renderer* out, const char* folder, Filter* filter, Visitor* visitor) {
   struct dirent** entries;
   const int count = scandir(folder, &entries, filter, alphasort);
   for (int i = 0; i < count; ++i) {
      if (!failed())
         visitor(out, folder, entries[i]->d_name);
      free(entries[i]);
   }
   if (count >= 0)
      free(entries);
   return count < 0 ? -1 : 0;
}

static void printDevice(vorel_Renderer* out, const char* folder, char* name) {
   (void)folder;
   makePrintable(name);
   startSubmodel(out, name);
   addFrills(out, "   %s\n", 0, name);
   endSubmodel(out);
}

static void printClass(vorel_Renderer* out, const char* folder, char* name) {
   char path[sizeof kClasses + sizeof((struct dirent*)0)->d_name];
   snprintf(path, sizeof path, "%s/%s", folder, name);
   makePrintable(name);
   startSubmodel(out, name);
   addFrills(out, "%s\n", 0, name);
   visit(out, path, isLink, printDevice); /* a class that is gone by now has no devices */
   endSubmodel(out);
}

static int printDocument(vorel_Renderer* out) {
   start(out);
   addFrills(out, "Devices by class\n\n", 0);
   startDict(out, "devices");
   if (visit(out, kClasses, isVisible, printClass) != 0) {
      fprintf(stderr, "plain_show: %s: %s\n", kClasses, strerror(errno));
      return kFailed;
   }
   endDict(out);
   end(out);
   if (!failed())
      return 0;
   if (errno == EPIPE)
      return kReaderGone;
   fprintf(stderr, "plain_show: cannot write: %s\n", strerror(errno));
   return kFailed;
}

int main(int argc, char** argv) {
   vorel_OutputFormat format = outputFormatText;
   if (argc == 3 && strcmp(argv[1], "--format") == 0)
      format = stringToOutputFormat(argv[2]);
   else if (argc != 1)
      format = outputFormatUnknown;
   if (format == outputFormatUnknown) {
      fputs("usage: plain_show [--format text|json]\n", stderr);
      return kUsage;
   }

   /* So that a write to a pipe without a reader fails, and does not end the program. */
   signal(SIGPIPE, SIG_IGN);
   vorel_Renderer* const out = initPrinter(STDOUT_FILENO, format);
   const int status = printDocument(out);
   deinitPrinter(out);
   return status;
}
