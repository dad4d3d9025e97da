#include "Peers.h"

#include <fmt/compile.h>
#include <fmt/format.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>
#include <unistd.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <nlohmann/json.hpp>
#include <stdexcept>

namespace bench {

namespace {

void writeAll(int fd, const char* data, size_t size) {
   while (size != 0) {
      const ssize_t written = ::write(fd, data, size);
      if (written <= 0)
         throw std::runtime_error("cannot write");
      data += written;
      size -= static_cast<size_t>(written);
   }
}

using RapidWriter = rapidjson::Writer<rapidjson::StringBuffer>;
using RapidCheckedWriter =
      rapidjson::Writer<rapidjson::StringBuffer, rapidjson::UTF8<>, rapidjson::UTF8<>,
                        rapidjson::CrtAllocator, rapidjson::kWriteValidateEncodingFlag>;

rapidjson::StringBuffer& rapidBuffer() {
   static rapidjson::StringBuffer buffer;
   buffer.Clear();
   return buffer;
}

template <class Writer>
void rapidString(Writer& out, const std::string& text) {
   out.String(text.data(), static_cast<rapidjson::SizeType>(text.size()));
}

void rapidWrite(rapidjson::StringBuffer& buffer, int fd) {
   buffer.Put('\n');
   writeAll(fd, buffer.GetString(), buffer.GetSize());
}

fmt::memory_buffer& fmtBuffer() {
   static fmt::memory_buffer buffer;
   buffer.clear();
   return buffer;
}

void nlohmannWrite(const nlohmann::ordered_json& document, int fd) {
   const std::string text = document.dump() + '\n';
   writeAll(fd, text.data(), text.size());
}

template <class Writer>
void rapidRowsBy(const Rows& rows, Load load, int fd) {
   rapidjson::StringBuffer& buffer = rapidBuffer();
   Writer out(buffer);
   out.SetMaxDecimalPlaces(6);
   out.StartObject();
   out.Key("interfaces");
   out.StartArray();
   for (const Row& row : rows) {
      out.StartObject();
      out.Key("name");
      rapidString(out, row.name);
      out.Key("mtu");
      out.Uint(row.mtu);
      out.Key("up");
      out.Bool(row.up);
      out.Key("rxBytes");
      out.Uint64(row.rxBytes);
      out.Key("txBytes");
      out.Uint64(row.txBytes);
      out.Key("description");
      rapidString(out, row.description);
      if (load == Load::kWith) {
         out.Key("load");
         out.Double(row.load);
      }
      out.EndObject();
   }
   out.EndArray();
   out.EndObject();
   rapidWrite(buffer, fd);
}

/** A write area of the printers' size. */
class Area {
 public:
   explicit Area(int fd) : fd_(fd) {}

   [[gnu::format(printf, 2, 3)]] void print(const char* format, ...) {
      for (bool again = true; again;) {
         const size_t room = sizeof bytes_ - used_;
         va_list args;
         va_start(args, format);
         const auto size = static_cast<size_t>(std::vsnprintf(bytes_ + used_, room, format, args));
         va_end(args);
         again = size >= room;
         if (again)
            flush();
         else
            used_ += size;
      }
   }
   void copy(const char* data, size_t size) {
      while (size != 0) {
         const size_t block = std::min(size, sizeof bytes_);
         std::memcpy(bytes_, data, block);
         used_ = block;
         flush();
         data += block;
         size -= block;
      }
   }
   void flush() {
      writeAll(fd_, bytes_, used_);
      used_ = 0;
   }

