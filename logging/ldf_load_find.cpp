// Finding entry types: the cache of definitions, and those that are brought back into it.
#include <algorithm>
#include <ctime>
#include <memory>
#include <new>
#include <utility>

#include "base/kp_clib.h"
#include "logging/def_read_view.h"
#include "logging/ldf_load.h"
#include "logging/ldf_load_trace.h"
#include "logging/raise.h"

// ---- whether a file is as it was ----

// A file that changes twice within one step of the clock that its times are taken from bears one
// time for both changes. What is read of it is trusted when its last change lies behind any such
// step: of a few milliseconds, or of seconds where times have no fractions.
static bool lies_behind(const timespec& change) noexcept {
  constexpr long long second = 1'000'000'000;
  timespec now = {};
  if (clock_gettime(CLOCK_REALTIME, &now) != 0 || change.tv_sec > now.tv_sec) return false;
  if (change.tv_sec < now.tv_sec - 4) return true;
  if (change.tv_nsec == 0) return false;
  const long long since = (now.tv_sec - change.tv_sec) * second + (now.tv_nsec - change.tv_nsec);
  return since > second / 10;
}

static bool is_same_time(const timespec& a, const timespec& b) noexcept {
  return a.tv_sec == b.tv_sec && a.tv_nsec == b.tv_nsec;
}

// The generation of what is read through `view`, 0 where it is not to be brought back. A file that
// has changed since the last reading begins another one.
unsigned _kp_LOG_log_definition_tbl::generation_of(bool is_aux, const _kp_LOG_ldf_view& view) {
  const file_state now = {view.size(), view.changed_at(), lies_behind(view.changed_at())};
  file_state& known = file_states_[is_aux ? 1 : 0];
  if (now.size != known.size || !is_same_time(now.changed_at, known.changed_at) ||
      now.is_trusted != known.is_trusted) {
    known = now;
    ++generation_;
  }
  return now.is_trusted ? generation_ : 0;
}

bool _kp_LOG_log_definition_tbl::is_file_unchanged(bool is_aux) const noexcept {
  FILE* const file = file_of(is_aux);
  const file_state& known = file_states_[is_aux ? 1 : 0];
  struct stat status = {};
  return file != nullptr && KP_fstat(KP_fileno(file), &status) == 0 &&
         static_cast<uint64_t>(status.st_size) == known.size &&
         is_same_time(status.st_ctim, known.changed_at);
}

// ---- the cache ----

// The definition that has a place in the cache, or null.
_kp_LOG_log_definition* _kp_LOG_log_definition_tbl::cached(unsigned id) const noexcept {
  const located_record* const location = location_of(id);
  const bool is_cached = location != nullptr && location->is_cached.load(std::memory_order_acquire);
  return is_cached ? location->definition : nullptr;
}

// The definition, where it has its place in the cache or is brought back into it.
inline _kp_LOG_log_definition* _kp_LOG_log_definition_tbl::held(located_record& location) noexcept {
  if (location.is_cached.load(std::memory_order_acquire)) return location.definition;
  return brought_back(location);
}

// Any number of threads at once, each with the reader side: the first one gives it a place.
[[gnu::noinline]] _kp_LOG_log_definition* _kp_LOG_log_definition_tbl::brought_back(
    located_record& location) noexcept {
  if (!may_come_back(location)) return nullptr;
  if (!location.is_cached.exchange(true, std::memory_order_acq_rel)) {
    replace_next(location);
    kp_ldf_trace_retrieved(__LINE__);
  }
  return location.definition;
}

// Reading its record again would give the same, and nobody could tell the one from the other.
bool _kp_LOG_log_definition_tbl::may_come_back(const located_record& location) const noexcept {
  return location.definition != nullptr && location.generation == generation_ &&
         !location.definition->_is_shared() && !location.definition->was_changed() &&
         is_file_unchanged(location.where.is_aux != 0);
}

// Gives it the place whose turn it is. What had that place stays held, outside the cache.
void _kp_LOG_log_definition_tbl::replace_next(located_record& location) noexcept {
  const unsigned place = replacement_.fetch_add(1, std::memory_order_relaxed) % cache_size;
  located_record* const left = places_[place].exchange(&location, std::memory_order_acq_rel);
  left->is_cached.store(false, std::memory_order_release);
}

void _kp_LOG_log_definition_tbl::give_place(located_record& location) noexcept {
  location.is_cached.store(true, std::memory_order_relaxed);
  if (n_entry_definitions_cached == cache_size) return replace_next(location);
  places_[n_entry_definitions_cached++].store(&location, std::memory_order_relaxed);
  LogDebugMessage(
      3, "%s:%d _kp_LOG_log_definition_tbl::_find_entry_non_const return p_entry_definition %d\n",
      kp_ldf_load_source, __LINE__, static_cast<int>(n_entry_definitions_cached));
}

// ---- finding ----

