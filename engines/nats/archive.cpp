#include "engines/nats/archive.h"

#include <algorithm>

#include "engines/common/digest.h"
#include "engines/nats/json.h"

static archive_query of_any_event(archive_query query) {
  query.groups.clear();
  return query;
}

nats_archive::nats_archive(engine_options options, archive_query query)
    : link_(std::move(options)),
      query_(std::move(query)),
      subjects_(link_.options().address, link_.options().stream),
      filter_(subjects_, query_),
      arriving_(subjects_, of_any_event(query_)),
      scan_(
          link_,
          {.subjects = filter_.subjects(),
           .is_subject = [this](std::string_view subject) { return filter_.may_fit(subject); },
           .is_place =
               [this](const record_place& place) { return filter_.is_host(place.journal.host); }}) {
}

// --- Kits.

std::vector<archived_kit> nats_archive::kits() {
  try {
    std::vector<archived_kit> kits;
    for (kit_use& use : kit_uses(link_.get()))
      if (auto found = kit(link_.get(), use.hash))
        kits.push_back({.kit = std::move(*found), .users = std::move(use.users)});
    return kits;
  } catch (const engine_error&) {
    reader_.reset();
    link_.give_up();
    throw;
  }
}

// The newest last: that which a sender began to use last.
std::vector<nats_archive::kit_use> nats_archive::kit_uses(nats_link& link) const {
  std::vector<kit_use> uses;
  if (!link.stream_info(subjects_.state_stream())) return uses;
  nats_stream_reader reader(link, subjects_.state_stream(), subjects_.kit_uses());
  uint64_t count = 0;
  while (const nats_message message = reader.next_there()) {
    const nats_json json(nats_bytes(message));
    auto host = json.any_text("host");
    auto journal = json.any_text("journal");
    const auto hash = json.text("kit");
    if (!host || !journal || !hash || !filter_.is_host(*host)) continue;
    const auto found = std::ranges::find(uses, *hash, &kit_use::hash);
    kit_use use{.hash = *hash, .users = {}};
    if (found != uses.end()) {
      use = std::move(*found);
      uses.erase(found);
    }
    use.users.push_back({{.host = std::move(*host), .journal = std::move(*journal)}, ++count});
    uses.push_back(std::move(use));
  }
  return uses;
}

// Nothing where it is not what its hash says: whoever may write to the stream may write anything.
std::optional<record_kit> nats_archive::kit(nats_link& link, const std::string& hash) const {
  const std::string& stream = subjects_.state_stream();
  if (hash.empty() || hash.find_first_not_of("0123456789abcdef") != std::string::npos) return {};
  const nats_message end = link.last_message(stream, subjects_.kit_end(hash));
  if (!end) return std::nullopt;
  const uint64_t parts = nats_json(nats_bytes(end)).number("parts").value_or(0);
  record_kit kit;
  for (uint64_t i = 0; i < parts; ++i) {
    const nats_message part = link.last_message(stream, subjects_.kit_part(hash, i));
    if (!part) return std::nullopt;
    kit.bytes += nats_bytes(part);
  }
  if (content_hash(kit.bytes) == hash) return kit;
  if (link.options().tell)
    link.options().tell(link.options().address + ": the definitions " + hash +
                        " are not what was stored: left out");
  return std::nullopt;
}

// --- Records.

bool nats_archive::next(archived_record& record, std::chrono::milliseconds patience) {
  if (!is_scanned_ && scan_.next(found_)) {
    if (query_.follows) joiner_.is_new(found_.place);
    record = {.text = found_.text,
              .journal = found_.place.journal,
              .segment = found_.place.segment,
              .line = found_.place.line};
    return true;
  }
  is_scanned_ = true;
  if (!query_.follows) return false;
  try {
    return next_arrival(record, patience);
  } catch (const engine_error&) {
    reader_.reset();
    link_.give_up();
    throw;
  }
}

bool nats_archive::next_arrival(archived_record& record, std::chrono::milliseconds patience) {
  if (is_first_handed_) arrived_.pop_front();
  is_first_handed_ = false;
  if (from_ == 0) from_ = scan_.end() + 1;
  const auto begin = std::chrono::steady_clock::now();
  while (arrived_.empty()) {
    if (!reader_)
      reader_ = std::make_unique<nats_stream_reader>(
          link_.get(), subjects_.records_stream(), filter_.subject(),
          has_followed_ ? nats_number_before(from_, nats_again) : from_, nats_again);
    has_followed_ = true;
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
        begin + patience - std::chrono::steady_clock::now());
    const nats_message message = reader_->next(std::max(left, std::chrono::milliseconds(0)));
    if (!message) return false;
    from_ = std::max(from_, reader_->sequence() + 1);
    take_arrivals(message.get());
  }
  is_first_handed_ = true;
  const auto& [place, text] = arrived_.front();
  record = {.text = text, .journal = place.journal, .segment = place.segment, .line = place.line};
  return true;
}

void nats_archive::take_arrivals(natsMsg* message) {
  if (!arriving_.may_fit(natsMsg_GetSubject(message))) return;
  const std::string_view bytes(natsMsg_GetData(message),
                               static_cast<size_t>(natsMsg_GetDataLength(message)));
  for_each_piece(bytes, [&](const record_piece& piece) {
    if (!filter_.is_host(piece.place.journal.host)) return;
    const auto text = piece.part ? joiner_.add(piece.place, *piece.part, piece.bytes)
                                 : std::optional(piece.bytes);
    if (text && joiner_.is_new(piece.place)) arrived_.emplace_back(piece.place, *text);
  });
}
