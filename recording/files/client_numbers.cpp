#include "recording/files/client_numbers.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <random>
#include <utility>

#include "base/kp_clib.h"
#include "recording/files/file_error.h"
#include "recording/text/number.h"

static constexpr const char* numbers_action = "keep the clients' numbers in";

// Which of a ring's outputs stands for all of a service's.
static constexpr unsigned joint_output = 0;

static constexpr int64_t seconds_between_looks = 3600;

// As it lies in the file, behind a start that takes as much room. A slot is written within one
// sector of a disk.
struct client_slot {
  char name[256];  // zeros behind it; none: the slot is free
  uint64_t user;
  int64_t seen;
  numbered_client::written_number numbers[2];
  char unused[208];
};
static constexpr size_t slot_size = 512;
static_assert(sizeof(client_slot) == slot_size && sizeof(ring_start) <= slot_size);

static size_t offset_of(size_t slot) {
  return (slot + 1) * slot_size;
}

static constexpr int making_flags =
    O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY;
static constexpr mode_t numbers_mode = S_IRUSR | S_IWUSR;

template <class Value>
static std::string_view bytes_of(const Value& value) {
  return {reinterpret_cast<const char*>(&value), sizeof value};
}

static client_slot slot_of(const numbered_client& client) {
  client_slot slot{};
  client.name.copy(slot.name, client_numbers::longest_name);
  slot.user = client.user;
  slot.seen = client.seen;
  std::copy(client.in_file.begin(), client.in_file.end(), slot.numbers);
  return slot;
}

// --- The file ---

void client_numbers::fail(const char* what) const {
  raise_write_error(numbers_action, path_, what);
}

static void set_up_start(ring_start& start) {
  std::random_device random;
  std::string identity;
  for (int part = 0; part < 4; ++part) identity += hexadecimal(random(), 8);
  start = {};
  ring_start::begin.copy(start.mark, sizeof start.mark);
  identity.copy(start.recorder, sizeof start.recorder);
}

client_numbers::client_numbers(std::string path, open_descriptor file, clock now)
    : path_(std::move(path)),
      file_(std::move(file)),
      now_(now ? std::move(now) : clock([] { return int64_t{time(nullptr)}; })) {
  read();
  own_rings::add(&start_, path_);
}

std::unique_ptr<client_numbers> client_numbers::open(const std::string& path, clock now) {
  open_descriptor file(KP_open(path.c_str(), making_flags, numbers_mode));
  struct stat status {};
  if (!file.is_open() || KP_fstat(file.get(), &status) != 0)
    raise_write_error(numbers_action, path);
  check_written_file(numbers_action, path, status);
  if (status.st_uid != geteuid()) raise_write_error(numbers_action, path, "it is another user's");
  if (KP_flock(file.get(), LOCK_EX | LOCK_NB) != 0) {
    if (errno == EWOULDBLOCK) return nullptr;
    raise_write_error(numbers_action, path);
  }
  static_cast<void>(KP_fchmod(file.get(), numbers_mode));
  const std::string whole = std::filesystem::absolute(path).lexically_normal().string();
  return std::unique_ptr<client_numbers>(
      new client_numbers(whole, std::move(file), std::move(now)));
}

void client_numbers::write(std::string_view bytes, size_t offset) const {
  if (!write_all_at(file_.get(), bytes, static_cast<off_t>(offset)))
    raise_write_error(numbers_action, path_);
}

// --- Its place ---

void client_numbers::keep_place() {
  struct stat own {};
  struct stat there {};
  if (KP_fstat(file_.get(), &own) != 0) raise_write_error(numbers_action, path_);
  if (KP_stat(path_.c_str(), &there) != 0) {
    if (errno != ENOENT) raise_write_error(numbers_action, path_);
    return put_back();
  }
  if (own.st_dev != there.st_dev || own.st_ino != there.st_ino)
    fail("another file is in its place");
  keep_whole();
}

bool client_numbers::is_whole() const {
  struct stat status {};
  return KP_fstat(file_.get(), &status) == 0 &&
         status.st_size >= static_cast<off_t>(offset_of(slots_));
}

// Before anything is written behind the end of what somebody has cut short.
void client_numbers::keep_whole() const {
  if (!is_whole()) write(whole_file(), 0);
}

std::string client_numbers::whole_file() const {
  std::string whole(offset_of(slots_), '\0');
  whole.replace(0, sizeof start_, bytes_of(start_));
  for (const auto& [name, client] : clients_) {
    const client_slot slot = slot_of(*client);
    whole.replace(offset_of(client->slot), slot_size, bytes_of(slot));
  }
  return whole;
}

// All of it by one write: whoever finds the file finds it whole.
void client_numbers::put_back() {
  open_descriptor file(KP_open(path_.c_str(), making_flags | O_EXCL, numbers_mode));
  if (!file.is_open() || KP_flock(file.get(), LOCK_EX | LOCK_NB) != 0)
    raise_write_error(numbers_action, path_);
  static_cast<void>(KP_fchmod(file.get(), numbers_mode));
  if (!write_all_at(file.get(), whole_file(), 0)) {
    const int error = errno;
    KP_unlink(path_.c_str());
    errno = error;
    raise_write_error(numbers_action, path_);
  }
  file_ = std::move(file);
}

// --- What it says ---

