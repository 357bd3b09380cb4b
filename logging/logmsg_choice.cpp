#include "logging/logmsg_choice.h"

#include "kp_LOG_errors.h"
#include "logging/logentry_i.h"
#include "logging/logmsg.h"
#include "logging/raise.h"

static unsigned value_of_selector(const _kp_LOG_log_entry_imp& entry,
                                  const _kp_LOG_attribute_entry& selector) {
  switch (selector.get_type()) {
    case TypeUInt1:
      return entry.get_attrib_1u(selector.get_name());
    case TypeUInt2:
      return entry.get_attrib_2u(selector.get_name());
    default:
      return entry.get_attrib_4u(selector.get_name());
  }
}

static const _kp_LOG_selector_message& message_by_index(const _kp_LOG_log_definition& definition,
                                                        unsigned index) {
  const _kp_LOG_selector_message* message = definition.get_selector_msg_by_index(index);
  if (message == nullptr) {
    kp_log_raise<KPX_logging_invalid_message_string>(
        "<KPX_logging_invalid_message_string> Invalid selector message index specified.");
  }
  return *message;
}

// Null stands for the default message.
static const _kp_LOG_selector_message* message_by_value(const _kp_LOG_log_entry_imp& entry,
                                                        const _kp_LOG_log_definition& definition) {
  const _kp_LOG_attribute_entry* selector = definition.get_selector_attribute();
  if (selector == nullptr || !entry._holds(selector->get_name())) return nullptr;
  return definition.get_selector_msg_by_value(value_of_selector(entry, *selector));
}

static logmsg_choice choose_once(const _kp_LOG_log_entry_imp& entry,
                                 const _kp_LOG_log_definition& definition, bool use_default,
                                 unsigned index) {
  const uint64_t identity = definition.default_msg_identity();
  logmsg_choice choice{definition.get_default_msg_id(), definition.get_default_msg_text(), identity,
                       identity};
  if (use_default) return choice;
  const _kp_LOG_selector_message* message =
      index != 0 ? &message_by_index(definition, index) : message_by_value(entry, definition);
  if (message == nullptr) return choice;
  if (message->get_msg_id() != nullptr) {
    choice.id = message->get_msg_id();
    choice.id_identity = message->identity();
  }
  if (message->get_msg_text() != nullptr) {
    choice.text = message->get_msg_text();
    choice.text_identity = message->identity();
  }
  return choice;
}

// Chosen anew where an AUX file was merged into the definition meanwhile.
logmsg_choice logmsg_choose(const _kp_LOG_log_entry_imp& entry,
                            const _kp_LOG_log_definition* definition, bool use_default,
                            unsigned index) {
  if (definition == nullptr) {
    kp_log_raise<KPX_logging_misc>(
        "_kp_LOG_log_entry_imp::_get_attribute_internal(): entry not initialized");
  }
  for (;;) {
    const void* const content = definition->content_address();
    const logmsg_choice choice = choose_once(entry, *definition, use_default, index);
    if (definition->content_address() == content) return choice;
  }
}

kp_String _kp_LOG_log_message::_get_message_kpString(const _kp_LOG_log_entry_imp& entry,
                                                     const _kp_LOG_log_definition* definition,
                                                     bool use_default, unsigned index) {
  return kp_String(logmsg_choose(entry, definition, use_default, index).text);
}
