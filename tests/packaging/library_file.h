#pragma once

#include <link.h>

#include <cstddef>
#include <string>
#include <vector>

namespace zel::test {

/// A shared library as it lies on disk.
class LibraryFile {
 public:
  struct Symbol {
    std::string name;
    bool defined;  ///< by this library
    ElfW(Addr) address;
    std::size_t size;
  };

  explicit LibraryFile(const std::string& path);

  /// What the dynamic linker sees of it: what it exports and what it needs of other libraries.
  const std::vector<Symbol>& symbols() const { return symbols_; }
  /// The symbols that the dynamic linker looks up by name for it, wherever in the process they are defined.
  const std::vector<Symbol>& lookedUp() const { return lookedUp_; }

 private:
  std::vector<Symbol> symbols_;
  std::vector<Symbol> lookedUp_;
};

/// The name as the source has it.
std::string demangled(const std::string& name);

}  // namespace zel::test
