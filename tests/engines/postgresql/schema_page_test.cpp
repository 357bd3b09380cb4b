// That the page on the schema tells all of it, and what it says of rights and questions.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>
#include <sstream>
#include <thread>

#include "engines/postgresql/engine.h"
#include "tests/command/documentation_page.h"
#include "tests/engines/postgresql/database_server.h"

static std::vector<std::string> lines_in(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) lines.push_back(line);
  return lines;
}

TEST(PostgresqlSchemaPage, NamesEverythingThatIsThere) {
  const database_server server;
  {  // whoever makes it at the same time
    std::vector<std::jthread> makers;
    for (int i = 0; i < 4; ++i)
      makers.emplace_back([&server, i] {
        engine_options options = server.options();
        options.has_live_index = i == 2;
        EXPECT_NO_THROW(postgresql_engine.create(options));
      });
  }
  EXPECT_EQ(server.sql("select has_live_index from kplog.setting"), "t\n");
  const std::string page = documentation_page("shipping-schema.md");
  for (const std::string& table : lines_in(server.sql(
           "select table_name from information_schema.tables where table_schema = 'kplog' and"
           " table_name <> 'record_other'")))
    EXPECT_NE(page.find("`kplog." + table + "`"), std::string::npos) << table;
  for (const std::string& column : lines_in(server.sql(
           "select column_name from information_schema.columns where table_schema = 'kplog'")))
    EXPECT_NE(page.find("`" + column + "`"), std::string::npos) << column;
  for (const std::string& function : lines_in(server.sql(
           "select routine_name from information_schema.routines where routine_schema = 'kplog'")))
    EXPECT_NE(page.find("`kplog." + function + "("), std::string::npos) << function;
  // With their owner's rights, and a path of their own.
  EXPECT_EQ(server.sql("select proname from pg_proc where pronamespace = 'kplog'::regnamespace and"
                       " not (prosecdef and proconfig::text like '%search_path=%')"),
            "attributes\n");
  // One that any user could hold would let a tenant hold up the others.
  EXPECT_EQ(server.sql("select proname from pg_proc where pronamespace = 'kplog'::regnamespace and"
                       " prosrc like '%advisory%'"),
            "");
  // What it asks by hand can be asked by who may.
  ASSERT_EQ(server.sql("create role reader login; grant kplog_read to reader"), "");
  const std::vector<std::string> questions =
      lines_in(page_block("shipping-schema.md", "## By hand"));
  EXPECT_GE(questions.size(), 2U);
  for (const std::string& question : questions)
    EXPECT_EQ(server.sql(question, "reader"), "") << question;
}
