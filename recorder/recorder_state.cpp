#include "recorder/recorder_state.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <ctime>
#include <utility>

#include "kp_LOG_LogConfig.h"
#include "recorder/process_mark.h"
#include "recording/ring/recovery.h"

// ---- making ----

static std::atomic<uint64_t> last_incarnation = 0;

static std::string host_name() {
  std::array<char, 256> name = {};
  return gethostname(name.data(), name.size() - 1) == 0 ? name.data() : "";
}

ring_info recorder_state::info_of_options() const {
  const kp_LOG_RecorderOptions& options = gate_.options;
  ring_info info;
  info.definitions = options.definitions;
  info.aux = options.aux;
  info.catalog = options.catalog;
  info.definitions_sum = content_sum(options.definitions);
  info.aux_sum = content_sum(options.aux);
  info.catalog_sum = content_sum(options.catalog);
  info.locale = options.locale;
  info.code_page = options.code_page;
  info.text = options.text;
  info.json = options.json;
  info.count = options.count;
  info.journal = options.journal;
  info.max_size = options.max_size;
  info.synced = options.synced;
  info.host = host_name();
  info.pid = static_cast<uint64_t>(getpid());
  return info;
}

// Everything that can fail comes before the thread.
recorder_state::recorder_state(recorder_gate& gate, bool recovers)
    : gate_(gate),
      incarnation_(++last_incarnation),
      faults_(gate.options.on_fault),
      filter_(gate.options.settings, gate.options.section) {
  const kp_log_own_settings::scope scope(settings_);
  open_definitions();
  filter_.read();
  zone_.renew(static_cast<uint64_t>(
      std::chrono::nanoseconds(std::chrono::system_clock::now().time_since_epoch()).count()));
  if (recovers) recover_others();
  make_ring();
  gate_.accepted.store(filter_.rule(), std::memory_order_relaxed);
  begin_thread();
}

void recorder_state::begin_thread() {
  is_open_ = true;
  try {
    writer_ = std::thread([this] { run(); });
  } catch (const std::system_error& error) {
    ring_->remove();
    throw std::system_error(error.code(), "no thread can be made");
  } catch (...) {
    ring_->remove();
    throw;
  }
}

void recorder_state::open_definitions() {
  const kp_LOG_RecorderOptions& options = gate_.options;
  events_ = std::make_unique<event_set>(
      event_set_options{options.definitions, options.aux, options.catalog, options.locale});
  // What is too long for its type is cut, as it is for every text that a call gives.
  kp_LOG_LogConfig::SetActionAttrLenExceed(1);
  kinds_.emplace(*events_);
}

void recorder_state::recover_others() {
  recovery_rules rules;
  const ring_info info = info_of_options();
  rules.known_outputs = info.outputs();
  rules.report = [this](const std::string& text) {
    faults_.tell(kp_LOG_RecorderFault::recovery, text);
  };
  rules.fault = rules.report;
  rules.waiting.is_to_end = [this] { return is_to_give_up(); };
  recover_rings(ring_stem(gate_.options), rules);
}

void recorder_state::make_ring() {
  ring_ = ring_file::make(ring_stem(gate_.options), gate_.options.ring_size, info_of_options());
  try {
    pool_ = std::make_unique<block_pool>(*ring_);
    loss_block_ = pool_->take();
    lock_waiting waiting;
    waiting.is_to_end = [this] { return is_to_give_up(); };
    waiting.report = [this](const std::string& text) {
      faults_.tell(kp_LOG_RecorderFault::output, text);
    };
    delivery_ = std::make_unique<ring_delivery>(*ring_, *events_, waiting, waiting.report);
  } catch (...) {
    ring_->remove();
    throw;
  }
}

std::string ring_stem(const kp_LOG_RecorderOptions& options) {
  ring_info outputs;
  outputs.text = options.text;
  outputs.json = options.json;
  outputs.count = options.count;
  outputs.journal = options.journal;
  std::string place = outputs.place();
  if (options.ring_folder.empty()) return place;
  return options.ring_folder + place.substr(place.rfind('/'));
}

// ---- closing ----

bool recorder_state::is_patience_over() const {
  static constexpr std::chrono::seconds patience(2);
  return is_closing_.load() && std::chrono::steady_clock::now() - closing_since_ > patience;
}

// Whoever holds the lock of an output may be stopped.
bool recorder_state::is_to_give_up() const {
  static constexpr std::chrono::seconds patience(5);
  if (is_open_) return is_patience_over();
  return std::chrono::steady_clock::now() - opening_since_ > patience;
}

// A thread that is within a call ends it first, unless a signal's handler keeps it there.
bool recorder_state::close_lanes() noexcept {
  const std::lock_guard hold(lanes_mutex_);
  for (const auto& lane : lanes_) {
    lane_block* current = lane->current.load();
    while (current == recorder_lane::busy() ||
           !lane->current.compare_exchange_weak(current, recorder_lane::closed())) {
      if (is_patience_over()) return false;
      pool_->wake();
      std::this_thread::yield();
      current = lane->current.load();
    }
  }
  return true;
}

