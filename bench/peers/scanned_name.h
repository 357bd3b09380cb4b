// The name of a text log, taken apart by sscanf.
#ifndef BENCH_PEERS_SCANNED_NAME_H
#define BENCH_PEERS_SCANNED_NAME_H

bool peer_scan_log_name(const char* name, const char* prefix, unsigned short (&numbers)[4]);

#endif
