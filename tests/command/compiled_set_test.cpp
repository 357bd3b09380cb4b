// What the library makes of a compiled file.
#include <gtest/gtest.h>

#include "kp_LOG.h"
#include "logging/ldf_load.h"
#include "logging/log_definition.h"
#include "tests/command/command_run.h"
#include "tests/support/temp_folder.h"

// The example set, compiled and loaded.
class CompiledSet : public testing::Test {
 protected:
  void SetUp() override {
    const std::string path = folder_.file("set.ldf");
    ASSERT_EQ(run_kplog(test_data_folder(), "compile package_manager.yaml -o " + path).status, 0);
    kp_LOG_LogConfig::SetCodePage("UTF-8");
    kp_LOG_LogConfig::SetLocale("en_US");
    kp_LOG_LogConfig::SetDefinitionPath(path.c_str());
  }

  static const _kp_LOG_log_definition& definition(unsigned id) {
    return *kp_LOG_LogConfig::GetDefinitionTable()->find_entry(id);
  }

 private:
  settings_guard guard_;
  temp_folder folder_;
};

TEST_F(CompiledSet, CarriesVersionFlagsAndSecondWord) {
  EXPECT_STREQ(definition(1002).get_log_version(), "2.0");
  EXPECT_EQ(definition(1002).get_property_flags(), 0x04000002u);
  EXPECT_EQ(definition(1002).get_second_word(), 7u);
}

TEST_F(CompiledSet, RedirectsAttributes) {
  unsigned char type = 0;
  const char* redirection = nullptr;
  ASSERT_TRUE(definition(1002).get_attr_info_by_name("PEER", type, redirection));
  EXPECT_STREQ(redirection, "HOST");
  EXPECT_EQ(type, TypeChar64);
}

TEST_F(CompiledSet, SelectsMessagesByValueAndByIndex) {
  kp_LOG_LogEntry entry(1003, 1);
  entry.AddAttribMBStr("PACKAGE", "zlib");
  EXPECT_EQ(kp_LOG_RenderMessage(entry), "The signature of zlib was checked");
  entry.AddAttrib1u("OUTCOME", 1);
  EXPECT_EQ(kp_LOG_RenderMessage(entry), "Nobody's key signed zlib1");
  EXPECT_EQ(kp_LOG_RenderMessage(entry, false, 3), "broken: zlib");
  EXPECT_EQ(kp_LOG_RenderMessage(entry, true), "The signature of zlib was checked");
}

TEST_F(CompiledSet, TakesGlobalAttributesInEveryEvent) {
  kp_LOG_LogEntry entry(1004, 1);
  entry.AddAttrib1u("SEVERITY_CODE", 3);
  EXPECT_EQ(entry.GetAttrib1u("SEVERITY_CODE"), 3);
  EXPECT_EQ(kp_LOG_RenderMessage(entry), "");
}
