#pragma once

#include <json/value.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

#include "common/ip_address.h"
#include "common/logger.h"
#include "common/shared/singleton.h"

// The JSON form of the records. Header-only, so that the API's library needs nothing of libzelCommonTypes for it.
//
// A record says its form once, in a function template `walk(io, record)` with a row a key. Run with a `Reader` it reads
// the record, with a `Writer` it writes it, and with a `Writer` of changes it writes its delta. The verb of a row says
// what a missing key does to the member:
//
//   keep     it stays as it is
//   reset    it becomes what the factory record holds, see `factory`
//   resetTo  it becomes the value of the row
//   ifSet    it stays as it is, and a member that is not set is not written

namespace zel {

using Key = std::string_view;

/// Null when the object, which may be null itself, has no such member.
inline const Json::Value* findMember(const Json::Value& object, Key key) {
  return object.find(key.data(), key.data() + key.size());
}

/// Inserts a null member when the object has none of that name.
inline Json::Value& demandMember(Json::Value& object, Key key) {
  // The look-up alone is cheaper than `demand`, and finds nearly always. The object is not const, only `find` is.
  if (const Json::Value* const found = findMember(object, key)) return const_cast<Json::Value&>(*found);
  return *object.demand(key.data(), key.data() + key.size());
}

/// Reads a new record from each element of an array, and passes it to `use`. A value that is not an array has no
/// elements, except an object with members, which JsonCpp refuses to index.
template <class Record, class Use>
void forEachRecord(Json::Value& array, Use use) {
  auto place = array.begin();  // to walk is cheaper than to index, which searches; only a gap is indexed
  for (Json::ArrayIndex i = 0; i < array.size(); ++i) {
    const bool there = place != array.end() && place.index() == i;
    Record record;
    record.Deserialize(there ? *place++ : array[i]);
    use(std::move(record));
  }
}

/// Appends the records of an array to a list. The records before an element that JsonCpp refuses to convert stay.
template <class List>
void appendRecords(Json::Value& array, List& list) {
  using Record = typename List::value_type;
  forEachRecord<Record>(array, [&list](Record&& record) { list.push_back(std::move(record)); });
}

/// The record that `reset` takes values from and that a delta compares with: a new one, unless the record's form says
/// otherwise by a specialisation.
template <class Record>
const Record& factory() {
  static Singleton<const Record> record;
  return record.get([] { return new Record; });
}

// Codecs: how a member is written in JSON. Conversions are JsonCpp's own, with its own exceptions.

/// By the type of the member.
template <class T>
struct Plain;

template <>
struct Plain<bool> {
  static Json::Value write(bool member) { return member; }
  static void read(const Json::Value& json, bool& member) { member = json.asBool(); }
};

template <>
struct Plain<int> {
  static Json::Value write(int member) { return member; }
  static void read(const Json::Value& json, int& member) { member = json.asInt(); }
};

template <>
struct Plain<uint32_t> {
  static Json::Value write(uint32_t member) { return Json::UInt(member); }
  static void read(const Json::Value& json, uint32_t& member) { member = json.asUInt(); }
};

template <>
struct Plain<float> {
  static Json::Value write(float member) { return double(member); }
  static void read(const Json::Value& json, float& member) { member = json.asFloat(); }
};

template <>
struct Plain<std::string> {
  static Json::Value write(const std::string& member) { return member; }
  static void read(const Json::Value& json, std::string& member) {
    const char* begin = nullptr;
    const char* end = nullptr;
    if (json.getString(&begin, &end)) {
      member.assign(begin, end);  // as below, without the copy
    } else {
      member = json.asString();
    }
  }
};

/// A narrow unsigned member as a signed number, of which it keeps the low bits.
template <class T>
struct LowBits {
  static Json::Value write(T member) { return int(member); }
  static void read(const Json::Value& json, T& member) { member = static_cast<T>(json.asInt()); }
};
template <>
struct Plain<uint8_t> : LowBits<uint8_t> {};
template <>
struct Plain<uint16_t> : LowBits<uint16_t> {};

/// A text that is written up to its first NUL.
struct UpToNul : Plain<std::string> {
  static Json::Value write(const std::string& member) { return member.c_str(); }
};

/// An address in host order as dotted text; an empty or bad text leaves the member.
struct Address {
  static Json::Value write(uint32_t member) { return IpAddress(member).toString(); }
  static void read(const Json::Value& json, uint32_t& member) {
    IpAddress address(member);
    address.setAddress(json.asString());
    member = address.getAddress();
  }
};

/// Logs a text that selects no enumerator, except an empty one.
/// @param used  the text of the enumerator that the member has
inline void logUnknownText(const std::string& text, const char* used) {
  if (text.empty() || text == used) return;
  Logger::log(Logger::LEVEL_PROGRESS, "The text '%s' is not known, it is read as '%s'", text.c_str(), used);
}

/// The enumerator of a text; `otherwise` where the text selects none.
template <class Scope, class Enum>
Enum enumeratorOf(const std::string& text, Enum otherwise) {
  if (const std::optional<Enum> known = Scope::fromText(text)) return *known;
  logUnknownText(text, Scope::toText(otherwise));
  return otherwise;
}

/// An enumeration as its text; a text that `Scope::fromText` does not know leaves the member.
template <class Scope>
struct EnumText {
  template <class Enum>
  static Json::Value write(Enum member) {
    return Scope::toText(member);
  }
  template <class Enum>
  static void read(const Json::Value& json, Enum& member) {
    member = enumeratorOf<Scope>(json.asString(), member);
  }
};

/// Reads a record from an object.
template <class Record>
class Reader {
 public:
  static constexpr bool kReading = true;
  static constexpr bool kDelta = false;

