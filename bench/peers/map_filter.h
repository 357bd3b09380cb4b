// Settings in nested maps, and a filter that reads them.
#ifndef BENCH_PEERS_MAP_FILTER_H
#define BENCH_PEERS_MAP_FILTER_H

#include <string>
#include <unordered_map>

using peer_settings = std::unordered_map<std::string, std::unordered_map<std::string, unsigned>>;

// The settings of the benchmark's filter.
peer_settings peer_filter_settings();

// The setting of the section, else the one of the section "global".
bool peer_find(const peer_settings& settings, const char* section, const char* key,
               unsigned& value);

// Whether an entry passes that is not for debugging: four look-ups.
bool peer_check(const peer_settings& settings, const char* section, unsigned level, unsigned mask);

#endif
