// Whose functions, tables and variables the libraries use: a name that the dynamic linker looks up is found in the
// program first, so a class of the program's that has the same name takes the place of the library's.

#include <gmock/gmock.h>

#include <fstream>
#include <iterator>
#include <set>
#include <string>
#include <vector>

#include "tests/packaging/library_file.h"

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::IsSubsetOf;
using zel::test::demangled;
using zel::test::LibraryFile;

namespace {

/// The library's own definitions that are looked up by name nevertheless.
std::set<std::string> replaceable(const char* path) {
  std::set<std::string> names;
  const LibraryFile library(path);
  for (const auto& symbol : library.lookedUp()) {
    if (symbol.defined) names.insert(demangled(symbol.name));
  }
  return names;
}

/// The class that a name belongs to.
std::string classOf(const std::string& name) {
  const std::string scope = name.substr(0, name.find_first_of(":["));  // "X::f()", "variable[abi:cxx11]"
  return scope.substr(scope.rfind(' ') + 1);                           // "typeinfo for X"
}

TEST(BoundNames, OfTheCommonLibraryAreAllItsOwn) { EXPECT_THAT(replaceable(ZEL_COMMON_TYPES), IsEmpty()); }

// A program holds the variable itself, and the library has to use the program's. The table is an inline constant, of
// which g++ makes one for the process.
TEST(BoundNames, OfTheClientLibraryAreItsOwnExceptTheVariables) {
  const std::set<std::string> names = replaceable(ZEL_SYS_MGR_API);
  EXPECT_THAT(names, Contains("dhcp_lease[abi:cxx11]"));
  EXPECT_THAT(names, IsSubsetOf({"dhcp_lease[abi:cxx11]", "SysmgrPublisher::kNotifications"}));
}

TEST(BoundNames, OfPublicClassesAreListedInTheDocuments) {
  std::ifstream stream(ZEL_SOURCE_DIR "/docs/api-rules.md");
  const std::string rules(std::istreambuf_iterator<char>(stream), {});
  for (const char* const path : {ZEL_COMMON_TYPES, ZEL_SYS_MGR_API}) {
    const LibraryFile library(path);
    for (const auto& symbol : library.symbols()) {
      const std::string name = classOf(demangled(symbol.name));
      if (!symbol.defined || symbol.size == 0) continue;  // of size 0: the version node itself
      EXPECT_THAT(rules, HasSubstr("`" + name + "`")) << symbol.name;
    }
  }
}

// These have state that is one for the process, or are bases of the application's classes: docs/api-rules.md reserves
// their names. Of the namespace zel it is the function setTimeout, which may be missing.
TEST(BoundNames, AcrossTheLibrariesAreTheReservedOnes) {
  const LibraryFile common(ZEL_COMMON_TYPES);
  const LibraryFile client(ZEL_SYS_MGR_API);
  std::set<std::string> exported;
  for (const auto& symbol : common.symbols()) {
    if (symbol.defined) exported.insert(symbol.name);
  }
  std::set<std::string> classes;
  for (const auto& symbol : client.symbols()) {
    if (!symbol.defined && exported.count(symbol.name) > 0) classes.insert(classOf(demangled(symbol.name)));
  }
  EXPECT_THAT(classes, ElementsAre("ClientJsonApi", "ErrorAuxMsg", "Logger", "SubscribeJsonClient", "zel"));
}

}  // namespace
