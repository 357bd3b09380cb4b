// The compiled definition file: big-endian primitives and record readers.
#ifndef KP_LOG_DEF_READ_H
#define KP_LOG_DEF_READ_H

#include <cstdio>

#include "base/kp_string.h"
#include "kp_LOG_AttributeType.h"
#include "logging/ldf_format.h"

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
