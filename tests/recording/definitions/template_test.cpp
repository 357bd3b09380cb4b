// How the tools see a template, held against the library's tokenizers.
#include "recording/definitions/template.h"

#include <gmock/gmock.h>

#include <random>

#include "kp_LOG.h"
#include "logging/logentry_i.h"
#include "logging/logmsg.h"
#include "logging/logmsg_token.h"

using testing::ElementsAre;
using testing::IsEmpty;

// "text", "%d%NAME%", "%%", or "!reason".
static std::vector<std::string> shown_pieces(std::string_view bytes) {
  std::vector<std::string> shown;
  for (const template_piece& piece : scan_template(bytes)) {
    const std::string text(piece.text);
    const bool is_placeholder = piece.kind == template_piece::kinds::placeholder;
    const bool is_fault = piece.kind == template_piece::kinds::fault;
    shown.push_back(is_placeholder ? std::string("%") + piece.format + "%" + text + "%"
                    : is_fault     ? "!" + text
                                   : text);
  }
  return shown;
}

TEST(TemplateScan, PiecesComeInTheirOrder) {
  EXPECT_THAT(
      shown_pieces("User %s%USER% has %d%COUNT%%x%A b% 100 %% of it"),
      ElementsAre("User ", "%s%USER%", " has ", "!a placeholder with \"%%\" behind its name"));
  EXPECT_THAT(shown_pieces("User %s%USER% has %d%COUNT% 100 %% of it"),
              ElementsAre("User ", "%s%USER%", " has ", "%d%COUNT%", " 100 ", "%%", " of it"));
  EXPECT_THAT(shown_pieces(""), IsEmpty());
  EXPECT_THAT(shown_pieces("Started"), ElementsAre("Started"));
}

TEST(TemplateScan, WhatStandsBehindTheFormatCharacterHasNoEffect) {
  EXPECT_THAT(shown_pieces("%dabc%PORT%"), ElementsAre("%d%PORT%"));
}

TEST(TemplateScan, EveryIncompletePlaceholderIsAFault) {
  EXPECT_THAT(shown_pieces("50%"), ElementsAre("50", "!a percent sign at the end"));
  EXPECT_THAT(shown_pieces("%d"), ElementsAre("!a placeholder without a name"));
  EXPECT_THAT(shown_pieces("%d%"), ElementsAre("!a placeholder without a name"));
  EXPECT_THAT(shown_pieces("%dPORT"), ElementsAre("!a placeholder without a name"));
  EXPECT_THAT(shown_pieces("%d%PORT"), ElementsAre("!a placeholder whose name does not end"));
  EXPECT_THAT(shown_pieces("%d%%PORT%"), ElementsAre("!a placeholder with \"%%\" before its name"));
  EXPECT_THAT(shown_pieces("%\xC3\xA4%PORT%"),
              ElementsAre("!a format character that is not ASCII"));
}

TEST(TemplateScan, OnlyFormatCharactersWithAMeaningShowValues) {
  for (int c = 1; c < 128; ++c) {
    if (c == '%') continue;
    const auto pieces = scan_template(std::string("%") + static_cast<char>(c) + "%A%");
    ASSERT_EQ(pieces.size(), 1u);
    EXPECT_EQ(pieces[0].shows_value(),
              std::string("sdufCPDT").find(static_cast<char>(c)) != std::string::npos);
  }
}

// The tokens of a template that the byte tokenizer makes, in the notation above. Its token of a
// percent sign has an empty text.
static std::vector<std::string> shown_tokens(const std::string& bytes) {
  _kp_LOG_msg_token_list list;
  _kp_LOG_log_message::_tokenize_kpString(kp_String(bytes.c_str()), list);
  std::vector<std::string> shown;
  for (const _kp_LOG_msg_token* token = list.head; token != nullptr; token = token->next) {
    if (const auto* text = dynamic_cast<const _kp_LOG_kpString_token*>(token))
      shown.push_back(*text->text.c_str() == '\0' ? "%%" : text->text.c_str());
    if (const auto* format = dynamic_cast<const _kp_LOG_fmt_spec_token*>(token))
      shown.push_back(std::string("%") + format->format);
    if (const auto* name = dynamic_cast<const _kp_LOG_arg_spec_token*>(token))
      shown.back() += std::string("%") + name->name.c_str() + "%";
  }
  return shown;
}

