#pragma once

#include <cstdint>
#include <map>
#include <string>

#include <vorel/render/Renderer.h>

using Counts = std::map<std::string, uint32_t>;

/** Prints a dictionary of numbers called `name`, in text under a `heading`. */
void showCounts(vorel::Renderer& out, const char* name, const char* heading, const Counts& counts);
