#include "recording/ring/recovery.h"

#include <algorithm>
#include <filesystem>
#include <stdexcept>

#include "kp_LOG_errors.h"
#include "logging/own_settings.h"
#include "recording/files/path.h"
#include "recording/ring/loss_event.h"
#include "recording/text/escape.h"
#include "recording/text/words.h"

static constexpr size_t batch_events = 4096;
static constexpr size_t batch_bytes = size_t{256} << 10;

std::string absolute_path(const std::string& path) {
  return path.empty() ? path : std::filesystem::absolute(path).lexically_normal().string();
}

static void tell(const ring_report& to, const std::string& text) {
  if (to) to(text);
}

// Links to folders followed.
static std::string plain_path(const std::string& path) {
  return plain_path_of(place_of(absolute_path(path)));
}

static std::string folder_of(const std::string& path) {
  return place_of(plain_path(path)).folder;
}

static bool is_known(const std::vector<std::string>& paths, const std::string& path) {
  return std::any_of(paths.begin(), paths.end(), [&](const std::string& known) {
    return plain_path(known) == plain_path(path);
  });
}

// A ring leads to what lies beside it, and to nothing else that nobody has named: whoever can put a
// file into the folder must not choose what is written to.
static void check_outputs(const ring_file& ring, const recovery_rules& rules) {
  const std::string place = ring.info().place();
  const std::string folder = folder_of(ring.path());
  for (const std::string& output : ring.info().outputs()) {
    const bool is_beside = folder_of(output) == folder || folder_of(output) == folder_of(place);
    const bool is_place_known = folder_of(place) == folder || is_known(rules.known_outputs, place);
    if (output.empty() || (is_beside && is_place_known) || is_known(rules.known_outputs, output))
      continue;
    throw std::runtime_error("it names the output " + terminal_text(output) +
                             ", which is in another folder, and which has to be named for that "
                             "(kplog recover --output)");
  }
}

// One ring, from its blocks to its outputs.
class ring_rescue {
 public:
  ring_rescue(ring_file& ring, const recovery_rules& rules, recovered_events& tally)
      : ring_(ring), rules_(rules), tally_(tally), scope_(settings_), events_(options()) {}

  void run() {
    ring_delivery delivery(ring_, events_, rules_.waiting, rules_.fault);
    forget_unseen_sequences();
    const ring_contents contents = contents_of(ring_);
    damaged_ = contents.damaged;
    size_t taken = 0;
    while (taken < contents.events.size() && take(delivery, contents.events[taken])) ++taken;
    delivery.write();
    if (taken == contents.events.size())
      tell_losses(delivery);
    else
      staying_ += contents.events.size() - taken - 1;
    finish();
  }

 private:
  event_set_options options() const {
    const ring_info& info = ring_.info();
    return {info.definitions, info.aux, info.catalog, info.locale};
  }

  // What no output has seen gets its sequence anew, so that none is left out when events stay.
  void forget_unseen_sequences() {
    ring_head& head = ring_.head();
    for (unsigned output = 0; output < ring_start::outputs; ++output)
      seen_ = std::max(seen_, head.start.delivered_in(output));
    for (const ring_event& event : contents_of(ring_).events)
      if (event.frame->sequence > seen_) ring_store(event.frame->sequence, uint64_t{0});
    ring_store(head.assigned, seen_);
  }

  // False where nothing behind the event may be taken before it: some of the outputs have it, and
  // how far the others are is one number.
  bool take(ring_delivery& delivery, const ring_event& event) {
    const bool had_sequence = event.frame->sequence != 0;
    if (event.head().kind == kind_lost) note_told(ring_, event);
    switch (delivery.add(event)) {
      case ring_delivery::outcome::taken:
        ++recovered_;
        break;
      case ring_delivery::outcome::had:
        break;
      case ring_delivery::outcome::damaged:
        ++damaged_;
        break;
      case ring_delivery::outcome::stays:
        ++staying_;
        if (had_sequence) return false;
        break;
    }
    if (delivery.pending() >= batch_events || delivery.pending_bytes() >= batch_bytes)
      delivery.write();
    return true;
  }

  // Where every block holds events that stay, the losses stay with them.
  void tell_losses(ring_delivery& delivery) {
    const std::vector<lost_bytes> losses = losses_to_tell(ring_);
    block_head* const block = unused_block();
    if (losses.empty() || block == nullptr) return;
    const std::vector<ring_event> events = put_losses(ring_, *block, losses);
    for (const ring_event& event : events) delivery.add(event);
    delivery.write();
    for (const ring_event& event : events) note_told(ring_, event);
  }

  block_head* unused_block() const {
    for (uint32_t number = 0; number < ring_.blocks(); ++number) {
      block_head& block = ring_.block(number);
      if (block.used == 0 || staying_ == 0) return &block;
    }
    return nullptr;
  }

  void finish() {
    if (staying_ == 0) ring_.remove();
    tally_.recovered += recovered_;
    tally_.staying += staying_;
    tally_.damaged += damaged_;
    const std::string ring = "the ring " + terminal_text(ring_.path()) + ": ";
    tell(rules_.report, ring + counted(recovered_, "event") + " recovered");
    if (damaged_ != 0)
      tell(rules_.fault, ring + counted(damaged_, "damaged part") + " passed over");
    if (staying_ != 0)
      tell(rules_.fault,
           ring + counted(staying_, "event") +
               " left there, whose definitions are gone or are others than when it was recorded");
  }

  ring_file& ring_;
  const recovery_rules& rules_;
  recovered_events& tally_;
  kp_log_own_settings settings_;
  const kp_log_own_settings::scope scope_;
  const event_set events_;
  uint64_t seen_ = 0;
  uint64_t recovered_ = 0;
  uint64_t staying_ = 0;
  uint64_t damaged_ = 0;
};

static void recover_ring(const std::string& path, const recovery_rules& rules,
                         recovered_events& tally) {
  bool has_owner = false;
  const std::unique_ptr<ring_file> ring = ring_file::take(path, has_owner);
  if (has_owner) ++tally.in_use;
  if (ring == nullptr) return;
  ++tally.rings;
  check_outputs(*ring, rules);
  try {
    ring_rescue(*ring, rules, tally).run();
  } catch (const damaged_definitions& error) {
    throw std::runtime_error(terminal_text(ring->info().definitions) + ": " + error.what());
  }
}

static std::string left_ring(const std::string& path, const std::exception& error) {
  const std::string reason = error.what();  // empty: as the library raises a failed allocation
  return "the ring " + terminal_text(path) +
         " is left as it is: " + (reason.empty() ? "no memory is left" : reason);
}

recovered_events recover_rings(const std::string& stem, const recovery_rules& rules) {
  recovered_events tally;
  for (const std::string& path : ring_file::paths_of(absolute_path(stem))) {
    try {
      recover_ring(path, rules, tally);
    } catch (const lock_given_up& error) {  // nor would the others come to it
      ++tally.failures;
      tell(rules.fault, left_ring(path, error));
      break;
    } catch (const std::exception& error) {
      ++tally.failures;
      tell(rules.fault, left_ring(path, error));
    }
  }
  return tally;
}