 private:
   static char bytes_[1048576];
   size_t used_ = 0;
   int fd_;
};

char Area::bytes_[];

}  // namespace

void rapidRows(const Rows& rows, Load load, int fd) {
   rapidRowsBy<RapidWriter>(rows, load, fd);
}

void rapidCheckedRows(const Rows& rows, Load load, int fd) {
   rapidRowsBy<RapidCheckedWriter>(rows, load, fd);
}

void rapidStructure(const Rows& rows, int fd) {
   rapidjson::StringBuffer& buffer = rapidBuffer();
   RapidWriter out(buffer);
   out.StartObject();
   out.Key("devices");
   out.StartArray();
   for (const Row& row : rows) {
      out.StartObject();
      out.Key("state");
      out.StartObject();
      out.Key("interfaces");
      out.StartObject();
      out.Key(row.name.data(), static_cast<rapidjson::SizeType>(row.name.size()));
      out.StartObject();
      out.Key("neighbors");
      out.StartArray();
      for (int i = 0; i < 2; ++i) {
         out.StartObject();
         out.Key("addresses");
         out.StartArray();
         out.EndArray();
         out.EndObject();
      }
      out.EndArray();
      out.EndObject();
      out.EndObject();
      out.EndObject();
      out.EndObject();
   }
   out.EndArray();
   out.EndObject();
   rapidWrite(buffer, fd);
}

void fmtRows(const Rows& rows, Load load, int fd) {
   fmt::memory_buffer& buffer = fmtBuffer();
   const fmt::appender out(buffer);
   fmt::format_to(out, FMT_COMPILE("{{\"interfaces\":["));
   bool first = true;
   for (const Row& row : rows) {
      if (!first)
         buffer.push_back(',');
      first = false;
      fmt::format_to(out,
                     FMT_COMPILE("{{\"name\":\"{}\",\"mtu\":{},\"up\":{},\"rxBytes\":{},"
                                 "\"txBytes\":{},\"description\":\"{}\""),
                     row.name, row.mtu, row.up, row.rxBytes, row.txBytes, row.description);
      if (load == Load::kWith)
         fmt::format_to(out, FMT_COMPILE(",\"load\":{:.6f}"), row.load);
      buffer.push_back('}');
   }
   fmt::format_to(out, FMT_COMPILE("]}}\n"));
   writeAll(fd, buffer.data(), buffer.size());
}

void fmtText(const Rows& rows, int fd) {
   fmt::memory_buffer& buffer = fmtBuffer();
   for (const Row& row : rows)
      fmt::format_to(fmt::appender(buffer), FMT_COMPILE("{:<20} {:>8} {} {:>12}\n"), row.name,
                     row.mtu, stateWord(row), row.rxBytes);
   writeAll(fd, buffer.data(), buffer.size());
}

void nlohmannRows(const Rows& rows, Load load, int fd) {
   nlohmann::ordered_json document;
   nlohmann::ordered_json& list = document["interfaces"] = nlohmann::ordered_json::array();
   for (const Row& row : rows) {
      nlohmann::ordered_json& item = list.emplace_back(nlohmann::ordered_json::object());
      item["name"] = row.name;
      item["mtu"] = row.mtu;
      item["up"] = row.up;
      item["rxBytes"] = row.rxBytes;
      item["txBytes"] = row.txBytes;
      item["description"] = row.description;
      if (load == Load::kWith)
         item["load"] = row.load;
   }
   nlohmannWrite(document, fd);
}

void nlohmannStructure(const Rows& rows, int fd) {
   nlohmann::ordered_json document;
   nlohmann::ordered_json& list = document["devices"] = nlohmann::ordered_json::array();
   for (const Row& row : rows) {
      nlohmann::ordered_json& item = list.emplace_back(nlohmann::ordered_json::object());
      nlohmann::ordered_json& neighbors = item["state"]["interfaces"][row.name]["neighbors"];
      for (int i = 0; i < 2; ++i)
         neighbors.emplace_back()["addresses"] = nlohmann::ordered_json::array();
   }
   nlohmannWrite(document, fd);
}

void vsnprintfText(const Rows& rows, int fd) {
   Area area(fd);
   for (const Row& row : rows)
      area.print(kTextRow, row.name.c_str(), row.mtu, stateWord(row), row.rxBytes);
   area.flush();
}

void copyBlocks(const std::string& bytes, int fd) {
   Area(fd).copy(bytes.data(), bytes.size());
}

}  // namespace bench
