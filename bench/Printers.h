#pragma once

#include "Rows.h"

// The documents, printed with this library as a command would print them.
namespace bench {

enum class Load : bool { kWithout, kWith };

/** A table of `count` rows as JSON; rows are taken again from the first when there are fewer. */
void printRows(const Rows& rows, size_t count, Load load, int fd);
/** The same without the load, through the transactional buffer, as a server that drains it. */
void printRowsTransactional(const Rows& rows, int fd);
/** Lists in objects in dictionaries, without attributes. */
void printStructure(const Rows& rows, int fd);

// The same documents through the document layer.
void layerRows(const Rows& rows, Load load, int fd);
void layerRowsTransactional(const Rows& rows, int fd);
void layerStructure(const Rows& rows, int fd);
void layerText(const Rows& rows, int fd);

// A table in text.
constexpr char kTextRow[] = "%-20s %8u %s %12lu\n";
inline const char* stateWord(const Row& row) {
   return row.up ? "up" : "down";
}
void printTextAttributes(const Rows& rows, int fd);
void printTextFrills(const Rows& rows, int fd);
void printTextArgs(const Rows& rows, int fd);

}  // namespace bench
