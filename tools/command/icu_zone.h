// The time zone in which messages tell times.
#ifndef TOOLS_COMMAND_ICU_ZONE_H
#define TOOLS_COMMAND_ICU_ZONE_H

// Makes the C library's zone ICU's default, as it is at each moment. ICU's own idea of it knows TZ
// by names only: where TZ is a rule, as in "CET-1CEST,M3.5.0,M10.5.0/3", messages would tell
// another hour than the records. Called once, at the start.
void use_zone_of_c_library();

#endif
