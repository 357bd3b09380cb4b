// Recorders of plugins, which are unloaded while threads that recorded live on. The program itself
// has no recorder: its plugin brings the shared libraries.
#include <dlfcn.h>
#include <gmock/gmock.h>
#include <sys/wait.h>
#include <unistd.h>

#include <latch>
#include <thread>

#include "tests/command/command_run.h"
#include "tests/recorder/recorder_fixture.h"

using testing::IsEmpty;

static constexpr unsigned threads = 4;
static constexpr unsigned events = 5;  // of each thread

// The plugin, for a scope.
class loaded_plugin {
 public:
  loaded_plugin() : plugin_(dlopen(KPLOG_RECORDER_PLUGIN, RTLD_NOW | RTLD_LOCAL)) {
    if (plugin_ == nullptr) ADD_FAILURE() << dlerror();
  }
  ~loaded_plugin() {
    EXPECT_EQ(dlclose(plugin_), 0);
    EXPECT_EQ(dlopen(KPLOG_RECORDER_PLUGIN, RTLD_NOW | RTLD_NOLOAD), nullptr) << "is not unloaded";
  }
  loaded_plugin(const loaded_plugin&) = delete;
  loaded_plugin& operator=(const loaded_plugin&) = delete;

  template <class Function>
  Function* function(const char* name) const {
    return reinterpret_cast<Function*>(dlsym(plugin_, name));
  }

 private:
  void* plugin_;
};

// Threads that record, and then live until the end of the scope.
class threads_that_live_on {
 public:
  // record(number, thread) tells whether it is recorded.
  template <class Record>
  explicit threads_that_live_on(Record record) {
    for (unsigned thread = 1; thread <= threads; ++thread)
      all_.emplace_back([this, record, thread] {
        for (unsigned number = 1; number <= events; ++number)
          if (record(number, thread)) ++recorded_;
        have_recorded_.count_down();
        may_end_.wait();
      });
    have_recorded_.wait();
  }
  ~threads_that_live_on() {
    may_end_.count_down();
    for (std::thread& thread : all_) thread.join();
  }
  threads_that_live_on(const threads_that_live_on&) = delete;
  threads_that_live_on& operator=(const threads_that_live_on&) = delete;

  unsigned recorded() const { return recorded_; }

 private:
  std::latch have_recorded_{threads};
  std::latch may_end_{1};
  std::atomic<unsigned> recorded_ = 0;
  std::vector<std::thread> all_;
};

class RecorderPlugin : public RecorderPlace {
 protected:
  const environment_value place_{"KPLOG_PLUGIN_FOLDER", folder_.path().c_str()};
};

TEST_F(RecorderPlugin, WritesEverythingWhenItIsUnloaded) {
  static constexpr unsigned rounds = 10;
  std::vector<std::unique_ptr<threads_that_live_on>> living;
  for (unsigned round = 1; round <= rounds; ++round) {
    {
      const loaded_plugin plugin;
      living.push_back(std::make_unique<threads_that_live_on>(
          plugin.function<bool(unsigned, unsigned)>("plugin_record")));
    }
    EXPECT_EQ(living.back()->recorded(), threads * events);
    ASSERT_EQ(messages().size(), round * threads * events);
    EXPECT_EQ(stored().size(), round * threads * events);
    EXPECT_THAT(rings(), IsEmpty());
  }
}

TEST_F(RecorderPlugin, LosesNothingOfARecorderThatIsNeverClosed) {
  const std::string place = folder_.file("forgotten");
  std::filesystem::create_directory(place);
  const pid_t child = fork();
  if (child == 0) {
    std::unique_ptr<threads_that_live_on> living;
    {
      const loaded_plugin plugin;
      void* const log = plugin.function<void*(const char*)>("plugin_open")(place.c_str());
      const auto record = plugin.function<bool(void*, unsigned, unsigned)>("plugin_record_with");
      living = std::make_unique<threads_that_live_on>(
          [=](unsigned number, unsigned thread) { return record(log, number, thread); });
    }
    _exit(!HasFailure() && living->recorded() == threads * events ? 0 : 1);
  }
  int status = -1;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
  const command_result recovered = run_kplog(place, "recover --quiet shop");
  EXPECT_EQ(recovered.status, 0) << recovered.err;
  EXPECT_EQ(lines_of(read_whole_file(place + "/shop.jsonl")).size(), threads * events);
  for (const auto& file : std::filesystem::directory_iterator(place))
    EXPECT_EQ(file.path().string().find(".ring."), std::string::npos);
}
