#include "tools/catalog/po.h"

#include <algorithm>
#include <array>
#include <map>
#include <string_view>

#include "recording/text/escape.h"
#include "recording/text/utf8.h"
#include "recording/text/words.h"

bool po_entry::is_fuzzy() const {
  return std::find(flags.begin(), flags.end(), "fuzzy") != flags.end();
}

void po_entry::set_fuzzy() {
  if (!is_fuzzy()) flags.insert(flags.begin(), "fuzzy");
}

size_t po_document::header_field_begin(const std::string& name) const {
  const size_t at = ("\n" + header.translation.text).find("\n" + name + ": ");
  return at == std::string::npos ? at : at + name.size() + 2;
}

std::string po_document::header_field(const std::string& name) const {
  const std::string& text = header.translation.text;
  const size_t begin = header_field_begin(name);
  return begin == std::string::npos ? "" : text.substr(begin, text.find('\n', begin) - begin);
}

size_t po_string::offset_of(size_t byte) const {
  return byte < offsets.size() ? offsets[byte] : begin;
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

// 0 to 15; 16 for what is no digit.
static unsigned digit_value(char c) {
  if (c >= '0' && c <= '9') return static_cast<unsigned>(c - '0');
  if (c >= 'a' && c <= 'f') return static_cast<unsigned>(c - 'a') + 10;
  return c >= 'A' && c <= 'F' ? static_cast<unsigned>(c - 'A') + 10 : 16;
}

// The first byte that can stand in no text: a NUL, or one that is not UTF-8; npos for none.
static size_t first_non_text(std::string_view text) {
  return std::min(utf8_first_invalid(text), text.find('\0'));
}

static std::string_view trimmed(std::string_view text) {
  while (!text.empty() && (text.front() == ' ' || text.front() == '\t')) text.remove_prefix(1);
  while (!text.empty() && (text.back() == ' ' || text.back() == '\t')) text.remove_suffix(1);
  return text;
}

class po_reader {
 public:
  po_reader(const text_file& source, po_document& document, diagnostic_list& found)
      : source_(source), document_(document), found_(found) {}

  void read() {
    for (size_t number = 0; number < source_.line_count(); ++number) {
      rest_ = source_.line(number);
      line_end_ = source_.line_start(number) + rest_.size();
      const size_t non_text = first_non_text(rest_);
      if (non_text != std::string_view::npos && non_text_lines_++ == 0)
        non_text_offset_ = at() + non_text;
      read_line();
      if (non_text != std::string_view::npos) spoil_entry();
    }
    end_entry();
    if (!is_in_other_code_page()) report_non_text();
  }

 private:
  size_t at() const { return line_end_ - rest_.size(); }

  void fault(const std::string& text) { fault(text, at()); }
  void fault(const std::string& text, size_t offset) {
    found_.add("po-syntax"_rule, {&source_, offset}, text);
    spoil_entry();
  }

  // The message that is being read will not be part of the document.
  void spoil_entry() { is_spoilt_ = begin_offset_ != no_offset; }

  // A line that is none. More of them right behind it are of the same mistake.
  void lose_way(const std::string& text) {
    if (!is_lost_) fault(text);
    spoil_entry();
    is_lost_ = true;
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
    is_lost_ = false;
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
      return lose_way(keyword.starts_with("msgid_plural") || keyword.starts_with("msgstr[")
                          ? "messages of definitions have no plural forms"
                          : "a comment, msgctxt, msgid or msgstr is expected here");
    is_lost_ = false;
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
    if (current_ == nullptr || is_lost_) return lose_way("this text belongs to nothing");
    const size_t begin = at();
    rest_.remove_prefix(1);
    while (!rest_.empty() && rest_.front() != '"') read_character();
    if (rest_.empty()) return fault("this text has no closing quote", begin);
    rest_.remove_prefix(1);
    if (!trimmed(rest_).empty()) fault("nothing is expected behind the text");
  }

  void read_character() {
    if (rest_.front() != '\\') return take(1, rest_.front());
    if (has_digit(1, 8)) return read_code(1, 8, 3);
    if (rest_.substr(1).starts_with('x') && has_digit(2, 16)) return read_code(2, 16, rest_.size());
    for (const po_escape_row& row : po_escapes)
      if (rest_.size() > 1 && rest_[1] == row.letter) return take(2, row.value);
    fault("this escape is none");
    rest_.remove_prefix(std::min<size_t>(2, rest_.size()));
  }

  bool has_digit(size_t at, unsigned base) const {
    return at < rest_.size() && digit_value(rest_[at]) < base;
  }

  // The number of a byte, of as many digits as there are; its lower eight bits count.
  void read_code(size_t first_digit, unsigned base, size_t most_digits) {
    unsigned value = 0;
    size_t size = first_digit;
    for (; size - first_digit < most_digits && has_digit(size, base); ++size)
      value = value * base + digit_value(rest_[size]);
    take(size, static_cast<char>(value & 0xFF));
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
    if (is_begun && !is_spoilt_) check_entry();
    if (is_begun && !is_spoilt_)
      add_entry();
    else if (is_begun && is_header())
      document_.header = std::move(entry_);
    if (!is_begun) return;  // comments belong to the message that follows, over empty lines too
    entry_ = {};
    current_ = nullptr;
    begin_offset_ = no_offset;
    is_spoilt_ = false;
    is_lost_ = false;
  }

  bool is_header() const {
    return !entry_.context.is_given && entry_.id.is_given && entry_.id.text.empty();
  }

  void check_entry() {
    if (!entry_.id.is_given || !entry_.translation.is_given)
      fault("a message needs msgid and msgstr", begin_offset_);
    for (const po_string* string : {&entry_.context, &entry_.id, &entry_.translation}) {
      const size_t non_text = first_non_text(string->text);
      if (non_text != std::string::npos)
        fault(string->text[non_text] == '\0' ? "a text cannot hold a NUL" : "this is not UTF-8",
              string->offsets[non_text]);
    }
  }

  void add_entry() {
    if (is_header()) return add_header();
    const auto [first, is_new] = known_.emplace(
        entry_.context.is_given ? entry_.context.text : entry_.id.text, begin_offset_);
    if (!is_new && !entry_.is_obsolete)
      found_.add("po-syntax"_rule, {&source_, begin_offset_},
                 "the message " + in_quotes(first->first) + " is here twice",
                 {&source_, first->second}, "it is here first");
    document_.entries.push_back(std::move(entry_));
  }

  void add_header() {
    if (header_offset_ != no_offset)
      return found_.add("po-syntax"_rule, {&source_, begin_offset_}, "the header is here twice",
                        {&source_, header_offset_}, "it is here first");
    header_offset_ = begin_offset_;
    document_.header = std::move(entry_);
  }

  // --- the encoding

  bool is_in_other_code_page() {
    const std::string type = document_.header_field("Content-Type");
    const size_t at = type.find("charset=");
    if (at == std::string::npos) return false;
    std::string name = type.substr(at + 8);
    name.resize(std::min(name.find_first_of(" \t"), name.size()));
    std::transform(name.begin(), name.end(), name.begin(),
                   [](char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 32) : c; });
    if (name == "UTF-8" || name == "UTF8" || name == "CHARSET") return false;
    fault("PO files are read in UTF-8, and this one is in another code page",
          document_.header.translation.begin);
    return true;
  }

  // Once for the whole file, which is most likely of another kind, or of another code page.
  void report_non_text() {
    if (non_text_lines_ == 0) return;
    const size_t more = non_text_lines_ - 1;
    fault(more == 0 ? "the PO file is not valid UTF-8"
                    : "the PO file is not valid UTF-8, here and in " + std::to_string(more) +
                          (more == 1 ? " more line" : " more lines"),
          non_text_offset_);
  }

  static constexpr size_t no_offset = static_cast<size_t>(-1);

  const text_file& source_;
  po_document& document_;
  diagnostic_list& found_;
  std::string_view rest_;  // of the line
  size_t line_end_ = 0;
  po_entry entry_;
  po_string* current_ = nullptr;      // what a text in quotes continues
  size_t begin_offset_ = no_offset;   // of the message; no_offset before its first statement
  size_t header_offset_ = no_offset;  // of the header, once it was there
  bool is_spoilt_ = false;            // whether the message has a fault
  bool is_lost_ = false;              // behind a line that is none
  size_t non_text_lines_ = 0;
  size_t non_text_offset_ = 0;  // in the first of them
  std::map<std::string, size_t, std::less<>> known_;
};

