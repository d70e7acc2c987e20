// The library as the control sees it: loaded by name, every entry point
// found, and nothing else exported (read from the ELF dynamic symbol table).
#include <dlfcn.h>
#include <elf.h>

#include <algorithm>
#include <cstring>
#include <set>
#include <string>

#include <gtest/gtest.h>

#include "support.h"

namespace {

const std::set<std::string> kExports = {
    "TXTFileChangeDelimitationChar",
    "EncaseEachFieldWithQuotes",
    "CSVFileChangeDelimitationChar",
    "PadCSVFileWithASpaces",
    "RemoveEmptyLinesFromCSVFile",
    "CropCSVFileToSpecificRows",
    "CropCSVFileToSpecificColumns",
    "PadCSVFileForFixedLengthFields",
    "RemoveControlCharactersFromFileInQuotesOnly",
    "TrimCSVFile",
    "ConcatenateTwoTextFiles",
    "ConcatenateTwoTextFilesEx",
    "DeleteEmptyLinesFromTextFile",
    "IsUnicodeFile",
    "FillToDoItemsArray",
    "ConcatenateSpreadsheet",
    "ConcatenateAll",
    "ConcatenateAllSkipFirstLine",
    "ConcatenateSpreadsheetAddColumnWithOriginalFileName",
};

// Names of the symbols a shared object defines for others (64-bit ELF).
std::set<std::string> DefinedDynamicSymbols(const std::string& image) {
  std::set<std::string> names;
  if (image.size() < sizeof(Elf64_Ehdr)) return names;
  Elf64_Ehdr eh;
  std::memcpy(&eh, image.data(), sizeof eh);
  for (int i = 0; i < eh.e_shnum; ++i) {
    Elf64_Shdr sh;
    std::memcpy(&sh, image.data() + eh.e_shoff + static_cast<size_t>(i) * eh.e_shentsize, sizeof sh);
    if (sh.sh_type != SHT_DYNSYM) continue;
    Elf64_Shdr strtab;
    std::memcpy(&strtab, image.data() + eh.e_shoff + static_cast<size_t>(sh.sh_link) * eh.e_shentsize, sizeof strtab);
    for (size_t off = 0; off + sizeof(Elf64_Sym) <= sh.sh_size; off += sizeof(Elf64_Sym)) {
      Elf64_Sym sym;
      std::memcpy(&sym, image.data() + sh.sh_offset + off, sizeof sym);
      const int bind = ELF64_ST_BIND(sym.st_info);
      if (sym.st_shndx == SHN_UNDEF || sym.st_name == 0 || (bind != STB_GLOBAL && bind != STB_WEAK)) continue;
      names.insert(image.data() + strtab.sh_offset + sym.st_name);
    }
  }
  return names;
}

TEST(SharedLibrary, LoadsByNameAndExportsExactlyTheTextFunctions) {
  void* handle = dlopen("libravelin.so", RTLD_NOW | RTLD_LOCAL);
  ASSERT_NE(handle, nullptr) << dlerror();
  for (const std::string& name : kExports) EXPECT_NE(dlsym(handle, name.c_str()), nullptr) << name;

  using Fill = int32_t(const char*, int32_t*, int32_t);
  auto* fill = reinterpret_cast<Fill*>(dlsym(handle, "FillToDoItemsArray"));
  ASSERT_NE(fill, nullptr);
  int32_t pairs[4] = {0, 0, 0, 0};
  EXPECT_EQ(fill("4-2", pairs, 4), 1);
  EXPECT_EQ(pairs[0], 2);
  EXPECT_EQ(pairs[1], 4);

  Dl_info info;
  ASSERT_NE(dladdr(reinterpret_cast<void*>(fill), &info), 0);
  const std::set<std::string> defined = DefinedDynamicSymbols(ravelin_test::ReadFile(info.dli_fname));
  EXPECT_EQ(defined, kExports) << "from " << info.dli_fname;
  dlclose(handle);
}

}  // namespace
