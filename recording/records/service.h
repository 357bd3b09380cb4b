// Records from other processes, through a stream socket (docs/service.md).
#ifndef RECORDING_RECORDS_SERVICE_H
#define RECORDING_RECORDS_SERVICE_H

#include <sys/types.h>

#include <functional>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "recording/files/descriptor.h"
#include "recording/files/shared_file.h"
#include "recording/records/input.h"

constexpr size_t record_client_limit = 64;  // clients that are served at a time; others wait

// Whether a socket's address has room for the path.
bool is_socket_path(const std::string& path);

// A stream socket at a path, for its owner and group (mode 0660 whatever the umask). Every client
// sends lines; they are numbered for each client. Clients are read in turn, a piece each, and cost
// no more than the longest line. The socket's file is removed at the end.
class record_service : public record_input {
 public:
  // Replaces a socket file on which nobody listens any more. Raises file_error.
  // While another service starts at the same path, it waits for the lock beside the socket.
  explicit record_service(std::string path, const lock_waiting& waiting = {});
  ~record_service() override;
  record_service(const record_service&) = delete;
  record_service& operator=(const record_service&) = delete;

  bool at_end() const override { return false; }
  bool is_lasting() const override { return true; }
  void watch(std::vector<pollfd>& descriptors) const override;
  void read(std::span<const pollfd> watched, const record_taker& take) override;
  // From here on clients cannot send, and nobody can connect.
  void read_last(const record_taker& take, record_deadline deadline) override;
  std::vector<std::string> unread() const override;

 private:
  struct client;

  void read_out(const record_taker& take, record_deadline deadline);
  void accept_clients();
  bool is_accepting() const { return clients_.size() < client_room_; }

  std::string path_;
  std::function<bool()> is_to_end_;  // a signal waits to be answered; may be empty
  open_descriptor listener_;
  ino_t inode_ = 0;  // of the socket's file
  std::vector<std::unique_ptr<client>> clients_;
  size_t client_limit_;        // record_client_limit, or less where the process may open few files
  size_t client_room_;         // less while the system has no descriptors left
  uint64_t client_count_ = 0;  // so far
};

#endif