  /// @param object  null: every key is missing
  Reader(Record& record, Json::Value* object) : record_(record), object_(object) {}

  Record& record() { return record_; }

  template <class T, class Codec = Plain<T>>
  void keep(Key key, T Record::*member, Codec codec = {}) {
    read(key, member, codec);
  }
  template <class T, class Codec = Plain<T>>
  void reset(Key key, T Record::*member, Codec codec = {}) {
    if (!read(key, member, codec)) record_.*member = factory<Record>().*member;
  }
  template <class T>
  void resetTo(Key key, T Record::*member, const T& value) {
    if (!read(key, member, Plain<T>())) record_.*member = value;
  }
  template <class T>
  void ifSet(Key key, T Record::*member, const T& /*unset*/) {
    read(key, member, Plain<T>());
  }
  /// A value that is only written.
  template <class T>
  void constant(Key, const T&) {}

  /// A record in an object of its own; a missing object counts as an empty one.
  template <class T>
  void object(Key key, T Record::*member) {
    Json::Value nothing;
    Json::Value* const found = find(key);
    (record_.*member).Deserialize(found ? *found : nothing);
  }
  /// A list of records; it is replaced.
  template <class List>
  void list(Key key, List Record::*member) {
    List& records = record_.*member;
    records.clear();
    if (Json::Value* const found = find(key)) appendRecords(*found, records);
  }

  /// A member that is a record in the same object.
  template <class T>
  void in(T Record::*member) {
    Reader<T> io(record_.*member, object_);
    walk(io, record_.*member);
  }

  // A block is a member that holds an object; it is missing when it is absent, null, or an empty object or array.
  // Blocks stand at the top level of a record.

  /// A missing block becomes a null member, and all its keys are missing.
  template <class Rows>
  void block(Key key, Rows rows) {
    Json::Value& found = insert(key);
    Reader io(record_, found.empty() ? nullptr : &found);
    rows(io);
  }
  /// A missing block becomes a null member, and the members of its rows keep their values.
  template <class Rows>
  void keepBlock(Key key, Rows rows) {
    readIfPresent(&insert(key), rows);
  }
  /// A missing block leaves the object as it is, and the members of its rows keep their values.
  template <class Rows>
  void optionalBlock(Key key, Rows rows) {
    readIfPresent(find(key), rows);
  }
  /// The member of that name, a new null one where there is none.
  Json::Value& insert(Key key) { return demandMember(*object_, key); }

