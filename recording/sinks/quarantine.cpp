#include "recording/sinks/quarantine.h"

#include "recording/files/path.h"

record_quarantine::record_quarantine(const std::string& path, const append_rules& rules)
    : file_(place_of(path).folder, place_of(path).name, rules) {}
