// The characters of a code page.
#ifndef TOOLS_DEFINITIONS_CODE_PAGE_REPERTOIRE_H
#define TOOLS_DEFINITIONS_CODE_PAGE_REPERTOIRE_H

#include <unicode/uset.h>

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

// Whether ICU knows the name.
bool is_known_code_page(const std::string& name);

class code_page_repertoire {
 public:
  // By a name that ICU knows; is_known() says whether it does.
  explicit code_page_repertoire(std::string name);

  const std::string& name() const { return name_; }
  bool is_known() const { return characters_ != nullptr; }
  // The offset of the first character that the code page cannot hold; npos when it holds all.
  size_t first_missing(std::string_view text) const;

 private:
  struct set_closer {
    void operator()(USet* set) const { uset_close(set); }
  };

  std::string name_;
  std::unique_ptr<USet, set_closer> characters_;
};

#endif