static std::string random_template(std::mt19937& random) {
  static const std::vector<std::string> parts = {"text",  " ", "%%", "%d%A%", "%s%B C%",
                                                 "%x%T%", "%", "%d", "%A%",   "d"};
  std::uniform_int_distribution<size_t> below(0, parts.size() - 1);
  std::string bytes;
  for (size_t n = below(random); n > 0; --n) bytes += parts[below(random)];
  return bytes;
}

// The literal text before "%%" is dropped by the tokenizer alone.
static std::vector<std::string> without_lost_text(std::vector<std::string> pieces) {
  for (size_t i = 1; i < pieces.size(); ++i)
    if (pieces[i] == "%%" && pieces[i - 1].find('%') == std::string::npos)
      pieces.erase(pieces.begin() + static_cast<std::ptrdiff_t>(--i));
  return pieces;
}

TEST(TemplateScan, SoundTemplatesAreSeenAsTheTokenizerSeesThem) {
  std::mt19937 random(7);  // NOLINT(cert-msc32-c,cert-msc51-cpp): every run tries the same cases
  size_t sound = 0;
  for (int i = 0; i < 20000; ++i) {
    const std::string bytes = random_template(random);
    const auto pieces = scan_template(bytes);
    if (!pieces.empty() && pieces.back().kind == template_piece::kinds::fault) continue;
    ASSERT_EQ(without_lost_text(shown_pieces(bytes)), shown_tokens(bytes)) << bytes;
    ++sound;
  }
  EXPECT_GT(sound, 3000u);
}

// The tokenizers take every ASCII character for one of a format.
static std::vector<char> format_characters() {
  std::vector<char> characters;
  for (char c = 1; c > 0 && c < 127; ++c)
    if (c != '%') characters.push_back(c);
  return characters;
}

// Whether the library takes "%FORMAT%A%". A GUID suits, and has no operation that reads it.
static bool is_taken(char format, kp_AttributeType type) {
  auto* const definition = new _kp_LOG_log_definition();
  const _kp_LOG_definition_ref ref(definition);
  definition->set_default_msg_text((std::string("%") + format + "%A%").c_str());
  definition->add_attr_info("A", static_cast<unsigned char>(type), false, nullptr);
  const _kp_LOG_log_entry_imp entry(ref);
  try {
    _kp_LOG_log_message::get_kpString_message(entry, definition, true, 0);
    return true;
  } catch (const KPX_logging_invalid_message_string&) {
    return false;
  } catch (const KPX_logging_attribute_type_mismatch&) {
    return type == TypeGUID;
  }
}

TEST(TemplateFormats, SuitTheTypesThatTheLibraryShowsByThem) {
  for (const char format : format_characters())
    for (int code = TypeBool; code <= TypeGUID; ++code) {
      const auto type = static_cast<kp_AttributeType>(code);
      EXPECT_EQ(is_taken(format, type),
                find_format(format) == nullptr || format_suits(format, type))
          << format << " of " << _kp_LOG_get_attribute_type_string(type);
    }
}

TEST(TemplateFormats, OneAtMostIsMeantWhereATextChoosesNone) {
  for (int code = TypeBool; code <= TypeGUID; ++code) {
    const auto type = static_cast<kp_AttributeType>(code);
    std::string meant;
    for (const template_format& format : template_formats) {
      if (!format.is_default(type)) continue;
      EXPECT_TRUE(format.suits(type)) << format.character << " " << code;
      meant += format.character;
    }
    EXPECT_EQ(meant.size(), type == TypeTimestamp ? 0U : 1U) << code << " " << meant;
  }
}
