#include "recording/sinks/line_form.h"

#include "recording/records/stored_form.h"
#include "recording/records/time_text.h"
#include "recording/text/code_page.h"
#include "recording/text/escape.h"

// --- Text logs ---

class text_log_form : public line_form {
 public:
  explicit text_log_form(const std::string& code_page)
      : code_page_name_(code_page), code_page_(code_page) {}

  void append(std::string& lines, const sink_entry& entry) override;
  std::unique_ptr<line_form> another() const override {
    return std::make_unique<text_log_form>(code_page_name_);
  }

 private:
  std::string code_page_name_;
  log_code_page code_page_;
  record_time_text time_text_;
  line_writer line_;  // reused
};

void text_log_form::append(std::string& lines, const sink_entry& entry) {
  const kp_LOG_LogEntry& made = entry.made.entry;
  line_.clear();
  line_.append(time_text_.of(entry.time));
  line_.append(' ');
  line_.append(static_cast<char>('0' + made.GetLogLevel()));
  line_.append(' ');
  if (entry.made.event != nullptr && !entry.made.event->name.empty())
    append_log_text(line_, entry.made.event->name);
  else
    line_.append_number(made.GetEntryID());
  line_.append(' ');
  append_log_text(line_, entry.message);
  code_page_.append(lines, line_.text());
  lines += '\n';
}

std::unique_ptr<line_form> make_text_log_form(const std::string& code_page) {
  return std::make_unique<text_log_form>(code_page);
}

// --- The stored form ---

class stored_line_form : public line_form {
 public:
  explicit stored_line_form(const std::string& set_version)
      : set_version_(set_version), form_(set_version) {}

  void append(std::string& lines, const sink_entry& entry) override {
    form_.append(lines, entry);
    lines += '\n';
  }
  std::unique_ptr<line_form> another() const override {
    return std::make_unique<stored_line_form>(set_version_);
  }

 private:
  std::string set_version_;
  stored_form form_;
};

std::unique_ptr<line_form> make_stored_line_form(const std::string& set_version) {
  return std::make_unique<stored_line_form>(set_version);
}

// --- Messages ---

class message_form : public line_form {
 public:
  explicit message_form(const std::string& code_page)
      : code_page_name_(code_page), code_page_(code_page) {}

  void append(std::string& lines, const sink_entry& entry) override {
    line_.clear();
    append_log_text(line_, entry.message);
    code_page_.append(lines, line_);
    lines += '\n';
  }
  std::unique_ptr<line_form> another() const override {
    return std::make_unique<message_form>(code_page_name_);
  }

 private:
  std::string code_page_name_;
  log_code_page code_page_;
  std::string line_;  // reused
};

std::unique_ptr<line_form> make_message_form(const std::string& code_page) {
  return std::make_unique<message_form>(code_page);
}