bool read_po(const text_file& source, po_document& document, diagnostic_list& found) {
  document.source = &source;
  const bool is_readable = source.bytes().size() <= source_size_limit;
  if (is_readable)
    po_reader(source, document, found).read();
  else
    found.add("too-large"_rule, {&source, 0}, "the PO file is larger than 16 MiB");
  return is_readable;
}

// --- Writing

// Texts of several lines begin with an empty line, as translators' tools write them.
static void add_string(std::string& file, const std::string& before, std::string_view text) {
  file += before;
  const bool has_lines = text.find('\n') < text.size() - 1 && !text.empty();
  if (!has_lines) {
    file += po_quoted(text) + "\n";
    return;
  }
  file += "\"\"\n";
  const std::string continued = before.starts_with("#~") ? "#~ " : "";
  while (!text.empty()) {
    const size_t end = std::min(text.find('\n'), text.size() - 1) + 1;
    file += continued + po_quoted(text.substr(0, end)) + "\n";
    text.remove_prefix(end);
  }
}

static void add_lines(std::string& file, const char* mark, const std::vector<std::string>& lines) {
  for (const std::string& line : lines) {
    file += mark;
    if (!line.empty()) (file += ' ') += line;
    file += '\n';
  }
}

static void add_entry(std::string& file, const po_entry& entry) {
  const std::string mark = entry.is_obsolete ? "#~ " : "";
  if (!file.empty()) file += "\n";
  add_lines(file, "#", entry.comments);
  add_lines(file, "#.", entry.extracted);
  add_lines(file, "#:", entry.references);
  if (!entry.flags.empty()) file += '#';
  for (const std::string& flag : entry.flags) file += ", " + flag;
  if (!entry.flags.empty()) file += '\n';
  if (!entry.is_obsolete) add_lines(file, "#|", entry.previous);
  if (entry.context.is_given) add_string(file, mark + "msgctxt ", entry.context.text);
  add_string(file, mark + "msgid ", entry.id.text);
  add_string(file, mark + "msgstr ", entry.translation.text);
}

std::string po_text(const po_document& document) {
  std::string file;
  if (document.header.translation.is_given) add_entry(file, document.header);
  for (const po_entry& entry : document.entries) add_entry(file, entry);
  return file;
}
