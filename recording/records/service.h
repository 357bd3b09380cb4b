// Records from other processes, through a stream socket (docs/service.md).
#ifndef RECORDING_RECORDS_SERVICE_H
#define RECORDING_RECORDS_SERVICE_H

#include <sys/types.h>

#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "recording/files/descriptor.h"
#include "recording/files/shared_file.h"
#include "recording/records/input.h"
#include "recording/records/service_client.h"

// Whether a socket's address has room for the path.
bool is_socket_path(const std::string& path);

// Lets this process open as many files as the system allows it.
void raise_descriptor_limit();

struct service_rules {
  lock_waiting waiting = {};  // for the lock beside the socket, and whether a signal is to be
                              // answered before the next client is read
  std::chrono::seconds idle_line = std::chrono::seconds(60);  // a line's end comes within that
  size_t max_user_clients = 0;  // connections that a user has at a time; 0: half of all there are
  uint64_t max_rate = 0;        // records a second of a user; 0: as many as there are
  std::optional<uint64_t> max_bad = {};  // bad records a minute of a user; nothing: any
  service_client::closing tell_closed = [](const std::string&) {};         // for too many of them
  std::function<std::string()> status = [] { return std::string("{}"); };  // an object of JSON
  // What clients with names are acknowledged by, as long as the service lives; or why they are not.
  client_numbers* numbers = nullptr;
  std::string no_numbers = {};
};

// Of the clients of a service, and what became of them so far.
struct service_figures {
  uint64_t connected = 0;
  uint64_t waiting = 0;   // of these, until they may send more
  uint64_t accepted = 0;  // so far, and those refused among them
  uint64_t refused = 0;   // because the user had too many connections
  uint64_t given_up = 0;  // in the middle of a line
  uint64_t closed = 0;    // for bad records
};

// A stream socket at a path, for its owner and group (mode 0660 whatever the umask). Every client
// sends lines; one that says hello with the first hears what becomes of the others. As many clients
// are served at a time as the process may open files. They are read in turn, a piece each, and cost
// no more than the longest line. The socket's file is removed at the end.
class record_service : public record_input {
 public:
  // Takes over `handed_over`, where that is open: a socket that listens at the path, whose file
  // stays at the end. Else replaces a socket file on which nobody listens any more. Raises
  // file_error. While another service starts at the same path, it waits for the lock beside the
  // socket.
  explicit record_service(std::string path, service_rules rules = {},
                          open_descriptor handed_over = open_descriptor());
  ~record_service() override;
  record_service(const record_service&) = delete;
  record_service& operator=(const record_service&) = delete;

  bool at_end() const override { return false; }
  bool is_lasting() const override { return true; }
  void watch(std::vector<pollfd>& descriptors) const override;
  std::chrono::milliseconds patience() const override;
  void read(std::span<const pollfd> watched, const record_taker& take) override;
  // From here on clients cannot send, and nobody can connect.
  void read_last(const record_taker& take, record_deadline deadline) override;
  std::vector<std::string> unread() const override;

  service_figures figures() const;
  // Answers those that ask how the service is, while nothing else is read. May be called by whoever
  // takes a record.
  void answer_status();

 private:
  using client_time = service_client::clock::time_point;

  void begin_listening();
  void watch_listener(bool is_wanted);
  void serve_ready(const record_taker& take);
  bool serve(service_client& client, uint32_t events, const record_taker& take, uint64_t records);
  void wait_for_rate(service_client& client);
  void serve_waiting(const record_taker& take);
  void serve_waiting(service_user& user, const record_taker& take);
  void leave(service_client& client);
  void give_up_lines(const record_taker& take);
  void read_out(const record_taker& take, record_deadline deadline);
  void accept_clients();
  void admit(open_descriptor accepted);
  service_user& user_of(uint64_t id);
  numbered_client* name(const service_client& who, const service_hello& hello,
                        std::string& refusal) const;
  bool is_accepting() const { return clients_.size() < client_room_; }

  std::string path_;
  service_rules rules_;
  open_descriptor listener_;
  std::optional<ino_t> inode_;  // of the socket's file, where it is the service's own
  open_descriptor wait_;        // an epoll of the listener, told by a null pointer, and all clients
  bool is_listener_watched_ = false;
  std::map<uint64_t, std::unique_ptr<service_client>> clients_;  // by the order of connections
  std::map<uint64_t, service_user> users_;  // by their IDs; those of a machine are not many
  std::vector<char> memory_;  // for the client that is being read, if it has nothing left of before
  size_t client_limit_;       // as many as there are descriptors for
  size_t client_room_;        // less while the system has none left
  uint64_t client_count_ = 0;                         // so far
  uint64_t refused_ = 0, given_up_ = 0, closed_ = 0;  // of these, as the figures tell
  service_client::answering answering_;
  client_time look_at_lines_ = client_time::max();  // when a line may have been given up
  client_time look_at_rates_ = client_time::max();  // when those that wait may send more
};

#endif
