// Machines with journals of their own, and the engines that they send these to.
#ifndef TESTS_ENGINES_COMMAND_FLEET_FIXTURE_H
#define TESTS_ENGINES_COMMAND_FLEET_FIXTURE_H

#include <gtest/gtest.h>

#include <csignal>
#include <functional>
#include <memory>
#include <string>
#include <type_traits>
#include <vector>

#include "tests/command/command_run.h"
#include "tests/command/running_command.h"
#include "tests/engines/nats/nats_servers.h"
#include "tests/engines/postgresql/database_server.h"
#include "tests/support/temp_folder.h"

// An engine for the command, by its address, or through another port of 127.0.0.1.
class fleet_server {
 public:
  virtual ~fleet_server() = default;
  virtual uint16_t port() const = 0;
  virtual std::string address_by(uint16_t port) const = 0;
  std::string address() const { return address_by(port()); }
  virtual void kill() = 0;
  virtual void start() = 0;
};

class fleet_database : public fleet_server {
 public:
  uint16_t port() const override { return static_cast<uint16_t>(server_.port()); }
  std::string address_by(uint16_t port) const override {
    return "postgresql://postgres@127.0.0.1:" + std::to_string(port) + "/postgres?sslmode=disable";
  }
  void kill() override { server_.stop(SIGKILL); }
  void start() override { server_.start(); }

 private:
  database_server server_{{.has_port = true}};
};

class fleet_broker : public fleet_server {
 public:
  uint16_t port() const override { return server_.port_of(0); }
  std::string address_by(uint16_t port) const override {
    return "nats://127.0.0.1:" + std::to_string(port) + "?tls=off";
  }
  void kill() override { server_.kill(0); }
  void start() override { server_.start(0); }

 private:
  nats_servers server_;
};

// Of a suite of tests that each engine has to pass.
struct name_of_server {
  template <class Server>
  static std::string GetName(int) {
    return std::is_same_v<Server, fleet_database> ? "Database" : "Broker";
  }
};
using fleet_servers = testing::Types<fleet_database, fleet_broker>;

// Two products, which both call their definitions 2.0; the first one has messages in Japanese.
class fleet_folder {
 public:
  fleet_folder();

  // Records of a product come into the journal of that machine, "MACHINE/shop", and its counter
  // file. A segment has about so many bytes at most, in words of the command.
  void emit(const std::string& machine, const std::string& product, const std::string& records,
            const std::string& max_size = "20K");
  // Definitions of a product beside the two: "NAME.ldf".
  void make_set(const std::string& name, const std::string& source) const;
  command_result run(const std::string& arguments) const {
    return run_kplog(folder_.path(), arguments);
  }
  // "kplog ship" of that machine; fails the test for any other status.
  command_result ship(const std::string& machine, const std::string& product,
                      const std::string& address, const std::string& options, int status = 0) const;
  std::string path() const { return folder_.path(); }
  std::string file(const std::string& name) const { return folder_.file(name); }
  std::string write(const std::string& name, const std::string& text) const {
    return folder_.write(name, text);
  }
  static std::vector<std::string> ship_words(const std::string& machine, const std::string& product,
                                             const std::string& address);

 private:
  environment_value zone_{"TZ", "Asia/Singapore"};
  temp_folder folder_;
};

// Of the days from 2026-11-14 to 2026-11-16 in several zones, of all events, with all kinds of
// values.
std::string random_fleet_records(size_t count, unsigned seed);

#endif
