// What LTTng-UST makes code of; its headers read this one several times.
#undef LTTNG_UST_TRACEPOINT_PROVIDER
#define LTTNG_UST_TRACEPOINT_PROVIDER kplog_bench
#undef LTTNG_UST_TRACEPOINT_INCLUDE
#define LTTNG_UST_TRACEPOINT_INCLUDE "bench/peers/tracepoint_provider.h"

#if !defined(BENCH_PEERS_TRACEPOINT_PROVIDER_H) || defined(LTTNG_UST_TRACEPOINT_HEADER_MULTI_READ)
#define BENCH_PEERS_TRACEPOINT_PROVIDER_H

#ifdef KPLOG_BENCH_TRACEPOINT
#include <lttng/tracepoint.h>

LTTNG_UST_TRACEPOINT_EVENT(
    kplog_bench, sale,
    LTTNG_UST_TP_ARGS(const char*, shop, const char*, customer, uint32_t, items, double, price,
                      int32_t, balance),
    LTTNG_UST_TP_FIELDS(lttng_ust_field_string(shop, shop)
                            lttng_ust_field_string(customer, customer)
                                lttng_ust_field_integer(uint32_t, items, items)
                                    lttng_ust_field_float(double, price, price)
                                        lttng_ust_field_integer(int32_t, balance, balance)))
#endif

#endif

#ifdef KPLOG_BENCH_TRACEPOINT
#include <lttng/tracepoint-event.h>
#endif
