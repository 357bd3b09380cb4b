// The compiled definition file's constants and header. The layout: docs/definition-format.md.
#ifndef KP_LOG_LDF_FORMAT_H
#define KP_LOG_LDF_FORMAT_H

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

#endif
