#include "tests/engines/syslog/rsyslog_server.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <sstream>

#include "tests/engines/support/loopback_socket.h"

using nlohmann::json;

rsyslog_server::rsyslog_server(const tls_authority& authority, const tls_identity& identity,
                               const std::string& clients)
    : authority_(authority.file()), identity_(identity), clients_(clients) {
  start();
}

// "record" is a line of JSON; "parsed" the elements of structured data as rsyslog reads them.
std::string rsyslog_server::configuration() const {
  return "global(workDirectory=\"" + folder_.path() +
         "\" maxMessageSize=\"8k\" DefaultNetstreamDriver=\"gtls\" "
         "DefaultNetstreamDriverCAFile=\"" +
         authority_ + "\" DefaultNetstreamDriverCertFile=\"" + identity_.certificate +
         "\" DefaultNetstreamDriverKeyFile=\"" + identity_.key +
         "\")\n"
         "module(load=\"imtcp\" StreamDriver.Name=\"gtls\" StreamDriver.Mode=\"1\" "
         "StreamDriver.AuthMode=\"" +
         clients_ +
         "\")\n"
         "module(load=\"mmpstrucdata\")\n"
         "template(name=\"record\" type=\"list\" option.jsonf=\"on\") {\n"
         "  property(outname=\"pri\" name=\"pri\" format=\"jsonf\")\n"
         "  property(outname=\"time\" name=\"timereported\" dateFormat=\"rfc3339\" "
         "format=\"jsonf\")\n"
         "  property(outname=\"host\" name=\"hostname\" format=\"jsonf\")\n"
         "  property(outname=\"application\" name=\"app-name\" format=\"jsonf\")\n"
         "  property(outname=\"process\" name=\"procid\" format=\"jsonf\")\n"
         "  property(outname=\"kind\" name=\"msgid\" format=\"jsonf\")\n"
         "  property(outname=\"data\" name=\"structured-data\" format=\"jsonf\")\n"
         "  property(outname=\"parsed\" name=\"$!rfc5424-sd\" format=\"jsonf\")\n"
         "  property(outname=\"message\" name=\"msg\" format=\"jsonf\")\n"
         "}\n"
         "input(type=\"imtcp\" address=\"127.0.0.1\" port=\"" +
         std::to_string(port_) + "\" listenPortFileName=\"" + folder_.file("port") +
         "\")\n"
         "action(type=\"mmpstrucdata\")\n"
         "action(type=\"omfile\" file=\"" +
         folder_.file("out") + "\" template=\"record\")\n";
}

// It tells the port in a file where it has chosen one.
void rsyslog_server::start() {
  const std::string configured = folder_.write("rsyslog.conf", configuration());
  process_ = std::make_unique<piped_process>(
      std::vector<std::string>{"rsyslogd", "-n", "-f", configured, "-i", folder_.file("pid")},
      folder_.file("err"));
  EXPECT_TRUE(comes_true([&] {
    if (port_ == 0) port_ = std::atoi(read_whole_file(folder_.file("port")).c_str());
    return !process_->is_alive() || (port_ != 0 && is_listened_to(static_cast<uint16_t>(port_)));
  }));
  EXPECT_TRUE(process_->is_alive()) << read_whole_file(folder_.file("err"));
}

void rsyslog_server::start_again() {
  process_->end();
  std::filesystem::remove(folder_.file("pid"));
  start();
}

std::string rsyslog_server::address(const std::string& query) const {
  return "syslog+tls://localhost:" + std::to_string(port_) + query;
}

std::vector<json> rsyslog_server::messages(size_t least) const {
  std::string lines;
  EXPECT_TRUE(comes_true([&] {
    std::ifstream out(folder_.file("out"), std::ios::binary);
    out.seekg(static_cast<std::streamoff>(lines.size()));
    if (out) lines.append(std::istreambuf_iterator<char>(out), {});
    return static_cast<size_t>(std::count(lines.begin(), lines.end(), '\n')) >= least;
  })) << lines.size();
  std::vector<json> messages;
  std::istringstream in(lines);
  for (std::string line; std::getline(in, line) && !in.eof();) {
    json& message = messages.emplace_back(json::parse(line, nullptr, false));
    message["parsed"] = json::parse(message.value("parsed", "null"), nullptr, false);
  }
  return messages;
}
