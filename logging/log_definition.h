// Entry definitions: the description of one kind of entry.
#ifndef KP_LOG_LOG_DEFINITION_H
#define KP_LOG_LOG_DEFINITION_H

#include <atomic>
#include <memory>
#include <vector>

#include "base/kp_nocopy.h"
#include "base/kp_string.h"
#include "logging/hashed_name.h"
#include "logging/log_util_identity.h"

class _kp_LOG_listed_attributes;

// One declared attribute. Raises KPX_memory_alloc when a text cannot be copied; a setter then
// leaves the old text in place.
class KP_API _kp_LOG_attribute_entry : kp_UTIL_no_inadvertant_copies {
 public:
  // Copies both texts. A null name counts as ""; a null or empty redirection name is none.
  _kp_LOG_attribute_entry(const char* name, const char* redirection, unsigned char type);
  // The same, taking the texts over.
  _kp_LOG_attribute_entry(kp_String&& name, kp_String&& redirection, unsigned char type) noexcept;

  void set_name(const char* name);
  void set_redirection_name(const char* redirection);

  const char* get_name() const noexcept { return name_.c_str(); }
  const kp_String& get_name_string() const noexcept { return name_; }
  const _kp_LOG_name_key& get_name_key() const noexcept { return name_key_; }
  unsigned get_name_chain() const noexcept { return name_chain_; }  // in an entry's store
  const char* get_redirection_name() const noexcept;                // null when there is none
  unsigned char get_type() const noexcept { return type_; }
  unsigned get_name_hash() const noexcept { return name_hash_; }  // my_hashcode of the name

 private:
  friend class _kp_LOG_attribute_list;
  friend class _kp_LOG_global_attributes;
  friend class _kp_LOG_global_change;
  friend class _kp_LOG_listed_attributes;

  kp_String name_;
  kp_String redirection_name_;  // empty: none
  unsigned char type_;          // a kp_AttributeType
  unsigned name_hash_;
  unsigned name_chain_;
  _kp_LOG_name_key name_key_;
  _kp_LOG_listed_attributes* listed_in_ = nullptr;  // where its name is indexed, or null
};

// A message that is chosen by the value of the definition's selector attribute, or by its index.
class KP_API _kp_LOG_selector_message : kp_UTIL_no_inadvertant_copies {
 public:
  // Copies both texts; null stays null. Raises KPX_memory_alloc.
  _kp_LOG_selector_message(unsigned index, unsigned value, const char* msg_id,
                           const char* msg_text);
  // The same, taking the texts over; one without a buffer is null.
  _kp_LOG_selector_message(unsigned index, unsigned value, kp_String&& msg_id,
                           kp_String&& msg_text) noexcept;

  unsigned get_index() const noexcept { return index_; }
  unsigned get_value() const noexcept { return value_; }
  const char* get_msg_id() const noexcept;    // null when there is none
  const char* get_msg_text() const noexcept;  // null when there is none
  // Tells its ID and text from those of any other message.
  uint64_t identity() const noexcept { return identity_.number(); }

 private:
  unsigned index_;
  unsigned value_;
  kp_String msg_id_;    // without a buffer: none
  kp_String msg_text_;  // without a buffer: none
  kp_log_identity identity_;
};

// At most 255 attributes in the order in which they were added, with an index of their names. Owns
// the attributes.
//
// One thread changes a list at a time. While it only appends, any number of others may look up
// without a lock: each sees the list with the new attribute or without it. Arrays that appending
// has outgrown are kept for them until the list is cleared. Removing and clearing need the list
// alone.
//
// Has no destructor, so that a list may be a static object: its owner clears it.
class KP_API _kp_LOG_attribute_list : kp_UTIL_no_inadvertant_copies {
 public:
  constexpr _kp_LOG_attribute_list() noexcept = default;

  unsigned char size() const noexcept;
  _kp_LOG_attribute_entry* at(
      unsigned char i) const noexcept;  // null when `i` is not below the size
  // The first attribute with that name, or null.
  _kp_LOG_attribute_entry* find(const _kp_LOG_name_key& name) const noexcept;
  // Another number when a name that was found is found no longer, or finds another attribute; what
  // is appended finds none of those. 0 while there is none.
  uint64_t identity() const noexcept;
  // The array of all attributes, null while there is none. Valid until the list changes.
  _kp_LOG_attribute_entry** entries() const noexcept;

