// The whole of what JetStream has of a fleet (docs/shipping-nats.md).
#ifndef ENGINES_NATS_FLEET_H
#define ENGINES_NATS_FLEET_H

#include <map>
#include <string>
#include <vector>

#include "engines/nats/record_scan.h"

class nats_fleet : public fleet_view {
 public:
  explicit nats_fleet(engine_options options);

  day_counts counts(const journal_identity& journal, const std::string& since_day) override;
  std::vector<fleet_row> rows() override;
  std::vector<std::string> prune(const std::string& before_day) override;

 private:
  void read_positions(nats_link& link, std::map<journal_identity, fleet_row>& rows) const;
  void read_told(nats_link& link, std::map<journal_identity, fleet_row>& rows) const;

  lasting_link link_;
  nats_subjects subjects_;
};

#endif
