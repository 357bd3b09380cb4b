// What a program that uses ICU directly would write to render an event.
#ifndef BENCH_PEERS_ICU_MESSAGE_H
#define BENCH_PEERS_ICU_MESSAGE_H

#include <unicode/msgfmt.h>

#include <string>
#include <string_view>
#include <vector>

#include "bench/peers/map_event.h"

// The name of the time at which an event was made.
constexpr std::string_view peer_event_time = "TIMESTAMP";

// A message in US English: a pattern whose arguments, from 0, are the attributes of the given
// names.
class peer_icu_message {
 public:
  peer_icu_message(const char* pattern, std::vector<std::string_view> names);

  // The event's message in UTF-8, by a MessageFormat built for this call.
  std::string render_anew(const peer_event<peer_std_map>& event) const;
  // By the one MessageFormat that the constructor has built.
  std::string render(const peer_event<peer_std_map>& event) const;

 private:
  std::string render_with(const icu::MessageFormat& format,
                          const peer_event<peer_std_map>& event) const;

  icu::UnicodeString pattern_;
  std::vector<std::string_view> names_;
  icu::MessageFormat format_;
};

#endif
