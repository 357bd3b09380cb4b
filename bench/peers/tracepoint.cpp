#include "bench/peers/tracepoint.h"

#ifdef KPLOG_BENCH_TRACEPOINT

#define LTTNG_UST_TRACEPOINT_CREATE_PROBES
#define LTTNG_UST_TRACEPOINT_DEFINE
#include "bench/peers/tracepoint_provider.h"

void peer_tracepoint(const char* shop, const char* customer, uint32_t items, double price,
                     int32_t balance) {
  lttng_ust_tracepoint(kplog_bench, sale, shop, customer, items, price, balance);
}

#else

void peer_tracepoint(const char*, const char*, uint32_t, double, int32_t) {}

#endif