// Kept out of line like all that a look-up in the cache does not come by, which then needs no
// frame.
[[gnu::noinline]] _kp_LOG_log_definition* _kp_LOG_log_definition_tbl::find_nothing()
    const noexcept {
  kp_ldf_trace_not_located(__LINE__);
  kp_ldf_trace_not_found(__LINE__, n_entry_definitions_cached);
  return nullptr;
}

template <class Result>
[[gnu::noinline]] Result _kp_LOG_log_definition_tbl::find_as_writer(unsigned id) {
  const kp_LOG_CWriterSentry hold(lock_);
  if (located_record* const location = location_of(id))
    if (auto* const definition = held(*location)) return Result(definition);
  return Result(load(id));
}

template <class Result>
inline Result _kp_LOG_log_definition_tbl::_find_entry_non_const(unsigned id) {
  {
    const kp_LOG_CReaderSentry hold(lock_);
    kp_ldf_trace_look_up(__LINE__, n_entry_definitions_cached);
    located_record* const location = location_of(id);
    // Without waiting for the writer side where no file lists the ID.
    if (location == nullptr) return Result(find_nothing());
    if (auto* const definition = held(*location)) return Result(definition);
  }
  return find_as_writer<Result>(id);
}

// What a look-up finds, by who holds the writer side.
_kp_LOG_log_definition* _kp_LOG_log_definition_tbl::find_or_load(unsigned id) {
  kp_ldf_trace_look_up(__LINE__, n_entry_definitions_cached);
  located_record* const location = location_of(id);
  if (location == nullptr) return find_nothing();
  if (auto* const definition = held(*location)) return definition;
  return load(id);
}

_kp_LOG_log_definition* _kp_LOG_log_definition_tbl::load(unsigned id) {
  std::unique_ptr<_kp_LOG_log_definition> definition(new (std::nothrow) _kp_LOG_log_definition);
  if (definition == nullptr) kp_log_raise_alloc();
  record_read read;
  if (!retrieve(id, *definition, false, read)) {
    kp_ldf_trace_not_found(__LINE__, n_entry_definitions_cached);
    return nullptr;
  }
  declare_again(id, *definition);
  definition->was_changed_ = false;
  return hold_definition(*location_of(id), definition.release(), read);
}

_kp_LOG_log_definition* _kp_LOG_log_definition_tbl::hold_definition(
    located_record& location, _kp_LOG_log_definition* definition,
    const record_read& read) noexcept {
  let_go(location);
  definition->_pin();
  location.definition = definition;
  location.generation = read.generation;
  location.bytes = read.bytes + sizeof *definition +
                   definition->get_n_attributes() * sizeof(_kp_LOG_attribute_entry) +
                   definition->get_n_selector_msgs() * sizeof(_kp_LOG_selector_message);
  bytes_held_ += location.bytes;
  give_place(location);
  if (bytes_held_ > most_bytes_held_) {
    let_go_uncached();
    most_bytes_held_ = std::max(uint64_t{usual_most_bytes_held}, 2 * bytes_held_);
  }
  return definition;
}

// ---- letting go ----

// The table remembers a definition as long as entries use it.
void _kp_LOG_log_definition_tbl::let_go(located_record& location) noexcept {
  _kp_LOG_log_definition* const definition = std::exchange(location.definition, nullptr);
  if (definition == nullptr) return;
  bytes_held_ -= location.bytes;
  if (!definition->_is_shared()) {
    definition->_unpin();
    return;
  }
  if (n_living_ == most_living_) forget_dead();
  definition->next_living_ = std::exchange(living_, definition);
  ++n_living_;
}

void _kp_LOG_log_definition_tbl::let_go_uncached() noexcept {
  if (bytes_held_ == 0) return;
  locations_->for_each([this](location_table::node& node) KP_NO_THREAD_SAFETY_ANALYSIS {
    if (!node.value.is_cached.load(std::memory_order_relaxed)) let_go(node.value);
  });
}

void _kp_LOG_log_definition_tbl::forget_dead() noexcept {
  for (_kp_LOG_log_definition** at = &living_; *at != nullptr;) {
    _kp_LOG_log_definition* const definition = *at;
    if (definition->_is_shared()) {
      at = &definition->next_living_;
      continue;
    }
    *at = definition->next_living_;
    definition->_unpin();
    --n_living_;
  }
  most_living_ = std::max(2 * n_living_, 16U);
}

_kp_LOG_log_definition* _kp_LOG_log_definition_tbl::find_entry(unsigned id) const {
  auto* const self = const_cast<_kp_LOG_log_definition_tbl*>(this);
  return self->_find_entry_non_const<_kp_LOG_log_definition*>(id);
}

_kp_LOG_definition_ref _kp_LOG_log_definition_tbl::acquire_entry(unsigned id) const {
  auto* const self = const_cast<_kp_LOG_log_definition_tbl*>(this);
  return self->_find_entry_non_const<_kp_LOG_definition_ref>(id);
}