  // Makes room for `count` attributes, at most 255, in all. Raises KPX_memory_alloc.
  void reserve(unsigned count);
  // Adds an attribute at the end. Raises KPX_logging_invalid_definition
  // "<KPX_logging_invalid_definition> The definition file is corrupted." when the list is full and
  // KPX_memory_alloc; the list is then as it was.
  void append(std::unique_ptr<_kp_LOG_attribute_entry>&& entry);
  // Takes exactly that attribute out; later ones move down one place. Null when it is not held.
  std::unique_ptr<_kp_LOG_attribute_entry> take(const _kp_LOG_attribute_entry* entry) noexcept;
  // Destroys every attribute.
  void clear() noexcept;
  // Gives each list what the other one held. Others may look up in this one meanwhile.
  void exchange(_kp_LOG_attribute_list& other) noexcept;
  // Whether a text of one of its attributes was set since that was added.
  bool was_renamed() const noexcept;

 private:
  static void put(_kp_LOG_listed_attributes& listed, _kp_LOG_attribute_entry* entry) noexcept;

  friend class _kp_LOG_declared_attributes;

  std::atomic<_kp_LOG_listed_attributes*> listed_{nullptr};  // null: nothing was ever added
};

// What a log version text says: the number at its very start, 0 without one, and the number behind
// its first ".".
struct _kp_LOG_version_numbers {
  unsigned major_number = 0;
  unsigned minor_number = 0;
  bool has_minor = false;  // whether there is a "."
};

// The description of one kind of entry, filled from definition files by the definition table.
//
// A definition has no lock. Once it is published by the table it is read by all threads; the two
// changes after that, declaring a further attribute and merging an AUX record, are made by the
// table's writer side, one at a time, and harm no reader: a list only grows, and a merge is made in
// a copy whose content then replaces the definition's, which keeps the former one until it dies.
//
// Lifetime: the table and every entry attached to a definition share it by pinning it. A definition
// that nobody has ever pinned belongs to whoever made it.
//
// Counts are 8 bits wide: a 256th attribute, global attribute or selector message raises
// KPX_logging_invalid_definition
// "<KPX_logging_invalid_definition> The definition file is corrupted." before anything changes.
// A failed allocation raises KPX_memory_alloc (no message).
class KP_API _kp_LOG_log_definition : kp_UTIL_no_inadvertant_copies {
 public:
  _kp_LOG_log_definition() noexcept;
  ~_kp_LOG_log_definition();

  unsigned get_entry_id() const noexcept { return entry_id_; }
  unsigned get_second_word() const noexcept { return now().second_word; }
  unsigned get_property_flags() const noexcept { return now().property_flags; }
  const char* get_log_version() const noexcept { return now().log_version; }  // never null
  const _kp_LOG_version_numbers& get_version_numbers() const noexcept {
    return now().version_numbers;
  }
  const char* get_default_msg_id() const noexcept;    // null when never set
  const char* get_default_msg_text() const noexcept;  // null when never set
  // Tells its default ID and text from those of any other message, and from earlier ones.
  uint64_t default_msg_identity() const noexcept { return now().default_msg_identity.number(); }
  unsigned char get_n_attributes() const noexcept { return attributes_.size(); }
  // The attribute whose value chooses the message; null when there is none.
  _kp_LOG_attribute_entry* get_selector_attribute() const noexcept { return now().selector; }
  unsigned char get_n_selector_msgs() const noexcept;
  // The i-th selector message in file order; null when `i` is not below the count.
  _kp_LOG_selector_message* get_selector_msg(unsigned char i) const noexcept;

  void set_entry_id(unsigned id) noexcept {
    entry_id_ = id;
    was_changed_ = true;
  }
  void set_second_word(unsigned word) noexcept { now().second_word = word; }
  void set_property_flags(unsigned flags) noexcept { now().property_flags = flags; }
  // Copies at most 15 bytes; null counts as "".
  void set_log_version(const char* version) noexcept;
  // Replace the owned copy; null: none. On failure the old text stays. The second form takes the
  // text over.
  void set_default_msg_id(const char* id);
  void set_default_msg_text(const char* text);
  void set_default_msg_id(kp_String&& id) noexcept;
  void set_default_msg_text(kp_String&& text) noexcept;

