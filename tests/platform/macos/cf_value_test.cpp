// The conversion of properties between Core Foundation and the seam.

#include "platform/macos/cf_value.h"

#include <cstdint>
#include <limits>
#include <string>

#include "fakes/system.h"
#include "fakes/values.h"
#include "platform/macos/owned.h"
#include "support/testing.h"

namespace brisko::platform::cf_value_test {
namespace {

Value thereAndBack(const Value& value) { return valueOf(objectOf(value).get()); }

TEST(CFValue, keepsTheKindOfEveryValueThatIsWritten) {
  EXPECT_EQ(thereAndBack(true).asBoolean(), true);
  EXPECT_EQ(thereAndBack(false).asBoolean(), false);
  EXPECT_EQ(thereAndBack(80).asInteger(), 80);
  EXPECT_EQ(thereAndBack(std::numeric_limits<std::int64_t>::min()).asInteger(),
            std::numeric_limits<std::int64_t>::min());
  EXPECT_EQ(thereAndBack(80.5).asDouble(), 80.5);
  EXPECT_FALSE(thereAndBack(80.0).asInteger().has_value());
  EXPECT_EQ(thereAndBack(Date{1772352930.5}).asDate(), Date{1772352930.5});
  const Value data = thereAndBack(Data{{0, 1, 255}});
  ASSERT_NE(data.asData(), nullptr);
  EXPECT_EQ(*data.asData(), (Data{{0, 1, 255}}));
}

TEST(CFValue, keepsTextsOfEveryLength) {
  for (const std::string& text : {std::string(), std::string("wake"), std::string("⚡️ — é 🔋"),
                                  std::string("———"), std::string(1000, 'x')}) {
    const Value value = thereAndBack(text);
    ASSERT_NE(value.asText(), nullptr);
    EXPECT_EQ(*value.asText(), text);
  }
}

TEST(CFValue, convertsNoUnknownTypes) {
  EXPECT_EQ(objectOf({}).get(), nullptr);
  EXPECT_EQ(objectOf(List{1, 2}).get(), nullptr);
  EXPECT_EQ(objectOf(Dictionary{{"one", 1}}).get(), nullptr);
  EXPECT_TRUE(valueOf(nullptr).isNull());
  EXPECT_EQ(dictionaryOf(nullptr), nullptr);
}

TEST(CFValue, countsDatesFrom2001) {
  EXPECT_EQ(CFDateGetAbsoluteTime(dateOf(978307200).get()), 0);
  EXPECT_EQ(CFDateGetAbsoluteTime(dateOf(978307200 + 86400.5).get()), 86400.5);
}

struct Unknown : fakes::Object {
  Unknown() : Object(fakes::codeType) {}
};

TEST(CFValue, isNullForAnObjectOfAnotherType) {
  const Owned<CFTypeRef> object(fakes::refTo<CFTypeRef>(new Unknown));
  EXPECT_TRUE(valueOf(object.get()).isNull());
}

TEST(CFValue, leavesOutEntriesWhoseKeyIsNoText) {
  auto* dictionary = new fakes::DictionaryOf({{new fakes::Number(std::int64_t{1}), new fakes::String("one")},
                                              {new fakes::String("two"), new fakes::String("2")}});
  const Owned<CFDictionaryRef> object(fakes::refTo<CFDictionaryRef>(dictionary));
  const SharedDictionary entries = dictionaryOf(object.get());
  ASSERT_EQ(entries->size(), 1U);
  EXPECT_EQ(*entries->at("two").asText(), "2");
}

TEST(CFValue, hasNoObjectForATextThatIsNotUtf8) { EXPECT_EQ(objectOf("\xff").get(), nullptr); }

TEST(CFValue, isEmptyForATextThatCannotBeConverted) {
  const Owned<CFStringRef> text = stringOf("text");
  EXPECT_EQ(textOf(text.get()), "text");
  fakes::gFailing = "CFStringGetCString";
  EXPECT_EQ(textOf(text.get()), "");
}

}  // namespace
}  // namespace brisko::platform::cf_value_test
