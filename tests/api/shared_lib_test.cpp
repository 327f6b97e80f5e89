#include <gtest/gtest.h>
#include <elf.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <iterator>
#include <set>
#include <string>
#include <vector>

extern "C" int zy_c_lifecycle(void);

namespace {

// Defined global and weak symbols of an ELF64 file's dynamic symbol table.
std::set<std::string> DefinedDynamicSymbols(const std::string& path) {
  std::ifstream f(path, std::ios::binary);
  std::vector<char> bytes((std::istreambuf_iterator<char>(f)), std::istreambuf_iterator<char>());
  std::set<std::string> out;
  if (bytes.size() < sizeof(Elf64_Ehdr)) return out;
  Elf64_Ehdr eh;
  std::memcpy(&eh, bytes.data(), sizeof eh);
  if (std::memcmp(eh.e_ident, ELFMAG, SELFMAG) != 0 || eh.e_ident[EI_CLASS] != ELFCLASS64) return out;
  auto section = [&](size_t i) {
    Elf64_Shdr sh;
    std::memcpy(&sh, bytes.data() + eh.e_shoff + i * eh.e_shentsize, sizeof sh);
    return sh;
  };
  for (size_t i = 0; i < eh.e_shnum; ++i) {
    const Elf64_Shdr sh = section(i);
    if (sh.sh_type != SHT_DYNSYM) continue;
    const Elf64_Shdr strtab = section(sh.sh_link);
    for (size_t k = 0; k < sh.sh_size / sizeof(Elf64_Sym); ++k) {
      Elf64_Sym sym;
      std::memcpy(&sym, bytes.data() + sh.sh_offset + k * sizeof(Elf64_Sym), sizeof sym);
      const int bind = ELF64_ST_BIND(sym.st_info);
      if (sym.st_shndx == SHN_UNDEF || (bind != STB_GLOBAL && bind != STB_WEAK)) continue;
      out.insert(bytes.data() + strtab.sh_offset + sym.st_name);
    }
  }
  return out;
}

TEST(SharedLibrary, ExportsTheFiveFunctionsAndNothingElse) {
  const std::set<std::string> symbols = DefinedDynamicSymbols(ZY_SHARED_LIB_PATH);
  const std::set<std::string> expected = {"CreateKoTrackingAlgo", "StartKoTrackingAlgo",
                                          "ProcessKoTrackingAlgo", "ResetKoTrackingAlgo",
                                          "DestroyKoTrackingAlgo"};
  std::set<std::string> extra;
  // Version-node names (the linker's own absolute symbols) are not code of the project.
  for (const auto& s : symbols) {
    if (!expected.count(s) && s.rfind("ZY", 0) != 0) extra.insert(s);
  }
  for (const auto& e : expected) EXPECT_TRUE(symbols.count(e)) << e;
  EXPECT_TRUE(extra.empty()) << "unexpected export: " << *extra.begin();
}

TEST(SharedLibrary, CCallerDrivesTheLifecycle) { EXPECT_EQ(zy_c_lifecycle(), 0); }

}  // namespace
