#include <memory>
#include <string>

#include <plist/plist.h>

#include "packaging/scratch_mac.h"
#include "support/testing.h"

namespace brisko::test::job_test {
namespace {

struct Release {
  void operator()(void* node) const { plist_free(node); }
};
using Job = std::unique_ptr<void, Release>;

Job parsed(const std::string& text) {
  plist_t node = nullptr;
  plist_from_xml(text.data(), static_cast<std::uint32_t>(text.size()), &node);
  return Job(node);
}

std::string textOf(plist_t node) {
  if (node == nullptr || plist_get_node_type(node) != PLIST_STRING) return "(no text)";
  return plist_get_string_ptr(node, nullptr);
}

Words textsOf(plist_t list) {
  Words texts;
  if (list == nullptr || plist_get_node_type(list) != PLIST_ARRAY) return {"(no list)"};
  for (std::uint32_t index = 0; index < plist_array_get_size(list); ++index)
    texts.push_back(textOf(plist_array_get_item(list, index)));
  return texts;
}

bool isTrue(plist_t node) {
  std::uint8_t value = 0;
  if (node != nullptr && plist_get_node_type(node) == PLIST_BOOLEAN) plist_get_bool_val(node, &value);
  return value == 1;
}

std::uint64_t integerOf(plist_t node) {
  std::uint64_t value = 0;
  if (node != nullptr && plist_get_node_type(node) == PLIST_UINT) plist_get_uint_val(node, &value);
  return value;
}

void expectJob(const std::string& text, const Words& arguments) {
  const Job job = parsed(text);
  ASSERT_TRUE(job && plist_get_node_type(job.get()) == PLIST_DICT) << text;
  const auto at = [&](const char* key) { return plist_dict_get_item(job.get(), key); };

  EXPECT_EQ(plist_dict_get_size(job.get()), 10U);
  EXPECT_EQ(textOf(at("Label")), "com.brisko.daemon");
  EXPECT_EQ(textsOf(at("ProgramArguments")), arguments);
  ASSERT_NE(at("MachServices"), nullptr);
  EXPECT_EQ(plist_dict_get_size(at("MachServices")), 1U);
  EXPECT_TRUE(isTrue(plist_dict_get_item(at("MachServices"), "com.brisko.daemon.xpc")));
  EXPECT_TRUE(isTrue(at("RunAtLoad")));
  // A list of conditions would be no boolean.
  EXPECT_TRUE(isTrue(at("KeepAlive")));
  EXPECT_EQ(integerOf(at("ThrottleInterval")), 10U);
  EXPECT_EQ(textOf(at("ProcessType")), "Standard");
  EXPECT_EQ(textOf(at("StandardErrorPath")), "/Library/Logs/Brisko/daemon.err.log");
  EXPECT_EQ(integerOf(at("Umask")), 022U);
  EXPECT_EQ(textsOf(at("AssociatedBundleIdentifiers")), Words{"com.brisko.Brisko"});
}

const Words guarded{programFile, "--guard", "night,menu,swing"};

TEST(Job, isWhatTheLaunchServiceNeedsToKnow) {
  expectJob(contents(std::string(BRISKO_PACKAGING) + "/com.brisko.daemon.plist"), guarded);
}

TEST(Job, isTheSameOnceInstalled) {
  const ScratchMac mac;

  ASSERT_EQ(mac.install().status, 0);

  expectJob(mac.job().value_or(""), guarded);
}

TEST(Job, namesTheAppAsItIsWritten) {
  const ScratchMac mac;
  const std::string app = R"(/Applications/A \ "B" & <C>.app)";
  mac.putApp(app);

  ASSERT_EQ(mac.install({"--app", app}).status, 0);

  expectJob(mac.job().value_or(""), {programFile, "--guard", "night,menu,swing", "--app", app});
}

TEST(BackgroundItems, areKeptOnByTheLabelOfTheJob) {
  const Job profile = parsed(contents(std::string(BRISKO_PACKAGING) + "/background-items.mobileconfig"));
  ASSERT_TRUE(profile && plist_get_node_type(profile.get()) == PLIST_DICT);
  EXPECT_EQ(textOf(plist_dict_get_item(profile.get(), "PayloadType")), "Configuration");
  const plist_t content = plist_dict_get_item(profile.get(), "PayloadContent");
  ASSERT_EQ(plist_array_get_size(content), 1U);
  const plist_t payload = plist_array_get_item(content, 0);
  EXPECT_EQ(textOf(plist_dict_get_item(payload, "PayloadType")), "com.apple.servicemanagement");
  const plist_t rules = plist_dict_get_item(payload, "Rules");
  ASSERT_EQ(plist_array_get_size(rules), 1U);
  const plist_t rule = plist_array_get_item(rules, 0);
  EXPECT_EQ(textOf(plist_dict_get_item(rule, "RuleType")), "Label");
  EXPECT_EQ(textOf(plist_dict_get_item(rule, "RuleValue")), "com.brisko.daemon");
  EXPECT_EQ(textOf(plist_dict_get_item(rule, "TeamIdentifier")), "TEAM123456");
}

}  // namespace
}  // namespace brisko::test::job_test
