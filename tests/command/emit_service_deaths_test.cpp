// A service that is killed again and again, on disks that come and go: everything at once.
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <random>
#include <thread>

#include "logging/counter_format.h"
#include "tests/command/emit_acknowledged_fixture.h"
#include "tests/support/counter_folder.h"

// KPLOG_SERVICE_DEATHS tells how often the service is killed, 4 times without it; each death is
// worth 1000 records of 50 clients.
class EmitServiceDeaths : public EmitAcknowledged {
 protected:
  static unsigned deaths() {
    const char* const told = std::getenv("KPLOG_SERVICE_DEATHS");
    return told == nullptr ? 4 : static_cast<unsigned>(std::stoul(told));
  }
  rlim_t stored_bytes() const {
    std::error_code none;
    const uintmax_t bytes = std::filesystem::file_size(folder_.path("stored"), none);
    return none ? 0 : bytes;
  }
};

// A client that connects anew and sends again until everything is acknowledged.
class stubborn_client {
 public:
  stubborn_client(std::string path, unsigned name, uint64_t records)
      : path_(std::move(path)), name_(std::to_string(name)), records_(records), random_(name) {}

  void run() {
    while (acknowledged_ < records_) {
      socket_client connection(path_);
      if (!connection.is_connected() ||
          !connection.send("{\"kplog\":1,\"client\":\"" + name_ + "\"}\n"))
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
      else
        use(connection);
    }
  }

 private:
  void use(socket_client& connection) {
    if (!hear(connection)) return;
    const uint64_t last = std::min<uint64_t>(records_, acknowledged_ + 1 + random_() % 400);
    std::string records;
    for (uint64_t number = acknowledged_ + 1; number <= last; ++number)
      records += note_record(name_ + "-" + std::to_string(number));
    if (!connection.send(records)) return;
    if (random_() % 4 == 0) return;  // not to hear what became of them
    while (acknowledged_ < last && hear(connection)) {
    }
  }
  bool hear(socket_client& connection) {
    const std::string line = connection.line();
    if (!line.starts_with("{\"ack\":") || !line.ends_with('}')) return false;
    acknowledged_ = std::stoull(line.substr(7));
    return true;
  }

  std::string path_;
  std::string name_;
  uint64_t records_;
  std::minstd_rand random_;
  uint64_t acknowledged_ = 0;
};

// From now on no file of the process grows beyond so many bytes: the disk is full in the middle of
// a line of any of them.
static void limit_files(const running_command& process, rlim_t bytes) {
  const rlimit limit{bytes, RLIM_INFINITY};
  EXPECT_EQ(prlimit(process.id(), RLIMIT_FSIZE, &limit, nullptr), 0);
}

// The folder of an output goes, and comes back, between and during the lives of the service, and
// there is no room left for a while.
TEST_F(EmitServiceDeaths, EveryRecordIsThereOnce) {
  static constexpr unsigned clients = 50;
  const uint64_t each = deaths() * 20;
  ASSERT_EQ(mkdir(folder_.path("logs").c_str(), 0700), 0);
  std::vector<std::thread> senders;
  for (unsigned name = 0; name < clients; ++name)
    senders.emplace_back(
        [this, name, each] { stubborn_client(folder_.path("sock"), name, each).run(); });
  const unsigned seed = std::random_device()();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  const auto pause = [&random] {
    std::this_thread::sleep_for(std::chrono::microseconds(random() % 60000));
  };
  const words arguments = {"--to",    "json:stored", "--to",     "text:logs/shop",
                           "--count", "shop",        "--listen", "unix:sock"};
  for (unsigned death = 0; death < deaths(); ++death) {
    const auto service = start(arguments);
    EXPECT_TRUE(service->wait_for_err("listening on"));
    pause();
    if (death % 4 == 3) {
      std::filesystem::rename(folder_.path("logs"), folder_.path("away"));
      pause();
      std::filesystem::rename(folder_.path("away"), folder_.path("logs"));
      pause();
    }
    if (death % 4 == 1) {
      limit_files(*service, random() % (stored_bytes() + 10000));
      pause();
      if (random() % 2 == 0) limit_files(*service, RLIM_INFINITY);
      pause();
    }
    end_of(*service, SIGKILL);
  }
  const auto service = start(arguments);
  EXPECT_TRUE(service->wait_for_err("listening on"));
  for (std::thread& sender : senders) sender.join();
  EXPECT_EQ(end_of(*service).status, 0);
  const auto stored = numbers();
  EXPECT_EQ(stored.size(), clients);
  for (const auto& [name, numbers] : stored) EXPECT_EQ(numbers, up_to(each)) << name;
  std::string log;
  for (const auto& file : std::filesystem::directory_iterator(folder_.path("logs")))
    if (file.path().filename().string().starts_with("shop.2"))
      log += folder_.text("logs/" + file.path().filename().string());
  EXPECT_EQ(static_cast<uint64_t>(std::count(log.begin(), log.end(), '\n')), clients * each);
  EXPECT_EQ(static_cast<uint64_t>(count_in(folder_.text("shop.cnt"), 2026, 11, 15, 1003)),
            clients * each);
}
