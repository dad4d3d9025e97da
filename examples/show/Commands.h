#pragma once

#include <string_view>

#include <vorel/render/Renderer.h>

// The commands. Each prints one whole document, in the renderer's format and to wherever that
// prints, and flushes nothing. They throw vorel::SigIntException when the output is to end, and
// other exceptions when the system's data cannot be read.

void showInterfaces(vorel::Renderer& out);
void showProcesses(vorel::Renderer& out);
void showMounts(vorel::Renderer& out);

using Command = void (*)(vorel::Renderer& out);

/** The command called `name`, "mounts" for instance; null when there is none. */
Command findCommand(std::string_view name);
