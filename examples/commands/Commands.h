#pragma once

#include <string>
#include <string_view>

#include <vorel/document/Document.h>

// The commands. Each prints the members of a document. They throw vorel::SigIntException when the
// output is to end, and other exceptions when the system's data cannot be read.

void showDisks(vorel::Object doc);
void showInterfaces(vorel::Object doc);
void showMounts(vorel::Object doc);
void showProcesses(vorel::Object doc);
void showRoutes(vorel::Object doc);
void showSockets(vorel::Object doc);

using Command = void (*)(vorel::Object doc);

/** The command called `name`, "mounts" for instance; null when there is none. */
Command findCommand(std::string_view name);
/** The names of all commands, with `|` between them. */
std::string commandNames();
