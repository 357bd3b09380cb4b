// A database server of the test's own: in a temporary folder, gone with it.
#ifndef TESTS_ENGINES_POSTGRESQL_DATABASE_SERVER_H
#define TESTS_ENGINES_POSTGRESQL_DATABASE_SERVER_H

#include <libpq-fe.h>
#include <sys/types.h>

#include <memory>
#include <string>
#include <vector>

#include "tests/support/temp_folder.h"
#include "tools/ship/engine.h"

class database_server {
 public:
  // Begins to answer at a socket in its folder, and with `has_port` at a free one of 127.0.0.1.
  // `settings` are of postgresql.conf, `files` are written beside that.
  struct start_options {
    std::vector<std::string> settings = {};
    bool has_port = false;
    const database_server* standby_of = nullptr;  // a copy of that, which follows it
  };
  database_server() : database_server(start_options()) {}
  explicit database_server(const start_options& options);
  ~database_server();
  database_server(const database_server&) = delete;
  database_server& operator=(const database_server&) = delete;

  void start();           // and waits for the first answer
  void stop(int signal);  // and waits for its end: SIGINT, SIGKILL

  // Where it is: by its socket.
  std::string address(const std::string& user = "postgres",
                      const std::string& database = "postgres") const;
  unsigned port() const { return port_; }
  // A file in its folder, which is the server's to read alone.
  std::string write(const std::string& name, const std::string& content) const;
  std::string folder() const { return folder_.path(); }

  engine_options options(const std::string& user = "postgres",
                         const std::string& database = "postgres") const;
  // The first column of the answer's rows, each with a line feed; the user is the server's own.
  // Several columns have a "|" between them. What fails is "ERROR: ...".
  std::string sql(const std::string& statements, const std::string& user = "postgres",
                  const std::string& database = "postgres") const;

 private:
  void make_cluster() const;
  void copy_cluster() const;
  void write_settings() const;
  void choose_port();
  bool is_answering() const;

  start_options options_;
  temp_folder folder_;
  unsigned port_ = 0;
  pid_t process_ = 0;
};

// A connection that stays.
class database_session {
 public:
  explicit database_session(const database_server& server, const std::string& user = "postgres",
                            const std::string& database = "postgres");
  // As that of the server.
  std::string sql(const std::string& statements) const;
  PGconn* get() const { return connection_.get(); }

 private:
  std::unique_ptr<PGconn, decltype(&PQfinish)> connection_;
};

// Runs the command by a shell; fails the test with what it says when its status is not 0.
void run_or_fail(const std::string& command);

#endif
