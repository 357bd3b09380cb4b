#include "engines/postgresql/connection.h"

#include <poll.h>

#include <cerrno>
#include <charconv>

#include "engines/postgresql/error_text.h"
#include "engines/postgresql/schema.h"

using pg_clock = std::chrono::steady_clock;

// How often it is asked whether to end.
static constexpr int pg_step_ms = 100;
static constexpr std::chrono::seconds pg_connect_patience(10);

int64_t pg_result::number(int row, int column) const {
  int64_t number = 0;
  const std::string_view text = value(row, column);
  std::from_chars(text.data(), text.data() + text.size(), number);
  return number;
}

uint64_t pg_result::changed() const {
  uint64_t number = 0;
  const std::string_view text = PQcmdTuples(get());
  std::from_chars(text.data(), text.data() + text.size(), number);
  return number;
}

std::string pg_array(const std::vector<std::string>& values) {
  std::string text = "{";
  for (const std::string& value : values) {
    if (text.size() > 1) text += ',';
    text += '"';
    for (const char character : value) {
      if (character == '"' || character == '\\') text += '\\';
      text += character;
    }
    text += '"';
  }
  return text + "}";
}

// The code of what the user may not do.
static constexpr std::string_view pg_denied = "42501";

void pg_connection::fail(const std::string& what, std::string_view code) {
  const std::string line = pg_one_line(what);
  const std::string advice(code == pg_denied ? when_denied_ : pg_advice(code, line));
  throw engine_error(options_.address + ": " + line + (advice.empty() ? "" : ": " + advice));
}

void pg_connection::fail_connection() {
  const std::string text = connection_ ? PQerrorMessage(connection_.get()) : "";
  connection_.reset();
  fail(text.empty() ? "the connection is gone" : text);
}

void pg_connection::close() {
  connection_.reset();
}

void pg_connection::check_end() {
  if (!options_.is_to_end || !options_.is_to_end()) return;
  connection_.reset();
  is_ending_ = true;
  fail("given up, as this program is ending");
}

// Until something comes, or, if it is to be written to, until it can be; or for a step.
void pg_connection::await(bool wants_to_write) {
  pollfd socket{PQsocket(connection_.get()), POLLIN, 0};
  if (wants_to_write) socket.events |= POLLOUT;
  if (poll(&socket, 1, pg_step_ms) < 0 && errno != EINTR) fail_connection();
  check_end();
}

void pg_connection::begin_connecting(const pg_parameter_map& server) {
  std::vector<const char*> names;
  std::vector<const char*> texts;
  for (const auto& [name, text] : server) {
    names.push_back(name.c_str());
    texts.push_back(text.c_str());
  }
  names.push_back(nullptr);
  texts.push_back(nullptr);
  connection_.reset(PQconnectStartParams(names.data(), texts.data(), 0));
  if (!connection_) throw std::bad_alloc();
  if (PQstatus(connection_.get()) == CONNECTION_BAD) fail_connection();
  // Of what is no error nothing is said, where libpq would write to the standard error.
  PQsetNoticeProcessor(
      connection_.get(), [](void*, const char*) {}, nullptr);
}

void pg_connection::fail_silent() {
  const std::string host = PQhost(connection_.get());
  const std::string port = PQport(connection_.get());
  connection_.reset();
  fail("no answer from " + host + ":" + port + " within 10 seconds");
}

// Its own timeout does not hold for PQconnectPoll.
void pg_connection::await_connection() {
  const auto end = pg_clock::now() + pg_connect_patience;
  for (PostgresPollingStatusType state = PGRES_POLLING_WRITING; state != PGRES_POLLING_OK;
       state = PQconnectPoll(connection_.get())) {
    if (state == PGRES_POLLING_FAILED) fail_connection();
    pollfd socket{PQsocket(connection_.get()), POLLIN, 0};
    if (state == PGRES_POLLING_WRITING) socket.events = POLLOUT;
    while (poll(&socket, 1, pg_step_ms) == 0) {
      check_end();
      if (pg_clock::now() >= end) fail_silent();
    }
    check_end();
  }
}

// Where none is there, what is said is what is wrong with each of them.
void pg_connection::connect_any() {
  std::string faults;
  for (const pg_parameter_map& server : pg_servers(options_, is_written_)) {
    try {
      begin_connecting(server);
      await_connection();
      return;
    } catch (const engine_error& error) {
      if (is_ending_) throw;
      const std::string_view text = error.what();
      faults +=
          (faults.empty() ? "" : ", ") + std::string(text.substr(options_.address.size() + 2));
    }
  }
  throw engine_error(options_.address + ": " + faults);
}

bool pg_connection::connect(bool wants_schema) {
  if (connection_ && PQstatus(connection_.get()) == CONNECTION_OK) return false;
  connect_any();
  if (PQsetnonblocking(connection_.get(), 1) != 0) fail_connection();
  try {
    prepare_session(wants_schema);
  } catch (...) {
    connection_.reset();
    throw;
  }
  return true;
}

void pg_connection::prepare_session(bool wants_schema) {
  // Names in statements are those of the system and of the schema, whoever made others.
  run("set search_path = pg_catalog, pg_temp; set standard_conforming_strings = on;"
      "set client_min_messages = warning; set datestyle = 'ISO, YMD'; set extra_float_digits = 3;"
      "set row_security = on; set bytea_output = hex");
  const char* encoding = PQparameterStatus(connection_.get(), "server_encoding");
  if (encoding == nullptr || std::string_view(encoding) != "UTF8")
    fail("the database has the encoding " + std::string(encoding == nullptr ? "?" : encoding) +
         ", and UTF8 is needed: createdb --encoding UTF8 --template template0");
  if (!wants_schema) return;
  check_version();
  set_tenant();
}

