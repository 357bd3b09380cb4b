// Threads that make entries of packs of lines, for one that reads the lines and writes what they
// become.
#ifndef TOOLS_EMIT_ENTRY_MAKERS_H
#define TOOLS_EMIT_ENTRY_MAKERS_H

#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "tools/emit/line_pack.h"

class entry_makers {
 public:
  // Begins the threads; each has a maker of its own, and so has whoever waits for them. Raises
  // std::system_error where the system has no thread left for any of them.
  entry_makers(size_t threads, const std::function<std::unique_ptr<pack_maker>()>& new_maker);
  // What has not been begun is not made.
  ~entry_makers();
  entry_makers(const entry_makers&) = delete;
  entry_makers& operator=(const entry_makers&) = delete;

  void submit(std::unique_ptr<line_pack> pack);
  // Whether the threads have enough for now.
  bool has_enough() const { return packs_.size() > 2 * threads_.size(); }
  // The pack that was submitted first, when it is made; null where there is none. Makes packs
  // itself as long as it has to wait.
  std::unique_ptr<line_pack> next();
  // The same; null where it is not made yet.
  std::unique_ptr<line_pack> next_if_made();

 private:
  enum class progress { waits, is_made, made };
  struct submitted {
    std::unique_ptr<line_pack> pack;
    progress is = progress::waits;
  };

  void work(pack_maker& maker);
  submitted* first_waiting();
  void make(submitted& one, pack_maker& maker, std::unique_lock<std::mutex>& lock);
  std::unique_ptr<line_pack> take_first();

  std::mutex mutex_;
  std::condition_variable changed_;
  std::deque<submitted> packs_;  // in their order; changed by the one thread that submits them
  bool is_over_ = false;
  std::unique_ptr<pack_maker> own_maker_;
  std::vector<std::unique_ptr<pack_maker>> makers_;
  std::vector<std::thread> threads_;
};

#endif
