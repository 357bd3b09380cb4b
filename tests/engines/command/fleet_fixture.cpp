#include "tests/engines/command/fleet_fixture.h"

#include <array>
#include <random>

static constexpr const char* shop_definitions = R"(kplog: 1
log_version: "2.0"
flags: {NETWORK: 0x1, AUDIT: 0x2}
events:
  USER_LOGIN:
    id: 1001
    flags: [AUDIT]
    attributes: {USER_NAME: MBChar64, PORT: UInt2, OK: Bool, SHARE: Float, WHEN: Timestamp}
    message: "{USER_NAME} logged in on port {PORT}"
  LINK_DOWN:
    id: 1002
    flags: [NETWORK]
    attributes: {LINK: Char32, PORT: SInt4}
    message: "the link {LINK} is down"
  NOTE:
    id: 1003
    attributes: {TEXT: MBChar2K}
    message: "{TEXT}"
)";

static constexpr const char* bank_definitions = R"(kplog: 1
log_version: "2.0"
events:
  PAID:
    id: 1001
    attributes: {USER_NAME: MBChar64, PORT: UInt2, OK: Bool, SHARE: Float, WHEN: Timestamp}
    message: "{USER_NAME} paid {PORT}"
  LINK_DOWN:
    id: 1002
    attributes: {LINK: Char32, PORT: SInt4}
    message: "no line {LINK}"
  NOTE:
    id: 1003
    attributes: {TEXT: MBChar2K}
    message: "noted: {TEXT}"
)";

static constexpr const char* japanese = R"(msgid ""
msgstr ""
"Language: ja\n"
"Content-Type: text/plain; charset=UTF-8\n"

msgctxt "USER_LOGIN"
msgid "{USER_NAME} logged in on port {PORT}"
msgstr "{USER_NAME} がポート {PORT} でログインしました"
)";

fleet_folder::fleet_folder() {
  make_set("shop", shop_definitions);
  make_set("bank", bank_definitions);
  const auto merged = run("catalog merge -q shop.yaml --po ja.po");
  EXPECT_EQ(merged.status, 0) << merged.err;
  folder_.write("ja.po", japanese);
  const auto built = run("catalog build -q shop.yaml --po ja.po -o messages");
  EXPECT_EQ(built.status, 0) << built.err;
}

void fleet_folder::make_set(const std::string& name, const std::string& source) const {
  folder_.write(name + ".yaml", source);
  const auto made = run("compile -q " + name + ".yaml -o " + name + ".ldf");
  EXPECT_EQ(made.status, 0) << made.err;
}

void fleet_folder::emit(const std::string& machine, const std::string& product,
                        const std::string& records, const std::string& max_size) {
  std::filesystem::create_directories(folder_.file(machine));
  folder_.write("records.jsonl", records);
  const auto done = run("emit -q --definitions " + product + ".ldf --to journal:'" + machine +
                        "/shop',max-size=" + max_size + ",compress=zstd --count '" + machine +
                        "/shop' records.jsonl");
  EXPECT_EQ(done.status, 0) << done.err;
}

std::vector<std::string> fleet_folder::ship_words(const std::string& machine,
                                                  const std::string& product,
                                                  const std::string& address) {
  std::vector<std::string> words = {"ship",   machine + "/shop", "--definitions", product + ".ldf",
                                    "--host", machine,           "--to",          address};
  if (product == "shop") words.insert(words.end(), {"--catalog", "messages"});
  return words;
}

command_result fleet_folder::ship(const std::string& machine, const std::string& product,
                                  const std::string& address, const std::string& options,
                                  int status) const {
  std::string arguments;
  for (const std::string& word : ship_words(machine, product, address))
    arguments += "'" + word + "' ";
  command_result result = run(arguments + options);
  EXPECT_EQ(result.status, status) << options << "\n" << result.err;
  return result;
}

// --- Records

template <class List>
static const char* one_of(const List& list, std::mt19937& random) {
  return list[random() % list.size()];
}

static std::string attributes_of(int event, std::mt19937& random) {
  static constexpr std::array texts = {"alice", "bob",       "o\\\"brien", "\\u00e9t\\u00e9",
                                       "愛",    "a\\nb\\\\", "",           "x' OR 1=1 --"};
  const auto number = [&random](unsigned most) { return std::to_string(random() % most); };
  const std::string text = one_of(texts, random);
  if (event == 1002) return R"("LINK":"eth)" + number(4) + R"(","PORT":-)" + number(2000);
  if (event == 1003) return R"("TEXT":")" + text + "\"";
  static constexpr std::array shares = {"0.5", "-0.0", "1e300", "\"NaN\"", "\"Infinity\"", "3"};
  return R"("USER_NAME":")" + text + R"(","PORT":)" + number(2000) + R"(,"OK":)" +
         (random() % 2 == 0 ? "true" : "false") + R"(,"SHARE":)" + one_of(shares, random) +
         R"(,"WHEN":"2026-11-15T0)" + number(10) + R"(:00:00Z")";
}

std::string random_fleet_records(size_t count, unsigned seed) {
  static constexpr std::array zones = {"Z", "+08:00", "-03:30", "+05:45"};
  std::mt19937 random(seed);
  std::string records;
  for (size_t i = 0; i < count; ++i) {
    const int event = 1001 + static_cast<int>(random() % 3);
    const auto two = [&random](unsigned from, unsigned count_of) {
      const std::string digits = std::to_string(from + random() % count_of);
      return digits.size() == 1 ? "0" + digits : digits;
    };
    records += R"({"event":)" + std::to_string(event) + R"(,"level":)" +
               std::to_string(random() % 10) + R"(,"time":"2026-11-)" + two(14, 3) + "T" +
               two(0, 24) + ":" + two(0, 60) + ":" + two(0, 60) + one_of(zones, random) +
               R"(","attributes":{)" + attributes_of(event, random) + "}";
    if (random() % 5 == 0) records += R"(,"context":{"trace":"t)" + std::to_string(i % 7) + "\"}";
    records += "}\n";
  }
  return records +
         R"({"event":0,"time":"2026-11-15T00:00:00Z","attributes":{"COUNT":2,"REASON":"full"}})" +
         "\n";
}
