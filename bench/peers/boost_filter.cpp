#include "bench/peers/boost_filter.h"

#include <boost/log/attributes/value_extraction.hpp>
#include <boost/log/core.hpp>
#include <boost/log/expressions.hpp>
#include <boost/log/keywords/severity.hpp>
#include <boost/log/sinks/basic_sink_backend.hpp>
#include <boost/log/sinks/unlocked_frontend.hpp>
#include <boost/log/sources/severity_logger.hpp>
#include <boost/smart_ptr/make_shared.hpp>

struct peer_discarding_backend
    : boost::log::sinks::basic_sink_backend<boost::log::sinks::concurrent_feeding> {
  void consume(const boost::log::record_view&) {}
};

struct peer_boost_filter::parts {
  boost::shared_ptr<boost::log::sinks::unlocked_sink<peer_discarding_backend>> sink =
      boost::make_shared<boost::log::sinks::unlocked_sink<peer_discarding_backend>>();
  boost::log::sources::severity_logger<unsigned> logger;
};

peer_boost_filter::peer_boost_filter() : parts_(std::make_unique<parts>()) {
  const auto core = boost::log::core::get();
  core->add_sink(parts_->sink);
  core->set_filter(boost::log::expressions::attr<unsigned>("Severity") >= 4U);
}

peer_boost_filter::~peer_boost_filter() {
  const auto core = boost::log::core::get();
  core->reset_filter();
  core->remove_sink(parts_->sink);
}

bool peer_boost_filter::passes(unsigned level) const {
  return !!parts_->logger.open_record(boost::log::keywords::severity = level);
}
