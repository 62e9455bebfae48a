#include "tests/packaging/library_file.h"

#include <cxxabi.h>
#include <elf.h>

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <memory>

namespace zel::test {

namespace {

template <class T>
const T* at(const std::string& file, std::size_t offset) {
  return reinterpret_cast<const T*>(file.data() + offset);
}

std::size_t symbolOf(const ElfW(Rela) & relocation) {
  return sizeof relocation.r_info == 8 ? relocation.r_info >> 32 : relocation.r_info >> 8;
}
std::size_t symbolOf(const ElfW(Rel) & relocation) {
  return sizeof relocation.r_info == 8 ? relocation.r_info >> 32 : relocation.r_info >> 8;
}

template <class Relocation>
void collect(const std::string& file, const ElfW(Shdr) & section, std::vector<std::size_t>& places) {
  const auto* relocation = at<Relocation>(file, section.sh_offset);
  for (std::size_t left = section.sh_size / sizeof *relocation; left > 0; --left) {
    places.push_back(symbolOf(*relocation++));
  }
}

}  // namespace

LibraryFile::LibraryFile(const std::string& path) {
  std::ifstream stream(path, std::ios::binary);
  const std::string file(std::istreambuf_iterator<char>(stream), {});
  if (file.size() < sizeof(ElfW(Ehdr))) return;
  const auto* header = at<ElfW(Ehdr)>(file, 0);
  const auto* sections = at<ElfW(Shdr)>(file, header->e_shoff);
  std::vector<std::size_t> places;
  for (std::size_t i = 0; i < header->e_shnum; ++i) {
    const auto& section = sections[i];
    if (section.sh_type == SHT_RELA) collect<ElfW(Rela)>(file, section, places);
    if (section.sh_type == SHT_REL) collect<ElfW(Rel)>(file, section, places);
    if (section.sh_type != SHT_DYNSYM) continue;
    const char* names = at<char>(file, sections[section.sh_link].sh_offset);
    const auto* symbol = at<ElfW(Sym)>(file, section.sh_offset);
    for (std::size_t left = section.sh_size / sizeof *symbol; left > 0; --left, ++symbol) {
      symbols_.push_back({names + symbol->st_name, symbol->st_shndx != SHN_UNDEF, symbol->st_value, symbol->st_size});
    }
  }
  for (const std::size_t place : places) {
    if (place != 0) lookedUp_.push_back(symbols_.at(place));  // 0: a place in this library, without a name
  }
}

std::string demangled(const std::string& name) {
  int status = 0;
  const std::unique_ptr<char, decltype(&std::free)> text(abi::__cxa_demangle(name.c_str(), nullptr, nullptr, &status),
                                                         &std::free);
  return status == 0 ? text.get() : name;
}

}  // namespace zel::test
