#include <algorithm>
#include <array>
#include <map>
#include <string_view>

#include "tools/po_file.h"
#include "tools/utf8_text.h"

bool po_entry::is_fuzzy() const {
  return std::find(flags.begin(), flags.end(), "fuzzy") != flags.end();
}

void po_entry::set_fuzzy() {
  if (!is_fuzzy()) flags.insert(flags.begin(), "fuzzy");
}

std::string po_document::header_field(const std::string& name) const {
  const std::string text = "\n" + header.translation.text;
  const size_t at = text.find("\n" + name + ": ");
  if (at == std::string::npos) return "";
  const size_t begin = at + name.size() + 3;
  return text.substr(begin, text.find('\n', begin) - begin);
}

source_place po_place(const source_text& source, size_t offset) {
  size_t first = 0;
  size_t behind = source.line_count();
  while (behind - first > 1) {
    const size_t middle = first + (behind - first) / 2;
    (source.line_start(middle) <= offset ? first : behind) = middle;
  }
  return {&source, first, offset - source.line_start(first)};
}

source_place po_place(const source_text& source, const po_string& string, size_t offset) {
  return po_place(source, offset < string.offsets.size() ? string.offsets[offset] : string.begin);
}

struct po_escape_row {
  char letter;
  char value;
};

static constexpr std::array<po_escape_row, 9> po_escapes = {{
    {'n', '\n'},
    {'t', '\t'},
    {'r', '\r'},
    {'"', '"'},
    {'\\', '\\'},
    {'a', '\a'},
    {'b', '\b'},
    {'f', '\f'},
    {'v', '\v'},
}};

static std::string_view trimmed(std::string_view text) {
  while (!text.empty() && (text.front() == ' ' || text.front() == '\t')) text.remove_prefix(1);
  while (!text.empty() && (text.back() == ' ' || text.back() == '\t')) text.remove_suffix(1);
  return text;
}

class po_reader {
 public:
  po_reader(const source_text& source, po_document& document, diagnostic_list& found)
      : source_(source), document_(document), found_(found) {}

  void read() {
    for (size_t number = 0; number < source_.line_count(); ++number) {
      rest_ = source_.line(number);
      line_end_ = source_.line_start(number) + rest_.size();
      read_line();
    }
    end_entry();
    check_header();
  }

 private:
  size_t at() const { return line_end_ - rest_.size(); }

  void fault(const std::string& text) { fault(text, at()); }
  void fault(const std::string& text, size_t offset) {
    found_.add(diagnostic_rule::po_syntax, po_place(source_, offset), text);
  }

  void skip_blanks() {
    while (!rest_.empty() && (rest_.front() == ' ' || rest_.front() == '\t'))
      rest_.remove_prefix(1);
  }

  void read_line() {
    skip_blanks();
    if (rest_.empty()) return end_entry();
    if (rest_.starts_with("#~")) return read_obsolete();
    if (rest_.starts_with('#')) return read_comment();
    read_statement();
  }

  void read_obsolete() {
    rest_.remove_prefix(2);
    skip_blanks();
    if (rest_.empty() || rest_.starts_with('|')) return;
    read_statement();
    entry_.is_obsolete = true;
  }

  // --- comments

  void read_comment() {
    if (entry_.translation.is_given) end_entry();
    rest_.remove_prefix(1);
    if (rest_.starts_with(',')) return read_flags(rest_.substr(1));
    std::vector<std::string>& lines = rest_.starts_with('.')   ? entry_.extracted
                                      : rest_.starts_with(':') ? entry_.references
                                      : rest_.starts_with('|') ? entry_.previous
                                                               : entry_.comments;
    if (&lines != &entry_.comments) rest_.remove_prefix(1);
    if (rest_.starts_with(' ')) rest_.remove_prefix(1);
    lines.emplace_back(rest_);
  }

  void read_flags(std::string_view flags) {
    while (!flags.empty()) {
      const size_t comma = std::min(flags.find(','), flags.size());
      const std::string_view flag = trimmed(flags.substr(0, comma));
      if (!flag.empty()) entry_.flags.emplace_back(flag);
      flags.remove_prefix(std::min(comma + 1, flags.size()));
    }
  }

  // --- statements

