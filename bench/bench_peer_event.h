// The event of the benchmarks, made by the peers.
#ifndef BENCH_PEER_EVENT_H
#define BENCH_PEER_EVENT_H

#include "bench/bench_event.h"
#include "bench/peers/map_event.h"

template <template <class> class Map>
typename peer_event<Map>::declarations bench_declarations() {
  return {{bench_user, {0, bench_string_limit}},
          {bench_host, {0, bench_string_limit}},
          {bench_port, {1, 0}},
          {bench_load, {2, 0}},
          {bench_balance, {3, 0}}};
}

template <template <class> class Map>
void bench_fill(peer_event<Map>& event) {
  event.add(bench_user, bench_user_value);
  event.add(bench_host, bench_host_value);
  event.add(bench_port, bench_port_value);
  event.add(bench_load, bench_load_value);
  event.add(bench_balance, bench_balance_value);
}

#endif
