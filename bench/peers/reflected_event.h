// An event as a message of Protocol Buffers whose kind is known at run time alone: its attributes
// are found by name and set through reflection.
#ifndef BENCH_PEERS_REFLECTED_EVENT_H
#define BENCH_PEERS_REFLECTED_EVENT_H

#include <google/protobuf/message.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

struct peer_reflected_attribute {
  std::string name;
  google::protobuf::FieldDescriptor::CppType type;
};

// A kind of event with these attributes.
class peer_reflected_kind {
 public:
  explicit peer_reflected_kind(const std::vector<peer_reflected_attribute>& attributes);
  ~peer_reflected_kind();

  const google::protobuf::Message& empty_event() const { return *empty_event_; }

 private:
  struct parts;
  std::unique_ptr<parts> parts_;
  const google::protobuf::Message* empty_event_;
};

class peer_reflected_event {
 public:
  explicit peer_reflected_event(const peer_reflected_kind& kind)
      : message_(kind.empty_event().New()), made_at_(std::chrono::system_clock::now()) {}

  // Raise where the kind has no attribute of that name and type, or the text is too long.
  void add(const std::string& name, std::string_view text);
  void add(const std::string& name, uint32_t value);
  void add(const std::string& name, int32_t value);
  void add(const std::string& name, double value);

 private:
  const google::protobuf::FieldDescriptor* field(
      const std::string& name, google::protobuf::FieldDescriptor::CppType type) const;

  std::unique_ptr<google::protobuf::Message> message_;
  std::chrono::system_clock::time_point made_at_;
};

#endif