 private:
  Json::Value* find(Key key) {
    // The object is not const: only JsonCpp's look-up is.
    return object_ ? const_cast<Json::Value*>(findMember(*object_, key)) : nullptr;
  }
  template <class T, class Codec>
  bool read(Key key, T Record::*member, Codec) {
    const Json::Value* const found = find(key);
    if (found) Codec::read(*found, record_.*member);
    return found;
  }
  template <class Rows>
  void readIfPresent(Json::Value* block, Rows rows) {
    if (!block || block->empty()) return;
    Reader io(record_, block);
    rows(io);
  }

  Record& record_;
  Json::Value* object_;
};

/// Where a writer's members go: an object, or a block that is created when its first member is written.
class Place {
 public:
  explicit Place(Json::Value& object) : object_(&object) {}
  Place(Json::Value& parent, Key key) : parent_(&parent), key_(key) {}

  Json::Value& get() {
    if (!object_) object_ = &demandMember(*parent_, key_);
    return *object_;
  }

 private:
  Json::Value* object_ = nullptr;
  Json::Value* parent_ = nullptr;
  Key key_;
};

/// Writes a record as members of an object; with `kOnlyChanges` its delta, the rows whose member differs from the
/// factory record's.
template <class Record, bool kOnlyChanges>
class Writer {
 public:
  static constexpr bool kReading = false;
  static constexpr bool kDelta = kOnlyChanges;

  Writer(const Record& record, const Record& factoryRecord, Place place)
      : record_(record), factory_(factoryRecord), place_(place) {}

  template <class T, class Codec = Plain<T>>
  void keep(Key key, T Record::*member, Codec codec = {}) {
    write(key, member, codec);
  }
  template <class T, class Codec = Plain<T>>
  void reset(Key key, T Record::*member, Codec codec = {}) {
    write(key, member, codec);
  }
  template <class T>
  void resetTo(Key key, T Record::*member, const T& /*value*/) {
    write(key, member, Plain<T>());
  }
  /// Never part of a delta.
  template <class T>
  void ifSet(Key key, T Record::*member, const T& unset) {
    if (!kOnlyChanges && record_.*member != unset) write(key, member, Plain<T>());
  }
  template <class T>
  void constant(Key key, const T& value) {
    insert(key) = value;
  }

  template <class T>
  void object(Key key, T Record::*member) {
    (record_.*member).Serialize(insert(key));
  }
  /// An empty list writes nothing; elements behind the last record are left alone.
  template <class List>
  void list(Key key, List Record::*member) {
    if ((record_.*member).empty()) return;
    Json::Value& array = insert(key);
    Json::ArrayIndex i = 0;
    for (const auto& record : record_.*member) record.Serialize(array[i++]);
  }

  template <class T>
  void in(T Record::*member) {
    Writer<T, kOnlyChanges> io(record_.*member, factory_.*member, place_);
    walk(io, record_.*member);
  }

  template <class Rows>
  void block(Key key, Rows rows) {
    Writer io(record_, factory_, Place(place_.get(), key));
    rows(io);
  }
  template <class Rows>
  void keepBlock(Key key, Rows rows) {
    block(key, rows);
  }
  template <class Rows>
  void optionalBlock(Key key, Rows rows) {
    block(key, rows);
  }
  Json::Value& insert(Key key) { return demandMember(place_.get(), key); }

 private:
  template <class T, class Codec>
  void write(Key key, T Record::*member, Codec) {
    const T& value = record_.*member;
    if constexpr (kOnlyChanges) {
      if (value == factory_.*member) return;
    }
    if constexpr (kOnlyChanges && std::is_same_v<Codec, UpToNul>) {
      insert(key) = value;  // a delta has its texts whole
    } else {
      insert(key) = Codec::write(value);
    }
  }

  const Record& record_;
  const Record& factory_;
  Place place_;
};

/// The body of `Deserialize`.
template <class Record>
int readRecord(Record& record, Json::Value& root) {
  Reader<Record> io(record, &root);
  walk(io, record);
  return 0;
}

/// The body of `Serialize`.
template <class Record>
void writeRecord(const Record& record, Json::Value& root) {
  Writer<Record, false> io(record, record, Place(root));
  walk(io, record);
}

/// The body of `SerializeDelta`.
template <class Record>
void writeDelta(const Record& record, Json::Value& root) {
  Writer<Record, true> io(record, factory<Record>(), Place(root));
  walk(io, record);
}

}  // namespace zel
