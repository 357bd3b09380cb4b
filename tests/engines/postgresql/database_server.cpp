#include "tests/engines/postgresql/database_server.h"

#include <gtest/gtest.h>
#include <libpq-fe.h>
#include <pwd.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <thread>

#include "tests/engines/support/loopback_socket.h"

static std::string program(const std::string& name) {
  return "/usr/lib/postgresql/15/bin/" + name;
}

// Whom the server runs as: it refuses root.
static const passwd* server_user() {
  return geteuid() == 0 ? getpwnam("postgres") : nullptr;
}

void run_or_fail(const std::string& command) {
  const temp_folder folder;
  const std::string log = folder.file("log");
  if (std::system((command + " >" + log + " 2>&1 </dev/null").c_str()) != 0)
    ADD_FAILURE() << command << "\n" << read_whole_file(log);
}

static void give_to_server(const std::string& path) {
  if (const passwd* user = server_user(); user != nullptr) {
    EXPECT_EQ(chown(path.c_str(), user->pw_uid, user->pw_gid), 0) << path;
  }
}

database_server::database_server(const start_options& options) : options_(options) {
  give_to_server(folder_.path());
  if (options.standby_of == nullptr)
    make_cluster();
  else
    copy_cluster();
  write_settings();
  start();
}

database_server::~database_server() {
  stop(SIGQUIT);
}

static std::string as_server_user() {
  return server_user() == nullptr ? "" : "runuser -u postgres -- ";
}

void database_server::make_cluster() const {
  run_or_fail("cd / && " + as_server_user() + program("initdb") +
              " --no-sync -A trust -U postgres -E UTF8" + " --locale=C -D " + folder_.file("data"));
}

void database_server::copy_cluster() const {
  const database_server& from = *options_.standby_of;
  run_or_fail("cd / && " + as_server_user() + program("pg_basebackup") +
              " --no-sync -c fast -R -U postgres -h " + from.folder_.path() + " -p " +
              std::to_string(from.port_) + " -D " + folder_.file("data"));
}

// The last of those of one name holds.
void database_server::write_settings() const {
  std::ofstream settings(folder_.file("data/postgresql.conf"), std::ios::app);
  settings << "fsync = off\nshared_buffers = 32MB\nmax_connections = 30\n"
           << "unix_socket_directories = '" << folder_.path() << "'\n"
           << "listen_addresses = '" << (options_.has_port ? "127.0.0.1" : "") << "'\n";
  for (const std::string& setting : options_.settings) settings << setting << "\n";
}

std::string database_server::write(const std::string& name, const std::string& content) const {
  const std::string path = folder_.write(name, content);
  give_to_server(path);
  EXPECT_EQ(chmod(path.c_str(), 0600), 0);
  return path;
}

// One that is free now. Another program may take it meanwhile: start() tries again then.
void database_server::choose_port() {
  port_ = loopback_socket().port();
}

bool database_server::is_answering() const {
  return PQping(address().c_str()) == PQPING_OK;
}

void database_server::start() {
  // Processes of a server that was killed may hold its memory up for a while. Its port stays, as
  // others know it.
  const bool is_new = port_ == 0;
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(120);
  while (std::chrono::steady_clock::now() < end) {
    if (is_new) choose_port();
    const std::string port = "port=" + std::to_string(port_);
    const std::string data = folder_.file("data");
    const std::string log = folder_.file("log");
    const passwd* user = server_user();
    const pid_t test = getpid();
    process_ = fork();
    if (process_ == 0) {
      if (user != nullptr && (setgid(user->pw_gid) != 0 || setuid(user->pw_uid) != 0)) _exit(1);
      prctl(PR_SET_PDEATHSIG, SIGQUIT);  // no server is left when the test crashes
      if (getppid() != test) _exit(1);
      if (freopen(log.c_str(), "a", stderr) == nullptr) _exit(1);
      execl(program("postgres").c_str(), "postgres", "-D", data.c_str(), "-c", port.c_str(),
            nullptr);
      _exit(1);
    }
    while (std::chrono::steady_clock::now() < end) {
      if (is_answering()) return;
      if (waitpid(process_, nullptr, WNOHANG) == process_) break;
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
  }
  process_ = 0;
  FAIL() << read_whole_file(folder_.file("log"));
}

void database_server::stop(int signal) {
  if (process_ == 0) return;
  EXPECT_EQ(kill(process_, signal), 0);
  EXPECT_EQ(waitpid(process_, nullptr, 0), process_);
  process_ = 0;
}

static std::string url_escaped(const std::string& text) {
  std::string escaped;
  for (const char character : text) escaped += character == '/' ? "%2F" : std::string(1, character);
  return escaped;
}

std::string database_server::address(const std::string& user, const std::string& database) const {
  return "postgresql://" + user + "@" + url_escaped(folder_.path()) + ":" + std::to_string(port_) +
         "/" + database;
}

engine_options database_server::options(const std::string& user,
                                        const std::string& database) const {
  engine_options options;
  options.address = address(user, database);
  return options;
}

database_session::database_session(const database_server& server, const std::string& user,
                                   const std::string& database)
    : connection_(PQconnectdb(server.address(user, database).c_str()), PQfinish) {
  PQsetNoticeProcessor(
      connection_.get(), [](void*, const char*) {}, nullptr);
}

std::string database_session::sql(const std::string& statements) const {
  const std::unique_ptr<PGresult, decltype(&PQclear)> result(
      PQexec(connection_.get(), statements.c_str()), PQclear);
  if (PQresultStatus(result.get()) != PGRES_TUPLES_OK &&
      PQresultStatus(result.get()) != PGRES_COMMAND_OK) {
    const std::string text = PQerrorMessage(connection_.get());
    return text.substr(0, text.find('\n'));
  }
  std::string text;
  for (int row = 0; row < PQntuples(result.get()); ++row)
    for (int column = 0; column < PQnfields(result.get()); ++column)
      text += std::string(column == 0 ? "" : "|") + PQgetvalue(result.get(), row, column) +
              (column + 1 == PQnfields(result.get()) ? "\n" : "");
  return text;
}

std::string database_server::sql(const std::string& statements, const std::string& user,
                                 const std::string& database) const {
  return database_session(*this, user, database).sql(statements);
}
