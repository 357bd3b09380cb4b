// The compiled definition file: its byte layout, big-endian primitives and record readers.
// The layout is described in docs/definition-format.md.
#ifndef KP_LOG_DEF_READ_H
#define KP_LOG_DEF_READ_H

#include <cstdio>

#include "base/kp_string.h"
#include "kp_LOG_AttributeType.h"

constexpr unsigned kp_ldf_magic = 0x2E4C4446;  // the bytes ".LDF"
constexpr unsigned kp_ldf_header_size = 128;   // bytes
constexpr unsigned kp_ldf_version_size = 8;    // bytes of the header's log version text
constexpr unsigned kp_ldf_mapping_size = 8;    // bytes of a mapping record
constexpr unsigned kp_ldf_length_size = 4;     // bytes before those of a string
constexpr unsigned kp_ldf_max_count = 255;     // attributes, global attributes, selector messages

// The header at offset 0. Fields named word... or words... are read and not interpreted.
struct _kp_LOG_ldf_header_struct {
  unsigned magic;                         // offset 0: kp_ldf_magic
  unsigned raw_word;                      // 4: as it stands in the file, no byte order
  unsigned word2;                         // 8
  unsigned word3;                         // 12
  char log_version[kp_ldf_version_size];  // 16: NUL-padded, not terminated when full
  unsigned words16[4];                    // 24
  unsigned n_global_attributes;           // 40
  unsigned global_attributes_offset;      // 44
  unsigned n_entries;                     // 48: records of the mapping table
  unsigned word52;                        // 52
  unsigned mapping_offset;                // 56
  unsigned words60[17];                   // 60
};

// Primitives. Each returns true only when the full count of bytes was transferred. A failed 2- or
// 4-byte read leaves the value unchanged; a failed chunk read may have filled part of the buffer.
KP_API bool kp_be_read_int1(FILE* stream, unsigned char* value);
KP_API bool kp_be_read_int2(FILE* stream, unsigned short* value);
KP_API bool kp_be_read_int4(FILE* stream, unsigned* value);
KP_API bool kp_read_data_chunk(FILE* stream, void* bytes, unsigned n);
KP_API bool kp_be_write_int1(FILE* stream, unsigned char* value);
KP_API bool kp_be_write_int2(FILE* stream, unsigned short* value);
KP_API bool kp_be_write_int4(FILE* stream, unsigned* value);
KP_API bool kp_write_data_chunk(FILE* stream, void* bytes, unsigned n);

// Record readers. Each reads at the stream's position, leaves it behind what it read, and returns
// false at the first item that fails; items before that one keep their new values. None raises: a
// failed allocation is false as well. A string whose length goes beyond the file's end is refused
// before anything of that size is allocated.
KP_API bool _kp_LOG_read_file_header(FILE* stream, _kp_LOG_ldf_header_struct& header);
KP_API bool _kp_LOG_read_string(FILE* stream, kp_String& text);
KP_API bool _kp_LOG_read_property_flag(FILE* stream, kp_String& name, unsigned& flag);
KP_API bool _kp_LOG_read_attribute(FILE* stream, kp_String& name, kp_AttributeType& type,
                                   kp_String& redirection);
// The entry record up to and including the name of the selector attribute.
KP_API bool _kp_LOG_read_entry_info(FILE* stream, unsigned& id, unsigned& word2,
                                    unsigned& property_flags, kp_String& default_msg_id,
                                    kp_String& default_msg_text, kp_String& selector_attribute);
KP_API bool _kp_LOG_read_selector_msg(FILE* stream, unsigned& index, unsigned& value,
                                      kp_String& msg_id, kp_String& msg_text);
KP_API bool _kp_LOG_read_entry_id_offset_mapping(FILE* stream, unsigned& id, unsigned& offset);

// The hash of an attribute name: KP_text_hash of the whole text. Stored hashes are compared with
// hashes of looked-up names. Null hashes like "".
KP_API unsigned my_hashcode(const char* text);

#endif
