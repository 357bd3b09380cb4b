// A filter of Boost.Log's on the severity of records, and a sink that writes nothing.
#ifndef BENCH_PEERS_BOOST_FILTER_H
#define BENCH_PEERS_BOOST_FILTER_H

#include <memory>

class peer_boost_filter {
 public:
  peer_boost_filter();
  ~peer_boost_filter();

  // Whether a record of that severity is opened.
  bool passes(unsigned level) const;

 private:
  struct parts;
  std::unique_ptr<parts> parts_;
};

#endif
