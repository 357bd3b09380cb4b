// Senders and engines that are killed, and cut off from each other, at any moment: each record
// comes to be there once.
#include <gmock/gmock.h>

#include <chrono>
#include <cstdlib>
#include <random>
#include <thread>

#include "tests/engines/command/fleet_fixture.h"
#include "tests/engines/support/cut_line.h"

using testing::HasSubstr;

// KPLOG_FLEET_DEATHS tells how often sender and engine are killed by turns; each death is worth
// 5,000 records then, and each tenth a disconnection, too. Without it 4 times, 2,000 records, and
// one disconnection.
struct planned_deaths {
  unsigned count = 4;
  size_t records_of_each = 2'000;
  unsigned between_cuts = 4;
  std::string max_size = "20K";
};

static planned_deaths deaths_planned() {
  const char* const told = std::getenv("KPLOG_FLEET_DEATHS");
  if (told == nullptr) return {};
  return {static_cast<unsigned>(std::stoul(told)), 5'000, 10, "4M"};
}

template <class Server>
class FleetDeaths : public testing::Test {
 protected:
  static constexpr const char* machine = "web1";

  void create() const {
    if (!server_.address().starts_with("postgresql")) return;
    fleet_.ship(machine, "shop", server_.address(), "--create");
  }
  std::unique_ptr<running_command> sender() const {
    return std::make_unique<running_command>(
        fleet_.path(), fleet_folder::ship_words(machine, "shop", server_.address_by(line_.port())));
  }
  void kill(std::unique_ptr<running_command>& sender) {
    sender->signal(SIGKILL);
    sender->wait_for_end();
    sender = this->sender();
  }
  void kill_server() {
    server_.kill();
    server_.start();
    line_.lead_to(server_.port());
  }
  // For a moment: nothing comes through, and with `is_told` both sides hear of it.
  void cut(bool is_told, std::chrono::milliseconds moment) {
    is_told ? line_.cut() : line_.hold();
    std::this_thread::sleep_for(moment);
    line_.mend();
  }
  uint64_t sent() const {
    const auto status = fleet_.run("fleet status --format json '" + server_.address() + "'");
    const size_t at = status.out.find("\"records\":");
    return at == std::string::npos ? 0 : std::stoull(status.out.substr(at + 10));
  }

  Server server_;
  cut_line line_{server_.port()};
  fleet_folder fleet_;
};

struct name_of_deadly_server {
  template <class Server>
  static std::string GetName(int) {
    return std::is_same_v<Server, fleet_database> ? "Database" : "Broker";
  }
};
using deadly_servers = testing::Types<fleet_database, fleet_broker>;
TYPED_TEST_SUITE(FleetDeaths, deadly_servers, name_of_deadly_server);

TYPED_TEST(FleetDeaths, EachRecordComesOnceWhoeverIsKilledOrCutOff) {
  const unsigned seed = std::random_device()();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  const auto [deaths, records_of_each, between_cuts, max_size] = deaths_planned();
  const auto moment = [&random] { return std::chrono::milliseconds(random() % 300); };
  this->create();
  auto sender = this->sender();
  uint64_t records = 0;
  for (unsigned death = 0; death < deaths; ++death) {
    this->fleet_.emit(this->machine, "shop", random_fleet_records(records_of_each, seed + death),
                      max_size);
    records += records_of_each + 1;
    if (death % between_cuts == between_cuts - 1) this->cut(random() % 2 == 0, moment());
    // The moment is any; what is asserted holds for all of them.
    std::this_thread::sleep_for(moment());
    if (death % 2 == 0)
      this->kill(sender);
    else
      this->kill_server();
  }
  sender->signal(SIGTERM);
  EXPECT_EQ(sender->wait_for_end().status, 0);
  this->fleet_.ship(this->machine, "shop", this->server_.address(), "--once -q");
  const auto verified = this->fleet_.ship(this->machine, "shop", this->server_.address(),
                                          "--verify --count web1/shop");
  EXPECT_THAT(verified.err,
              HasSubstr(std::to_string(records) + " records in the engine; all alike"));
  EXPECT_EQ(this->sent(), records);
}
