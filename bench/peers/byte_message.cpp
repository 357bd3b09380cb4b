#include "bench/peers/byte_message.h"

#include <fmt/args.h>
#include <fmt/format.h>

#include <cstdio>

// Appends a value to a text.
struct peer_append {
  std::string& result;
  char buffer[32] = {};

  void operator()(const std::string& text) { result += text; }
  void operator()(uint16_t number) { append(std::snprintf(buffer, sizeof buffer, "%u", number)); }
  void operator()(uint32_t number) { append(std::snprintf(buffer, sizeof buffer, "%u", number)); }
  void operator()(int32_t number) { append(std::snprintf(buffer, sizeof buffer, "%d", number)); }
  void operator()(double number) { append(std::snprintf(buffer, sizeof buffer, "%f", number)); }
  void append(int length) { result.append(buffer, static_cast<size_t>(length)); }
};

std::string peer_render_snprintf(const std::vector<peer_message_piece>& pieces,
                                 const peer_event<peer_std_map>& event) {
  std::string result;
  peer_append append = {result};
  for (const peer_message_piece& piece : pieces) {
    result += piece.text;
    if (!piece.name.empty()) std::visit(append, event.get(piece.name));
  }
  return result;
}

std::string peer_render_fmt(std::string_view format, const std::string_view (&names)[5],
                            const peer_event<peer_std_map>& event) {
  const auto& user = std::get<std::string>(event.get(names[0]));
  const auto& host = std::get<std::string>(event.get(names[1]));
  const auto port = std::get<uint16_t>(event.get(names[2]));
  const auto load = std::get<double>(event.get(names[3]));
  const auto balance = std::get<int32_t>(event.get(names[4]));
  return fmt::vformat(fmt::string_view(format.data(), format.size()),
                      fmt::make_format_args(user, host, port, load, balance));
}

std::string peer_render_fmt_named(std::string_view format, const peer_event<peer_std_map>& event) {
  fmt::dynamic_format_arg_store<fmt::format_context> arguments;
  event.for_each([&arguments](const std::string& name, const peer_value& value) {
    std::visit([&](const auto& v) { arguments.push_back(fmt::arg(name.c_str(), std::cref(v))); },
               value);
  });
  return fmt::vformat(fmt::string_view(format.data(), format.size()), arguments);
}
