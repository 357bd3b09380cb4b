// Kits: the definitions and catalogs that records are shown by, as one text that travels.
//
//   {"kplog_kit":1,"files":[{"use":"definitions","name":"events.ldf","size":1234},...]}
//   and behind that line the bytes of the files, one after the other
#ifndef TOOLS_SHIP_KIT_H
#define TOOLS_SHIP_KIT_H

#include <cstdint>
#include <string>
#include <vector>

#include "recording/files/descriptor.h"
#include "recording/records/event_set.h"
#include "tools/ship/shipped_record.h"

// No kit has more bytes.
inline constexpr size_t longest_kit = size_t{256} << 20;

// Of the compiled sets, the last of which is that of records of no known version, and of all that
// the options name beside these. The same files make the same kit. Raises file_error, and
// std::invalid_argument for what is too large.
record_kit make_kit(const std::vector<std::string>& definitions, const event_set_options& options);

// Files of kits in a folder of their own, which goes with it; that of a run that was killed goes
// with the next one of its user.
class kit_folder {
 public:
  // Raises file_error.
  kit_folder();
  ~kit_folder();
  kit_folder(const kit_folder&) = delete;
  kit_folder& operator=(const kit_folder&) = delete;

  // Where the files of a kit lie.
  struct unpacked {
    std::vector<std::string> definitions = {};
    std::string aux = {};      // empty: none
    std::string catalog = {};  // likewise
  };

  // Raises file_error, and std::invalid_argument for what is no kit.
  unpacked unpack(const record_kit& kit);

 private:
  std::string path_;
  open_descriptor lock_;  // of the folder
  unsigned kits_ = 0;
};

#endif
