// A server of keys and values on the loopback interface, which logs what it does.
#include <asio/io_context.hpp>
#include <asio/post.hpp>
#include <asio/signal_set.hpp>
#include <asio/thread_pool.hpp>
#include <csignal>
#include <iostream>
#include <thread>

#include "session.h"

// Serves many clients at once, each by a thread, until it gets SIGINT or SIGTERM.
class server {
 public:
  server(std::uint16_t port, kp_LOG_Recorder& log)
      : door_(io_, {asio::ip::address_v4::loopback(), port}), log_(log) {}

  void run() {
    log_.Record(events::SERVER_STARTED{.ADDRESS = text_of(door_.local_endpoint())});
    int signal = 0;
    endings_.async_wait([&](std::error_code, int number) {
      signal = number;
      io_.stop();
    });
    accept();
    std::cout << "listening on " << door_.local_endpoint() << std::endl;
    io_.run();
    stop_.request_stop();
    threads_.join();
    log_.Record(events::SERVER_STOPPED{.SIGNAL = static_cast<events::SIGNAL>(signal),
                                       .KEYS = store_.size()});
  }

 private:
  void accept() {
    door_.async_accept([this](std::error_code error, session::socket client) {
      if (error) {
        log_.Record(events::SERVER_FAILED{.ERROR = error.message()});
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
      } else {
        asio::post(threads_, [this, client = std::move(client)]() mutable {
          session(std::move(client), store_, log_).serve(stop_.get_token());
        });
      }
      accept();
    });
  }

  asio::io_context io_;
  asio::signal_set endings_{io_, SIGINT, SIGTERM};
  asio::ip::tcp::acceptor door_;
  key_store store_;
  kp_LOG_Recorder& log_;
  std::stop_source stop_;
  asio::thread_pool threads_{64};
};

int main(int count, char** arguments) try {
  const auto port = count > 1 ? number_of(arguments[1]) : std::nullopt;
  if (count < 4 || count > 5 || !port || *port < 0 || *port > 65535) {
    std::cerr << "usage: key_value_server PORT LOGS SETTINGS [LOCALE]\n";
    return 2;
  }
  const std::string logs = arguments[2];
  kp_LOG_Recorder log({.definitions = KEY_VALUE_EVENTS ".ldf",
                       .catalog = KEY_VALUE_EVENTS "_catalog",
                       .locale = count > 4 ? arguments[4] : "en",
                       .text = logs + "/server",
                       .json = logs + "/server.jsonl",
                       .count = logs + "/server",
                       .settings = arguments[3],
                       .section = "server",
                       .on_fault = [](kp_LOG_RecorderFault, const std::string& text) {
                         std::cerr << "key_value_server: " << text << '\n';
                       }});
  server(static_cast<std::uint16_t>(*port), log).run();
} catch (const std::exception& error) {
  std::cerr << "key_value_server: " << error.what() << '\n';
  return 1;
}
