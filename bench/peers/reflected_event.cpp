#include "bench/peers/reflected_event.h"

#include <google/protobuf/descriptor.pb.h>
#include <google/protobuf/dynamic_message.h>

#include <stdexcept>

using google::protobuf::FieldDescriptor;

constexpr size_t longest_text = 64;

struct peer_reflected_kind::parts {
  google::protobuf::DescriptorPool pool;
  google::protobuf::DynamicMessageFactory factory;
};

static google::protobuf::FieldDescriptorProto::Type written_type(FieldDescriptor::CppType type) {
  switch (type) {
    case FieldDescriptor::CPPTYPE_STRING:
      return google::protobuf::FieldDescriptorProto::TYPE_BYTES;
    case FieldDescriptor::CPPTYPE_UINT32:
      return google::protobuf::FieldDescriptorProto::TYPE_UINT32;
    case FieldDescriptor::CPPTYPE_INT32:
      return google::protobuf::FieldDescriptorProto::TYPE_INT32;
    default:
      return google::protobuf::FieldDescriptorProto::TYPE_DOUBLE;
  }
}

peer_reflected_kind::peer_reflected_kind(const std::vector<peer_reflected_attribute>& attributes)
    : parts_(std::make_unique<parts>()) {
  google::protobuf::FileDescriptorProto file;
  file.set_name("event.proto");
  google::protobuf::DescriptorProto& event = *file.add_message_type();
  event.set_name("event");
  for (const peer_reflected_attribute& attribute : attributes) {
    google::protobuf::FieldDescriptorProto& written = *event.add_field();
    written.set_name(attribute.name);
    written.set_number(event.field_size());
    written.set_label(google::protobuf::FieldDescriptorProto::LABEL_OPTIONAL);
    written.set_type(written_type(attribute.type));
  }
  empty_event_ = parts_->factory.GetPrototype(parts_->pool.BuildFile(file)->message_type(0));
}

peer_reflected_kind::~peer_reflected_kind() = default;

const FieldDescriptor* peer_reflected_event::field(const std::string& name,
                                                   FieldDescriptor::CppType type) const {
  const FieldDescriptor* const found = message_->GetDescriptor()->FindFieldByName(name);
  if (found == nullptr) throw std::invalid_argument("not declared");
  if (found->cpp_type() != type) throw std::invalid_argument("another type");
  return found;
}

void peer_reflected_event::add(const std::string& name, std::string_view text) {
  const FieldDescriptor* const found = field(name, FieldDescriptor::CPPTYPE_STRING);
  if (text.size() > longest_text) throw std::length_error("too long");
  message_->GetReflection()->SetString(message_.get(), found, std::string(text));
}

void peer_reflected_event::add(const std::string& name, uint32_t value) {
  message_->GetReflection()->SetUInt32(message_.get(), field(name, FieldDescriptor::CPPTYPE_UINT32),
                                       value);
}

void peer_reflected_event::add(const std::string& name, int32_t value) {
  message_->GetReflection()->SetInt32(message_.get(), field(name, FieldDescriptor::CPPTYPE_INT32),
                                      value);
}

void peer_reflected_event::add(const std::string& name, double value) {
  message_->GetReflection()->SetDouble(message_.get(), field(name, FieldDescriptor::CPPTYPE_DOUBLE),
                                       value);
}