  // Look-ups by name take one probe by the name's words and compare the name found there, however
  // many attributes there are; the first match wins. A null name finds nothing.
  _kp_LOG_attribute_entry* _find_attr_entry_by_name(const char* name) const noexcept;
  // Another number when the name of an own attribute no longer finds that one.
  uint64_t attributes_identity() const noexcept { return attributes_.identity(); }
  // The definition's own attribute, else the global one, else null.
  _kp_LOG_attribute_entry* get_attr_info_by_name(const char* name) const noexcept;
  _kp_LOG_attribute_entry* get_attr_info_by_name(const _kp_LOG_name_key& name) const noexcept;
  // The attribute of that name; true and both values set when found. `redirection` is null for a
  // global attribute.
  bool get_attr_info_by_name(const char* name, unsigned char& type,
                             const char*& redirection) const noexcept;
  // The i-th own attribute. Raises KPX_logging_internal_error
  // "_kp_LOG_log_definition::get_attr_info_by_index()" when `i` is not below the count.
  void get_attr_info_by_index(unsigned char i, const char*& name, unsigned char& type,
                              const char*& redirection) const;

  // Makes the first own attribute of that name the selector attribute; when none has it, nothing
  // changes. A null name counts as "".
  void set_selector_attribute(const char* name) noexcept;
  // The first message with that index or value, in file order; null when there is none.
  _kp_LOG_selector_message* get_selector_msg_by_index(unsigned index) const noexcept;
  _kp_LOG_selector_message* get_selector_msg_by_value(unsigned value) const noexcept;
  // Appends a selector message. The second form takes the message over.
  void add_selector_msg(unsigned index, unsigned value, const char* msg_id, const char* msg_text);
  void add_selector_msg(std::unique_ptr<_kp_LOG_selector_message>&& message);

  // Adds an own attribute at the end. One of the same name, the first of several, is removed first,
  // and stays removed when the addition fails; if it was the selector attribute there is then none,
  // unless `is_selector`.
  // The texts may be those of the attribute that is replaced. A null name counts as "".
  void add_attr_info(const char* name, unsigned char type, bool is_selector,
                     const char* redirection);
  // The same, taking the attribute over.
  void add_attr_info(std::unique_ptr<_kp_LOG_attribute_entry>&& entry, bool is_selector);
  // The same of one that is no selector, unless the name is held already: then it stays the
  // caller's. Whether it was added.
  bool add_new_attr_info(std::unique_ptr<_kp_LOG_attribute_entry>&& entry);
  // Makes room for `count` further own attributes, as far as there may be that many.
  void reserve_attributes(unsigned count);
  // Removes exactly that attribute from the own list, else from the global one; false when neither
  // holds it. Later attributes move down one place. Raises KPX_memory_alloc where a global one
  // stays.
  bool remove_attr_by_ptr(_kp_LOG_attribute_entry* entry);
  // Drops all own attributes and selector messages, and nothing else. The selector attribute stays
  // readable until another one is set or the definition dies.
  void clear_attr_info() noexcept;

  // A copy of its own, with everything that the definition holds now.
  std::unique_ptr<_kp_LOG_log_definition> copy() const;
  // About the bytes that its record takes in a definition file.
  size_t bytes() const noexcept;
  // Takes over what `changed` holds, and keeps what it held itself until it dies: who reads it
  // meanwhile goes on with the one or the other.
  void replace_content(std::unique_ptr<_kp_LOG_log_definition> changed);
  // Another address for each content that it has had. Who asks for several things that belong
  // together, and finds the same address before and behind them, has them of one content.
  const void* content_address() const noexcept { return &now(); }

  // --- Global attributes: valid for every kind of entry, process-wide, without redirection names
  // Any thread may look them up while another one changes them: it sees the list before or after.
  // What a look-up gives is valid in its thread until that looks up again or changes the list.
  // ---
  static _kp_LOG_attribute_entry* _find_global_attr_entry_by_name(const char* name) noexcept;
  static bool get_global_attr_info_by_name(const char* name, unsigned char& type) noexcept;
  // Raises KPX_logging_index_out_of_bound
  // "_kp_LOG_log_definition::get_global_attr_info_by_index()" when `i` is not below the count.
  static void get_global_attr_info_by_index(unsigned char i, const char*& name,
                                            unsigned char& type);
  // Adds at the end; one of the same name is removed first, and stays removed when the addition
  // fails. A null name counts as "".
  static void add_global_attr_info(const char* name, unsigned char type);
  // The same, unless the name is held already; whether it was added.
  static bool add_new_global_attr_info(const char* name, unsigned char type);
  // Raises KPX_memory_alloc, the list staying as it is.
  static bool _remove_global_attr_by_ptr(_kp_LOG_attribute_entry* entry);
  static void clear_global_attr_info() noexcept;

