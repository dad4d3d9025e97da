#include "Rows.h"

#include <algorithm>
#include <iterator>
#include <random>

namespace bench {

namespace {

template <size_t Count>
const char* oneOf(const char* const (&words)[Count], uint64_t random) {
   return words[random % Count];
}

std::string describe(std::mt19937_64& random) {
   static constexpr const char* kRoles[] = {"uplink to", "spare for", "link to", "customer at"};
   static constexpr const char* kPlaces[] = {"core", "edge", "spine", "storage", "laboratory"};
   static constexpr const char* kNotes[] = {", row A", " (leased)", ", check cable", " north hall"};
   std::string text = oneOf(kRoles, random());
   text += std::string(" ") + oneOf(kPlaces, random()) + " rack " + std::to_string(random() % 400);
   while (text.size() < 20 || (text.size() < 32 && random() % 2 == 0))
      text += oneOf(kNotes, random());
   text.resize(std::min(text.size(), size_t{40}));
   return text;
}

/** 9 to 14 digits, as on interfaces that are in use. */
uint64_t counter(std::mt19937_64& random) {
   return random() >> (20 + random() % 16);
}

}  // namespace

Rows makeRows(size_t count) {
   static constexpr uint32_t kMtus[] = {1500, 1500, 9000, 9214, 68};
   std::mt19937_64 random(1);
   Rows rows(count);
   for (size_t i = 0; i < count; ++i) {
      Row& row = rows[i];
      row.name = "Ethernet" + std::to_string(i / 48) + "/" + std::to_string(i % 48 + 1);
      row.mtu = kMtus[random() % std::size(kMtus)];
      row.up = random() % 3 != 0;
      row.rxBytes = counter(random);
      row.txBytes = counter(random);
      row.description = describe(random);
      row.load = 100.0 * static_cast<double>(random() % 12345678) / 12345678.0;
   }
   return rows;
}

Rows inJapanese(Rows rows) {
   static constexpr const char* kWords[] = {
         "東京", "大阪の",   "ネットワーク", "接続先", "インターフェース",
         "予備", "研究所の", "回線"};
   std::mt19937_64 random(2);
   for (Row& row : rows) {
      row.name = oneOf(kWords, random());
      row.description.clear();
      for (int words = 0; words < 4; ++words)
         row.description += oneOf(kWords, random());
   }
   return rows;
}

Rows withEscapes(Rows rows) {
   std::mt19937_64 random(3);
   const auto escape = [&random](std::string& text) {
      if (random() % 10 == 0)
         text[random() % text.size()] = random() % 2 == 0 ? '"' : '\n';
   };
   for (Row& row : rows) {
      escape(row.name);
      escape(row.description);
   }
   return rows;
}

}  // namespace bench
