// Publishes the lines of a file to JetStream as libnats's own example would: 64 lines a message,
// asynchronously, and waits for all to be acknowledged. What kplog ship is timed beside.
//
// usage: plain_nats URL SUBJECT FILE
#include <nats/nats.h>

#include <cstdio>
#include <fstream>
#include <string>

static constexpr int lines_of_message = 64;
static constexpr int64_t most_pending = 1024;

static bool publish(jsCtx* jetstream, const char* subject, const std::string& lines) {
  natsStatus status = NATS_TIMEOUT;  // which says that too much is on its way
  while (status == NATS_TIMEOUT)
    status =
        js_PublishAsync(jetstream, subject, lines.data(), static_cast<int>(lines.size()), nullptr);
  return status == NATS_OK;
}

static bool publish_all(jsCtx* jetstream, const char* subject, std::ifstream& file) {
  std::string line;
  std::string lines;
  int count = 0;
  while (std::getline(file, line)) {
    (lines += line) += '\n';
    if (++count % lines_of_message != 0) continue;
    if (!publish(jetstream, subject, lines)) return false;
    lines.clear();
  }
  if (!lines.empty() && !publish(jetstream, subject, lines)) return false;
  return js_PublishAsyncComplete(jetstream, nullptr) == NATS_OK;
}

int main(int argc, char** argv) {
  if (argc != 4) return 2;
  natsConnection* connection = nullptr;
  jsCtx* jetstream = nullptr;
  jsOptions options;
  jsOptions_Init(&options);
  options.PublishAsync.MaxPending = most_pending;
  std::ifstream file(argv[3]);
  if (!file || natsConnection_ConnectTo(&connection, argv[1]) != NATS_OK ||
      natsConnection_JetStream(&jetstream, connection, &options) != NATS_OK ||
      !publish_all(jetstream, argv[2], file)) {
    std::fprintf(stderr, "plain_nats: %s\n", nats_GetLastError(nullptr));
    return 1;
  }
  jsCtx_Destroy(jetstream);
  natsConnection_Destroy(connection);
  nats_Close();
  return 0;
}
