// The order of the virtual operations in every public class, read from the libraries as the dynamic linker sees them:
// programs call a virtual operation by its number, so an order that changes breaks each of them in silence.

#include <dlfcn.h>
#include <gmock/gmock.h>

#include <algorithm>
#include <map>
#include <string>
#include <vector>

#include "tests/packaging/library_file.h"
#include "tests/support/wait_until.h"

using zel::test::demangled;
using zel::test::LibraryFile;

namespace {

using Table = std::vector<std::string>;
using Tables = std::map<std::string, Table>;  // by class

/// What stands for a destructor, which takes two slots: most are inline and so have no exported name, and an abstract
/// class has none.
constexpr char kDestructor[] = "~";

/// The exported names of a library by their addresses: the optimizer lets functions of the same code share one.
using Names = std::multimap<const void*, std::string>;
Names namesOf(void* library, const LibraryFile& file) {
  Names names;
  for (const auto& symbol : file.symbols()) {
    if (symbol.defined) names.emplace(dlsym(library, symbol.name.c_str()), demangled(symbol.name));
  }
  return names;
}

/// The function at an address, by its exported name, whichever library it lives in; of several names that of the class.
std::string functionAt(void* address, const std::string& ofClass, const Names& names) {
  const auto [first, last] = names.equal_range(address);
  const auto own = std::find_if(first, last, [&](const auto& row) { return row.second.rfind(ofClass + "::", 0) == 0; });
  Dl_info info{};
  if (own == last && (dladdr(address, &info) == 0 || info.dli_saddr != address)) return kDestructor;
  const std::string name = own == last ? demangled(info.dli_sname) : own->second;
  return name.find("::~") == std::string::npos ? name : kDestructor;
}

/// The virtual table of every class that the library exports.
Tables tablesOf(const char* path) {
  const std::string prefix = "vtable for ";
  Tables tables;
  void* library = dlopen(path, RTLD_NOW);
  if (library == nullptr) return tables;
  const LibraryFile file(path);
  const Names names = namesOf(library, file);
  for (const auto& symbol : file.symbols()) {
    const std::string name = demangled(symbol.name);
    if (!symbol.defined || name.compare(0, prefix.size(), prefix) != 0) continue;
    auto* const* slot = static_cast<void* const*>(dlsym(library, symbol.name.c_str()));
    const std::string ofClass = name.substr(prefix.size());
    Table& table = tables[ofClass];
    // Two words stand before the first operation: the offset to the whole object and the type's description.
    for (std::size_t i = 2; i < symbol.size / sizeof(void*); ++i) table.push_back(functionAt(slot[i], ofClass, names));
  }
  dlclose(library);
  return tables;
}

/// A record's operations, in the order of `IJsonSerializable`.
Table record(const std::string& name) {
  return {kDestructor, kDestructor, name + "::Serialize(Json::Value&) const", name + "::Deserialize(Json::Value&)"};
}

Tables records(const std::vector<std::string>& names) {
  Tables tables;
  for (const std::string& name : names) tables[name] = record(name);
  return tables;
}

std::string describes(const std::string& name) {
  const std::string text = "std::__cxx11::basic_string<char, std::char_traits<char>, std::allocator<char> >";
  return name + "::getCommandDescription(unsigned int, " + text + "&)";
}

constexpr char kPure[] = "__cxa_pure_virtual";

class VirtualTables : public testing::Test {
 protected:
  void SetUp() override {
    if (zel::test::kSanitized) GTEST_SKIP() << "the address sanitizer puts bytes of its own behind each table";
  }
};

TEST_F(VirtualTables, OfTheCommonLibraryKeepTheirOrder) {
  Tables expected = records({"EthBasicInfo", "SfpInfo", "VideoFormat"});
  expected["IJsonSerializable"] = {kDestructor, kDestructor, kPure, kPure};
  expected["ClientJsonApi"] = {kDestructor, kDestructor, kPure, describes("ClientJsonApi"),
                               "ClientJsonApi::getClientTimeout()"};
  expected["SubscribeJsonClient"] = {kDestructor, kDestructor};
  EXPECT_EQ(tablesOf(ZEL_COMMON_TYPES), expected);
}

TEST_F(VirtualTables, OfTheClientLibraryKeepTheirOrder) {
  Tables expected =
      records({"BitstreamType", "BoardModel", "EthIpV4Cfg", "EthMode", "FanSpeed", "NetworkStackStatus",
               "NmosParameters", "SysParameters", "SysParametersDynamic", "SystemBasicInfo", "SystemError",
               "SystemTemperature", "VideoTimingParameters", "Vlan", "WhiteListDb", "WhiteListEntry"});
  expected["SysMgrJsonClient"] = {kDestructor, kDestructor, "SysMgrJsonClient::getIpcConnectAddress[abi:cxx11]()",
                                  describes("SysMgrJsonClient"), "ClientJsonApi::getClientTimeout()"};
  const auto subscriber = [](const std::string& name) {
    return Table{kDestructor,
                 kDestructor,
                 name + "::notifyStoredParametersUpdate(SysParameters&)",
                 name + "::notifyDynamicInfoUpdate(SysParametersDynamic&)",
                 name + "::notifyRebootRequest()",
                 name +
                     "::notifyMcastWhitelistUpdate(std::__cxx11::list<WhiteListEntry, "
                     "std::allocator<WhiteListEntry> >&)"};
  };
  expected["SysmgrSubscriber"] = subscriber("SysmgrSubscriber");
  expected["SystemDefaultCfg"] = subscriber("SystemDefaultCfg");
  EXPECT_EQ(tablesOf(ZEL_SYS_MGR_API), expected);
}

}  // namespace
