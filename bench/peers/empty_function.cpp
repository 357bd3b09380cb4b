#include "bench/peers/empty_function.h"

void peer_empty_function() {}

void peer_empty_line(unsigned, const char*, ...) {}
