#pragma once

#include <string>

#include "Printers.h"

// The same documents, printed with what a command could use instead, and the floor. Buffers are
// kept from one call to the next, which is their best use.
namespace bench {

// RapidJSON's Writer on its StringBuffer.
void rapidRows(const Rows& rows, Load load, int fd);
/** The same with its check of UTF-8. */
void rapidCheckedRows(const Rows& rows, Load load, int fd);
void rapidStructure(const Rows& rows, int fd);

// {fmt}, compiled formats into a memory_buffer; nothing is escaped, as in this library.
void fmtRows(const Rows& rows, Load load, int fd);
void fmtText(const Rows& rows, int fd);

// nlohmann::json, built and dumped.
void nlohmannRows(const Rows& rows, Load load, int fd);
void nlohmannStructure(const Rows& rows, int fd);

/** The C library's vsnprintf into an area of the printers' size, written out when it is full. */
void vsnprintfText(const Rows& rows, int fd);

/** The floor: the finished bytes, copied into such an area block by block, and written. */
void copyBlocks(const std::string& bytes, int fd);

}  // namespace bench