// What a process that died has begun of a slot, or of the start, is not there.
void client_numbers::read() {
  const std::string start = read_part(file_.get(), 0, slot_size, numbers_action, path_);
  const std::string_view mark = ring_start::begin;
  if (start.substr(0, mark.size()) != mark.substr(0, start.size())) fail("it is something else");
  if (start.size() < slot_size) {
    set_up_start(start_);
    std::string whole(bytes_of(start_));
    whole.resize(slot_size);
    write(whole, 0);
    return;
  }
  std::memcpy(&start_, start.data(), sizeof start_);
  static constexpr size_t slots_at_once = 128;
  for (std::string bytes;;) {
    bytes =
        read_part(file_.get(), offset_of(slots_), slots_at_once * slot_size, numbers_action, path_);
    if (bytes.size() < slot_size) break;
    for (size_t at = 0; at + slot_size <= bytes.size(); at += slot_size)
      read_slot(slots_++, std::string_view(bytes).substr(at, slot_size));
  }
}

// A number of a batch that was never stored must not hold once another batch has its number.
void client_numbers::read_slot(size_t slot, std::string_view bytes) {
  client_slot read{};
  std::memcpy(&read, bytes.data(), sizeof read);
  const uint64_t stored = start_.delivered[joint_output];
  const std::string name(read.name, strnlen(read.name, sizeof read.name));
  if (name.empty() || name.size() > longest_name || clients_.contains(name)) {
    free_slots_.push_back(slot);
    return;
  }
  auto client = std::make_unique<numbered_client>();
  client->name = name;
  client->user = read.user;
  client->seen = read.seen;
  client->slot = slot;
  for (size_t at = 0; at < client->in_file.size(); ++at) {
    numbered_client::written_number& number = client->in_file[at];
    number = read.numbers[at];
    if (number.batch <= stored) continue;
    number = {};
    write(bytes_of(number), offset_of(slot) + offsetof(client_slot, numbers) + at * sizeof number);
  }
  client->holding = client->in_file[0].batch >= client->in_file[1].batch ? 0 : 1;
  client->written = client->in_file[client->holding].number;
  client->taken = client->written;
  ++user_clients_[client->user];
  clients_.emplace(name, std::move(client));
}

// --- Names ---

bool client_numbers::is_forgotten(const numbered_client& client) const {
  return client.hearing == nullptr && client.taken == client.written &&
         now_() - client.seen > remembered;
}

// A slot is free in the file before another name can have it.
void client_numbers::forget_unseen() {
  forgot_ = now_();
  for (auto next = clients_.begin(); next != clients_.end();) {
    const auto one = next++;
    if (!is_forgotten(*one->second)) continue;
    const client_slot none{};
    write(bytes_of(none), offset_of(one->second->slot));
    free_slots_.push_back(one->second->slot);
    --user_clients_[one->second->user];
    clients_.erase(one);
  }
}

numbered_client* client_numbers::find(const std::string& name, uint64_t user,
                                      std::string& refusal) {
  keep_whole();
  if (now_() - forgot_ >= seconds_between_looks || now_() < forgot_) forget_unseen();
  const auto found = clients_.find(name);
  if (found == clients_.end()) {
    const auto own = user_clients_.find(user);
    const bool has_too_many = own != user_clients_.end() && own->second >= most_clients / 2;
    if (!has_too_many && clients_.size() < most_clients) return &add(name, user);
    refusal = "there are too many clients' names";
    return nullptr;
  }
  numbered_client& client = *found->second;
  if (client.user != user) {
    refusal = "the name is another user's";
    return nullptr;
  }
  see(client);
  return &client;
}

numbered_client& client_numbers::add(const std::string& name, uint64_t user) {
  auto client = std::make_unique<numbered_client>();
  client->name = name;
  client->user = user;
  client->seen = now_();
  client->slot = free_slots_.empty() ? slots_ : free_slots_.back();
  const client_slot slot = slot_of(*client);
  write(bytes_of(slot), offset_of(client->slot));
  if (free_slots_.empty())
    ++slots_;
  else
    free_slots_.pop_back();
  numbered_client& added = *client;
  clients_.emplace(name, std::move(client));
  ++user_clients_[user];
  return added;
}

void client_numbers::see(numbered_client& client) noexcept {
  client.seen = now_();
  if (!is_whole()) return;
  static_cast<void>(
      write_all_at(file_.get(), bytes_of(client.seen),
                   static_cast<off_t>(offset_of(client.slot) + offsetof(client_slot, seen))));
}

// --- Batches ---

delivery client_numbers::next_batch() {
  keep_place();
  const uint64_t batch = start_.delivered[joint_output] + 1;
  return {&start_, path_, joint_output, batch, batch};
}

void client_numbers::synchronize() const {
  if (KP_fdatasync(file_.get()) != 0) raise_write_error(numbers_action, path_);
}

void client_numbers::write_number(numbered_client& client, uint64_t number) {
  const size_t at = 1 - client.holding;
  client.in_file[at] = {start_.delivered[joint_output] + 1, number};
  write(bytes_of(client.in_file[at]),
        offset_of(client.slot) + offsetof(client_slot, numbers) + at * sizeof client.in_file[at]);
}

void client_numbers::write_batch(uint64_t batch) const {
  write(bytes_of(batch), offsetof(ring_start, delivered) + joint_output * sizeof batch);
}

// False where the file goes on to tell that the batch is there.
bool client_numbers::take_batch_back() const {
  try {
    write_batch(start_.delivered[joint_output]);
    return true;
  } catch (const file_error&) {
    return false;
  }
}

// The numbers hold from the moment on at which the batch's own is in the file.
void client_numbers::store(const client_progress& progress, bool synced) {
  keep_whole();
  for (const auto& [client, number] : progress) write_number(*client, number);
  if (synced) synchronize();
  const uint64_t batch = start_.delivered[joint_output] + 1;
  write_batch(batch);
  try {
    if (synced) synchronize();
  } catch (const file_error&) {
    if (take_batch_back()) throw;
  }
  start_.set_delivered(joint_output, batch);
  for (const auto& [client, number] : progress) {
    client->holding = 1 - client->holding;
    client->written = number;
    client->taken = std::max(client->taken, number);
  }
}