void pg_connection::check_version() {
  static const std::string expected = std::to_string(pg_schema_version);
  static const std::string create = "`kplog ship --create --to ADDRESS` makes it";
  if (!ask("select 1 where to_regnamespace('kplog') is not null").rows())
    fail("it has no schema \"kplog\": " + create);
  if (!ask("select 1 where has_schema_privilege('kplog', 'usage')").rows())
    fail("the user may not use the schema \"kplog\"", pg_denied);
  if (!ask("select 1 where to_regclass('kplog.version') is not null").rows())
    fail("its schema \"kplog\" has no version, as it is another's: in another database " + create);
  const pg_result found = ask("select version from kplog.version");
  const std::string version(found.rows() == 0 ? "none" : found.value(0, 0));
  if (version != expected)
    fail("its schema \"kplog\" has version " + version + ", not " + expected +
         (found.rows() > 0 && found.number(0, 0) > pg_schema_version
              ? ": a newer kplog made it, which has to be installed here as well"
              : ": in another database " + create));
}

void pg_connection::set_tenant() {
  if (!options_.tenant.empty())
    ask("select set_config('kplog.tenant', $1, false)", {options_.tenant});
}

// What is written, is read meanwhile: a server that waits for that would take nothing.
void pg_connection::flush() {
  for (;;) {
    const int left = PQflush(connection_.get());
    if (left == 0) return;
    if (left < 0) fail_connection();
    await(true);
    if (PQconsumeInput(connection_.get()) == 0) fail_connection();
  }
}

pg_result pg_connection::next_result() {
  while (PQisBusy(connection_.get()) == 1) {
    await(false);
    if (PQconsumeInput(connection_.get()) == 0) fail_connection();
  }
  return pg_result(PQgetResult(connection_.get()));
}

// Raises what the answer is, if it is an error. The answers behind it are taken, so that the
// connection can be used.
void pg_connection::check(const pg_result& result) {
  const ExecStatusType status = PQresultStatus(result.get());
  if (status != PGRES_FATAL_ERROR && status != PGRES_BAD_RESPONSE) return;
  if (PQstatus(connection_.get()) == CONNECTION_BAD) fail_connection();
  while (next_result()) {
  }
  const char* code = PQresultErrorField(result.get(), PG_DIAG_SQLSTATE);
  fail(PQresultErrorMessage(result.get()), code == nullptr ? "" : code);
}

static std::vector<const char*> pg_pointers(const pg_values& values) {
  std::vector<const char*> pointers;
  pointers.reserve(values.size());
  for (const std::optional<std::string>& value : values)
    pointers.push_back(value ? value->c_str() : nullptr);
  return pointers;
}

pg_result pg_connection::ask(const std::string& statement, const pg_values& values,
                             bool is_binary) {
  const std::vector<const char*> pointers = pg_pointers(values);
  if (PQsendQueryParams(connection_.get(), statement.c_str(), static_cast<int>(values.size()),
                        nullptr, pointers.data(), nullptr, nullptr, is_binary ? 1 : 0) == 0)
    fail_connection();
  flush();
  pg_result last;
  while (pg_result result = next_result()) {
    check(result);
    last = std::move(result);
  }
  return last;
}

std::vector<pg_result> pg_connection::run(const std::string& statements) {
  send(statements);
  std::vector<pg_result> all;
  while (pg_result result = next_result()) {
    check(result);
    all.push_back(std::move(result));
    if (PQresultStatus(all.back().get()) == PGRES_COPY_IN) break;
  }
  return all;
}

void pg_connection::copy(std::string_view data) {
  static constexpr size_t slice = size_t{256} * 1024;
  for (; !data.empty(); data.remove_prefix(std::min(slice, data.size()))) {
    const int put = PQputCopyData(connection_.get(), data.data(),
                                  static_cast<int>(std::min(slice, data.size())));
    if (put != 1) fail_connection();
    flush();
  }
}

void pg_connection::end_copy() {
  if (PQputCopyEnd(connection_.get(), nullptr) != 1) fail_connection();
  flush();
  while (const pg_result result = next_result()) check(result);
}

void pg_connection::begin_rows(const std::string& statement, const pg_values& values) {
  const std::vector<const char*> pointers = pg_pointers(values);
  if (PQsendQueryParams(connection_.get(), statement.c_str(), static_cast<int>(values.size()),
                        nullptr, pointers.data(), nullptr, nullptr, 0) == 0)
    fail_connection();
  PQsetSingleRowMode(connection_.get());
  flush();
}

std::optional<pg_result> pg_connection::next_row() {
  while (pg_result result = next_result()) {
    check(result);
    if (PQresultStatus(result.get()) == PGRES_SINGLE_TUPLE) return result;
  }
  return std::nullopt;
}

void pg_connection::send(const std::string& statement) {
  if (PQsendQuery(connection_.get(), statement.c_str()) == 0) fail_connection();
  flush();
}

std::optional<pg_result> pg_connection::answer_if_there() {
  if (PQconsumeInput(connection_.get()) == 0) fail_connection();
  if (PQisBusy(connection_.get()) == 1) return std::nullopt;
  pg_result last;
  while (pg_result result = next_result()) {
    check(result);
    last = std::move(result);
  }
  return last;
}

bool pg_connection::is_in_transaction() const {
  return connection_ && PQtransactionStatus(connection_.get()) != PQTRANS_IDLE;
}
