#include "common/wire_json.h"

#include <gmock/gmock.h>

TEST(WireJson, ReadsAnObject) {
  zel::WireJsonReader reader;
  Json::Value value;
  EXPECT_EQ(reader.read("{\"a\":1}", value), "");
  EXPECT_EQ(value["a"], Json::Value(1));
}
