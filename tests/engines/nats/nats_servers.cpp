#include "tests/engines/nats/nats_servers.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <optional>
#include <thread>

#include "engines/nats/link.h"
#include "tests/engines/support/loopback_socket.h"

using std::chrono::steady_clock;

static constexpr std::chrono::minutes patience{2};

void nats_eventually(const std::function<void()>& work) {
  std::optional<steady_clock::time_point> failed;
  for (;;) {
    try {
      return work();
    } catch (const engine_error& error) {
      if (!failed) failed = steady_clock::now();
      if (steady_clock::now() - *failed > patience) {
        ADD_FAILURE() << error.what();
        return;
      }
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
  }
}

// Ports that nobody has at the moment.
static std::vector<uint16_t> free_ports(size_t count) {
  const std::vector<loopback_socket> sockets(count);
  std::vector<uint16_t> ports;
  for (const loopback_socket& one : sockets) ports.push_back(one.port());
  return ports;
}

nats_servers::nats_servers(size_t count, const std::string& settings)
    : settings_(settings), servers_(count) {
  constexpr int attempts = 20;  // somebody else may take a port meanwhile
  for (int attempt = 0; attempt < attempts; ++attempt) {
    const std::vector<uint16_t> ports = free_ports(2 * count);
    for (size_t i = 0; i < count; ++i)
      servers_[i] = {.port = ports[2 * i], .route = ports[2 * i + 1], .most_stored = 0};
    for (size_t i = 0; i < count; ++i) start(i);
    bool all = true;
    for (size_t i = 0; i < count; ++i) all = all && is_running(i);
    if (all) return;
    for (size_t i = 0; i < count; ++i) kill(i);
  }
  ADD_FAILURE() << "no server starts: " << log_of(0);
}

nats_servers::~nats_servers() {
  for (size_t i = 0; i < servers_.size(); ++i) kill(i);
}

std::string nats_servers::name_of(size_t server) const {
  return "server" + std::to_string(server);
}

void nats_servers::write_settings(size_t server) const {
  const std::string name = name_of(server);
  std::string text = "listen: \"127.0.0.1:" + std::to_string(servers_[server].port) +
                     "\"\nserver_name: " + name + "\njetstream { store_dir: \"" +
                     folder_.file(name) + "\"";
  if (const size_t most = servers_[server].most_stored; most != 0)
    text += ", max_file_store: " + std::to_string(most);
  text += " }\n";
  if (servers_.size() > 1) {
    text += "cluster {\n  name: kplog\n  listen: \"127.0.0.1:" +
            std::to_string(servers_[server].route) + "\"\n  routes: [\n";
    for (const one_server& one : servers_)
      text += "    \"nats://127.0.0.1:" + std::to_string(one.route) + "\"\n";
    text += "  ]\n}\n";
  }
  folder_.write(name + ".conf", text + settings_);
}

void nats_servers::start(size_t server) {
  write_settings(server);
  const std::string settings = folder_.file(name_of(server) + ".conf");
  const std::string log = folder_.file(name_of(server) + ".log");
  one_server& one = servers_[server];
  one.process = fork();
  if (one.process == 0) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    execlp("nats-server", "nats-server", "-c", settings.c_str(), "-l", log.c_str(), nullptr);
    _exit(127);
  }
  const auto begin = steady_clock::now();
  while (!listens(one) && one.process > 0) {
    if (steady_clock::now() - begin > patience) {
      ADD_FAILURE() << "does not listen: " << log_of(server);
      return;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
}

bool nats_servers::listens(one_server& server) const {
  int status = 0;
  if (waitpid(server.process, &status, WNOHANG) == server.process) server.process = -1;
  return server.process > 0 && is_listened_to(server.port);
}

void nats_servers::signal(size_t server, int number) const {
  if (!is_running(server)) return;
  ::kill(servers_[server].process, number);
  if (number == SIGSTOP) waitpid(servers_[server].process, nullptr, WUNTRACED);
}

void nats_servers::kill(size_t server) {
  if (!is_running(server)) return;
  signal(server, SIGKILL);
  waitpid(servers_[server].process, nullptr, 0);
  servers_[server].process = -1;
}

std::string nats_servers::address() const {
  std::string address = "nats://";
  for (const one_server& server : servers_) {
    if (!address.ends_with('/')) address += ',';
    address += "127.0.0.1:" + std::to_string(server.port);
  }
  return address + "?tls=off";
}

std::string nats_servers::address_of(size_t server) const {
  return "nats://127.0.0.1:" + std::to_string(servers_[server].port) + "?tls=off";
}

engine_options nats_servers::options() const {
  engine_options options;
  options.address = address();
  options.replicas = static_cast<unsigned>(servers_.size());
  return options;
}

size_t nats_servers::leader_of(const std::string& stream) const {
  size_t leader = 0;
  nats_eventually([&] {
    nats_link link(options());
    const auto info = link.stream_info(stream);
    if (!info || info->Cluster == nullptr || info->Cluster->Leader == nullptr)
      throw engine_error("no leader");
    while (leader < servers_.size() && name_of(leader) != info->Cluster->Leader) ++leader;
  });
  return leader;
}

std::string nats_servers::log_of(size_t server) const {
  return read_whole_file(folder_.file(name_of(server) + ".log"));
}

uintmax_t nats_servers::stored_bytes(size_t server, const std::string& stream) const {
  uintmax_t bytes = 0;
  std::error_code gone;
  for (const auto& file : std::filesystem::recursive_directory_iterator(
           folder_.file(name_of(server) + "/jetstream/$G/streams/" + stream)))
    if (file.is_regular_file(gone))
      if (const uintmax_t size = file.file_size(gone); !gone) bytes += size;
  return bytes;
}
