#include "Printers.h"

#include <algorithm>
#include <stdexcept>

#include <vorel/buffers/NonBlockingCliTxnBuffer.h>
#include <vorel/document/Document.h>
#include <vorel/render/Printer.h>

namespace bench {

using vorel::Attr32Info;
using vorel::Attr64Info;

namespace {

constexpr size_t kChunk = 65536;

vorel::PrinterConfig config(int fd, vorel::OutputFormat_t format) {
   vorel::PrinterConfig config;
   vorel::initPrinterConfig(config, fd, format);
   return config;
}

void printRow(vorel::Renderer& out, const Row& row, Load load) {
   out.startListEntry();
   const Attr32Info name("name", row.name.c_str());
   const Attr32Info mtu("mtu", row.mtu);
   const Attr32Info up("up", row.up);
   const Attr64Info rxBytes("rxBytes", row.rxBytes);
   const Attr64Info txBytes("txBytes", row.txBytes);
   const Attr32Info description("description", row.description.c_str());
   if (load == Load::kWith) {
      const Attr64Info percent("load", row.load);
      out.addAttributesJson(7, &name, &mtu, &up, &rxBytes, &txBytes, &description, &percent);
   } else {
      out.addAttributesJson(6, &name, &mtu, &up, &rxBytes, &txBytes, &description);
   }
   out.endListEntry();
}

}  // namespace

void printRows(const Rows& rows, size_t count, Load load, int fd) {
   vorel::Printer out(config(fd, vorel::outputFormatJson));
   out.start();
   out.startList("interfaces");
   while (count != 0) {
      const size_t some = std::min(count, rows.size());
      for (size_t i = 0; i < some; ++i)
         printRow(out, rows[i], load);
      count -= some;
   }
   out.endList();
   out.end();
   out.ioflush();
}

namespace {

/** Sends what a transactional buffer holds. */
void drain(vorel::NonBlockingCliTxnBuffer& buffer, int fd) {
   while (buffer.haveData())
      if (buffer.writeSome(fd) <= 0)
         throw std::runtime_error("cannot write");
}

}  // namespace

void printRowsTransactional(const Rows& rows, int fd) {
   vorel::NonBlockingCliTxnBuffer buffer(kChunk);
   vorel::Renderer out(vorel::outputFormatJson, &buffer, true);
   out.start();
   out.startList("interfaces");
   for (const Row& row : rows) {
      printRow(out, row, Load::kWithout);
      if (buffer.usedSpace() >= kChunk)
         drain(buffer, fd);
   }
   out.endList();
   out.end();
   drain(buffer, fd);
}

void printStructure(const Rows& rows, int fd) {
   vorel::Printer out(config(fd, vorel::outputFormatJson));
   out.start();
   out.startList("devices");
   for (const Row& row : rows) {
      out.startListEntry();
      out.startSubmodel("state");
      out.startDict("interfaces");
      out.startDictEntry(Attr32Info("", row.name.c_str()));
      out.startList("neighbors");
      for (int i = 0; i < 2; ++i) {
         out.startListEntry();
         out.startList("addresses");
         out.endList();
         out.endListEntry();
      }
      out.endList();
      out.endDictEntry();
      out.endDict();
      out.endSubmodel();
      out.endListEntry();
   }
   out.endList();
   out.end();
   out.ioflush();
}

void printTextAttributes(const Rows& rows, int fd) {
   vorel::Printer out(config(fd, vorel::outputFormatText));
   for (const Row& row : rows)
      out.addAttributes(kTextRow, 4, row.name.c_str(), row.mtu, stateWord(row), row.rxBytes);
   out.ioflush();
}

void printTextFrills(const Rows& rows, int fd) {
   vorel::Printer out(config(fd, vorel::outputFormatText));
   for (const Row& row : rows)
      out.addFrills(kTextRow, row.name.c_str(), row.mtu, stateWord(row), row.rxBytes);
   out.ioflush();
}

void printTextArgs(const Rows& rows, int fd) {
   vorel::Printer out(config(fd, vorel::outputFormatText));
   for (const Row& row : rows)
      out.addArgs(kTextRow, row.name.c_str(), row.mtu, stateWord(row), row.rxBytes);
   out.ioflush();
}

using namespace vorel::literals;

namespace {

void layerRow(const vorel::List& list, const Row& row, Load load) {
   if (load == Load::kWith)
      list.row("{name} {mtu} {up} {rxBytes} {txBytes} {description} {load}\n"_f, row.name, row.mtu,
               row.up, row.rxBytes, row.txBytes, row.description, row.load);
   else
      list.row("{name} {mtu} {up} {rxBytes} {txBytes} {description}\n"_f, row.name, row.mtu, row.up,
               row.rxBytes, row.txBytes, row.description);
}

}  // namespace

void layerRows(const Rows& rows, Load load, int fd) {
   vorel::Printer out(config(fd, vorel::outputFormatJson));
   vorel::document(out, [&](vorel::Object document) {
      const vorel::List list = document.list("interfaces");
      for (const Row& row : rows)
         layerRow(list, row, load);
   });
}

void layerRowsTransactional(const Rows& rows, int fd) {
   vorel::NonBlockingCliTxnBuffer buffer(kChunk);
   vorel::Renderer out(vorel::outputFormatJson, &buffer, true);
   vorel::document(out, [&](vorel::Object document) {
      const vorel::List list = document.list("interfaces");
      for (const Row& row : rows) {
         layerRow(list, row, Load::kWithout);
         if (buffer.usedSpace() >= kChunk)
            drain(buffer, fd);
      }
   });
   drain(buffer, fd);
}

void layerStructure(const Rows& rows, int fd) {
   vorel::Printer out(config(fd, vorel::outputFormatJson));
   vorel::document(out, [&](vorel::Object document) {
      const vorel::List devices = document.list("devices");
      for (const Row& row : rows) {
         const vorel::List neighbors = devices.object()
                                             .object("state")
                                             .dict("interfaces")
                                             .object(row.name)
                                             .list("neighbors");
         for (int i = 0; i < 2; ++i)
            neighbors.object().list("addresses");
      }
   });
}

void layerText(const Rows& rows, int fd) {
   vorel::Printer out(config(fd, vorel::outputFormatText));
   vorel::document(out, [&](vorel::Object document) {
      const vorel::List list = document.list("interfaces");
      for (const Row& row : rows)
         list.row("{name:<20} {mtu:>8} {state} {rxBytes:>12}\n"_f, row.name, row.mtu,
                  stateWord(row), row.rxBytes);
   });
}

}  // namespace bench