  // The global list as it stands, for reading while nobody changes it.
  static _kp_LOG_attribute_entry** p_global_attr_entries;  // null when empty; owned
  static unsigned char n_global_attr_entries;

  // Sharing: each pin is undone by one unpin, and the last unpin destroys the definition, which
  // must have been made with new. Any thread.
  void _pin() const noexcept { pins_.fetch_add(1, std::memory_order_relaxed); }
  void _unpin() const noexcept;
  // Whether anybody but the caller, who has pinned it, has pinned it as well. Where nobody has,
  // nobody gets to it but through the caller.
  bool _is_shared() const noexcept { return pins_.load(std::memory_order_acquire) > 1; }

 private:
  friend class _kp_LOG_log_definition_tbl;
  friend class _kp_LOG_declared_attributes;

  // What a merge replaces as a whole, beside the attributes.
  struct content {
    unsigned second_word = 0;
    unsigned property_flags = 0;
    char log_version[16] = {};
    _kp_LOG_version_numbers version_numbers;  // of log_version
    kp_String default_msg_id;                 // without a buffer: none
    kp_String default_msg_text;               // without a buffer: none
    kp_log_identity default_msg_identity;
    _kp_LOG_attribute_entry* selector = nullptr;  // one of the list, or the parked one
    // The selector attribute of a list that was cleared. It stays alive, so that nothing else comes
    // to stand at its address and is taken for the selector.
    std::unique_ptr<_kp_LOG_attribute_entry> parked_selector;
    std::vector<std::unique_ptr<_kp_LOG_selector_message>> selector_msgs;
  };

  const content& now() const noexcept { return *content_.load(std::memory_order_acquire); }
  // For whoever changes it.
  content& now() noexcept {
    was_changed_ = true;
    return *content_.load(std::memory_order_acquire);
  }
  // Whether it is no longer what the table has made of its record and of the declarations.
  bool was_changed() const noexcept { return was_changed_ || attributes_.was_renamed(); }

  void set_selector(_kp_LOG_attribute_entry* entry) noexcept;
  std::unique_ptr<_kp_LOG_attribute_entry> take_attribute(_kp_LOG_attribute_entry* entry) noexcept;
  void append_attribute(std::unique_ptr<_kp_LOG_attribute_entry>&& entry, bool is_selector);
  void copy_attributes_to(_kp_LOG_log_definition& other) const;

  mutable std::atomic<unsigned> pins_{0};
  unsigned entry_id_ = 0;
  _kp_LOG_attribute_list attributes_;
  content first_content_;
  std::atomic<content*> content_{&first_content_};  // its own, or that of a former one
  // What it held before each merge; their content is what it holds now.
  std::vector<std::unique_ptr<_kp_LOG_log_definition>> former_;
  _kp_LOG_log_definition* next_living_ = nullptr;  // the table's
  bool was_changed_ = false;                       // since the table said that it was not
};

// A share of a definition. One object is used by one thread at a time.
class _kp_LOG_definition_ref {
 public:
  _kp_LOG_definition_ref() noexcept = default;
  explicit _kp_LOG_definition_ref(const _kp_LOG_log_definition* d) noexcept : definition_(d) {
    if (definition_ != nullptr) definition_->_pin();
  }
  _kp_LOG_definition_ref(const _kp_LOG_definition_ref& other) noexcept
      : _kp_LOG_definition_ref(other.definition_) {}
  _kp_LOG_definition_ref(_kp_LOG_definition_ref&& other) noexcept : definition_(other.definition_) {
    other.definition_ = nullptr;
  }
  _kp_LOG_definition_ref& operator=(_kp_LOG_definition_ref other) noexcept {
    const _kp_LOG_log_definition* mine = definition_;
    definition_ = other.definition_;
    other.definition_ = mine;
    return *this;
  }
  ~_kp_LOG_definition_ref() {
    if (definition_ != nullptr) definition_->_unpin();
  }

  const _kp_LOG_log_definition* get() const noexcept { return definition_; }
  const _kp_LOG_log_definition* operator->() const noexcept { return definition_; }
  explicit operator bool() const noexcept { return definition_ != nullptr; }

 private:
  const _kp_LOG_log_definition* definition_ = nullptr;
};

#endif
