// A connection to a database that ends as soon as whoever waits for it is to end.
#ifndef ENGINES_POSTGRESQL_CONNECTION_H
#define ENGINES_POSTGRESQL_CONNECTION_H

#include <libpq-fe.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "engines/postgresql/address.h"
#include "tools/ship/engine.h"

// What an answer says, by rows and columns.
class pg_result {
 public:
  explicit pg_result(PGresult* result = nullptr) : result_(result, PQclear) {}

  explicit operator bool() const { return result_ != nullptr; }
  PGresult* get() const { return result_.get(); }
  int rows() const { return PQntuples(result_.get()); }
  bool is_null(int row, int column) const { return PQgetisnull(get(), row, column) == 1; }
  // As text, or as bytes where these were asked for.
  std::string_view value(int row, int column) const {
    return {PQgetvalue(get(), row, column), static_cast<size_t>(PQgetlength(get(), row, column))};
  }
  int64_t number(int row, int column) const;
  bool truth(int row, int column) const { return value(row, column) == "t"; }
  uint64_t changed() const;  // rows that the statement inserted, updated or removed

 private:
  std::unique_ptr<PGresult, decltype(&PQclear)> result_;
};

// Values that statements take for $1 and so on, as text: data, whatever they hold.
using pg_values = std::vector<std::optional<std::string>>;

std::string pg_array(const std::vector<std::string>& values);

inline constexpr std::string_view pg_needs_ship =
    "the user needs the role kplog_ship: GRANT kplog_ship TO ...";
inline constexpr std::string_view pg_needs_read =
    "the user needs the role kplog_read: GRANT kplog_read TO ...";

// Every operation raises engine_error with a text that begins with the address. An error of the
// database leaves the connection usable, with an open transaction failed; any other closes it.
class pg_connection {
 public:
  // `is_written`: more is done than to ask.
  explicit pg_connection(const engine_options& options, bool is_written = true,
                         std::string_view when_denied = {})
      : options_(options), is_written_(is_written), when_denied_(when_denied) {}

  // Connects to the first server that there is, unless it is connected. True: just now. The version
  // of the schema has been looked at then, if `wants_schema`.
  bool connect(bool wants_schema = true);
  void close();
  // What would help where the user may not do what is asked for next; empty: nothing is known to.
  void when_denied(std::string_view advice) { when_denied_ = advice; }

  // The last answer of the statement.
  pg_result ask(const std::string& statement, const pg_values& values = {}, bool is_binary = false);
  // Answers of several statements that take no values, which are sent together; COPY ... FROM STDIN
  // is the last of these, and its data goes next.
  std::vector<pg_result> run(const std::string& statements);
  void copy(std::string_view data);
  void end_copy();
  // An answer by rows, as they come.
  void begin_rows(const std::string& statement, const pg_values& values);
  // Nothing behind the last.
  std::optional<pg_result> next_row();

  // Without waiting.
  void send(const std::string& statement);
  // Nothing: the answer is still to come.
  std::optional<pg_result> answer_if_there();

  bool is_in_transaction() const;
  [[noreturn]] void fail(const std::string& what, std::string_view code = {});

 private:
  void connect_any();
  void begin_connecting(const pg_parameter_map& server);
  void await_connection();
  void prepare_session(bool wants_schema);
  void check_version();
  void set_tenant();
  void await(bool wants_to_write);
  void flush();
  pg_result next_result();
  void check(const pg_result& result);
  void check_end();
  [[noreturn]] void fail_connection();
  [[noreturn]] void fail_silent();

  engine_options options_;
  bool is_written_;
  bool is_ending_ = false;
  std::string_view when_denied_;
  std::unique_ptr<PGconn, decltype(&PQfinish)> connection_{nullptr, PQfinish};
};

#endif
