#include "engines/nats/subject.h"

#include <algorithm>

#include "engines/common/digest.h"
#include "recording/text/number.h"
#include "tools/ship/engine.h"

static constexpr size_t longest_token = 128;
static constexpr size_t kept_of_longer = 80;  // characters, before the mark of the cut
static constexpr size_t hash_of_longer = 32;

static bool is_token_character(char c) {
  return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '-' ||
         c == '_';
}

std::string nats_token(std::string_view text) {
  if (text.empty()) return "%";
  std::string token;
  for (const char c : text) {
    if (is_token_character(c))
      token += c;
    else
      token += '%' + hexadecimal(static_cast<unsigned char>(c), 2);
    if (token.size() <= longest_token) continue;
    token.resize(kept_of_longer);
    return token + "%~" + content_hash(text).substr(0, hash_of_longer);
  }
  return token;
}

std::optional<std::string> nats_token_text(std::string_view token) {
  std::string text;
  if (token == "%") return text;
  while (!token.empty()) {
    size_t size = 1;
    if (is_token_character(token.front())) {
      text += token.front();
    } else {
      size = 3;
      if (token.front() != '%' || token.size() < size) return std::nullopt;
      const std::optional<uint8_t> byte = number_of<uint8_t>(token.substr(1, 2), 16);
      if (!byte) return std::nullopt;
      text += static_cast<char>(*byte);
    }
    token.remove_prefix(size);
  }
  return text.empty() ? std::nullopt : std::optional(text);
}

nats_subjects::nats_subjects(const std::string& address, const std::string& stream)
    : stream_(stream), state_stream_(stream + "_STATE"), prefix_(stream) {
  constexpr size_t longest = 200;
  if (stream.empty() || stream.size() > longest || !std::ranges::all_of(stream, is_token_character))
    throw engine_error(address + ": \"" + stream +
                       "\" cannot be a stream's name, which is made of letters, digits, \"-\" and "
                       "\"_\", up to 200");
  for (char& c : prefix_)
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
}

std::string nats_subjects::records_of(std::string_view host, std::string_view event,
                                      std::string_view level) const {
  std::string subject = prefix_;
  for (const std::string_view token : {host, event, level}) (subject += '.') += token;
  return subject;
}

std::string nats_subjects::record(std::string_view host, const shipped_record& record) const {
  return records_of(nats_token(host), record.event ? std::to_string(*record.event) : "-",
                    record.level ? std::to_string(*record.level) : "-");
}

std::string nats_subjects::positions(const journal_identity& journal) const {
  return prefix_ + "-state.position." + nats_token(journal.host) + '.' +
         nats_token(journal.journal) + ".*";
}

std::string nats_subjects::position(const journal_identity& journal,
                                    const segment_position& position) const {
  return prefix_ + "-state.position." + nats_token(journal.host) + '.' +
         nats_token(journal.journal) + '.' + nats_token(position.segment) + '-' +
         hexadecimal(position.first, 16);
}

std::string nats_subjects::told(const journal_identity& journal) const {
  return prefix_ + "-state.told." + nats_token(journal.host) + '.' + nats_token(journal.journal);
}

std::string nats_subjects::kit_part(const std::string& hash, size_t part) const {
  return prefix_ + "-state.kit." + hash + '.' + std::to_string(part);
}

std::string nats_subjects::kit_parts(const std::string& hash) const {
  return prefix_ + "-state.kit." + hash + ".*";
}

std::string nats_subjects::kit_end(const std::string& hash) const {
  return prefix_ + "-state.kit." + hash + ".end";
}

std::string nats_subjects::kit_use(const journal_identity& journal, const std::string& hash) const {
  return prefix_ + "-state.uses." + nats_token(journal.host) + '.' + nats_token(journal.journal) +
         '.' + hash;
}
