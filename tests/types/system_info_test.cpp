#include "types/system_info.h"

#include "tests/support/json_of.h"

namespace zel::test {
namespace {

template <class Record>
class DaemonFields : public ::testing::Test {};
using Records = ::testing::Types<SystemBasicInfo, NetworkStackStatus>;
TYPED_TEST_SUITE(DaemonFields, Records, );

TYPED_TEST(DaemonFields, ANewOneHoldsNothingAndWritesNothing) {
  EXPECT_TRUE(TypeParam().fields.isNull());
  EXPECT_TRUE(written(TypeParam()).isNull());
}

TYPED_TEST(DaemonFields, KeepsTheDaemonsObjectWhole) {
  const char* const text = R"({"a":{"b":[1,null,"x\u0000y"]},"c":-1.5,"d\u0000e":true})";
  const auto record = readFrom<TypeParam>(text);
  EXPECT_EQ(record.fields, json(text));
  EXPECT_EQ(written(record), json(text));
}

TYPED_TEST(DaemonFields, ReadingReplacesEverythingAndLeavesTheDocument) {
  const auto record = over(readFrom<TypeParam>(R"({"a":1})"), R"({"b":2})");
  EXPECT_EQ(record.fields, json(R"({"b":2})"));
  EXPECT_EQ(afterReading<TypeParam>(R"({"b":2})"), json(R"({"b":2})"));
}

TYPED_TEST(DaemonFields, WritingLeavesOtherMembers) {
  Json::Value document = json(R"({"a":0,"x":1})");
  readFrom<TypeParam>(R"({"a":2})").Serialize(document);
  EXPECT_EQ(document, json(R"({"a":2,"x":1})"));
}

TYPED_TEST(DaemonFields, WhatIsNoObjectIsKeptAndNotWritten) {
  for (const char* const text : {"[1]", "1", R"("x")", "null", "true"}) {
    const auto record = readFrom<TypeParam>(text);
    EXPECT_EQ(record.fields, json(text));
    EXPECT_TRUE(written(record).isNull()) << text;
  }
}

}  // namespace
}  // namespace zel::test
