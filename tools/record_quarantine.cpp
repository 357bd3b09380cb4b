#include "tools/record_quarantine.h"

#include "tools/file_place.h"

record_quarantine::record_quarantine(const std::string& path, const append_rules& rules)
    : file_(place_of(path).folder, place_of(path).name, rules) {}