void recorder_state::close() noexcept {
  closing_since_ = std::chrono::steady_clock::now();
  is_closing_.store(true);
  const bool are_lanes_closed = close_lanes();
  are_calls_over_.store(true);
  wake_writer_up();
  writer_.join();
  if (is_empty_ && are_lanes_closed) ring_->remove();
  delivery_.reset();
  // Threads that recorded keep the state as long as they live.
  if (are_lanes_closed) ring_->let_go();
  const std::lock_guard hold(lanes_mutex_);
  lanes_.clear();
  lanes_seen_.clear();
}

// The thread is not in this process: nothing may be joined or locked.
void recorder_state::abandon(std::shared_ptr<recorder_state> of_parent) noexcept {
  if (of_parent == nullptr) return;
  own_rings::remove(&of_parent->ring_->head().start);
  of_parent->kept_ = of_parent;  // for ever
}

// ---- lanes ----

std::shared_ptr<recorder_lane> recorder_state::make_lane() {
  const auto thread = static_cast<uint32_t>(syscall(SYS_gettid));
  const std::lock_guard hold(lanes_mutex_);
  auto lane = std::make_shared<recorder_lane>(incarnation_, ++last_lane_, thread);
  lane->state = shared_from_this();
  lanes_.push_back(lane);
  lanes_version_.fetch_add(1);
  return lane;
}

// No lane keeps the others out.
static uint32_t most_blocks(const block_pool& pool) {
  return pool.size() / 2;
}

lane_block* recorder_state::take_block(recorder_lane& lane) noexcept {
  const uint32_t most = most_blocks(*pool_);
  const bool waits = gate_.options.when_full == kp_LOG_WhenFull::wait && !is_writer_thread();
  std::chrono::steady_clock::time_point end{};
  for (;;) {
    const uint32_t seen = pool_->given_back();
    lane_block* const block =
        lane.held.load(std::memory_order_relaxed) < most ? pool_->take() : nullptr;
    if (block != nullptr) {
      lane.held.fetch_add(1, std::memory_order_relaxed);
      block->head->lane = lane.number;
      block->head->serial = ++lane.serial;
      block->head->thread = lane.thread;
      return block;
    }
    wake_writer();
    const auto now = std::chrono::steady_clock::now();
    if (end == std::chrono::steady_clock::time_point{}) end = now + gate_.options.wait;
    if (!waits || now >= end || is_closing_.load(std::memory_order_relaxed)) return nullptr;
    pool_->wait(seen, end);
  }
}

void recorder_state::give_back(recorder_lane& lane, lane_block& block) noexcept {
  pool_->give_back(block);
  lane.held.fetch_sub(1, std::memory_order_relaxed);
}

void recorder_state::link(recorder_lane& lane, lane_block& first, lane_block& last) noexcept {
  if (lane.last == nullptr)
    lane.first.store(&first, std::memory_order_release);
  else
    lane.last->next.store(&first, std::memory_order_release);
  lane.last = &last;
  lane.at = last.frames() + last.head->used;
  lane.end = last.frames() + ring_block_room;
  lane.place = place_of(*last.head);
}

bool recorder_state::add_block(recorder_lane& lane) noexcept {
  lane_block* const block = take_block(lane);
  if (block == nullptr) return false;
  link(lane, *block, *block);
  return true;
}

// ---- for one event ----

// The system's zone may be set to another one at any time: no lane keeps it for long.
void recorder_state::renew_zone(recorder_lane& lane) const noexcept {
  static constexpr uint64_t longest = 50'000'000;
  const uint64_t time = lane.last_time;
  lane.zone = zone_.at(time);
  lane.zone_until = std::min(zone_memory::next_change(time), time + longest);
}

void recorder_state::lose(kp_LOG_Recorded how) noexcept {
  __atomic_fetch_add(&ring_->head().lost[static_cast<size_t>(how)], 1, __ATOMIC_RELAXED);
}

// ---- what it tells ----

kp_LOG_RecorderStatistics recorder_state::statistics() {
  kp_LOG_RecorderStatistics told;
  const std::lock_guard hold(lanes_mutex_);
  const uint64_t delivered = delivered_.load(std::memory_order_acquire);
  told.recorded = recorded_by_ended_;
  told.rejected = rejected_by_ended_;
  for (const auto& lane : lanes_) {
    told.recorded += lane->recorded.load(std::memory_order_relaxed);
    told.rejected += lane->rejected.load(std::memory_order_relaxed);
  }
  for (size_t kind = 0; kind < told.lost.size(); ++kind)
    told.lost[kind] = ring_load(ring_->head().lost[kind]);
  told.waiting = told.recorded - std::min(delivered, told.recorded);
  told.bytes = uint64_t{pool_->size() - pool_->free()} * ring_block_size;
  return told;
}

bool recorder_state::flush(std::chrono::milliseconds patience) {
  if (is_writer_thread()) return false;
  const uint64_t ticket = flushes_.draw();
  wake_writer_up();
  return flushes_.wait(ticket, bounded_wait(patience));
}
