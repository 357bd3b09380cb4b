// What a program would write to render an event from a message that it knows only at run time.
#ifndef BENCH_PEERS_BYTE_MESSAGE_H
#define BENCH_PEERS_BYTE_MESSAGE_H

#include <string>
#include <string_view>
#include <vector>

#include "bench/peers/map_event.h"

// Literal text, and the attribute behind it (none for an empty name).
struct peer_message_piece {
  std::string text;
  std::string name;
};

// The message, split beforehand, with one snprintf per number into a buffer.
std::string peer_render_snprintf(const std::vector<peer_message_piece>& pieces,
                                 const peer_event<peer_std_map>& event);

// The message as a format string of fmt, with the attributes of these five names as its arguments.
std::string peer_render_fmt(std::string_view format, const std::string_view (&names)[5],
                            const peer_event<peer_std_map>& event);
// The message as a format string of fmt in which the attributes stand by their names.
std::string peer_render_fmt_named(std::string_view format, const peer_event<peer_std_map>& event);

#endif
