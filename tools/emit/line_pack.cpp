#include "tools/emit/line_pack.h"

#include <algorithm>

// --- Packs ---

// The memory of a long line is given back.
static void empty_text(std::string& text) {
  static constexpr size_t most_kept = size_t{1} << 20;
  text.clear();
  if (text.capacity() > most_kept) text.shrink_to_fit();
}

void pack_result::clear() {
  for (std::string& text : texts) empty_text(text);
  days.clear();
  counts.clear();
  tallies.clear();
  from_definition.clear();
  refused.clear();
  progress.clear();
  failure = nullptr;
}

// What the lines point to never moves: only the first may be longer than there is room.
void line_pack::add(const record_line& line) {
  if (lines_.empty()) {
    begun_ = kp_Time();
    text_.reserve(std::max(most_text, line.text.size()));
  }
  const size_t begin = text_.size();
  text_ += line.text;
  lines_.push_back(line);
  lines_.back().text = std::string_view(text_).substr(begin);
}

void line_pack::clear() {
  lines_.clear();
  empty_text(text_);
  result.clear();
}

// --- Makers ---

pack_maker::pack_maker(definition_version& definitions, const emit_filter& filter,
                       const record_rules& rules, std::vector<std::unique_ptr<line_form>> forms)
    : definitions_(definitions),
      making_(definitions.events(), filter, rules.skew),
      forms_(std::move(forms)),
      stops_(rules.stops) {}

void pack_maker::make(line_pack& pack) {
  const auto within = definitions_.scope();
  pack_result& result = pack.result;
  try {
    result.texts.resize(forms_.size());
    making_.set_now(pack.begun());
    make_lines(pack, result);
  } catch (...) {
    result.failure = std::current_exception();
  }
}

static pack_result::refused_line refused_by(const record_making& making, size_t line) {
  const record_error& error = making.error();
  pack_result::refused_line refused{line, making.event(), error.rule(), std::nullopt};
  if (error.is_found()) refused.finding = error.finding();
  return refused;
}

void pack_maker::make_lines(const line_pack& pack, pack_result& result) {
  const std::vector<record_line>& lines = pack.lines();
  for (size_t i = 0; i < lines.size(); ++i) {
    const record_making::outcome outcome = making_.make(lines[i]);
    if (lines[i].client != nullptr) result.progress[lines[i].client] = lines[i].client_number;
    if (outcome == record_making::outcome::refused) {
      result.refused.push_back(refused_by(making_, i));
      if (stops_) return;
      continue;
    }
    emit_tally& tally = result.tallies[making_.event()];
    ++tally.read;
    if (outcome == record_making::outcome::rejected)
      ++tally.rejected;
    else
      add(making_.entry(), result);
  }
}

void pack_maker::add(const sink_entry& entry, pack_result& result) {
  const log_day day = day_of(entry.time);
  if (result.days.empty() || result.days.back().day != day)
    result.days.push_back({day, std::vector<size_t>(forms_.size())});
  for (size_t i = 0; i < forms_.size(); ++i) {
    forms_[i]->append(result.texts[i], entry);
    result.days.back().ends[i] = result.texts[i].size();
  }
  if (!entry.made.is_lost()) ++result.counts[{day, entry.made.entry.GetEntryID()}];
  if (entry.is_message_from_definition) result.from_definition.insert(entry.made.event);
}
