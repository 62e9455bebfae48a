#pragma once

#include <gmock/gmock.h>
#include <json/value.h>
#include <json/writer.h>  // prints values in failures

#include <string>

#include "common/shared/wire_json.h"

namespace zel::test {

/// The value of a JSON text, read as from the wire: numbers are signed where they fit.
inline Json::Value json(const std::string& text) {
  WireJsonReader reader;
  Json::Value value;
  EXPECT_EQ(reader.read(text, value), "") << text;
  return value;
}

/// What a record writes into a new document.
template <class Record>
Json::Value written(const Record& record) {
  Json::Value document;
  record.Serialize(document);
  return document;
}

/// The delta that a record writes into a new document.
template <class Record>
Json::Value delta(Record record) {
  Json::Value document;
  record.SerializeDelta(document);
  return document;
}

/// Lays a document over a record.
template <class Record>
Record over(Record record, Json::Value document) {
  EXPECT_EQ(record.Deserialize(document), 0);
  return record;
}

template <class Record>
Record over(Record record, const std::string& text) {
  return over(std::move(record), json(text));
}

template <class Record>
Record over(Record record, const char* text) {
  return over(std::move(record), json(text));
}

/// A new record that has read a document.
template <class Record>
Record readFrom(const std::string& text) {
  return over(Record(), text);
}

/// The document as it is after a new record has read it.
template <class Record>
Json::Value afterReading(const std::string& text) {
  Json::Value document = json(text);
  Record().Deserialize(document);
  return document;
}

/// {"a/b": value} as {"a": {"b": value}}; a path without "/" is a member at the top.
inline Json::Value& at(Json::Value& document, const std::string& path) {
  const std::size_t slash = path.find('/');
  if (slash == std::string::npos) return document[path];
  return document[path.substr(0, slash)][path.substr(slash + 1)];
}

}  // namespace zel::test
