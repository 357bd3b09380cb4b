// What services, and others, answer those who ask how they are.
#include "tools/emit/status.h"

#include <gmock/gmock.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <cstring>
#include <future>
#include <nlohmann/json.hpp>

#include "recording/files/descriptor.h"
#include "recording/files/file_error.h"
#include "recording/text/escape.h"
#include "recording/text/utf8.h"
#include "tests/support/temp_folder.h"

using nlohmann::json;

class AskedStatus : public testing::Test {
 protected:
  AskedStatus() : listener_(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path_.c_str(), sizeof address.sun_path - 1);
    const auto* const generic = reinterpret_cast<const sockaddr*>(&address);
    EXPECT_EQ(bind(listener_.get(), generic, sizeof address), 0);
    EXPECT_EQ(listen(listener_.get(), 1), 0);
  }

  // What is made of an answer: the status, or why there is none.
  std::string asked(const std::string& answer) {
    const auto service = std::async(std::launch::async, [&] {
      const open_descriptor asking(accept(listener_.get(), nullptr, nullptr));
      std::string_view left = answer;
      write_all(asking.get(), left);
    });
    try {
      return ask_status(path_, std::chrono::minutes(1)).dump();
    } catch (const status_refused& error) {
      return error.what();
    }
  }

  temp_folder folder_;
  std::string path_ = folder_.file("sock");
  open_descriptor listener_;
};

static constexpr const char* unknown = "the service answers what this program does not know";

TEST_F(AskedStatus, IsTheObjectOfTheAnswer) {
  EXPECT_EQ(asked("{\"status\":{\"run\":\"a\"}}\nmore"), R"({"run":"a"})");
  EXPECT_EQ(asked("{\"status\":{}}"), "{}");
}

TEST_F(AskedStatus, SaysWhyThereIsNone) {
  EXPECT_EQ(asked("{\"error\":\"no\\u001b[2J\"}\n"), "no\\x1B[2J");
  EXPECT_EQ(asked(""), "the service does not answer");
  EXPECT_EQ(asked("\n"), "the service does not answer");
  for (const char* answer : {"hello\n", "{}\n", "[]\n", "{\"status\":1}\n", "{\"error\":1}\n",
                             "{\"status\":{\"a\":\"\xFF\"}}\n", "{\"ack\":1}\n"})
    EXPECT_EQ(asked(answer), unknown) << answer;
}

TEST_F(AskedStatus, IsNotDeeperThanServicesTell) {
  const std::string deep = std::string(200000, '[') + std::string(200000, ']');
  EXPECT_LT(asked("{\"status\":{\"a\":" + deep + ",\"b\":1}}\n").size(), 100u);
}

TEST_F(AskedStatus, IsNotWaitedForWithoutEnd) {
  EXPECT_THROW(ask_status(path_, std::chrono::milliseconds(20)), status_refused);
}

TEST_F(AskedStatus, NobodyListensWhereThereIsNoSocket) {
  EXPECT_THROW(ask_status(path_ + "2", std::chrono::minutes(1)), file_error);
  listener_ = open_descriptor();
  EXPECT_THROW(ask_status(path_, std::chrono::minutes(1)), file_error);
}

// Whatever a service says, its status steers no terminal.
TEST_F(AskedStatus, TextIsSafe) {
  const std::string hostile = "\x1b[2J\n\xE2\x80\xAE";
  const json status = {{"run", hostile},
                       {"began", json::array({hostile})},
                       {"failing", {{"since", hostile}, {"text", hostile}}},
                       {"outputs", {{{"to", hostile}, {"bytes", hostile}}}},
                       {"events", {{{"event", hostile}, {"name", hostile}, {"read", 1}}}}};
  const std::string text = status_text(status);
  for (const utf8_character& character : utf8(text))
    EXPECT_TRUE(character.valid &&
                (character.code_point == '\n' || !is_unsafe_on_terminal(character.code_point)));
  EXPECT_EQ(status_text(json::object()),
            "-: process -, since -, now -\n"
            "outputs: nothing was written yet\n");
  EXPECT_THROW(status_text({{"failures", "x"}}), json::exception);
}