  void read_statement() {
    if (rest_.starts_with('"')) return read_continuation();
    const std::string_view keyword = rest_.substr(0, rest_.find_first_of(" \t\""));
    po_string* const string = string_of(keyword);
    if (string == nullptr)
      return fault(keyword.starts_with("msgid_plural") || keyword.starts_with("msgstr[")
                       ? "messages of definitions have no plural forms"
                       : "a comment, msgctxt, msgid or msgstr is expected here");
    const bool begins_entry = string == &entry_.context || string == &entry_.id;
    if (begins_entry && entry_.translation.is_given) end_entry();
    if (entry_.id.is_given && string == &entry_.context) end_entry();
    if (string->is_given) fault("this is here already");
    if (begin_offset_ == no_offset) begin_offset_ = at();
    rest_.remove_prefix(keyword.size());
    skip_blanks();
    *string = {};
    string->is_given = true;
    string->begin = static_cast<uint32_t>(at());
    current_ = string;
    if (!rest_.starts_with('"')) return fault("a text in quotes is expected here");
    read_continuation();
  }

  po_string* string_of(std::string_view keyword) {
    if (keyword == "msgctxt") return &entry_.context;
    if (keyword == "msgid") return &entry_.id;
    return keyword == "msgstr" ? &entry_.translation : nullptr;
  }

  void read_continuation() {
    if (current_ == nullptr) return fault("this text belongs to nothing");
    const size_t begin = at();
    rest_.remove_prefix(1);
    while (!rest_.empty() && rest_.front() != '"') read_character();
    if (rest_.empty()) return fault("this text has no closing quote", begin);
    rest_.remove_prefix(1);
    if (!trimmed(rest_).empty()) fault("nothing is expected behind the text");
  }

  void read_character() {
    if (rest_.front() != '\\') return take(1, rest_.front());
    if (rest_.size() > 1 && rest_[1] >= '0' && rest_[1] <= '7') return read_octal();
    for (const po_escape_row& row : po_escapes)
      if (rest_.size() > 1 && rest_[1] == row.letter) return take(2, row.value);
    fault("this escape is none");
    rest_.remove_prefix(std::min<size_t>(2, rest_.size()));
  }

  void read_octal() {
    unsigned value = 0;
    size_t size = 1;
    for (; size < std::min<size_t>(4, rest_.size()) && rest_[size] >= '0' && rest_[size] <= '7';
         ++size)
      value = value * 8 + static_cast<unsigned>(rest_[size] - '0');
    take(size, static_cast<char>(value));
  }

  // Adds a byte that `size` bytes of the file stand for.
  void take(size_t size, char byte) {
    current_->offsets.push_back(static_cast<uint32_t>(at()));
    current_->text += byte;
    rest_.remove_prefix(size);
  }

  // --- entries

  void end_entry() {
    const bool is_begun = begin_offset_ != no_offset;
    if (is_begun && (!entry_.id.is_given || !entry_.translation.is_given))
      fault("a message needs msgid and msgstr", begin_offset_);
    else if (is_begun)
      add_entry();
    if (!is_begun && !rest_.empty()) return;  // comments of the message that follows
    entry_ = {};
    current_ = nullptr;
    begin_offset_ = no_offset;
  }

  void add_entry() {
    if (!entry_.context.is_given && entry_.id.text.empty()) {
      document_.header = std::move(entry_);
      return;
    }
    const auto [first, is_new] = known_.emplace(entry_.context.text, begin_offset_);
    if (!is_new && !entry_.is_obsolete)
      found_.add(diagnostic_rule::po_syntax, po_place(source_, begin_offset_),
                 "the message \"" + entry_.context.text + "\" is here twice",
                 po_place(source_, first->second), "it is here first");
    document_.entries.push_back(std::move(entry_));
  }

  void check_header() {
    const std::string type = document_.header_field("Content-Type");
    const size_t at = type.find("charset=");
    if (at == std::string::npos) return;
    std::string name = type.substr(at + 8);
    std::transform(name.begin(), name.end(), name.begin(),
                   [](char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 32) : c; });
    if (name != "UTF-8" && name != "CHARSET")
      fault("PO files are read in UTF-8, and this one is in another code page",
            document_.header.translation.begin);
  }

  static constexpr size_t no_offset = static_cast<size_t>(-1);

  const source_text& source_;
  po_document& document_;
  diagnostic_list& found_;
  std::string_view rest_;  // of the line
  size_t line_end_ = 0;
  po_entry entry_;
  po_string* current_ = nullptr;  // what a text in quotes continues
  size_t begin_offset_ = no_offset;
  std::map<std::string, size_t, std::less<>> known_;
};

bool read_po(const source_text& source, po_document& document, diagnostic_list& found) {
  const size_t faults_before = found.size();
  document.source = &source;
  const size_t invalid = utf8_first_invalid(source.bytes());
  if (source.bytes().size() > source_size_limit)
    found.add(diagnostic_rule::too_large, po_place(source, 0), "the PO file is larger than 16 MiB");
  else if (invalid != std::string_view::npos)
    found.add(diagnostic_rule::po_syntax, po_place(source, invalid),
              "the PO file is not valid UTF-8");
  else
    po_reader(source, document, found).read();
  return found.size() == faults_before;
}
